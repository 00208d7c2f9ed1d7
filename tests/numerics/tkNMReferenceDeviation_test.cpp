#include "numerics/tkNMReferenceDeviation.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
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

TEST(tkNMReferenceDeviation, isThatOfAllValuesComputedDirectly)
{
    std::mt19937_64 generator(1);
    std::normal_distribution<double> deviate;
    for (int round = 0; round < 200; ++round)
    {
        const double offset = std::ldexp(deviate(generator), round % 20);
        std::vector<Category> categories;
        std::vector<double> all;
        for (std::size_t c = 0; c < 1 + generator() % 6; ++c)
        {
            const double shift = 3.0 * deviate(generator);
            std::vector<double> values;
            double sum = 0.0;
            for (std::size_t i = 0; i < 1 + generator() % 20; ++i)
                sum += values.emplace_back(offset + shift + deviate(generator));
            Category category{static_cast<double>(values.size()), sum / static_cast<double>(values.size()), 0.0, 0.0};
            for (const double v : values)
                category.squares += (v - category.mean) * (v - category.mean);
            categories.push_back(category);
            all.insert(all.end(), values.begin(), values.end());
        }
        double mean = 0.0;
        for (const double v : all)
            mean += v / static_cast<double>(all.size());
        double squares = 0.0;
        for (const double v : all)
            squares += (v - mean) * (v - mean);
        const double expected = std::sqrt(squares / static_cast<double>(all.size()));
        EXPECT_NEAR(deviationOf(categories), expected, 1e-9 * (1.0 + expected)) << round;
    }
}

/// What the mean is measured from is the first category: the order costs no more than rounding.
TEST(tkNMReferenceDeviation, theOrderOfCategoriesMakesNoDifference)
{
    const std::vector<Category> categories{{3, 1.0, 0.0, 0.5}, {7, 4.0, 1e-17, 2.0}, {1, -2.0, 0.0, 0.0}};
    const double expected = deviationOf(categories);
    EXPECT_DOUBLE_EQ(deviationOf({categories[1], categories[2], categories[0]}), expected);
    EXPECT_DOUBLE_EQ(deviationOf({categories[2], categories[1], categories[0]}), expected);
}

TEST(tkNMReferenceDeviation, scalesWithTheMeasurement)
{
    const double expected = deviationOf({{3, 1.0, 0.0, 0.5}, {7, 4.0, 0.0, 2.0}});
    for (const double unit : {0x1p-400, 0x1p-1, 0x1p400})
        EXPECT_EQ(deviationOf({{3, unit, 0.0, 0.5 * unit * unit}, {7, 4.0 * unit, 0.0, 2.0 * unit * unit}}),
                  expected * unit);
}

TEST(tkNMReferenceDeviation, aSinglePatternHasNone)
{
    for (const double value : {0.0, 1.0, -1e300, 1e-300})
        EXPECT_EQ(deviationOf({{1, value, 0.0, 0.0}}), 0.0);
}
