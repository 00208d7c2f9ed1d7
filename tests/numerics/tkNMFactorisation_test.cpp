#include "numerics/tkNMFactorisation.h"

#include "instructionSets.h"
#include "tests/numerics/factorisations.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <memory>

using factorisations::anyNumber;
using factorisations::haveSameBits;

TEST(tkNMFactorisation, theDefinitionIsTheFormula)
{
    std::mt19937_64 generator(5);
    for (std::size_t d = 0; d <= 70; ++d)
        for (int kind = 0; kind < 8; ++kind)
        {
            const tkNMFactorisation f = factorisations::random(d, generator, kind == 1, kind == 2, kind == 3);
            EXPECT_EQ(f.dimension(), d);
            for (int query = 0; query < 4; ++query)
            {
                // At the end of its memory, so that a sanitizer sees a read beyond it.
                const auto x = std::make_unique<double[]>(d);
                for (std::size_t j = 0; j < d; ++j)
                    x[j] = anyNumber(generator, kind >= 4);
                const double expected = factorisations::squaredDistance(f, x.get());
                ASSERT_TRUE(haveSameBits(f.squaredDistance(x.get(), tkNMInstructions::Definition), expected)) << d;
            }
        }
}

/// -1/2 of the squared distance on the grid of 2^-39, with the cut for finite deviations.
TEST(tkNMFactorisation, everyInstructionSetHasTheLogDensityOfTheFormula)
{
    std::mt19937_64 generator(6);
    int cut = 0;
    for (std::size_t d = 1; d <= 40; ++d)
        for (int kind = 0; kind < 6; ++kind)
        {
            const tkNMFactorisation f = factorisations::random(d, generator, kind == 1, kind == 2, kind == 3);
            for (int query = 0; query < 20; ++query)
            {
                std::vector<double> x;
                bool isFinite = true;
                for (std::size_t j = 0; j < d; ++j)
                {
                    x.push_back(anyNumber(generator, kind >= 4));
                    const double deviation = (x[j] - f.mean[j]) - f.compensation[j];
                    isFinite = isFinite && (std::isfinite(deviation) || !factorisations::hasTerm(f, j));
                }
                double square = factorisations::squaredDistance(f, x.data());
                if (isFinite && !(square <= std::numeric_limits<double>::max()))
                {
                    square = std::numeric_limits<double>::max();
                    ++cut;
                }
                const double expected = f.logPeak - ((0.5 * square + 8192.0) - 8192.0);
                for (const tkNMInstructions set : instructionSets())
                    ASSERT_TRUE(haveSameBits(f.logDensity(x.data(), set), expected)) << d << ' ' << set;
                ASSERT_TRUE(haveSameBits(f.logDensity(x.data()), expected)) << d;
            }
        }
    EXPECT_GT(cut, 100);
}

/// Whether the value is valid or not, finite or not, makes no difference.
TEST(tkNMFactorisation, aMeasurementWithoutATermIsNotRead)
{
    std::mt19937_64 generator(7);
    for (std::size_t d = 1; d <= 20; ++d)
        for (std::size_t without = 0; without < d; ++without)
        {
            // Independent ones, whose marginals are known, and one that was the same everywhere.
            tkNMTriangle squares(d);
            std::vector<double> x(d);
            std::vector<double> references(d, 1.0);
            references[without] = 0.0;
            for (std::size_t j = 0; j < d; ++j)
            {
                squares(j, j) = j == without ? 0.0 : 100.0;
                x[j] = anyNumber(generator, false);
            }
            tkNMFactorisation f;
            f.mean.assign(d, 0.5);
            f.compensation.assign(d, 0.0);
            f.covariance = tkNMCovarianceFactor(100, f.mean, squares, references);
            f.logPeak = f.covariance.logPeak();

            const auto valid = std::make_unique<bool[]>(d);
            std::fill_n(valid.get(), d, true);
            valid[generator() % d] = false;
            x[without] = 0.5;
            const double density = f.logDensity(x.data(), tkNMInstructions::Definition);
            const double marginal = f.logMarginal(x.data(), valid.get());
            ASSERT_TRUE(std::isfinite(density) && std::isfinite(marginal));
            for (const double value : {1e8, 1.7e308, HUGE_VAL, -HUGE_VAL, std::nan("")})
            {
                x[without] = value;
                for (const tkNMInstructions set : instructionSets())
                    ASSERT_EQ(f.logDensity(x.data(), set), density)
                        << d << ' ' << without << ' ' << value << ' ' << set;
                ASSERT_EQ(f.logMarginal(x.data(), valid.get()), marginal) << d << ' ' << without << ' ' << value;
            }
        }
}

TEST(tkNMFactorisation, roundsToTheGridBelowAndToDoublesAbove)
{
    const double step = 0x1p-39;
    EXPECT_EQ(tkNMFactorisation::roundedToGrid(0.0), 0.0);
    EXPECT_EQ(tkNMFactorisation::roundedToGrid(1.0 + 0.4 * step), 1.0);
    EXPECT_EQ(tkNMFactorisation::roundedToGrid(1.0 + 0.6 * step), 1.0 + step);
    EXPECT_EQ(tkNMFactorisation::roundedToGrid(1e300), 1e300);
    EXPECT_EQ(tkNMFactorisation::roundedToGrid(std::numeric_limits<double>::infinity()),
              std::numeric_limits<double>::infinity());
}

namespace
{
/// Of `count` patterns with random variances and correlations, with mean and compensation.
tkNMFactorisation learned(std::size_t d, std::mt19937_64& generator)
{
    std::normal_distribution<double> deviate;
    tkNMTriangle squares(d);
    std::vector<double> factor(d * d); // the cross products are factor times its transpose
    for (double& element : factor)
        element = deviate(generator);
    for (std::size_t i = 0; i < d; ++i)
        for (std::size_t j = 0; j <= i; ++j)
            for (std::size_t k = 0; k < d; ++k)
                squares(i, j) += factor[i * d + k] * factor[j * d + k];
    tkNMFactorisation f;
    for (std::size_t j = 0; j < d; ++j)
    {
        f.mean.push_back(deviate(generator));
        f.compensation.push_back(0x1p-60 * deviate(generator));
    }
    f.covariance = tkNMCovarianceFactor(1000, f.mean, squares, {});
    f.logPeak = f.covariance.logPeak();
    return f;
}
} // namespace

TEST(tkNMFactorisation, marginalOfAllMeasurementsIsTheDensity)
{
    std::mt19937_64 generator(7);
    for (std::size_t d = 1; d <= 20; ++d)
    {
        const tkNMFactorisation f = learned(d, generator);
        const auto valid = std::make_unique<bool[]>(d);
        std::fill_n(valid.get(), d, true);
        std::vector<double> x;
        for (std::size_t j = 0; j < d; ++j)
            x.push_back(anyNumber(generator, false));
        EXPECT_TRUE(haveSameBits(f.logMarginal(x.data(), valid.get()), f.logDensity(x.data()))) << d;
    }
}

TEST(tkNMFactorisation, marginalOfNoMeasurementIsZero)
{
    std::mt19937_64 generator(8);
    const std::vector<double> x(9, std::nan(""));
    const bool valid[9] = {};
    for (std::size_t d = 1; d <= 9; ++d)
        EXPECT_EQ(learned(d, generator).logMarginal(x.data(), valid), 0.0) << d;
}

TEST(tkNMFactorisation, marginalsDoNotReadInvalidMeasurements)
{
    std::mt19937_64 generator(9);
    const std::size_t d = 6;
    const tkNMFactorisation f = learned(d, generator);
    for (int invalid = 1; invalid < (1 << d) - 1; ++invalid)
    {
        bool valid[d];
        double x[d];
        double other[d];
        for (std::size_t j = 0; j < d; ++j)
        {
            valid[j] = (invalid >> j & 1) == 0;
            x[j] = anyNumber(generator, false);
            other[j] = valid[j] ? x[j] : j % 2 == 0 ? std::nan("") : HUGE_VAL;
        }
        EXPECT_TRUE(haveSameBits(f.logMarginal(x, valid), f.logMarginal(other, valid))) << invalid;
    }
}

/// One measurement of a normal distribution is normal, with its own mean and variance.
TEST(tkNMFactorisation, marginalOfOneMeasurementIsItsOwnDensity)
{
    std::mt19937_64 generator(10);
    const double ln2Pi = std::log(2.0 * std::acos(-1.0));
    for (std::size_t d = 2; d <= 8; ++d)
    {
        tkNMTriangle squares(d);
        for (std::size_t i = 0; i < d; ++i)
            for (std::size_t j = 0; j <= i; ++j)
                squares(i, j) = i == j ? 999.0 * static_cast<double>(i + 1) : 300.0; // variance i + 1
        tkNMFactorisation f;
        for (std::size_t j = 0; j < d; ++j)
            f.mean.push_back(static_cast<double>(j));
        f.compensation.assign(d, 0.0);
        f.covariance = tkNMCovarianceFactor(1000, f.mean, squares, {});
        f.logPeak = f.covariance.logPeak();
        for (std::size_t only = 0; only < d; ++only)
        {
            const auto valid = std::make_unique<bool[]>(d);
            valid[only] = true;
            std::vector<double> x(d, std::nan(""));
            x[only] = anyNumber(generator, false);
            const double variance = static_cast<double>(only + 1);
            const double v = x[only] - f.mean[only];
            EXPECT_NEAR(f.logMarginal(x.data(), valid.get()), -0.5 * (ln2Pi + std::log(variance) + v * v / variance),
                        1e-10 * (1.0 + v * v))
                << d << ' ' << only;
        }
    }
}

TEST(tkNMFactorisation, marginalsOfFinitePointsAreFinite)
{
    std::mt19937_64 generator(11);
    const std::size_t d = 5;
    const tkNMFactorisation f = learned(d, generator);
    const bool valid[d] = {true, false, true, true, false};
    double x[d] = {1e300, 0.0, -1e300, 1e300, 0.0};
    const double farthest = f.logMarginal(x, valid);
    EXPECT_TRUE(std::isfinite(farthest));
    EXPECT_LT(farthest, -8e307);
    x[2] = HUGE_VAL;
    EXPECT_FALSE(std::isfinite(f.logMarginal(x, valid)));
    x[2] = std::nan("");
    EXPECT_TRUE(std::isnan(f.logMarginal(x, valid)));
}
