#ifndef NUMERICS_TKNMSHAREDSUMS_H
#define NUMERICS_TKNMSHAREDSUMS_H

#include "numerics/tkNMTriangle.h"

#include <cstddef>

/// Sums that share their terms but for exceptions: s_i = sum over j != i, in ascending j, of x_ij, where x_ij is t_j
/// unless there is an exception for i and j.
///
/// Each sum starts at 0.0 and gets its terms one after the other, one rounding each; many sums grow side by side. Every
/// Level follows this formula, and their results have the same bits, but for which NaN a NaN is.
class TK_EXPORT tkNMSharedSums
{
public:
    /// Another term x_ij.
    struct Exception
    {
        std::size_t sum;   // i
        std::size_t place; // j, not i
        double term;
    };

    /// So many terms are added to each sum at a time.
    static constexpr std::size_t group = 8;

    /// The count is a multiple of `group`; where there are fewer sums, terms 0.0 follow. *Requires* the exceptions in
    /// ascending place / group, and within a group in ascending sum; of several for the same i and j the last counts.
    /// Their terms are used up. *Requires* level <= tkNMTriangle::bestLevel().
    static void compute(double* sums, const double* terms, std::size_t count, Exception* exceptions,
                        std::size_t numExceptions, tkNMTriangle::Level level = tkNMTriangle::bestLevel());
};

#endif
