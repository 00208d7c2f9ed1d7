#ifndef NUMERICS_KERNELS_TKNMCROSSPRODUCTS_H
#define NUMERICS_KERNELS_TKNMCROSSPRODUCTS_H

#include "foundation/tkExport.h"
#include "numerics/tkNMTriangle.h"

#include <cstddef>

enum class tkNMInstructions : int;

/// Computes the cross products of tkNMStatistics::add for several patterns at once: S_ij += a_i b_j for j <= i, for
/// `count` pairs of vectors a and b in turn.
///
/// A pair begins `stride` doubles after the one before it. Its vectors have S.dimension() elements and then 0.0 up to a
/// multiple of eight. Each element of S is read and written once for all pairs: cost in proportion to count dimension².
/// *Requires* more than one dimension and instructions <= tkNMBestInstructions(); Definition stands for Portable.
/// tkNMCrossProducts_test.cpp holds it to the bits.
TK_EXPORT void tkNMAddCrossProducts(tkNMTriangle& s, const double* a, const double* b, std::size_t count,
                                    std::size_t stride, tkNMInstructions instructions);

#endif
