#include "numerics/tkNMFactorisation.h"

#include "foundation/tkScratch.h"
#include "numerics/kernels/tkNMInstructions.h"
#include "numerics/kernels/tkNMMahalanobis.h"

#include <algorithm>
#include <cmath>

namespace
{
double deviation(const tkNMFactorisation& f, const double* x, std::size_t j)
{
    const bool hasTerm = f.covariance.measurements[j].role != tkNMCovarianceFactor::eSameEverywhere;
    return hasTerm ? (x[j] - f.mean[j]) - f.compensation[j] : 0.0;
}

/// For a finite point: nothing is farther than a squared distance that overflowed.
double cut(double square)
{
    return square <= tkNMFactorisation::largestSquare ? square : tkNMFactorisation::largestSquare;
}

bool isFiniteAt(const tkNMFactorisation& f, const double* x)
{
    for (std::size_t j = 0; j < f.dimension(); ++j)
        if (!std::isfinite(deviation(f, x, j)))
            return false;
    return true;
}

double squaredDistanceByDefinition(const tkNMFactorisation& f, const double* x)
{
    const std::size_t d = f.dimension();
    double q[8] = {};
    for (std::size_t i = 0; i < (d + 7) / 8 * 8; ++i)
    {
        double y = 0.0;
        for (std::size_t j = 0; j < std::min(i / 8 * 8 + 8, d); ++j)
            y += (i < d && j <= i ? f.covariance.w(i, j) : 0.0) * deviation(f, x, j);
        q[i % 8] += y * y;
    }
    return ((q[0] + q[4]) + (q[2] + q[6])) + ((q[1] + q[5]) + (q[3] + q[7]));
}
} // namespace

double tkNMFactorisation::squaredDistance(const double* x, tkNMInstructions instructions) const
{
    if (dimension() == 1)
    {
        const double y = covariance.w(0, 0) * deviation(*this, x, 0);
        return y * y;
    }
    if (instructions == tkNMInstructions::Definition)
        return squaredDistanceByDefinition(*this, x);
    return tkNMSquaredMahalanobis(*this, x, instructions);
}

double tkNMFactorisation::logDensity(const double* x, tkNMInstructions instructions) const
{
    double square = squaredDistance(x, instructions);
    if (!(square <= largestSquare) && isFiniteAt(*this, x))
        square = largestSquare;
    return logPeak - roundedToGrid(0.5 * square);
}

double tkNMFactorisation::logMarginal(const double* x, const bool* valid, tkNMInstructions instructions) const
{
    const std::size_t d = dimension();
    if (std::find(valid, valid + d, false) == valid + d)
        return logDensity(x, instructions);
    tkScratch<double, 256> v(d);
    bool isFinite = true;
    for (std::size_t j = 0; j < d; ++j)
        if (valid[j])
        {
            v[j] = deviation(*this, x, j);
            isFinite = isFinite && std::isfinite(v[j]);
        }
    const tkNMCovarianceFactor::Marginal marginal = covariance.marginal(v.data(), valid, instructions);
    const double square = isFinite ? cut(marginal.square) : marginal.square;
    return marginal.logPeak - roundedToGrid(0.5 * square);
}
