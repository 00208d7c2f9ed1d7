#ifndef BENCHMARKS_MACHINE_H
#define BENCHMARKS_MACHINE_H

#include <vector>

/// What the machine can do: loops without anything but the work itself, compiled for several instruction sets and
/// chosen when the program starts.

/// Reads the values once.
double sumOf(const double* values, long count);

/// sums[i] += values[i] * factor
void multiplyAdd(double* sums, const double* values, double factor, long count);

/// The plain way to search with the processor's wide instructions: all squared distances, row by row, in double, and
/// the k smallest kept. Returns the indices of the k nearest rows, nearest first.
std::vector<long> nearestByScan(const double* rows, long numRows, long columns, const double* query, long k);

/// The same where each row lies somewhere else.
std::vector<long> nearestByScan(const std::vector<const double*>& rows, long columns, const double* query, long k);

#endif
