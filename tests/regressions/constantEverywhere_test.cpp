// A measurement that never varied in training decided, or hid, everything when it varied at run time.
//
// A measurement that was 7 in all categories got a deviation made of its mean in each. A pattern with 1e8 there was so
// far from all of them that the differences of the other measurements were lost in rounding: 0.99999 and 0.00001 became
// 0.5 and 0.5. In another unit, with another offset, the same data gave another decision.
//
// Now such a measurement has no term in any category. Its value is not even read: 0.0 times an infinite one made every
// score NaN.

#include "tests/support/bayesianTool.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace
{
BayesianData dataWithConstant(double constant)
{
    std::mt19937_64 generator(9);
    std::normal_distribution<double> deviate;
    BayesianData data;
    for (int i = 0; i < 40; ++i)
        for (const long label : {0, 1})
            data.add(label, {deviate(generator) + 4.0 * static_cast<double>(label), constant, deviate(generator)});
    return data;
}
} // namespace

TEST(ConstantEverywhere, hasNoTerm)
{
    for (const bool isJoint : {false, true})
    {
        const tkClassifierTool tool = bayesianTool(dataWithConstant(7.0), isJoint);
        const tkClassifierResult asTrained = resultOf(tool, {-1.0, 7.0, 0.0});
        EXPECT_GT(resultOf(asTrained, 0).classScore(), 0.9999);
        for (const double value : {1e8, -1e8, 7.000001, 0.0, 1e300, HUGE_VAL, -HUGE_VAL, std::nan("")})
            EXPECT_EQ(resultOf(tool, {-1.0, value, 0.0}).categoryResults(), asTrained.categoryResults()) << value;
        // Whether it is valid or not makes no difference either.
        EXPECT_EQ(resultOf(tool, {-1.0, 0.0, 0.0}, {1}).categoryResults(), asTrained.categoryResults());
        // Beside an invalid measurement neither.
        const tkClassifierResult marginal = resultOf(tool, {-1.0, 7.0, 0.0}, {2});
        EXPECT_GT(resultOf(marginal, 0).classScore(), 0.9999);
        for (const double value : {1e8, HUGE_VAL, std::nan("")})
            EXPECT_EQ(resultOf(tool, {-1.0, value, 0.0}, {2}).categoryResults(), marginal.categoryResults()) << value;
    }
}

TEST(ConstantEverywhere, decidesTheSameInEveryUnit)
{
    for (const bool isJoint : {false, true})
    {
        const tkClassifierResult expected = resultOf(bayesianTool(dataWithConstant(7.0), isJoint), {-1.0, 9.0, 0.0});
        for (const double constant : {0.0, 0.1, -3e9, 7e-12})
            EXPECT_EQ(resultOf(bayesianTool(dataWithConstant(constant), isJoint), {-1.0, 9.0, 0.0}).categoryResults(),
                      expected.categoryResults());
    }
}

TEST(ConstantEverywhere, aMeasurementThatDiffersBetweenCategoriesHasATerm)
{
    for (const bool isJoint : {false, true})
    {
        BayesianData data = dataWithConstant(7.0);
        for (std::size_t i = 0; i < data.rows.size(); ++i)
            data.rows[i][1] = data.labels[i] == 0 ? 7.0 : 7.5;
        const tkClassifierTool tool = bayesianTool(data, isJoint);
        EXPECT_GT(resultOf(resultOf(tool, {4.0, 7.0, 0.0}), 0).classScore(), 0.9999);
        EXPECT_GT(resultOf(resultOf(tool, {0.0, 7.5, 0.0}), 1).classScore(), 0.9999);
    }
}
