#include "numerics/tkNMCovarianceFactor.h"

#include "foundation/tkAssert.h"
#include "numerics/tkNMSymmetricEigen.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <random>
#include <vector>

namespace
{
using Factor = tkNMCovarianceFactor;
using Pattern = std::vector<double>;

/// What a distribution learned; the deviations' sums of products by two passes.
struct Statistics
{
    explicit Statistics(const std::vector<Pattern>& patterns)
        : count(static_cast<long>(patterns.size())),
          mean(patterns[0].size()),
          squares(patterns[0].size())
    {
        for (const Pattern& x : patterns)
            for (std::size_t j = 0; j < mean.size(); ++j)
                mean[j] += (x[j] - patterns[0][j]) / static_cast<double>(count);
        for (std::size_t j = 0; j < mean.size(); ++j)
            mean[j] += patterns[0][j];
        for (const Pattern& x : patterns)
            for (std::size_t i = 0; i < mean.size(); ++i)
                for (std::size_t j = 0; j <= i; ++j)
                    squares(i, j) += (x[i] - mean[i]) * (x[j] - mean[j]);
    }

    Factor factor(const Pattern& references = {}) const { return Factor(count, mean, squares, references); }

    long count;
    Pattern mean;
    tkNMTriangle squares;
};

std::vector<Pattern> randomPatterns(std::size_t n, std::size_t d, unsigned seed)
{
    std::mt19937_64 generator(seed);
    std::normal_distribution<double> deviate;
    std::vector<Pattern> patterns(n, Pattern(d));
    for (Pattern& x : patterns)
    {
        const double common = deviate(generator);
        for (std::size_t j = 0; j < d; ++j)
            x[j] = common + deviate(generator) * (1.0 + static_cast<double>(j));
    }
    return patterns;
}

/// The covariance whose inverse is W' W.
std::vector<Pattern> covarianceOf(const Factor& factor)
{
    const std::size_t d = factor.w.dimension();
    std::vector<Pattern> l(d, Pattern(d));
    for (std::size_t j = 0; j < d; ++j)
        for (std::size_t i = j; i < d; ++i)
        {
            double sum = i == j ? 1.0 : 0.0;
            for (std::size_t k = j; k < i; ++k)
                sum -= factor.w(i, k) * l[k][j];
            l[i][j] = sum / factor.w(i, i);
        }
    std::vector<Pattern> covariance(d, Pattern(d));
    for (std::size_t i = 0; i < d; ++i)
        for (std::size_t j = 0; j < d; ++j)
            for (std::size_t k = 0; k < d; ++k)
                covariance[i][j] += l[i][k] * l[j][k];
    return covariance;
}

/// Eigenvalues of the covariance on the scale of these deviations, ascending.
Pattern eigenvaluesOf(const std::vector<Pattern>& covariance, const Pattern& deviations)
{
    const std::size_t d = covariance.size();
    Pattern matrix;
    for (std::size_t i = 0; i < d; ++i)
        for (std::size_t j = 0; j < d; ++j)
            matrix.push_back(covariance[i][j] / (deviations[i] * deviations[j]));
    Pattern values(d);
    EXPECT_TRUE(tkNMSymmetricEigen(d, matrix.data(), values.data()));
    std::sort(values.begin(), values.end());
    return values;
}

Pattern deviationsOf(const Statistics& statistics)
{
    Pattern deviations;
    for (std::size_t j = 0; j < statistics.mean.size(); ++j)
        deviations.push_back(std::sqrt(statistics.squares(j, j) / static_cast<double>(statistics.count - 1)));
    return deviations;
}

/// W of a covariance that is not altered, as it is written down: of the covariance in the units, by Cholesky.
tkNMTriangle plainW(const Statistics& statistics)
{
    const std::size_t d = statistics.mean.size();
    const double divisor = static_cast<double>(statistics.count - 1);
    Pattern u;
    for (std::size_t j = 0; j < d; ++j)
        u.push_back(std::exp2(-std::floor(std::log2(std::sqrt(statistics.squares(j, j) / divisor)))));
    tkNMTriangle l(d);
    tkNMTriangle w(d);
    for (std::size_t j = 0; j < d; ++j)
        for (std::size_t i = j; i < d; ++i)
        {
            double rest = statistics.squares(i, j) / divisor * u[i] * u[j];
            for (std::size_t k = 0; k < j; ++k)
                rest -= l(i, k) * l(j, k);
            l(i, j) = i == j ? std::sqrt(rest) : rest / l(j, j);
        }
    for (std::size_t j = 0; j < d; ++j)
        for (std::size_t i = j; i < d; ++i)
        {
            double sum = 0.0;
            for (std::size_t k = j; k < i; ++k)
                sum += l(i, k) * w(k, j);
            w(i, j) = i == j ? 1.0 / l(j, j) : -sum / l(i, i);
        }
    for (std::size_t j = 0; j < d; ++j)
        for (std::size_t i = j; i < d; ++i)
            w(i, j) *= u[j];
    return w;
}

/// Of which all measurements are valid whose bit is set.
std::unique_ptr<bool[]> flags(std::size_t d, unsigned mask)
{
    auto valid = std::make_unique<bool[]>(d);
    for (std::size_t j = 0; j < d; ++j)
        valid[j] = j < 32 && (mask >> j & 1u) != 0;
    return valid;
}
} // namespace

TEST(tkNMCovarianceFactor, altersNoBitAboveTheFloor)
{
    std::mt19937_64 generator(3);
    int nearTheFloor = 0;
    for (unsigned round = 0; round < 600; ++round)
    {
        const std::size_t d = 1 + round % 9;
        std::vector<Pattern> patterns = randomPatterns(d + 1 + round % 20, d, round);
        if (d > 1 && round % 2 == 0) // the last one depends on the first but for this part
            for (Pattern& x : patterns)
                x[d - 1] = x[0] + std::exp2(-14.0 + static_cast<double>(round % 5)) * x[d - 1];
        const Statistics statistics(patterns);
        const Pattern deviations = deviationsOf(statistics);
        std::vector<Pattern> raw(d, Pattern(d));
        for (std::size_t i = 0; i < d; ++i)
            for (std::size_t j = 0; j < d; ++j)
                raw[i][j] =
                    statistics.squares(std::max(i, j), std::min(i, j)) / static_cast<double>(statistics.count - 1);
        const double least = eigenvaluesOf(raw, deviations)[0];
        const tkNMTriangle w = statistics.factor().w;
        if (least > 0x1.0001p-28)
        {
            ASSERT_EQ(w, plainW(statistics)) << round;
        }
        if (least < 0x0.ffffp-28)
        {
            ASSERT_NE(w, plainW(statistics)) << round;
        }
        nearTheFloor += least > 0x1p-32 && least < 0x1p-24 ? 1 : 0;
    }
    EXPECT_GT(nearTheFloor, 50);
}

TEST(tkNMCovarianceFactor, raisesEigenvaluesToTheFloorOfItsCounts)
{
    struct Case
    {
        std::size_t n;
        std::size_t d;
        int exponent;
    };
    const Case cases[] = {{2, 2, -10}, {2, 3, -6},  {3, 3, -10}, {2, 5, -4},   {3, 5, -6},  {4, 5, -8}, {5, 5, -10},
                          {2, 9, -3},  {9, 9, -10}, {8, 9, -9},  {10, 40, -3}, {6, 5, -28}, {7, 5, -28}};
    for (const Case& c : cases)
    {
        std::vector<Pattern> patterns = randomPatterns(c.n, c.d, static_cast<unsigned>(c.n));
        for (Pattern& x : patterns) // so that there is something to raise in each case
            if (c.n > c.d)
                x[c.d - 1] = x[0] - x[1];
        const Statistics statistics(patterns);
        const Pattern values = eigenvaluesOf(covarianceOf(statistics.factor()), deviationsOf(statistics));
        EXPECT_NEAR(values[0] / std::ldexp(1.0, c.exponent), 1.0, 1e-5) << c.n << ' ' << c.d;
        EXPECT_GT(values.back(), 1.0);
    }
}

TEST(tkNMCovarianceFactor, repairsWithTheNearestMatrix)
{
    // Two measurements of correlation 1: eigenvalues 0 and 2, the first along (1, -1) / sqrt(2).
    const Statistics statistics({{0.0, 0.0}, {2.0, 4.0}, {4.0, 8.0}});
    const std::vector<Pattern> covariance = covarianceOf(statistics.factor());
    const double half = 0x1p-29;
    EXPECT_NEAR(covariance[0][0] / 4.0 - 1.0, half, 1e-15);
    EXPECT_NEAR(covariance[1][1] / 16.0 - 1.0, half, 1e-15);
    EXPECT_NEAR(covariance[1][0] / 8.0 - 1.0, -half, 1e-15);
}

TEST(tkNMCovarianceFactor, leavesIndependentMeasurementsAlone)
{
    // 0 and 1 determine one another; 2 and 3 do not vary together with them.
    const Statistics statistics({{1, 1, 1, 0}, {1, 1, -1, 1}, {-1, -1, 1, 0}, {-1, -1, -1, 1}, {0, 0, 0, 3}});
    const Statistics others({{1, 0}, {-1, 1}, {1, 0}, {-1, 1}, {0, 3}});
    const Factor factor = statistics.factor();
    const Factor alone = others.factor();
    for (std::size_t i = 0; i < 2; ++i)
        for (std::size_t j = 0; j <= i; ++j)
            EXPECT_NEAR(factor.w(2 + i, 2 + j), alone.w(i, j), 1e-14);
    for (const std::size_t i : {2u, 3u})
        for (const std::size_t j : {0u, 1u})
            EXPECT_NEAR(factor.w(i, j), 0.0, 1e-7); // against W_11 of 8,000 and more
}

TEST(tkNMCovarianceFactor, givesMeasurementsTheirRoles)
{
    const auto factorOf = [](double deviation, double mean, const Pattern& references)
    {
        tkNMTriangle squares(1);
        squares(0, 0) = deviation * deviation;
        return Factor(2, {mean}, squares, references);
    };
    const auto roleOf = [&](double deviation, double mean, const Pattern& references)
    { return factorOf(deviation, mean, references).measurements[0].role; };
    EXPECT_EQ(roleOf(0x1p-52, 1.0, {}), Factor::eConstant);
    EXPECT_EQ(roleOf(0x1.1p-52, 1.0, {}), Factor::eVaries);
    EXPECT_EQ(roleOf(0x1p-52, -1.0, {3.0}), Factor::eConstant);
    EXPECT_EQ(roleOf(0.0, 0.0, {3.0}), Factor::eConstant);
    EXPECT_EQ(roleOf(5e-162, 0.0, {}), Factor::eVaries);
    EXPECT_EQ(roleOf(1.0, 1.0, {0.0}), Factor::eSameEverywhere);

    EXPECT_EQ(factorOf(0.0, 3.0, {1024.0}).w(0, 0), 1.0 / 8.0);
    EXPECT_EQ(factorOf(0.0, -256.0, {}).w(0, 0), 0.5);
    EXPECT_EQ(factorOf(0.0, 0.0, {}).w(0, 0), 128.0);
    EXPECT_EQ(factorOf(0x1p-20, 0x1p40, {0x1p-20}).w(0, 0), 0x1p20);
    EXPECT_EQ(factorOf(1.0, 1.0, {0.0}).w(0, 0), 0.0);
    EXPECT_EQ(factorOf(1.0, 1.0, {0.0}).logPeak(), 0.0);
    EXPECT_EQ(Factor(1, {5.0}, tkNMTriangle(1), {4.0}).w(0, 0), 0.25); // one pattern: all of its reference
    EXPECT_EQ(Factor(1, {4.0}, tkNMTriangle(1), {}).w(0, 0), 0.25);
    EXPECT_EQ(Factor(1, {0.0}, tkNMTriangle(1), {}).w(0, 0), 1.0);
}

TEST(tkNMCovarianceFactor, constantMeasurementsAreIndependent)
{
    std::vector<Pattern> patterns = randomPatterns(20, 4, 5);
    for (Pattern& x : patterns)
    {
        x[1] = 3.0;
        x[2] = 8.0;
    }
    const Factor factor = Statistics(patterns).factor({1.0, 1024.0, 0.0, 1.0});
    for (const std::size_t j : {0u, 1u})
        EXPECT_EQ(factor.w(2, j), 0.0);
    EXPECT_EQ(factor.w(1, 0), 0.0);
    EXPECT_EQ(factor.w(1, 1), 1.0 / 8.0);
    EXPECT_EQ(factor.w(2, 2), 0.0);
    EXPECT_EQ(factor.w(3, 1), 0.0);
    EXPECT_EQ(factor.w(3, 2), 0.0);
    const auto two = [](const Pattern& x) { return Pattern{x[0], x[3]}; };
    std::vector<Pattern> others;
    std::transform(patterns.begin(), patterns.end(), std::back_inserter(others), two);
    const Factor alone = Statistics(others).factor();
    EXPECT_EQ(factor.w(0, 0), alone.w(0, 0));
    EXPECT_EQ(factor.w(3, 0), alone.w(1, 0));
    EXPECT_EQ(factor.w(3, 3), alone.w(1, 1));
}

TEST(tkNMCovarianceFactor, unitsOfPowersOfTwoChangeNothingButTheUnits)
{
    for (unsigned seed = 0; seed < 60; ++seed)
    {
        const std::size_t d = 2 + seed % 7;
        std::vector<Pattern> patterns = randomPatterns(seed % 3 == 0 ? d : d + 5, d, seed);
        for (Pattern& x : patterns)
        {
            if (seed % 3 == 1)
                x[d - 1] = x[0]; // singular
            if (seed % 4 == 1)
                x[1] = 3.0; // constant
        }
        std::vector<int> exponents;
        for (std::size_t j = 0; j < d; ++j)
            exponents.push_back(static_cast<int>(seed * 31 + j * 17) % 81 - 40);
        const auto scaled = [&](Pattern x)
        {
            for (std::size_t j = 0; j < d; ++j)
                x[j] = std::ldexp(x[j], exponents[j]);
            return x;
        };
        std::vector<Pattern> others;
        std::transform(patterns.begin(), patterns.end(), std::back_inserter(others), scaled);
        const Factor factor = Statistics(patterns).factor();
        const Factor other = Statistics(others).factor();
        EXPECT_EQ(factor.lnDeterminant, other.lnDeterminant);
        for (unsigned mask = 0; mask < 1u << d; ++mask)
        {
            const Factor::Marginal a = factor.marginal(patterns[0].data(), flags(d, mask).get());
            const Factor::Marginal b = other.marginal(others[0].data(), flags(d, mask).get());
            long exponent = 0;
            for (std::size_t j = 0; j < d; ++j)
                exponent += (mask >> j & 1u) != 0 ? exponents[j] : 0;
            ASSERT_EQ(a.square, b.square) << seed;
            ASSERT_EQ(a.logPeak - b.logPeak, static_cast<double>(exponent) * 0x1.62e42fefa4p-1) << seed;
        }
    }
}

TEST(tkNMCovarianceFactor, marginalsOverNothingAndEverything)
{
    std::vector<Pattern> patterns = randomPatterns(20, 5, 5);
    for (Pattern& x : patterns)
        x[2] = 8.0;
    const Factor factor = Statistics(patterns).factor({1.0, 1.0, 0.0, 1.0, 1.0});
    const Pattern v{0.25, -0.5, 3.0, 1.0, 2.0};
    for (const unsigned mask : {0u, 4u}) // the third one has no term
    {
        EXPECT_EQ(factor.marginal(v.data(), flags(5, mask).get()).logPeak, 0.0);
        EXPECT_EQ(factor.marginal(v.data(), flags(5, mask).get()).square, 0.0);
    }
    double square = 0.0;
    for (std::size_t i = 0; i < 5; ++i)
    {
        double y = 0.0;
        for (std::size_t j = 0; j <= i; ++j)
            y += factor.w(i, j) * v[j];
        square += y * y;
    }
    for (const unsigned mask : {31u, 27u})
    {
        EXPECT_EQ(factor.marginal(v.data(), flags(5, mask).get()).logPeak, factor.logPeak());
        EXPECT_NEAR(factor.marginal(v.data(), flags(5, mask).get()).square, square, 1e-13 * square);
    }
}

TEST(tkNMCovarianceFactor, marginalsDoNotReadWhatIsInvalid)
{
    const Factor factor = Statistics(randomPatterns(20, 9, 5)).factor();
    Pattern v(9, 0.5);
    const auto valid = flags(9, 0x15b);
    const Factor::Marginal expected = factor.marginal(v.data(), valid.get());
    for (std::size_t j = 0; j < 9; ++j)
        if (!valid[j])
            v[j] = std::nan("");
    EXPECT_EQ(factor.marginal(v.data(), valid.get()).square, expected.square);
}

/// A marginal of a marginal is that of the joint distribution: conditioning one measurement after the other.
TEST(tkNMCovarianceFactor, marginalsAreThoseOfTheCovarianceOfWhatIsValid)
{
    for (unsigned seed = 0; seed < 40; ++seed)
    {
        const std::size_t d = 2 + seed % 7;
        const Statistics statistics(randomPatterns(4 + seed % 11, d, seed));
        const Factor factor = statistics.factor();
        const std::vector<Pattern> covariance = covarianceOf(factor);
        Pattern v;
        for (std::size_t j = 0; j < d; ++j)
            v.push_back(std::sqrt(covariance[j][j]) * (0.5 - static_cast<double>(j % 3)));
        for (unsigned mask = 1; mask + 1 < 1u << d; ++mask)
        {
            std::vector<std::size_t> a;
            for (std::size_t j = 0; j < d; ++j)
                if ((mask >> j & 1u) != 0)
                    a.push_back(j);
            std::vector<Pattern> l(a.size(), Pattern(a.size()));
            double square = 0.0;
            double lnDeterminant = 0.0;
            Pattern y;
            for (std::size_t i = 0; i < a.size(); ++i)
            {
                double rest = v[a[i]];
                for (std::size_t j = 0; j <= i; ++j)
                {
                    double element = covariance[a[i]][a[j]];
                    for (std::size_t k = 0; k < j; ++k)
                        element -= l[i][k] * l[j][k];
                    l[i][j] = i == j ? std::sqrt(element) : element / l[j][j];
                    if (j < i)
                        rest -= l[i][j] * y[j];
                }
                y.push_back(rest / l[i][i]);
                square += y[i] * y[i];
                lnDeterminant += 2.0 * std::log(l[i][i]);
            }
            const Factor::Marginal marginal = factor.marginal(v.data(), flags(d, mask).get());
            ASSERT_NEAR(marginal.square, square, 1e-9 * (1.0 + square)) << seed << ' ' << mask;
            ASSERT_NEAR(marginal.logPeak,
                        -0.5 * (static_cast<double>(a.size()) * 1.8378770664093454836 + lnDeterminant), 1e-9);
        }
    }
}

TEST(tkNMCovarianceFactor, takesMoreMeasurementsThanTheStackHolds)
{
    const std::size_t d = 300;
    const Statistics statistics(randomPatterns(20, d, 1));
    const Factor factor = statistics.factor();
    auto valid = flags(d, 0);
    for (std::size_t j = 0; j < d; ++j)
        valid[j] = j % 3 != 0;
    const Factor::Marginal marginal = factor.marginal(Pattern(d, 0.5).data(), valid.get());
    EXPECT_TRUE(std::isfinite(marginal.logPeak));
    EXPECT_TRUE(std::isfinite(marginal.square));
}

/// Statistics that no patterns have, as a damaged archive may hold.
TEST(tkNMCovarianceFactor, survivesStatisticsThatNobodyLearned)
{
    const double strange[] = {0.0,
                              -0.0,
                              1.0,
                              -1.0,
                              1e300,
                              -1e300,
                              5e-324,
                              1e-310,
                              HUGE_VAL,
                              -HUGE_VAL,
                              1e155,
                              std::nan(""),
                              1.7976931348623157e308};
    std::mt19937_64 generator(4);
    const auto any = [&] { return strange[generator() % std::size(strange)]; };
    int finite = 0;
    for (int round = 0; round < 20000; ++round)
    {
        const std::size_t d = generator() % 6;
        Pattern mean(d);
        Pattern references(generator() % 3 == 0 ? generator() % (d + 1) : 0);
        tkNMTriangle squares(d);
        for (std::size_t i = 0; i < d; ++i)
        {
            mean[i] = any();
            for (std::size_t j = 0; j <= i; ++j)
                squares(i, j) = generator() % 3 == 0 ? any() : i == j ? 2.0 : 0.5;
        }
        std::generate(references.begin(), references.end(), any);
        const long counts[] = {1, 2, 3, 100, 2147483647};
        const Factor factor(counts[generator() % 5], mean, squares, references);
        const Pattern v(d, 1.0);
        const Factor::Marginal marginal =
            factor.marginal(v.data(), flags(d, static_cast<unsigned>(generator() % 64)).get());
        finite += std::isfinite(marginal.square) && std::isfinite(factor.logPeak()) ? 1 : 0;
    }
    EXPECT_GT(finite, 5000);
    EXPECT_THROW(Factor(0, {}, tkNMTriangle(0), {}), tkAssertionFailure);
}
