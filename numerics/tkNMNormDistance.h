#ifndef NUMERICS_TKNMNORMDISTANCE_H
#define NUMERICS_TKNMNORMDISTANCE_H

#include "foundation/tkExport.h"

/// The norm (Minkowski) distance of order p > 0 between n numbers each, as it is defined to the last bit:
///
///   pow(sum, 1.0 / p),  sum = ((0.0 + pow(|a_0 - b_0|, p)) + pow(|a_1 - b_1|, p)) + ...
TK_EXPORT double tkNMNormDistance(const double* a, const double* b, long n, double p);

#endif
