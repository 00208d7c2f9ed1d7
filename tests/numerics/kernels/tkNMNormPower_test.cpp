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
