#ifndef NUMERICS_TKNMREFERENCEDEVIATION_H
#define NUMERICS_TKNMREFERENCEDEVIATION_H

#include "foundation/tkExport.h"

/// The standard deviation of one measurement over all categories together.
///
/// With counts n_c, means m_c + r_c (a double and its compensation), sums of squares S_c, N the sum of the n_c and o
/// the first category:
///     e_c = (m_c - m_o) + (r_c - r_o),   g = (sum of n_c e_c) / N,
///     reference² = (sum of S_c + n_c (e_c - g)²) / N,
/// where equal means give exactly 0. The categories come twice, in the same order.
class TK_EXPORT tkNMReferenceDeviation
{
public:
    /// First every category's mean ...
    void addMean(double count, double mean, double compensation);
    /// ... then every category's squares.
    void addSquares(double count, double mean, double compensation, double squares);

    /// The deviation; 0.0 if it is at most 2^-52 of the largest magnitude of a mean, so that rounding explains it: the
    /// measurement was the same everywhere.
    double value() const;

private:
    double distance_(double mean, double compensation) const;

    double count_ = 0.0;
    double origin_ = 0.0;
    double originCompensation_ = 0.0;
    double distances_ = 0.0; // sum of n_c e_c
    double squares_ = 0.0;
    double largestMean_ = 0.0;
};

#endif
