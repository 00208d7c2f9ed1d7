#ifndef NUMERICS_KERNELS_TKNMFOLLOW_H
#define NUMERICS_KERNELS_TKNMFOLLOW_H

#include "numerics/kernels/tkNMLanes.h"

/// The step of a mean that follows one pattern. With n the new count, m the mean before and m' after, per pattern x:
///     m' = m + (x - m) / n,   S_ij += (x_i - m_i) (x_j - m'_j) for j <= i.
/// A mean that is one double would be wrong by half a unit in its last place at every pattern, and S by as much
/// times the deviation: of 16 digits, as many are lost as the mean has more than the deviation. The remainder
/// (Knuth's two-sum of mean and step) keeps all of them. Real is a double, or several side by side.
template <class Real>
TK_ALWAYS_INLINE void tkNMFollow(const Real& x, const Real& n, Real& mean, Real& remainder, Real& before, Real& after)
{
    before = (x - mean) - remainder;
    const Real step = before / n + remainder;
    const Real sum = mean + step;
    const Real added = sum - mean;
    remainder = (mean - (sum - added)) + (step - added);
    mean = sum;
    after = (x - mean) - remainder;
}

#endif
