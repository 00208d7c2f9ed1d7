// Marginals of ill-conditioned distributions were NaN.
//
// The density of a pattern with an invalid measurement factored the covariance of the valid ones anew. Where rounding
// put that below the smallest pivot, the factorisation failed, nobody looked, and the log density was NaN: in 826 of
// 2,009,799 marginals of the family below. The tool then ranked a category with a score of NaN first.
//
// Now the marginals are those of the one factor that the joint distribution has: no second decision is taken.

#include "numerics/tkNMNormal.h"
#include "tests/support/bayesianTool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>

namespace
{
/// Patterns of d measurements, each of which depends on others but for a part of about 1e-5 and sometimes shows that
/// part of another: in some order, the pivots of the covariance are near 2^-33, and known to a few bits.
std::vector<std::vector<double>> dependentPatterns(std::mt19937_64& generator, std::size_t d, std::size_t n)
{
    std::normal_distribution<double> deviate;
    std::uniform_real_distribution<double> exponent(-5.0, -4.5);
    std::vector<std::vector<double>> mixture(d, std::vector<double>(d));
    for (std::size_t i = 0; i < d; ++i)
    {
        mixture[i][i] = i == 0 ? 1.0 : std::pow(10.0, exponent(generator));
        for (std::size_t j = 0; j < i; ++j)
            mixture[i][j] = generator() % 2 == 0 ? deviate(generator) : j == 0 ? 1.0 : 0.0;
    }
    std::vector<std::size_t> order(d);
    std::iota(order.begin(), order.end(), 0u);
    std::shuffle(order.begin(), order.end(), generator);
    std::vector<std::vector<double>> patterns(n, std::vector<double>(d));
    std::vector<double> sources(d);
    for (std::vector<double>& x : patterns)
    {
        for (double& source : sources)
            source = deviate(generator);
        for (std::size_t i = 0; i < d; ++i)
            for (std::size_t j = 0; j <= i; ++j)
                x[order[i]] += mixture[i][j] * sources[j];
    }
    return patterns;
}
} // namespace

TEST(IllConditionedMarginals, areFinite)
{
    std::mt19937_64 generator(1);
    int marginals = 0;
    for (int round = 0; round < 4000; ++round)
    {
        const std::size_t d = 3 + generator() % 4;
        const auto patterns = dependentPatterns(generator, d, d + 1 + generator() % 6);
        tkNMNormal normal;
        for (const std::vector<double>& x : patterns)
            ASSERT_EQ(normal.add(x.data(), static_cast<long>(d)), tkNMNormal::eOk);
        for (unsigned mask = 0; mask < 1u << d; ++mask)
        {
            bool valid[8] = {};
            for (std::size_t j = 0; j < d; ++j)
                valid[j] = (mask >> j & 1u) != 0;
            double log = 0.0;
            ASSERT_EQ(normal.logMarginal(patterns[0].data(), valid, static_cast<long>(d), log), tkNMNormal::eOk);
            ASSERT_TRUE(std::isfinite(log)) << round << ' ' << mask;
            ++marginals;
        }
    }
    EXPECT_GT(marginals, 60000);
}

TEST(IllConditionedMarginals, giveNoCategoryAScoreThatIsNaN)
{
    std::mt19937_64 generator(2);
    for (int round = 0; round < 1000; ++round)
    {
        BayesianData data;
        for (long label = 0; label < 3; ++label)
            for (const std::vector<double>& x : dependentPatterns(generator, 5, 8))
                data.add(label, x);
        const tkClassifierTool tool = bayesianTool(data, true);
        for (const std::vector<long>& invalid : {std::vector<long>{0}, {1}, {2}, {3}, {4}, {0, 2}, {1, 3}})
        {
            const tkClassifierResult result = resultOf(tool, data.rows[0], invalid);
            for (const tkClassifierCategoryResult& each : result.categoryResults())
            {
                ASSERT_TRUE(std::isfinite(each.matchScore()));
                ASSERT_TRUE(std::isfinite(each.classScore()));
                ASSERT_TRUE(std::isfinite(each.expectedCost()));
            }
            ASSERT_EQ(result.categoryResults().size(), 3u);
        }
    }
}
