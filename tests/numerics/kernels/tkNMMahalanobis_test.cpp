#include "numerics/kernels/tkNMMahalanobis.h"

#include "instructionSets.h"
#include "tests/numerics/factorisations.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

using factorisations::anyNumber;
using factorisations::haveSameBits;

TEST(tkNMMahalanobis, everyInstructionSetHasTheBitsOfTheDefinition)
{
    std::mt19937_64 generator(5);
    for (std::size_t d = 2; d <= 140; d += d < 40 ? 1 : 7)
        for (int kind = 0; kind < 8; ++kind)
        {
            const tkNMFactorisation f = factorisations::random(d, generator, kind == 1, kind == 2, kind == 3);
            for (int query = 0; query < 4; ++query)
            {
                // At the end of its memory, so that a sanitizer sees a read beyond it; and not aligned.
                const auto memory = std::make_unique<double[]>(d + 1);
                for (std::size_t j = 0; j < d; ++j)
                    memory[1 + j] = anyNumber(generator, kind >= 4);
                if (kind == 7)
                    memory[1 + generator() % d] = HUGE_VAL;
                const double expected = f.squaredDistance(memory.get() + 1, tkNMInstructions::Definition);
                for (const tkNMInstructions set : instructionSets())
                    ASSERT_TRUE(haveSameBits(tkNMSquaredMahalanobis(f, memory.get() + 1, set), expected))
                        << d << ' ' << kind << ' ' << set;
            }
        }
}

TEST(tkNMMahalanobis, takesMoreMeasurementsThanTheStackHolds)
{
    const std::size_t d = 300;
    std::mt19937_64 generator(15);
    const tkNMFactorisation f = factorisations::random(d, generator);
    const std::vector<double> zeros(d);
    for (const tkNMInstructions set : instructionSets())
        EXPECT_EQ(tkNMSquaredMahalanobis(f, zeros.data(), set), factorisations::squaredDistance(f, zeros.data()));
}

TEST(tkNMMahalanobis, everyInstructionSetHasTheMarginalsOfTheDefinition)
{
    std::mt19937_64 generator(25);
    int finite = 0;
    for (std::size_t d = 1; d <= 140; d += d < 40 ? 1 : 7)
        for (int kind = 0; kind < 8; ++kind)
        {
            const tkNMFactorisation f = factorisations::random(d, generator, false, false, kind == 3);
            for (std::size_t share = 0; share <= 10; share += 2)
            {
                const auto v = std::make_unique<double[]>(d);
                const auto valid = std::make_unique<bool[]>(d);
                for (std::size_t j = 0; j < d; ++j)
                {
                    valid[j] = generator() % 10 >= share;
                    v[j] = valid[j] ? anyNumber(generator, kind >= 6) : std::nan(""); // which is not read
                }
                if (share == 0)
                    valid[generator() % d] = false;
                const tkNMCovarianceFactor::Marginal expected =
                    f.covariance.marginal(v.get(), valid.get(), tkNMInstructions::Definition);
                finite += std::isfinite(expected.logPeak) && std::isfinite(expected.square) ? 1 : 0;
                for (const tkNMInstructions set : instructionSets())
                {
                    const tkNMCovarianceFactor::Marginal found = f.covariance.marginal(v.get(), valid.get(), set);
                    ASSERT_TRUE(haveSameBits(found.logPeak, expected.logPeak)) << d << ' ' << kind << ' ' << set;
                    ASSERT_TRUE(haveSameBits(found.square, expected.square)) << d << ' ' << kind << ' ' << set;
                }
            }
        }
    EXPECT_GT(finite, 1500);
}
