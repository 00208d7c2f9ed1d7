#ifndef TESTS_NUMERICS_FACTORISATIONS_H
#define TESTS_NUMERICS_FACTORISATIONS_H

#include "numerics/tkNMFactorisation.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <random>
#include <vector>

/// Factorisations of random numbers, and what they give by the formula of tkNMFactorisation's comment, written out.
namespace factorisations
{
inline bool haveSameBits(double a, double b)
{
    return std::isnan(a) ? std::isnan(b) : a == b && std::signbit(a) == std::signbit(b);
}

/// Usual numbers and, if `isHostile`, every so often an unusual one.
inline double anyNumber(std::mt19937_64& generator, bool isHostile)
{
    std::normal_distribution<double> deviate;
    const double usual = deviate(generator) * std::exp(deviate(generator));
    if (!isHostile)
        return usual;
    const double strange[] = {0.0,    -0.0,   HUGE_VAL, -HUGE_VAL, std::nan(""), 1e300,
                              -1e200, 5e-324, 1e-310,   1e155,     -1e150,       1e-170};
    const std::size_t choice = generator() % 60;
    return choice < std::size(strange) ? strange[choice] : usual;
}

inline bool hasTerm(const tkNMFactorisation& f, std::size_t j)
{
    return f.covariance.measurements[j].role != tkNMCovarianceFactor::eSameEverywhere;
}

/// With hostile means, compensations or elements of W, as asked for. Every tenth measurement has no term.
inline tkNMFactorisation random(std::size_t d, std::mt19937_64& generator, bool means = false,
                                bool compensations = false, bool elements = false)
{
    tkNMFactorisation f;
    f.covariance.w = tkNMTriangle(d);
    f.logPeak = anyNumber(generator, false);
    f.covariance.lnDeterminant = anyNumber(generator, false);
    for (std::size_t i = 0; i < d; ++i)
    {
        f.mean.push_back(anyNumber(generator, means));
        f.compensation.push_back(1e-17 * anyNumber(generator, compensations));
        const bool isTerm = generator() % 10 != 0;
        if (isTerm)
            f.covariance.measurements.push_back(
                {tkNMCovarianceFactor::eVaries, static_cast<int>(generator() % 41) - 20});
        else
            f.covariance.measurements.push_back({tkNMCovarianceFactor::eSameEverywhere, 0});
        for (std::size_t j = 0; j <= i; ++j)
            f.covariance.w(i, j) = hasTerm(f, i) && hasTerm(f, j) ? anyNumber(generator, elements) : 0.0;
    }
    return f;
}

/// With zeros above the diagonal, below the last row, and for the deviations of measurements without a term.
inline double squaredDistance(const tkNMFactorisation& f, const double* x)
{
    const std::size_t d = f.mean.size();
    std::vector<double> v(d);
    for (std::size_t j = 0; j < d; ++j)
        v[j] = hasTerm(f, j) ? (x[j] - f.mean[j]) - f.compensation[j] : 0.0;
    if (d == 1)
        return (f.covariance.w(0, 0) * v[0]) * (f.covariance.w(0, 0) * v[0]);
    double q[8] = {};
    for (std::size_t i = 0; i < (d + 7) / 8 * 8; ++i)
    {
        double y = 0.0;
        for (std::size_t j = 0; j < std::min(i / 8 * 8 + 8, d); ++j)
            y += (i < d && j <= i ? f.covariance.w(i, j) : 0.0) * v[j];
        q[i % 8] += y * y;
    }
    return ((q[0] + q[4]) + (q[2] + q[6])) + ((q[1] + q[5]) + (q[3] + q[7]));
}
} // namespace factorisations

#endif
