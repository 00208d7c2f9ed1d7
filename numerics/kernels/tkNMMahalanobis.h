#ifndef NUMERICS_KERNELS_TKNMMAHALANOBIS_H
#define NUMERICS_KERNELS_TKNMMAHALANOBIS_H

#include "numerics/tkNMFactorisation.h"

/// Computes tkNMFactorisation::squaredDistance for one distribution of two or more measurements, eight rows of W side
/// by side: the blocks of tkNMTriangle have them so. Cost in proportion to dimension², half of it reading W. *Requires*
/// instructions <= tkNMBestInstructions(); Definition stands for Portable. tkNMMahalanobis_test.cpp holds it to the
/// bits.
TK_EXPORT double tkNMSquaredMahalanobis(const tkNMFactorisation& factorisation, const double* x,
                                        tkNMInstructions instructions);

/// Computes the projections of tkNMCovarianceFactor::marginal in the same way. Returns the square of the residual, and
/// those of the columns at the `invalid` measurements, ascending, in `squares`. `v` has 0.0 for these, and after the
/// last measurement up to a multiple of eight.
TK_EXPORT double tkNMProject(const tkNMCovarianceFactor& factor, const double* v, const std::size_t* invalid,
                             std::size_t numInvalid, double* squares, tkNMInstructions instructions);

#endif
