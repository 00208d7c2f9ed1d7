#include "numerics/tkNMNormDistance.h"

#include "numerics/tkNMElementary.h"
#include "tests/definition/neighbours.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace
{
const double infinity = std::numeric_limits<double>::infinity();
} // namespace

TEST(tkNMNormDistance, isTheRootOfTheSumOfPowers)
{
    const double a[] = {0.0, 0.0};
    const double b[] = {3.0, -4.0};
    EXPECT_EQ(tkNMNormDistance(a, b, 2, 1.0), 7.0);
    EXPECT_EQ(tkNMNormDistance(a, b, 2, 2.0), 5.0);
    EXPECT_EQ(tkNMNormDistance(b, a, 2, 2.0), 5.0);
    const double root = tkNMElementary::pow(tkNMElementary::pow(3.0, 0.5) + tkNMElementary::pow(4.0, 0.5), 2.0);
    EXPECT_EQ(tkNMNormDistance(a, b, 2, 0.5), root);
    EXPECT_EQ(tkNMNormDistance(a, b, 1, 3.0), tkNMElementary::pow(tkNMElementary::pow(3.0, 3.0), 1.0 / 3.0));
}

TEST(tkNMNormDistance, noNumbersAreAtDistanceZero)
{
    EXPECT_EQ(tkNMNormDistance(nullptr, nullptr, 0, 2.0), 0.0);
}

TEST(tkNMNormDistance, theSumRunsInAscendingOrder)
{
    // Each small square is lost in the sum when the large one comes first, and not when it comes last.
    const double zeros[] = {0.0, 0.0, 0.0};
    const double largeFirst[] = {0x1p30, 1.0, 1.0 / 64};
    const double largeLast[] = {1.0 / 64, 1.0, 0x1p30};
    EXPECT_EQ(tkNMNormDistance(zeros, largeFirst, 3, 2.0), tkNMElementary::pow((0x1p60 + 1.0) + 0x1p-12, 0.5));
    EXPECT_EQ(tkNMNormDistance(zeros, largeLast, 3, 2.0), tkNMElementary::pow((0x1p-12 + 1.0) + 0x1p60, 0.5));
}

TEST(tkNMNormDistance, powersThatOverflowUnderflowOrAreNaNStand)
{
    const double zero[] = {0.0};
    const double large[] = {1e200};
    const double tiny[] = {1e-200};
    const double none[] = {std::numeric_limits<double>::quiet_NaN()};
    EXPECT_EQ(tkNMNormDistance(zero, large, 1, 2.0), infinity);
    EXPECT_EQ(tkNMNormDistance(zero, tiny, 1, 2.0), 0.0);
    EXPECT_TRUE(std::isnan(tkNMNormDistance(zero, none, 1, 2.0)));
}

TEST(tkNMNormDistance, anInfiniteOrderIsNoMaximumNorm)
{
    const double a[] = {0.0, 0.0};
    const double b[] = {3.0, 4.0};
    EXPECT_EQ(tkNMNormDistance(a, b, 2, infinity), 1.0);
}

namespace
{
std::vector<double> randomVector(std::size_t n, std::mt19937_64& generator)
{
    std::normal_distribution<double> deviate;
    std::vector<double> values(n);
    for (double& value : values)
        value = deviate(generator);
    return values;
}
} // namespace

TEST(tkNMNormDistance, isThatOfTheDefinitionForEveryOrder)
{
    std::mt19937_64 generator(1);
    for (const double order : {1e-3, 0.25, 0.5, 1.0, 1.5, 2.0, 2.5, 3.0, 4.0, 7.5, 64.0, 100.0, 1e300})
        for (std::size_t n = 0; n < 40; ++n)
        {
            const std::vector<double> a = randomVector(n, generator);
            const std::vector<double> b = randomVector(n, generator);
            const double distance = tkNMNormDistance(a.data(), b.data(), static_cast<long>(n), order);
            EXPECT_EQ(distance, definition::normDistance(order, a, b)) << order << ' ' << n;
            EXPECT_EQ(distance, tkNMNormDistance(b.data(), a.data(), static_cast<long>(n), order));
        }
}

TEST(tkNMNormDistance, keepsTheTriangleInequalityFromOrderOneOn)
{
    std::mt19937_64 generator(2);
    for (const double order : {1.0, 1.5, 2.0, 3.0, 10.0})
        for (int round = 0; round < 300; ++round)
        {
            const std::vector<double> a = randomVector(5, generator);
            const std::vector<double> b = randomVector(5, generator);
            const std::vector<double> c = randomVector(5, generator);
            const double around =
                tkNMNormDistance(a.data(), b.data(), 5, order) + tkNMNormDistance(b.data(), c.data(), 5, order);
            EXPECT_LE(tkNMNormDistance(a.data(), c.data(), 5, order), around * (1.0 + 1e-14)) << order;
        }
}

TEST(tkNMNormDistance, descendsWithTheOrderToTheLargestDifference)
{
    std::mt19937_64 generator(3);
    const std::vector<double> zeros(6, 0.0);
    for (int round = 0; round < 200; ++round)
    {
        const std::vector<double> a = randomVector(6, generator);
        double largest = 0.0;
        for (const double value : a)
            largest = std::fmax(largest, std::fabs(value));
        double before = infinity;
        for (const double order : {0.5, 1.0, 1.5, 2.0, 4.0, 16.0, 64.0})
        {
            const double distance = tkNMNormDistance(a.data(), zeros.data(), 6, order);
            EXPECT_LE(distance, before * (1.0 + 1e-14));
            EXPECT_GE(distance, largest * (1.0 - 1e-14));
            before = distance;
        }
        EXPECT_NEAR(before, largest, 0.03 * largest); // 6^(1/64) is 1.0284
    }
}

TEST(tkNMNormDistance, powersOfTwoScaleOrdersOneAndTwoExactly)
{
    std::mt19937_64 generator(4);
    for (int round = 0; round < 200; ++round)
    {
        const std::vector<double> a = randomVector(7, generator);
        const std::vector<double> b = randomVector(7, generator);
        std::vector<double> scaledA(a), scaledB(b);
        const int exponent = static_cast<int>(generator() % 600) - 300;
        for (std::size_t i = 0; i < a.size(); ++i)
        {
            scaledA[i] = std::ldexp(a[i], exponent);
            scaledB[i] = std::ldexp(b[i], exponent);
        }
        for (const double order : {1.0, 2.0})
            EXPECT_EQ(tkNMNormDistance(scaledA.data(), scaledB.data(), 7, order),
                      std::ldexp(tkNMNormDistance(a.data(), b.data(), 7, order), exponent));
    }
}

TEST(tkNMNormDistance, oneStrangeDifferenceDecides)
{
    const double usual[] = {1.0, 2.0, 3.0};
    for (std::size_t place = 0; place < 3; ++place)
        for (const double order : {0.5, 1.0, 2.0, 3.0, 2.7})
        {
            double other[] = {0.5, 2.5, -3.0};
            for (const double strange : {infinity, -infinity})
            {
                other[place] = strange;
                EXPECT_EQ(tkNMNormDistance(usual, other, 3, order), infinity);
            }
            other[place] = std::nan("");
            EXPECT_TRUE(std::isnan(tkNMNormDistance(usual, other, 3, order)));
        }
    const double same[] = {infinity, 2.0, 3.0}; // infinity less infinity is no number
    EXPECT_TRUE(std::isnan(tkNMNormDistance(same, same, 3, 2.0)));
    EXPECT_EQ(tkNMNormDistance(usual, usual, 3, 0.1), 0.0);
}
