#include "foundation/tkPair.h"

#include <gtest/gtest.h>

TEST(tkPair, holdsTwoValuesAndComparesBoth)
{
    const tkPair<double> p(1.5, -2.0);
    EXPECT_EQ(1.5, p.first);
    EXPECT_EQ(-2.0, p.second);
    EXPECT_TRUE(p == tkPair<double>(1.5, -2.0));
    EXPECT_TRUE(p != tkPair<double>(1.5, 2.0));
    EXPECT_TRUE(p != tkPair<double>(1.0, -2.0));
}

TEST(tkPair, defaultIsZero)
{
    const tkPair<double> p;
    EXPECT_TRUE(p == tkPair<double>(0.0, 0.0));
}
