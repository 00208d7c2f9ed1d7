#include "tkTest.h"

#include "clss/clastool/clastool/tkClassifierDataProvider.h"

#include <limits>

// A record names a pattern again in a few bytes. Comparing two providers compared the measurements of such a pattern
// once for every time that it was named: 10^12 of them for 16 MB of records. Large patterns that were found equal are
// not compared again.

namespace
{
using Handle = tkPtrHandle_const<tkFeaturePattern>;

tkClassifierDataProviderMemory named(const std::vector<Handle>& patterns, long times)
{
    tkClassifierDataProviderMemory data;
    std::vector<Handle> all;
    for (long i = 0; i < times; ++i)
        all.push_back(patterns[static_cast<std::size_t>(i) % patterns.size()]);
    data.data(all, std::vector<long>(all.size(), 0));
    return data;
}

Handle patternOf(std::size_t size, double last)
{
    std::vector<double> measurements(size, 1.0);
    measurements.back() = last;
    return Handle(new tkFeaturePattern(measurements));
}
} // namespace

TEST(repeatedPatternWasComparedManyTimes, aMillionNamesOfOneLargePatternAreEqualInLinearTime)
{
    const auto data = [](double last) { return named({patternOf(1000000, last)}, 1000000); };
    EXPECT_TRUE(data(2.0) == data(2.0));
    EXPECT_FALSE(data(2.0) == data(3.0));
}

TEST(repeatedPatternWasComparedManyTimes, namesInTurnAreComparedOncePerPair)
{
    const Handle one = patternOf(1000000, 2.0);
    const std::vector<Handle> two = {patternOf(1000000, 2.0), patternOf(1000000, 2.0)};
    EXPECT_TRUE(named({one}, 1000000) == named(two, 1000000));
}

TEST(repeatedPatternWasComparedManyTimes, everyPairOfPatternsIsCompared)
{
    const Handle one = patternOf(100, 1.0);
    const Handle two = patternOf(100, 2.0);
    EXPECT_TRUE(named({one, two}, 7) == named({patternOf(100, 1.0), patternOf(100, 2.0)}, 7));
    EXPECT_FALSE(named({one, one, one}, 3) == named({one, one, two}, 3));
    EXPECT_FALSE(named({one, two, one}, 3) == named({one, two, two}, 3));
    EXPECT_TRUE(named({one, one}, 4) == named({one, patternOf(100, 1.0)}, 4));
}

TEST(repeatedPatternWasComparedManyTimes, aPatternWithNaNDoesNotEqualItself)
{
    const Handle pattern = patternOf(100, std::numeric_limits<double>::quiet_NaN());
    EXPECT_FALSE(named({pattern}, 2) == named({pattern}, 2));
}
