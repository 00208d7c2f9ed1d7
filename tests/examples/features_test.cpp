#include "features.h"

#include "clss/clastool/clastool/tkFeaturePattern.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

using namespace inspector;

namespace
{

/// A picture of 64 x 64 pixels, bright and restless around the tile at (16, 8), whose pixels are grey(x, y).
Measurements measureWithin(const std::function<int(long x, long y)>& grey)
{
    Picture picture;
    picture.width = 64;
    picture.height = 64;
    for (long y = 0; y < 64; ++y)
    {
        for (long x = 0; x < 64; ++x)
        {
            const bool inside = x >= 16 && x < 48 && y >= 8 && y < 40;
            picture.pixels.push_back(static_cast<std::uint8_t>(inside ? grey(x - 16, y - 8) : 255 - 7 * x % 40));
        }
    }
    return measureTile(picture, 16, 8);
}

void expectMeasured(const Measurements& measured, const std::vector<double>& expected)
{
    ASSERT_EQ(measured.values.size(), numMeasurements);
    for (std::size_t i = 0; i < numMeasurements; ++i)
        EXPECT_NEAR(measured.values[i], expected[i], 1e-12 * std::abs(expected[i])) << measurementNames[i];
}

} // namespace

TEST(surfaceInspectorFeatures, rampAcrossHasStepsAcrossOnly)
{
    const Measurements measured = measureWithin([](long x, long) { return static_cast<int>(x); });
    expectMeasured(measured, {15.5, std::sqrt((32.0 * 32.0 - 1.0) / 12.0), 1.0, 0.0, 0.0, 0.0});
    EXPECT_TRUE(measured.invalid.empty());
}

TEST(surfaceInspectorFeatures, rampDownHasStepsDownOnly)
{
    const Measurements measured = measureWithin([](long, long y) { return static_cast<int>(3 * y); });
    expectMeasured(measured, {46.5, 3.0 * std::sqrt((32.0 * 32.0 - 1.0) / 12.0), 0.0, 3.0, 0.0, 0.0});
}

TEST(surfaceInspectorFeatures, chessboardHasTheHighestLaplacian)
{
    const Measurements measured = measureWithin([](long x, long y) { return (x + y) % 2 == 0 ? 200 : 0; });
    expectMeasured(measured, {100.0, 100.0, 200.0, 200.0, 800.0, 0.0});
}

TEST(surfaceInspectorFeatures, brightSpeckSkewsUpwards)
{
    const Measurements measured = measureWithin([](long x, long y) { return x == 5 && y == 20 ? 255 : 0; });
    const double p = 1.0 / 1024.0;
    const double deviation = std::sqrt(p * (1.0 - p));
    expectMeasured(measured, {255.0 * p, 255.0 * deviation, 2.0 * 255.0 / (31.0 * 32.0), 2.0 * 255.0 / (31.0 * 32.0),
                              8.0 * 255.0 / (30.0 * 30.0), (1.0 - 2.0 * p) / deviation});
}

TEST(surfaceInspectorFeatures, darkSpeckInACornerHasNoLaplacianAndSkewsDownwards)
{
    const Measurements measured = measureWithin([](long x, long y) { return x == 31 && y == 31 ? 0 : 255; });
    const double p = 1.0 / 1024.0;
    const double deviation = std::sqrt(p * (1.0 - p));
    expectMeasured(measured, {255.0 * (1.0 - p), 255.0 * deviation, 255.0 / (31.0 * 32.0), 255.0 / (31.0 * 32.0), 0.0,
                              (2.0 * p - 1.0) / deviation});
}

TEST(surfaceInspectorFeatures, flatTileHasAnInvalidSkewness)
{
    const Measurements measured = measureWithin([](long, long) { return 77; });
    expectMeasured(measured, {77.0, 0.0, 0.0, 0.0, 0.0, 0.0});
    EXPECT_EQ(measured.invalid, std::vector<long>{5});
}

TEST(surfaceInspectorFeatures, scalingBringsDeviationsToOneAndKeepsTheInvalid)
{
    const Scaling scaling({{{1.0, 10.0, 5.0, 0.0, 0.0, -3.0}, {}}, {{3.0, 30.0, 5.0, 0.0, 8.0, 3.0}, {}}});
    const tkPtrHandle_const<tkFeaturePattern> pattern = scaling.pattern({{2.0, 20.0, 5.0, 7.0, 8.0, 6.0}, {5}});
    EXPECT_EQ(pattern->featureMeasurements(false), (std::vector<double>{2.0, 2.0, 5.0, 7.0, 2.0, 2.0}));
    EXPECT_EQ(pattern->numInvalid(), 1);
    EXPECT_FALSE(pattern->isValid(5));
}
