#ifndef NUMERICS_TKNMSYMMETRICEIGEN_H
#define NUMERICS_TKNMSYMMETRICEIGEN_H

#include "foundation/tkExport.h"

#include <cstddef>

/// Eigenvalues and eigenvectors of a symmetric matrix, by Householder's reduction to a tridiagonal matrix and the QL
/// algorithm with implicit shifts (Martin, Reinsch, Wilkinson, Numerische Mathematik 11, 1968, 181-195; Dubrulle,
/// Martin, Wilkinson, ibid. 12, 1968, 377-383).
///
/// `matrix` has dimension² elements, row by row, of magnitudes around 1. Afterwards row i has the eigenvector of length
/// 1 that belongs to values[i]; the eigenvalues come in no particular order, each with an error of some 2^-53 times the
/// largest magnitude of an eigenvalue. False if an eigenvalue did not converge within 60 steps, as happens for elements
/// that are not finite; `matrix` and `values` then mean nothing.
///
/// Uses + - * / and square roots in a fixed order alone, so that the bits are the same everywhere. Cost in proportion
/// to dimension³.
TK_EXPORT bool tkNMSymmetricEigen(std::size_t dimension, double* matrix, double* values);

#endif
