#ifndef NUMERICS_KERNELS_TKNMWELFORDSTEP_H
#define NUMERICS_KERNELS_TKNMWELFORDSTEP_H

#include "numerics/kernels/tkNMLanes.h"

/// Computes the step of tkNMStatistics::add for one measurement, or for a register of measurements side by side: Real
/// is a double or such a register. `n` is the count after the pattern. No memory is touched; tkNMWelfordStep_test.cpp
/// holds it to the bits.
template <class Real>
TK_ALWAYS_INLINE void tkNMWelfordStep(const Real& x, const Real& n, Real& mean, Real& compensation, Real& before,
                                      Real& after)
{
    before = (x - mean) - compensation;
    const Real step = before / n + compensation;
    const Real sum = mean + step;
    const Real added = sum - mean;
    compensation = (mean - (sum - added)) + (step - added);
    mean = sum;
    after = (x - mean) - compensation;
}

#endif
