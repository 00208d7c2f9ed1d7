#include "numerics/kernels/tkNMNormPower.h"

#include "numerics/tkNMElementary.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

namespace
{
using Power = tkNMNormPower;

double raised(const Power& power, double difference)
{
    switch (power.kind)
    {
    case Power::First:
        raiseDifference<1, Power::First>(power, difference);
        break;
    case Power::Second:
        raiseDifference<1, Power::Second>(power, difference);
        break;
    case Power::Third:
        raiseDifference<1, Power::Third>(power, difference);
        break;
    case Power::Halves:
        raiseDifference<1, Power::Halves>(power, difference);
        break;
    case Power::Other:
        ADD_FAILURE() << power.order;
    }
    return difference;
}
} // namespace

TEST(tkNMNormPower, ordersWithProductsAreRecognised)
{
    EXPECT_EQ(Power(1.0).kind, Power::First);
    EXPECT_EQ(Power(2.0).kind, Power::Second);
    EXPECT_EQ(Power(3.0).kind, Power::Third);
    for (const double order : {1.5, 2.5, 3.5, 4.0, 7.5, 63.5, 64.0})
        EXPECT_EQ(Power(order).kind, Power::Halves) << order;
    for (const double order : {std::nextafter(1.0, 2.0), 1.25, std::nextafter(1.5, 1.0), 1.99, 2.75, 63.9})
        EXPECT_EQ(Power(order).kind, Power::Other) << order;
}

TEST(tkNMNormPower, productsAreWithinTheBoundOfThePower)
{
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> exponent(-90.0, 90.0);
    for (double order = 1.0; order <= 64.0; order += 0.5)
    {
        const Power power(order);
        for (int i = 0; i < 2000; ++i)
        {
            const double t = std::pow(10.0, exponent(random) / order);
            const double exact = tkNMElementary::pow(t, order);
            const double upper = power.upperKey(exact, 1);
            EXPECT_LE(raised(power, t), upper) << order << " " << t;
            EXPECT_LE(exact, power.upperKey(raised(power, t), 1)) << order << " " << t;
            EXPECT_EQ(raised(power, -t), raised(power, t));
            // What is left is for the sums and the roots of the definition.
            EXPECT_LE(std::fabs(raised(power, t) - exact), 0.75 * (upper - exact)) << order << " " << t;
        }
    }
}

TEST(tkNMNormPower, productsOfNothingAndOfTheSmallestAreNothing)
{
    for (const double order : {1.5, 2.0, 2.5, 3.0, 7.5, 64.0})
        for (const double t : {0.0, -0.0, std::numeric_limits<double>::denorm_min(), 1e-310, 0x1p-1022})
            EXPECT_LE(raised(Power(order), t), 0x1p-970) << order << " " << t;
}

TEST(tkNMNormPower, firstAndSecondPowersAreExact)
{
    std::mt19937_64 random(2);
    std::normal_distribution<double> gaussian;
    for (int i = 0; i < 10000; ++i)
    {
        const double t = gaussian(random);
        EXPECT_EQ(raised(Power(1.0), t), tkNMElementary::pow(std::fabs(t), 1.0));
        EXPECT_EQ(raised(Power(2.0), t), tkNMElementary::pow(std::fabs(t), 2.0));
    }
}

namespace
{
template <std::size_t width, Power::Kind kind>
void expectLanesOfOne(double order)
{
    const double differences[8] = {0.0, -0.0, 1.5, -1e-300, 5e-324, -3.0, 1e80 / order, -0x1.8p-500};
    const Power power(order);
    for (std::size_t first = 0; first < 8; first += width)
    {
        typename RegisterOf<double, width>::Type lanes;
        loadRegister(lanes, differences + first);
        raiseDifference<width, kind>(power, lanes);
        double raisedLanes[width];
        storeRegister(lanes, raisedLanes);
        for (std::size_t l = 0; l < width; ++l)
        {
            double one = differences[first + l];
            raiseDifference<1, kind>(power, one);
            EXPECT_EQ(raisedLanes[l], one) << order << ", width " << width << ", lane " << l;
        }
    }
}

template <std::size_t width>
void expectLanesOfEveryKind()
{
    expectLanesOfOne<width, Power::First>(1.0);
    expectLanesOfOne<width, Power::Second>(2.0);
    expectLanesOfOne<width, Power::Third>(3.0);
    for (const double order : {1.5, 2.5, 3.5, 4.0, 5.0, 7.5, 8.0, 15.5, 33.0})
        expectLanesOfOne<width, Power::Halves>(order);
}
} // namespace

TEST(tkNMNormPower, everyWidthHasTheBitsOfOneLane)
{
    expectLanesOfEveryKind<1>();
#if defined(__GNUC__)
    expectLanesOfEveryKind<2>();
    expectLanesOfEveryKind<4>();
    expectLanesOfEveryKind<8>();
#endif
}

TEST(tkNMNormPower, exactOnesAreThoseWhoseTermsAreTheDefinitions)
{
    for (const double order : {1.0, 2.0, 1.25, 63.9, std::nextafter(2.0, 3.0)})
        EXPECT_TRUE(Power(order).isExact()) << order;
    for (const double order : {3.0, 1.5, 4.0, 64.0})
        EXPECT_FALSE(Power(order).isExact()) << order;
}

/// A row whose key exceeds the upper key of another one is farther away by the definition.
TEST(tkNMNormPower, keysBeyondTheUpperKeyAreThoseOfFartherRows)
{
    std::mt19937_64 random(3);
    std::normal_distribution<double> gaussian;
    int beyond = 0;
    for (const double order : {1.0, 1.5, 2.0, 2.5, 3.0, 7.5, 64.0})
        for (int i = 0; i < 4000; ++i)
        {
            const Power power(order);
            const long n = 1 + static_cast<long>(random() % 6);
            double keys[2] = {};
            double sums[2] = {};
            for (long c = 0; c < n; ++c)
            {
                const double near = gaussian(random);
                const double differences[2] = {near, near * (1.0 + std::ldexp(gaussian(random), -(i % 50)))};
                for (int row = 0; row < 2; ++row)
                {
                    keys[row] += raised(power, differences[row]);
                    sums[row] += tkNMElementary::pow(std::fabs(differences[row]), order);
                }
            }
            const double distances[2] = {tkNMElementary::pow(sums[0], 1.0 / order),
                                         tkNMElementary::pow(sums[1], 1.0 / order)};
            for (const int row : {0, 1})
                if (keys[1 - row] > power.upperKey(keys[row], n))
                {
                    ++beyond;
                    EXPECT_GT(distances[1 - row], distances[row]) << order << ' ' << n;
                }
        }
    EXPECT_GT(beyond, 10000);
}

TEST(tkNMNormPower, theUpperKeyIsAboveEveryKeyAndRisesWithIt)
{
    for (const double order : {1.0, 1.5, 2.0, 3.0, 64.0, 1.3})
    {
        const Power power(order);
        double before = -1.0;
        for (const double key : {0.0, 5e-324, 1e-300, 0x1p-960, 1e-100, 1.0, 1e100, 1e299})
        {
            EXPECT_GT(power.upperKey(key, 1), key);
            EXPECT_GE(power.upperKey(key, 4096), power.upperKey(key, 1));
            EXPECT_GE(power.upperKey(key, 1), before);
            before = power.upperKey(key, 1);
        }
    }
}
