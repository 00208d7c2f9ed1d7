// Distances that doubles can tell apart were cut to the same length.
//
// A squared distance counted at most 1e300, so that sums over many densities stay finite. Two categories whose squared
// distances are 1e301 and 1e305 both got the cut, and half the class score each.
//
// Now a squared distance is cut only where the arithmetic overflows, to the largest double, and a sum of log densities
// that overflows becomes the largest double of its sign: whatever a finite pattern is, its scores are finite.

#include "tests/support/bayesianTool.h"

#include <gtest/gtest.h>

#include <cmath>

namespace
{
/// The second category is a hundred times as wide as the first one.
BayesianData twoWidths(std::size_t measurements)
{
    BayesianData data;
    for (const long label : {0, 1})
        for (int i = 0; i < 8; ++i)
        {
            std::vector<double> row(measurements);
            for (std::size_t j = 0; j < measurements; ++j)
                row[j] = ((i >> j % 3 & 1) != 0 ? 1.0 : -1.0) * (label == 0 ? 1.0 : 100.0) * (1.0 + 0.01 * i);
            data.add(label, row);
        }
    return data;
}
} // namespace

TEST(DistancesBeyondTheCut, stillDecide)
{
    for (const bool isJoint : {false, true})
        for (const double x : {1e140, 1e152, -1e153})
        {
            const tkClassifierResult result = resultOf(bayesianTool(twoWidths(3), isJoint), {x, 0.0, 0.0});
            EXPECT_EQ(result.categoryResults().front().categoryLabel(), 1) << x;
            EXPECT_EQ(result.categoryResults().front().classScore(), 1.0) << x;
        }
}

TEST(DistancesBeyondTheCut, haveFiniteScoresHoweverManyDensitiesAreAdded)
{
    for (const std::size_t measurements : {1u, 2u, 3u, 40u})
        for (const bool isJoint : {false, true})
        {
            const tkClassifierTool tool = bayesianTool(twoWidths(measurements), isJoint);
            for (const double x : {1e150, 1.4e154, 1e160, 1.7976931348623157e308, -1.7976931348623157e308})
            {
                const std::vector<double> far(measurements, x);
                for (const std::vector<long>& invalid : {std::vector<long>{}, {0}})
                {
                    const tkClassifierResult result = resultOf(tool, far, invalid);
                    for (const tkClassifierCategoryResult& each : result.categoryResults())
                    {
                        ASSERT_TRUE(std::isfinite(each.matchScore())) << x << ' ' << measurements << isJoint;
                        ASSERT_TRUE(std::isfinite(each.classScore())) << x;
                    }
                }
            }
        }
}
