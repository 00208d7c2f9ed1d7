#ifndef NUMERICS_KERNELS_TKNMMAHALANOBIS_H
#define NUMERICS_KERNELS_TKNMMAHALANOBIS_H

#include "numerics/tkNMFactorisation.h"

/// Computes tkNMFactorisation::squaredDistance for one distribution of two or more measurements, eight rows of W side
/// by side: the blocks of tkNMTriangle have them so. Cost in proportion to dimension², half of it reading W. *Requires*
/// instructions <= tkNMBestInstructions(); Definition stands for Portable. tkNMMahalanobis_test.cpp holds it to the
/// bits.
TK_EXPORT double tkNMSquaredMahalanobis(const tkNMFactorisation& factorisation, const double* x,
                                        tkNMInstructions instructions);

#endif
