// The density of a nearly singular covariance jumped, and depended on the order of the measurements.
//
// A covariance counted as singular if a pivot of its Cholesky factor was below 2^-33 of the variance, and then each
// variance got a ridge of 2^-13: with a little less noise, a log density changed by 7. Pivots depend on the order of
// the measurements, so that the same set written in another order had another density, by as much.
//
// Now eigenvalues of the correlation matrix below a floor are raised to it, which is continuous in the data and does
// not know an order.

#include "numerics/tkNMNormal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>
#include <vector>

namespace
{
using Pattern = std::vector<double>;

double logDensity(const std::vector<Pattern>& patterns, const std::vector<std::size_t>& order, const Pattern& x)
{
    const auto ordered = [&order](const Pattern& pattern)
    {
        Pattern result;
        for (const std::size_t j : order)
            result.push_back(pattern[j]);
        return result;
    };
    tkNMNormal normal;
    for (const Pattern& pattern : patterns)
        normal.add(ordered(pattern).data(), static_cast<long>(order.size()));
    double log = 0.0;
    EXPECT_EQ(normal.logDensity(ordered(x).data(), static_cast<long>(order.size()), log), tkNMNormal::eOk);
    return log;
}

/// Of the d measurements the last is the sum of the others, and noise.
std::vector<Pattern> nearlyDependent(unsigned seed, std::size_t n, std::size_t d, double noise)
{
    std::mt19937_64 generator(seed);
    std::normal_distribution<double> deviate;
    std::vector<Pattern> patterns(n, Pattern(d));
    for (Pattern& x : patterns)
    {
        for (std::size_t j = 0; j + 1 < d; ++j)
            x[j] = deviate(generator);
        x[d - 1] = std::accumulate(x.begin(), x.end() - 1, 0.0) + noise * deviate(generator);
    }
    return patterns;
}

std::vector<std::size_t> ascending(std::size_t d)
{
    std::vector<std::size_t> order(d);
    std::iota(order.begin(), order.end(), 0u);
    return order;
}
} // namespace

TEST(JumpsOfSingularDensities, areGone)
{
    for (const std::size_t n : {4u, 6u, 30u})
    {
        const std::size_t d = 5;
        double before = std::nan("");
        double largest = 0.0;
        for (double noise = 1e-2; noise > 1e-9; noise /= 1.01)
        {
            const std::vector<Pattern> patterns = nearlyDependent(7, n, d, noise);
            Pattern mean(d); // the peak, which has no distance in it
            for (const Pattern& x : patterns)
                for (std::size_t j = 0; j < d; ++j)
                    mean[j] += x[j] / static_cast<double>(n);
            const double log = logDensity(patterns, ascending(d), mean);
            if (!std::isnan(before))
                largest = std::max(largest, std::fabs(log - before));
            before = log;
        }
        EXPECT_LT(largest, 0.02) << n; // ln 1.01 is 0.00995
    }
}

TEST(JumpsOfSingularDensities, noOrderOfMeasurementsIsAnother)
{
    std::mt19937_64 generator(8);
    double largest = 0.0;
    for (int round = 0; round < 400; ++round)
    {
        const std::size_t d = 2 + generator() % 6;
        const std::size_t n = 2 + generator() % 20;
        const double noise = std::pow(10.0, -10.0 * static_cast<double>(generator() % 1000) / 1000.0);
        const std::vector<Pattern> patterns = nearlyDependent(static_cast<unsigned>(round), n, d, noise);
        std::vector<std::size_t> order = ascending(d);
        const double expected = logDensity(patterns, order, patterns[0]);
        for (int shuffles = 0; shuffles < 5; ++shuffles)
        {
            std::shuffle(order.begin(), order.end(), generator);
            const double log = logDensity(patterns, order, patterns[0]);
            largest = std::max(largest, std::fabs(log - expected) / std::max(1.0, std::fabs(expected)));
        }
    }
    EXPECT_LT(largest, 1e-5);
}
