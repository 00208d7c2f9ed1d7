#ifndef NUMERICS_KERNELS_TKNMELEMENTARYKERNEL_H
#define NUMERICS_KERNELS_TKNMELEMENTARYKERNEL_H

#include "foundation/tkExport.h"
#include "numerics/kernels/tkNMInstructions.h"

#include <cstddef>

/// Computes the functions of tkNMElementary for `count` arguments x, several in a register.
///
/// `results` may be x; otherwise they do not overlap. An argument outside of the range where one formula serves all
/// (a special value, a subnormal number, a result near overflow or underflow) costs what the plain function costs.
/// *Requires* instructions <= tkNMBestInstructions(). tkNMElementaryKernel_test holds every result to the bits of the
/// plain function.
struct TK_EXPORT tkNMElementaryKernel
{
    static void exp(const double* x, double* results, std::size_t count, tkNMInstructions instructions);
    static void log(const double* x, double* results, std::size_t count, tkNMInstructions instructions);
    /// x^y with one exponent for all. Fast for x > 0; 2 and 3 cost a few multiplications.
    static void pow(const double* x, double y, double* results, std::size_t count, tkNMInstructions instructions);
};

#endif
