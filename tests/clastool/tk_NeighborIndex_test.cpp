#include "clss/clastool/clastool/tk_NeighborIndex.h"

#include "tests/definition/neighbours.h"
#include "tkAllocations.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <new>
#include <random>
#include <set>

namespace
{
using Handle = tkPtrHandle_const<tkFeaturePattern>;
using Patterns = tk_NeighborIndex::Patterns;

Handle patternOf(const std::vector<double>& measurements, const std::vector<long>& invalid = {})
{
    return Handle(new tkFeaturePattern(measurements, invalid));
}

/// Patterns on a small lattice, so that many have the same distance.
Patterns randomPatterns(long count, long columns, std::mt19937& random)
{
    Patterns patterns;
    for (long i = 0; i < count; ++i)
    {
        std::vector<double> measurements;
        for (long c = 0; c < columns; ++c)
            measurements.push_back(static_cast<double>(random() % 7) - 3.0);
        patterns.push_back(patternOf(measurements));
    }
    return patterns;
}

/// `count` handles to these patterns.
Patterns repeated(const Patterns& distinct, long count, std::mt19937& random)
{
    Patterns patterns;
    for (long i = 0; i < count; ++i)
        patterns.push_back(distinct[random() % distinct.size()]);
    return patterns;
}

/// Whether list and set for a few k are those of all patterns compared one by one.
void expectDefinition(const tk_NeighborIndex& index, const Patterns& patterns, const tkFeaturePattern& query)
{
    ASSERT_TRUE(index.covers(patterns));
    const auto size = static_cast<long>(patterns.size());
    for (const double order : {0.5, 1.0, 2.0, 3.5})
    {
        std::vector<double> all;
        for (const Handle& pattern : patterns)
            all.push_back(
                definition::normDistance(order, query.featureMeasurements(true), pattern->featureMeasurements(true)));
        for (const long k : {1L, 2L, 7L, size - 1, size, size + 5})
        {
            if (k < 1)
                continue;
            const definition::NeighbourList expected = definition::neighbours(all, k);
            const auto room = static_cast<std::size_t>(std::min(k, size));
            std::vector<long> indices(room);
            std::vector<double> distances(2 * room);
            EXPECT_EQ(std::min(k, size),
                      index.nearest(patterns, query, order, k, false, indices.data(), distances.data()));
            distances.resize(room);
            EXPECT_EQ(expected.indices(), indices) << order << ' ' << k;
            EXPECT_EQ(expected.distances(), distances) << order << ' ' << k;

            distances.resize(2 * room);
            std::fill(indices.begin(), indices.end(), -1L);
            EXPECT_EQ(std::min(k, size),
                      index.nearest(patterns, query, order, k, true, indices.data(), distances.data()));
            EXPECT_EQ(std::set<long>(expected.indices().begin(), expected.indices().end()),
                      std::set<long>(indices.begin(), indices.end()))
                << order << ' ' << k;
        }
    }
}
} // namespace

TEST(tk_NeighborIndex, findsTheNearestOfAllPatterns)
{
    std::mt19937 random(1);
    for (const long count : {1, 2, 10, 200, 3000})
    {
        const Patterns patterns = randomPatterns(count, 3, random);
        const tk_NeighborIndex index(patterns);
        EXPECT_EQ(index.firstNotComparable(), -1);
        expectDefinition(index, patterns, tkFeaturePattern({0.5, -1.0, 2.0}));
        expectDefinition(index, patterns, *patterns.back());
    }
}

TEST(tk_NeighborIndex, patternsOfNoMeasurementsAreAllAtDistanceZero)
{
    std::mt19937 random(2);
    const Patterns patterns = randomPatterns(9, 0, random);
    expectDefinition(tk_NeighborIndex(patterns), patterns, tkFeaturePattern());
}

// With many measurements few patterns are enough for the distinct ones to be told apart from their repetitions.
TEST(tk_NeighborIndex, repeatedPatternsAreFoundAsOften)
{
    std::mt19937 random(3);
    const long columns = 100;
    const long few = tkNMNeighborSearch::mostScanned / columns;
    for (const long numDistinct : {1L, 3L, 150L, 400L})
        for (const long count : {few, few + 1, 1000L})
        {
            const Patterns patterns = repeated(randomPatterns(numDistinct, columns, random), count, random);
            const tk_NeighborIndex index(patterns);
            expectDefinition(index, patterns, tkFeaturePattern(std::vector<double>(columns, 0.25)));
            const auto size = static_cast<std::size_t>(count);
            if (count > few && 4 * static_cast<std::size_t>(numDistinct) < size)
            {
                EXPECT_LE(index.memory(), sizeof(std::size_t) * size) << numDistinct;
            }
        }
}

TEST(tk_NeighborIndex, takesInWhatIsAppended)
{
    std::mt19937 random(4);
    for (const bool areRepeated : {false, true})
    {
        const long columns = areRepeated ? 100 : 3;
        Patterns patterns = randomPatterns(areRepeated ? 5 : 20, columns, random);
        if (areRepeated)
            patterns = repeated(patterns, 1000, random);
        tk_NeighborIndex index(patterns);
        for (int round = 0; round < 4; ++round)
        {
            const Patterns more = randomPatterns(1 + 5 * round, columns, random);
            patterns.insert(patterns.end(), more.begin(), more.end());
            EXPECT_FALSE(index.covers(patterns));
            index.update(patterns);
            expectDefinition(index, patterns, *patterns.back());
        }
        index.update(patterns); // nothing is new
        expectDefinition(index, patterns, *patterns.front());
    }
}

TEST(tk_NeighborIndex, namesTheFirstPatternThatIsNotComparable)
{
    const Handle sound = patternOf({1.0, 2.0});
    const Handle notComparable[] = {Handle(), patternOf({1.0, 2.0}, {1}), patternOf({1.0}), patternOf({1.0, 2.0, 3.0})};
    for (const Handle& bad : notComparable)
        for (std::size_t place = 1; place < 6; ++place)
        {
            Patterns patterns(6, sound);
            patterns[place] = bad;
            patterns.back() = bad;
            tk_NeighborIndex index(patterns);
            EXPECT_EQ(index.firstNotComparable(), static_cast<long>(place));
            EXPECT_FALSE(index.covers(patterns));
            patterns.push_back(Handle());
            index.update(patterns);
            EXPECT_EQ(index.firstNotComparable(), static_cast<long>(place));

            tk_NeighborIndex growing(Patterns(place, sound));
            EXPECT_EQ(growing.firstNotComparable(), -1);
            growing.update(patterns);
            EXPECT_EQ(growing.firstNotComparable(), static_cast<long>(place));
        }
    EXPECT_EQ(tk_NeighborIndex({Handle(), sound}).firstNotComparable(), 0);
    EXPECT_EQ(tk_NeighborIndex({patternOf({1.0}, {0}), sound}).firstNotComparable(), 0);
}

TEST(tk_NeighborIndex, aPatternThatIsNotComparableIsFoundAmongRepeatedOnes)
{
    std::mt19937 random(5);
    Patterns patterns = repeated(randomPatterns(3, 100, random), 1000, random);
    patterns[700] = patternOf(std::vector<double>(99, 1.0));
    patterns[800] = Handle();
    const tk_NeighborIndex index(patterns);
    EXPECT_EQ(index.firstNotComparable(), 700);
    EXPECT_FALSE(index.covers(patterns));
}

TEST(tk_NeighborIndex, ofNothingCoversNothing)
{
    const tk_NeighborIndex index((Patterns()));
    EXPECT_TRUE(index.covers(Patterns()));
    EXPECT_EQ(index.firstNotComparable(), -1);
    EXPECT_EQ(index.memory(), 0u);
    EXPECT_FALSE(index.covers({patternOf({1.0})}));
}

TEST(tk_NeighborIndex, runningOutOfMemoryCostsQueriesTimeAlone)
{
    std::mt19937 random(6);
    const Patterns patterns = randomPatterns(2000, 5, random);
    int limited = 0;
    for (std::size_t allowed = 0; allowed < 8; ++allowed)
    {
        tk_NeighborIndex index((Patterns(patterns.begin(), patterns.begin() + 100)));
        {
            const tkAllocations allocations(allowed);
            index.update(patterns);
            limited += allocations.count() > allowed ? 1 : 0;
        }
        expectDefinition(index, patterns, *patterns[40]);
        index.update(patterns);
        expectDefinition(index, patterns, *patterns[41]);
    }
    EXPECT_GT(limited, 0);
}
