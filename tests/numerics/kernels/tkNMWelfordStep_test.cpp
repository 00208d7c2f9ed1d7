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

TEST(tkNMWelfordStep, widerRegistersHaveTheSameBits)
{
#if defined(__GNUC__)
    compareSteps<4>(3); // wider ones than the target has are spilled
    compareSteps<8>(4);
#endif
}

TEST(tkNMWelfordStep, theFirstValueIsTheMeanAndEqualOnesLeaveIt)
{
    for (const double x : {0.0, -0.0, 0.1, 1e300, -5e-324, 0x1p490})
    {
        double mean = 0.0;
        double compensation = 0.0;
        for (double n = 1.0; n <= 100.0; n += 1.0)
        {
            double before = -1.0;
            double after = -1.0;
            tkNMWelfordStep(x, n, mean, compensation, before, after);
            EXPECT_EQ(mean, x);
            EXPECT_EQ(compensation, 0.0);
            EXPECT_EQ(before, n == 1.0 ? x : 0.0);
            EXPECT_EQ(after, 0.0);
        }
    }
}

TEST(tkNMWelfordStep, meanAndCompensationAreTheMeanOfWholeNumbers)
{
    double mean = 0.0;
    double compensation = 0.0;
    double sum = 0.0;
    std::mt19937_64 generator(5);
    for (int n = 1; n <= 3000; ++n)
    {
        const double x = 1e9 + static_cast<double>(generator() % 1000);
        sum += x; // exact
        double before = 0.0;
        double after = 0.0;
        tkNMWelfordStep(x, static_cast<double>(n), mean, compensation, before, after);
        const double rest = (mean * n - sum) / n; // mean n is rounded
        ASSERT_LE(std::fabs(rest), 1e-6) << n;
        ASSERT_LE(std::fabs(compensation), 0x1p-24) << n; // half a unit of the mean's last place
        ASSERT_NEAR((mean - 1e9) + compensation, (sum - 1e9 * n) / n, 1e-12) << n;
    }
}
