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

TEST(tkNMCrossProducts, noPairsChangeNothing)
{
    for (const tkNMInstructions set : instructionSets())
        for (const std::size_t d : {2u, 8u, 9u, 30u})
        {
            tkNMTriangle s(d);
            for (std::size_t i = 0; i < d; ++i)
                for (std::size_t j = 0; j <= i; ++j)
                    s(i, j) = static_cast<double>(i) - 0.5 * static_cast<double>(j);
            const tkNMTriangle before(s);
            tkNMAddCrossProducts(s, nullptr, nullptr, 0, 64, set);
            EXPECT_TRUE(s == before) << d << ' ' << set;
        }
}

/// One pair after the other gives what all pairs at once give: each element gets its terms in the order of the pairs.
TEST(tkNMCrossProducts, pairsAtOnceAreThePairsInTurn)
{
    std::mt19937_64 generator(12);
    std::normal_distribution<double> deviate;
    for (std::size_t d = 2; d <= 40; d += 3)
        for (const std::size_t count : {1u, 2u, 7u, 16u, 17u})
        {
            const std::size_t stride = (d + 7) / 8 * 8;
            std::vector<double> a(count * stride);
            std::vector<double> b(count * stride);
            for (std::size_t k = 0; k < count; ++k)
                for (std::size_t j = 0; j < d; ++j)
                {
                    a[k * stride + j] = std::ldexp(deviate(generator), static_cast<int>(generator() % 60));
                    b[k * stride + j] = std::ldexp(deviate(generator), static_cast<int>(generator() % 60));
                }
            tkNMTriangle expected(d);
            for (std::size_t k = 0; k < count; ++k)
                for (std::size_t i = 0; i < d; ++i)
                    for (std::size_t j = 0; j <= i; ++j)
                        expected(i, j) += a[k * stride + i] * b[k * stride + j];
            for (const tkNMInstructions set : instructionSets())
            {
                tkNMTriangle atOnce(d);
                tkNMAddCrossProducts(atOnce, a.data(), b.data(), count, stride, set);
                EXPECT_TRUE(atOnce == expected) << d << ' ' << count << ' ' << set;
                tkNMTriangle inTurn(d);
                for (std::size_t k = 0; k < count; ++k)
                    tkNMAddCrossProducts(inTurn, a.data() + k * stride, b.data() + k * stride, 1, stride, set);
                EXPECT_TRUE(inTurn == expected) << d << ' ' << count << ' ' << set;
            }
        }
}

TEST(tkNMCrossProducts, subnormalAndHugeTermsKeepTheirBits)
{
    const std::size_t d = 9;
    const double values[] = {5e-324, -1e-310, 0x1p-1022, 1e-160, -0.0, 1e154, -1e153, 0x1p490, 3.0};
    std::vector<double> a(16), b(16);
    for (std::size_t j = 0; j < d; ++j)
    {
        a[j] = values[j];
        b[j] = values[d - 1 - j];
    }
    for (const tkNMInstructions set : instructionSets())
    {
        tkNMTriangle s(d);
        tkNMAddCrossProducts(s, a.data(), b.data(), 1, 16, set);
        for (std::size_t i = 0; i < d; ++i)
            for (std::size_t j = 0; j <= i; ++j)
                EXPECT_EQ(s(i, j), 0.0 + a[i] * b[j]) << i << ' ' << j << ' ' << set;
    }
}
