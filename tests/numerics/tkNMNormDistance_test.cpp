#include "numerics/tkNMNormDistance.h"

#include "numerics/tkNMElementary.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

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
