// Deviations far below the mean were taken for rounding.
//
// Means carry a compensation, so that a covariance is well known as long as the measurements themselves are: down to
// the unit in their last place. A measurement nevertheless counted as constant once its deviation was at most 2^-48 of
// its mean. Categories with means of 1e15 and 1e15 + 6 and deviations of 1 got 0.5 and 0.5 at every pattern; of time
// stamps in microseconds half were classified right, which is chance.
//
// Now the limit is 2^-52, where neighbouring doubles are as far apart as the deviation.

#include "tests/support/bayesianTool.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

TEST(DeviationsFarBelowTheMean, tellCategoriesApart)
{
    for (const bool isJoint : {false, true})
    {
        std::mt19937_64 generator(3);
        std::normal_distribution<double> deviate;
        BayesianData training;
        BayesianData test;
        for (int i = 0; i < 400; ++i)
            for (const long label : {0, 1})
                (i % 2 == 0 ? training : test)
                    .add(label, {1e15 + 6.0 * static_cast<double>(label) + deviate(generator), deviate(generator)});
        const tkClassifierTool tool = bayesianTool(training, isJoint);
        EXPECT_GT(shareOfRight(tool, test), 0.98) << isJoint;
        EXPECT_GT(resultOf(resultOf(tool, {1e15, 0.0}), 0).classScore(), 0.9999);
        EXPECT_GT(resultOf(resultOf(tool, {1e15 + 6.0, 0.0}), 1).classScore(), 0.9999);
    }
}

/// Microseconds since 1970: two kinds of events, some four microseconds apart.
TEST(DeviationsFarBelowTheMean, tellTimeStampsApart)
{
    std::mt19937_64 generator(4);
    std::normal_distribution<double> deviate;
    BayesianData training;
    BayesianData test;
    for (int i = 0; i < 400; ++i)
        for (const long label : {0, 1})
            (i % 2 == 0 ? training : test)
                .add(label, {std::round(1.7e15 + 4.1 * static_cast<double>(label) + deviate(generator))});
    EXPECT_GT(shareOfRight(bayesianTool(training, false), test), 0.95);
}
