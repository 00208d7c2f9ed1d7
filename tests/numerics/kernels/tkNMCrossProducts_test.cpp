#include "numerics/kernels/tkNMCrossProducts.h"

#include "instructionSets.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

TEST(tkNMCrossProducts, addsBelowTheDiagonalAloneInTheOrderOfThePairs)
{
    std::mt19937_64 generator(11);
    std::uniform_real_distribution<double> deviate(0.5, 2.0);
    for (std::size_t d = 2; d <= 35; ++d)
        for (const tkNMInstructions set : instructionSets())
        {
            const std::size_t padded = (d + 7) / 8 * 8;
            const std::size_t stride = padded + d % 3 * 8;
            const std::size_t count = 1 + d % 5;
            std::vector<double> a(count * stride);
            std::vector<double> b(count * stride);
            for (std::size_t k = 0; k < count; ++k)
                for (std::size_t j = 0; j < d; ++j)
                {
                    a[k * stride + j] = j == k ? HUGE_VAL : deviate(generator);
                    b[k * stride + j] = deviate(generator);
                }
            tkNMTriangle expected(d);
            tkNMTriangle actual(d);
            for (int times = 0; times < 2; ++times)
            {
                for (std::size_t k = 0; k < count; ++k)
                    for (std::size_t i = 0; i < d; ++i)
                        for (std::size_t j = 0; j <= i; ++j)
                            expected(i, j) += a[k * stride + i] * b[k * stride + j];
                tkNMAddCrossProducts(actual, a.data(), b.data(), count, stride, set);
                EXPECT_TRUE(actual == expected) << d << ' ' << set; // with the zeros that the formulas rely on
            }
        }
}
