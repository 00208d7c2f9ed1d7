#ifndef NUMERICS_KERNELS_TKNMRISKKERNEL_H
#define NUMERICS_KERNELS_TKNMRISKKERNEL_H

#include "foundation/tkExport.h"
#include "numerics/kernels/tkNMInstructions.h"
#include "numerics/tkNMDecision.h"

/// Computes tkNMDecision::compute() and tkNMDecision::rank(), with their requirements: eight states side by side, no
/// branch that depends on a number. n^2 / 8 steps. tkNMRiskKernel_test.cpp holds it to the bits.
namespace tkNMRiskKernel
{
TK_EXPORT double compute(const double* scores, double* weights, double weightSum, double* risks, std::size_t n,
                         double cost, tkNMDecision::CostOverride* overrides, std::size_t numOverrides,
                         tkNMInstructions instructions);

TK_EXPORT void rank(const double* risks, std::uint64_t* ranks, std::size_t n, tkNMInstructions instructions);
} // namespace tkNMRiskKernel

#endif
