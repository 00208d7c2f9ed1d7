#include "numerics/tkNMElementaryTables.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>

namespace
{
/// A number as the unevaluated sum of two doubles, to some 2^-104 of its magnitude.
struct Precise
{
    double high = 0.0;
    double low = 0.0;
};

Precise sumOf(double a, double b)
{
    const double sum = a + b;
    const double added = sum - a;
    return {sum, (a - (sum - added)) + (b - added)};
}

Precise operator+(const Precise& a, const Precise& b)
{
    const Precise sum = sumOf(a.high, b.high);
    const Precise rest = sumOf(sum.high, sum.low + (a.low + b.low));
    return rest;
}

Precise operator*(const Precise& a, const Precise& b)
{
    const double product = a.high * b.high;
    const double rest = std::fma(a.high, b.high, -product) + (a.high * b.low + a.low * b.high);
    return sumOf(product, rest);
}

Precise operator/(const Precise& a, double b)
{
    const double first = a.high / b;
    const Precise left = a + Precise{-1.0, 0.0} * (Precise{first, 0.0} * Precise{b, 0.0});
    const double second = left.high / b;
    const Precise rest = left + Precise{-1.0, 0.0} * (Precise{second, 0.0} * Precise{b, 0.0});
    return sumOf(first, second) + Precise{rest.high / b, 0.0};
}

double distance(const Precise& a, const Precise& b)
{
    return std::fabs((a + Precise{-1.0, 0.0} * b).high);
}

/// ln x = 2 artanh((x - 1) / (x + 1)), for numbers from 1/2 to 2 whose difference from 1 and sum with it are doubles.
Precise lnOf(double x)
{
    const Precise t = Precise{x - 1.0, 0.0} / (x + 1.0);
    const Precise square = t * t;
    Precise power = t;
    Precise sum;
    for (int k = 1; k < 80; k += 2, power = power * square)
        sum = sum + power / k;
    return sum + sum;
}

template <std::size_t count>
Precise polynomial(const double (&terms)[count], double r)
{
    Precise value;
    for (std::size_t i = count; i-- > 0;)
        value = value * Precise{r, 0.0} + Precise{terms[i], 0.0};
    return value;
}

/// The sum over k >= 0 of factor(k) r^k.
template <class Factor>
Precise series(double r, const Factor& factor)
{
    Precise sum;
    Precise power{1.0, 0.0};
    for (int k = 0; k < 40; ++k, power = power * Precise{r, 0.0})
        sum = sum + power * factor(k);
    return sum;
}

/// The largest distance of two functions on [-reach, reach].
template <class First, class Second>
double largestDistance(double reach, const First& first, const Second& second)
{
    double largest = 0.0;
    for (int i = -500; i <= 500; ++i)
        largest = std::fmax(largest, distance(first(reach * i / 500.0), second(reach * i / 500.0)));
    return largest;
}

using namespace tkNMElementaryTables;

Precise pairOf(const double* pair)
{
    return {pair[0], pair[1]};
}

bool isMultiple(double x, double unit)
{
    return std::nearbyint(x / unit) == x / unit;
}
} // namespace

TEST(tkNMElementaryTables, powersArePowersOfTheFirst)
{
    EXPECT_EQ(powers[0][0], 1.0);
    EXPECT_EQ(powers[0][1], 0.0);
    for (std::size_t j = 1; j < 128; ++j)
    {
        EXPECT_EQ(powers[j][0] + powers[j][1], powers[j][0]) << j; // what the double leaves
        EXPECT_GT(powers[j][0], powers[j - 1][0]);
        EXPECT_LT(distance(pairOf(powers[j]) * pairOf(powers[128 - j]), {2.0, 0.0}), 0x1p-100) << j;
        const Precise next = pairOf(powers[j - 1]) * pairOf(powers[1]);
        EXPECT_LT(distance(next, pairOf(powers[j])), 0x1p-100) << j;
    }
    EXPECT_LT(distance(pairOf(powers[127]) * pairOf(powers[1]), {2.0, 0.0}), 0x1p-100);
}

TEST(tkNMElementaryTables, logarithmsOfTwo)
{
    EXPECT_LT(distance(lnOf(2.0), pairOf(ln2)), 0x1p-98);
    EXPECT_LT(distance(pairOf(step) * Precise{128.0, 0.0}, pairOf(ln2)), 0x1p-91);
    EXPECT_NEAR(stepsPerUnit * (step[0] + step[1]), 1.0, 0x1p-52);
    EXPECT_TRUE(isMultiple(step[0], 0x1p-46)); // so that its multiples up to 2^18 are doubles
    EXPECT_TRUE(isMultiple(ln2[0], 0x1p-45));
}

TEST(tkNMElementaryTables, reciprocalsHaveTheirLogarithms)
{
    for (std::size_t j = 0; j <= 128; ++j)
    {
        const double c = reciprocals[j][0];
        EXPECT_TRUE(isMultiple(c, 0x1p-10)) << j;
        EXPECT_LE(std::fabs(c * (1.0 + static_cast<double>(j) / 128.0) - 1.0), 0x1p-10) << j;
        EXPECT_TRUE(isMultiple(reciprocals[j][1], 0x1p-45)) << j; // so that sums with multiples of ln2[0] are exact
        const Precise expected = Precise{-1.0, 0.0} * lnOf(j < 54 ? c : 2.0 * c);
        EXPECT_LT(distance(expected, pairOf(reciprocals[j] + 1)), 0x1p-96) << j;
    }
    EXPECT_EQ(reciprocals[0][1], 0.0);
    EXPECT_EQ(reciprocals[128][1], 0.0);
}

TEST(tkNMElementaryTables, polynomialsAreThoseOfTheirFunctions)
{
    const double lnTwo = ln2[0] + ln2[1];
    const auto factorial = [](int n)
    {
        Precise product{1.0, 0.0};
        for (int k = 2; k <= n; ++k)
            product = product * Precise{static_cast<double>(k), 0.0};
        return product;
    };
    const auto exponential = [&](double r)
    {
        return series(r,
                      [&](int k)
                      {
                          const double divisor = k < 18 ? factorial(k + 2).high : 0.0; // exact up to 18!
                          return k < 16 ? Precise{1.0, 0.0} / divisor : Precise{};
                      });
    };
    EXPECT_LT(largestDistance(
                  lnTwo / 256.0 + 0x1p-15, [](double r) { return polynomial(expTerms, r); }, exponential),
              0x1p-46);

    const auto alternating = [](int n) { return Precise{n % 2 == 0 ? -1.0 : 1.0, 0.0} / n; };
    const double reach = 0x1p-8 + 0x1p-11;
    EXPECT_LT(largestDistance(
                  reach, [](double r) { return polynomial(lnTerms, r); },
                  [&](double r) { return series(r, [&](int k) { return alternating(k + 2); }); }),
              0x1p-53);
    EXPECT_LT(largestDistance(
                  reach, [](double r) { return polynomial(lnPairTerms, r); },
                  [&](double r) { return series(r, [&](int k) { return alternating(k + 3); }); }),
              0x1p-55);
}

TEST(tkNMElementaryTables, shiftAndCarryActOnTheBits)
{
    for (const double x : {0.0, 0.4, 0.6, 1.5, 2.5, -3.2, 1e6 + 0.75, -0x1p50 - 0.4})
    {
        EXPECT_EQ((x + integerShift) - integerShift, std::nearbyint(x)) << x;
        const double shifted = x + integerShift;
        std::uint64_t bits;
        std::memcpy(&bits, &shifted, sizeof bits);
        EXPECT_EQ(bits % 128, static_cast<std::uint64_t>(static_cast<std::int64_t>(std::nearbyint(x))) % 128) << x;
    }
    for (const double fraction : {0.0, 53.0 / 128.0, 53.49 / 128.0, 53.5 / 128.0, 54.0 / 128.0, 0.999})
    {
        const double x = 1.0 + fraction;
        std::uint64_t bits;
        std::memcpy(&bits, &x, sizeof bits);
        EXPECT_EQ((bits + octaveCarry) >> 52, fraction < 53.5 / 128.0 ? 1023u : 1024u) << fraction;
    }
    EXPECT_GT(hugeExponent * 0x1p-53, 1075.0 * 2.0); // ln x of the neighbours of 1 is at least 2^-53
    EXPECT_LT(tinyExponent * 1075.0, 0x1p-54);       // |log2 x| is at most 1,075
}
