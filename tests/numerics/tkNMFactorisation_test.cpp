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
