#include "numerics/tkNMReferenceDeviation.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace
{
struct Category
{
    double count;
    double mean;
    double compensation;
    double squares;
};

double deviationOf(const std::vector<Category>& categories)
{
    tkNMReferenceDeviation reference;
    for (const Category& c : categories)
        reference.addMean(c.count, c.mean, c.compensation);
    for (const Category& c : categories)
        reference.addSquares(c.count, c.mean, c.compensation, c.squares);
    return reference.value();
}
} // namespace

TEST(tkNMReferenceDeviation, isThatOfAllPatternsTogether)
{
    // 1, 3 and 5, 5, 5: mean 3.8, squares 7.84 + 0.64 + 3 1.44.
    EXPECT_DOUBLE_EQ(deviationOf({{2, 2.0, 0.0, 2.0}, {3, 5.0, 0.0, 0.0}}), std::sqrt(12.8 / 5.0));
    EXPECT_DOUBLE_EQ(deviationOf({{4, -7.0, 0.0, 36.0}}), 3.0);
    EXPECT_DOUBLE_EQ(deviationOf({{1, 1e8, 0.0, 0.0}, {1, 1e8 + 2.0, 0.0, 0.0}}), 1.0);
}

TEST(tkNMReferenceDeviation, isZeroForWhatWasTheSameEverywhere)
{
    EXPECT_EQ(deviationOf({{3, 0.0, 0.0, 0.0}, {5, 0.0, 0.0, 0.0}}), 0.0);
    EXPECT_EQ(deviationOf({{3, 0.1, 1e-18, 0.0}, {5, 0.1, 1e-18, 0.0}}), 0.0);
    // Neighbouring doubles beside 1 are 2^-52 apart.
    EXPECT_EQ(deviationOf({{1, 1.0, 0.0, 0.0}, {1, 1.0 + 0x1p-52, 0.0, 0.0}}), 0.0);
    EXPECT_EQ(deviationOf({{1, 1.0, 0.0, 0.0}, {1, 1.0 + 0x1p-50, 0.0, 0.0}}), 0x1p-51);
    EXPECT_EQ(deviationOf({{1, -1.0, 0.0, 0.0}, {1, -1.0 - 0x1p-52, 0.0, 0.0}}), 0.0);
}

TEST(tkNMReferenceDeviation, usesTheCompensations)
{
    EXPECT_EQ(deviationOf({{1, 1.0, -0x1p-54, 0.0}, {1, 1.0, 0x1p-54, 0.0}}), 0.0); // 2^-54
    EXPECT_EQ(deviationOf({{1, 0.0, -0x1p-54, 0.0}, {1, 0.0, 0x1p-54, 0.0}}), 0x1p-54);
}
