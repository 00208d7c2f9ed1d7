#include "numerics/tkNMExactQuotient.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>

namespace
{
const double infinity = std::numeric_limits<double>::infinity();

bool haveSameBits(double a, double b)
{
    return a == b && std::signbit(a) == std::signbit(b);
}

/// value * divisor - dividend, exactly, for dividends and divisors that are integers.
std::int64_t excess(double value, std::int64_t divisor, std::int64_t dividend)
{
    return static_cast<std::int64_t>(value) * divisor - dividend;
}
} // namespace

TEST(tkNMExactQuotient, valueIsTheRoundedQuotient)
{
    std::mt19937_64 generator(1);
    std::normal_distribution<double> deviate;
    for (int i = 0; i < 10000; ++i)
    {
        const double dividend = std::ldexp(deviate(generator), static_cast<int>(generator() % 2000) - 1000);
        const double divisor = static_cast<double>(1 + generator() % 100000);
        EXPECT_TRUE(haveSameBits(tkNMExactQuotient::of(dividend, divisor).value, dividend / divisor));
    }
}

TEST(tkNMExactQuotient, quotientsThatAreDoublesHaveNoCompensation)
{
    for (const double dividend : {0.0, -0.0, 1.0, -12.0, 0x1p-1074, 0x1p1023, 3.0 * 0x1p-940, 3.0 * 0x1p900})
        for (const double divisor : {1.0, 2.0, 4.0})
        {
            if (dividend / divisor * divisor != dividend)
                continue;
            const tkNMExactQuotient quotient = tkNMExactQuotient::of(dividend, divisor);
            EXPECT_EQ(quotient.compensation, 0.0) << dividend << " / " << divisor;
            EXPECT_EQ(quotient.times(divisor), dividend) << dividend << " / " << divisor;
        }
    const tkNMExactQuotient third = tkNMExactQuotient::of(12.0, 3.0);
    EXPECT_EQ(third.value, 4.0);
    EXPECT_EQ(third.compensation, 0.0);
}

/// 1 / 3 = value + compensation + error: value lies 1/3 of a unit of 2^-54 below, since 2^54 = 1 modulo 3.
TEST(tkNMExactQuotient, compensationIsTheRoundingErrorToTheLastPlace)
{
    const tkNMExactQuotient third = tkNMExactQuotient::of(1.0, 3.0);
    EXPECT_EQ(excess(third.value * 0x1p54, 3, std::int64_t(1) << 54), -1);
    EXPECT_EQ(third.compensation, 1.0 / 3.0 * 0x1p-54);
    const tkNMExactQuotient minus = tkNMExactQuotient::of(-1.0, 3.0);
    EXPECT_EQ(minus.value, -third.value);
    EXPECT_EQ(minus.compensation, -third.compensation);
}

TEST(tkNMExactQuotient, compensationIsAtMostHalfAUnitInTheLastPlace)
{
    std::mt19937_64 generator(2);
    std::normal_distribution<double> deviate;
    for (int i = 0; i < 10000; ++i)
    {
        const tkNMExactQuotient q =
            tkNMExactQuotient::of(std::ldexp(deviate(generator), static_cast<int>(generator() % 1600) - 800),
                                  static_cast<double>(1 + generator() % 1000000));
        EXPECT_TRUE(haveSameBits(q.value + q.compensation, q.value));
        EXPECT_LE(std::fabs(q.compensation), std::fabs(q.value) * 0x1p-53);
    }
}

/// The unit changes at 2^-940: a scaled problem has the same compensation, in the unit of 2^-600 below.
TEST(tkNMExactQuotient, compensationsOfTinyQuotientsHaveALargerUnit)
{
    const tkNMExactQuotient usual = tkNMExactQuotient::of(0x1p-900, 3.0);
    const tkNMExactQuotient tiny = tkNMExactQuotient::of(0x1p-1000, 3.0);
    EXPECT_EQ(tiny.value, usual.value * 0x1p-100);
    EXPECT_EQ(tiny.compensation, usual.compensation * 0x1p500);
    const tkNMExactQuotient last = tkNMExactQuotient::of(3.0 * 0x1p-940 + 0x1p-985, 3.0);
    ASSERT_GE(last.value, 0x1p-940);
    EXPECT_LT(std::fabs(last.compensation), 0x1p-940);
    EXPECT_EQ(last.times(3.0), 3.0 * 0x1p-940 + 0x1p-985);
}

TEST(tkNMExactQuotient, subnormalDividendsComeBack)
{
    for (std::uint64_t units = 1; units < 2000; ++units)
        for (const double divisor : {1.0, 3.0, 7.0, 1000.0, 2147483648.0})
        {
            const double dividend = static_cast<double>(units) * 0x1p-1074;
            EXPECT_EQ(tkNMExactQuotient::of(dividend, divisor).times(divisor), dividend) << units << ' ' << divisor;
            EXPECT_EQ(tkNMExactQuotient::of(-dividend, divisor).times(divisor), -dividend) << units << ' ' << divisor;
        }
}

TEST(tkNMExactQuotient, largestDividendsComeBack)
{
    const double largest = std::numeric_limits<double>::max();
    for (const double dividend : {largest, -largest, largest / 2.0, largest * (1.0 - 0x1p-53)})
        for (const double divisor : {1.0, 2.0, 3.0, 5.0, 2147483647.0, 2147483648.0})
            EXPECT_EQ(tkNMExactQuotient::of(dividend, divisor).times(divisor), dividend) << dividend << ' ' << divisor;
}

TEST(tkNMExactQuotient, whatIsNotFiniteStaysSo)
{
    for (const double divisor : {1.0, 3.0})
    {
        EXPECT_EQ(tkNMExactQuotient::of(infinity, divisor).value, infinity);
        EXPECT_EQ(tkNMExactQuotient::of(infinity, divisor).compensation, 0.0);
        EXPECT_EQ(tkNMExactQuotient::of(infinity, divisor).times(divisor), infinity);
        EXPECT_EQ(tkNMExactQuotient::of(-infinity, divisor).times(divisor), -infinity);
        EXPECT_TRUE(std::isnan(tkNMExactQuotient::of(std::nan(""), divisor).value));
        EXPECT_EQ(tkNMExactQuotient::of(std::nan(""), divisor).compensation, 0.0);
        EXPECT_TRUE(std::isnan(tkNMExactQuotient::of(std::nan(""), divisor).times(divisor)));
    }
}

TEST(tkNMExactQuotient, dividendsOfEveryMagnitudeComeBack)
{
    std::mt19937_64 generator(3);
    std::normal_distribution<double> deviate;
    for (int i = 0; i < 200000; ++i)
    {
        const double dividend = std::ldexp(deviate(generator), static_cast<int>(generator() % 2090) - 1070);
        const double divisor = static_cast<double>(1 + generator() % (std::uint64_t(1) << (1 + generator() % 31)));
        const tkNMExactQuotient quotient = tkNMExactQuotient::of(dividend, divisor);
        ASSERT_EQ(quotient.times(divisor), dividend) << std::hexfloat << dividend << " / " << divisor;
        ASSERT_TRUE(haveSameBits(tkNMExactQuotient::of(-dividend, divisor).value, -quotient.value));
        ASSERT_EQ(tkNMExactQuotient::of(-dividend, divisor).compensation, -quotient.compensation);
    }
}

/// Where the unit of the compensation changes, and where value or dividend are powers of two.
TEST(tkNMExactQuotient, dividendsAroundPowersOfTwoComeBack)
{
    for (int exponent = -1074; exponent<1023; exponent += exponent> - 960 && exponent < -900 ? 1 : 13)
        for (const double divisor : {1.0, 2.0, 3.0, 10.0, 999.0, 2147483647.0})
        {
            const double power = std::ldexp(1.0, exponent);
            for (const double dividend : {power, std::nextafter(power, 0.0), std::nextafter(power, infinity)})
            {
                EXPECT_EQ(tkNMExactQuotient::of(dividend, divisor).times(divisor), dividend)
                    << exponent << ' ' << divisor;
                const double multiple = dividend * divisor;
                if (std::isfinite(multiple))
                {
                    EXPECT_EQ(tkNMExactQuotient::of(multiple, divisor).times(divisor), multiple)
                        << exponent << ' ' << divisor;
                }
            }
        }
}
