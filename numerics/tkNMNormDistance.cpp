#include "numerics/tkNMNormDistance.h"

#include "numerics/tkNMElementary.h"

#include <cmath>

double tkNMNormDistance(const double* a, const double* b, long n, double p)
{
    double sum = 0.0;
    for (long i = 0; i < n; ++i)
        sum += tkNMElementary::pow(std::fabs(a[i] - b[i]), p);
    return tkNMElementary::pow(sum, 1.0 / p);
}
