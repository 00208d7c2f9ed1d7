#include "numerics/kernels/tkNMWelfordStep.h"

#include "numerics/tkNMStatistics.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

enum class tkNMInstructions : int;

namespace
{
constexpr tkNMInstructions definition = static_cast<tkNMInstructions>(0);

/// Adds values to one measurement by the step, and to statistics by the definition.
template <std::size_t width>
void compareSteps(unsigned seed)
{
    using Register = typename RegisterOf<double, width>::Type;
    std::mt19937_64 generator(seed);
    std::normal_distribution<double> deviate;
    std::vector<tkNMStatistics> expected(width, tkNMStatistics(1));
    Register mean = {};
    Register compensation = {};
    double squares[width] = {};
    for (int k = 1; k <= 200; ++k)
    {
        double x[width];
        double n[width];
        for (std::size_t l = 0; l < width; ++l)
        {
            x[l] = k % 3 == 0 ? 1e8 + deviate(generator) : deviate(generator);
            n[l] = k;
            expected[l].add(x + l, definition);
        }
        Register value, count, before, after;
        loadRegister(value, x);
        loadRegister(count, n);
        tkNMWelfordStep(value, count, mean, compensation, before, after);
        double b[width], a[width], m[width], c[width];
        storeRegister(before, b);
        storeRegister(after, a);
        storeRegister(mean, m);
        storeRegister(compensation, c);
        for (std::size_t l = 0; l < width; ++l)
        {
            squares[l] += b[l] * a[l];
            ASSERT_EQ(m[l], expected[l].mean[0]) << k;
            ASSERT_EQ(c[l], expected[l].compensation[0]) << k;
            ASSERT_EQ(squares[l], expected[l].crossProducts(0, 0)) << k;
        }
    }
}
} // namespace

TEST(tkNMWelfordStep, isThatOfTheStatisticsInEveryLane)
{
    compareSteps<1>(1);
    compareSteps<plainWidth>(2);
}
