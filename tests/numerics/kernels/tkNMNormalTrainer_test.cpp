#include "numerics/kernels/tkNMNormalTrainer.h"

#include "foundation/tkAssert.h"
#include "instructionSets.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <utility>
#include <vector>

namespace
{
using Pattern = std::vector<double>;
using Parts = std::vector<tkNMNormalTrainer::Part>;

bool haveSameBits(double a, double b)
{
    return a == b && std::signbit(a) == std::signbit(b);
}

void expectSameBits(const tkNMStatistics& a, const tkNMStatistics& b)
{
    ASSERT_EQ(a.count, b.count);
    ASSERT_EQ(a.dimension(), b.dimension());
    EXPECT_TRUE(a == b);
    for (std::size_t i = 0; i < a.dimension(); ++i)
    {
        EXPECT_TRUE(haveSameBits(a.mean[i], b.mean[i]));
        EXPECT_TRUE(haveSameBits(a.compensation[i], b.compensation[i]));
        for (std::size_t j = 0; j <= i; ++j)
            EXPECT_TRUE(haveSameBits(a.crossProducts(i, j), b.crossProducts(i, j)));
    }
}

/// Sizes of sets that make up `size` measurements: each for itself, all together, or of several sizes.
std::vector<std::size_t> setsOf(std::size_t size, std::size_t kind)
{
    if (kind == 0)
        return std::vector<std::size_t>(size, 1);
    if (kind == 1)
        return {size};
    std::vector<std::size_t> sets;
    for (std::size_t left = size, next = kind; left > 0; left -= sets.back(), next = next * 5 % 19)
        sets.push_back(std::min(left, next));
    return sets;
}

/// Measurements of ordinary, constant, distant, huge and tiny values, with zeros of both signs.
Pattern patternOf(std::size_t size, std::mt19937_64& generator)
{
    std::normal_distribution<double> deviate;
    Pattern pattern;
    for (std::size_t j = 0; j < size; ++j)
    {
        const double v = deviate(generator);
        const double values[7] = {v, 0.1, 1e8 + v, 1e146 * v, 1e-170 * v, v > 0.0 ? 0.0 : -0.0, std::round(v)};
        pattern.push_back(values[(j + size) % 7]);
    }
    return pattern;
}

/// Statistics for each set, which have learned some patterns: not all the same number.
std::vector<tkNMStatistics> statisticsOf(const std::vector<std::size_t>& sets, std::mt19937_64& generator)
{
    std::vector<tkNMStatistics> statistics;
    for (std::size_t s = 0; s < sets.size(); ++s)
    {
        statistics.emplace_back(sets[s]);
        for (std::size_t k = 0; k <= s % 3; ++k)
            statistics[s].add(patternOf(sets[s], generator).data());
    }
    return statistics;
}

Parts partsOf(std::vector<tkNMStatistics>& statistics)
{
    Parts parts;
    std::size_t first = 0;
    for (tkNMStatistics& each : statistics)
    {
        parts.push_back({&each, first});
        first += each.dimension();
    }
    return parts;
}

/// By the definition.
void addToEach(std::vector<tkNMStatistics>& statistics, const Pattern& pattern)
{
    const double* x = pattern.data();
    for (tkNMStatistics& each : statistics)
    {
        each.add(x, tkNMInstructions::Definition);
        x += each.dimension();
    }
}
} // namespace

TEST(tkNMNormalTrainer, everyInstructionSetHasTheBitsOfTheDefinition)
{
    std::mt19937_64 generator(8);
    for (std::size_t size = 1; size <= 70; ++size)
        for (std::size_t kind = 0; kind < 5; ++kind)
        {
            const std::vector<tkNMStatistics> start = statisticsOf(setsOf(size, kind), generator);
            const std::size_t count = 1 + (size * 5 + kind) % 50; // up to three full buffers and a part of one
            std::vector<Pattern> patterns;
            for (std::size_t k = 0; k < count; ++k)
                patterns.push_back(patternOf(size, generator));
            std::vector<tkNMStatistics> expected(start);
            for (const Pattern& pattern : patterns)
                addToEach(expected, pattern);
            for (const tkNMInstructions set : instructionSets())
            {
                std::vector<tkNMStatistics> statistics(start);
                {
                    tkNMNormalTrainer trainer(size, count, set);
                    ASSERT_TRUE(trainer.start(partsOf(statistics)));
                    for (const Pattern& pattern : patterns)
                        ASSERT_TRUE(trainer.add(pattern.data()));
                }
                for (std::size_t s = 0; s < statistics.size(); ++s)
                    expectSameBits(statistics[s], expected[s]);
            }
        }
}

TEST(tkNMNormalTrainer, measurementsOfNoPartAreLeftOut)
{
    std::mt19937_64 generator(12);
    for (const tkNMInstructions set : instructionSets())
        for (std::size_t size = 1; size <= 30; ++size)
            for (std::size_t kind = 0; kind < 5; ++kind)
            {
                std::vector<tkNMStatistics> statistics = statisticsOf(setsOf(size, kind), generator);
                std::vector<tkNMStatistics> expected(statistics);
                Parts parts;
                for (const tkNMNormalTrainer::Part& part : partsOf(statistics))
                    if (parts.empty() || generator() % 2 == 0)
                        parts.push_back(part);
                {
                    tkNMNormalTrainer trainer(size, 40, set);
                    ASSERT_TRUE(trainer.start(parts));
                    for (int k = 0; k < 40; ++k)
                    {
                        const Pattern pattern = patternOf(size, generator);
                        ASSERT_TRUE(trainer.add(pattern.data()));
                        for (const tkNMNormalTrainer::Part& part : parts)
                            expected[static_cast<std::size_t>(part.statistics - statistics.data())].add(
                                pattern.data() + part.first, tkNMInstructions::Definition);
                    }
                }
                for (std::size_t s = 0; s < statistics.size(); ++s)
                    expectSameBits(statistics[s], expected[s]);
            }
}

TEST(tkNMNormalTrainer, theStatisticsMayChangeAfterEachFinish)
{
    std::mt19937_64 generator(9);
    for (std::size_t kind = 0; kind < 3; ++kind)
    {
        std::vector<tkNMStatistics> statistics = statisticsOf(setsOf(11, kind), generator);
        std::vector<tkNMStatistics> expected(statistics);
        tkNMNormalTrainer trainer(11, 100);
        ASSERT_TRUE(trainer.start(partsOf(statistics)));
        for (int k = 0; k < 90; ++k)
        {
            const Pattern pattern = patternOf(11, generator);
            addToEach(expected, pattern);
            if (k % 7 == 3 || k % 31 > 28)
            {
                trainer.finish();
                trainer.finish();
                addToEach(statistics, pattern);
            }
            else
                ASSERT_TRUE(trainer.add(pattern.data()));
        }
        tkNMNormalTrainer moved(std::move(trainer));
        const Pattern last = patternOf(11, generator);
        addToEach(expected, last);
        ASSERT_TRUE(moved.add(last.data()));
        moved.finish();
        for (std::size_t s = 0; s < statistics.size(); ++s)
            expectSameBits(statistics[s], expected[s]);
    }
}

TEST(tkNMNormalTrainer, addsNothingOfAPatternWithAMeasurementOutOfRange)
{
    std::mt19937_64 generator(10);
    const double largest = tkNMStatistics::largestMagnitude;
    const double infinity = std::numeric_limits<double>::infinity();
    for (const tkNMInstructions set : instructionSets())
        for (const std::size_t size : {1, 7, 8, 16, 21})
            for (std::size_t j = 0; j < size; ++j)
            {
                std::vector<tkNMStatistics> statistics = statisticsOf(setsOf(size, j % 3), generator);
                std::vector<tkNMStatistics> expected(statistics);
                tkNMNormalTrainer trainer(size, 100, set);
                ASSERT_TRUE(trainer.start(partsOf(statistics)));
                Pattern pattern = patternOf(size, generator);
                for (const double bad : {std::nextafter(largest, infinity), -std::nextafter(largest, infinity),
                                         infinity, -infinity, std::nan(""), -std::nan("")})
                {
                    pattern[j] = bad;
                    EXPECT_FALSE(trainer.canAdd(pattern.data()));
                    EXPECT_FALSE(trainer.add(pattern.data()));
                }
                for (const double good : {largest, -largest, 0.0, 1.0})
                {
                    pattern[j] = good;
                    EXPECT_TRUE(trainer.canAdd(pattern.data()));
                    EXPECT_TRUE(trainer.add(pattern.data()));
                    addToEach(expected, pattern);
                }
                trainer.finish();
                for (std::size_t s = 0; s < statistics.size(); ++s)
                    expectSameBits(statistics[s], expected[s]);
            }
}

TEST(tkNMNormalTrainer, startsOnlyWhereEveryPatternCanBeLearned)
{
    const Pattern pattern(1025, 1.0);
    const auto learned = [&](std::size_t dimension)
    {
        tkNMStatistics statistics(dimension);
        statistics.add(pattern.data());
        return statistics;
    };
    tkNMStatistics empty(1), one = learned(1), other = learned(1), two = learned(2);
    EXPECT_TRUE(tkNMNormalTrainer(3, 5).start({{&one, 0}, {&two, 1}}));
    EXPECT_TRUE(tkNMNormalTrainer(3, 5).start({{&two, 1}, {&one, 0}}));
    EXPECT_FALSE(tkNMNormalTrainer(2, 5).start({{&one, 0}, {&empty, 1}}));               // nothing learned
    EXPECT_TRUE(tkNMNormalTrainer(3, 5).start({{&one, 0}, {&other, 2}}));                // none has the one between
    EXPECT_FALSE(tkNMNormalTrainer(2, 5).start({{&one, 1}, {&two, 0}}));                 // both have one
    EXPECT_FALSE(tkNMNormalTrainer(2, 5).start({{&one, 0}, {&two, 1}}));                 // ends beyond the pattern
    EXPECT_FALSE(tkNMNormalTrainer(2, 5).start({{&one, 0}, {&two, 3}}));                 // begins beyond it
    EXPECT_FALSE(tkNMNormalTrainer(1, 5).start({{&one, static_cast<std::size_t>(-1)}})); // the end would wrap
    EXPECT_FALSE(tkNMNormalTrainer(0, 5).start({}));
    tkNMStatistics ofNone(0);
    ofNone.count = 1;
    EXPECT_FALSE(tkNMNormalTrainer(0, 5).start({{&ofNone, 0}}));
    EXPECT_FALSE(tkNMNormalTrainer(2, 5).start({}));

    tkNMStatistics large = learned(1024);
    tkNMStatistics tooLarge = learned(1025);
    EXPECT_TRUE(tkNMNormalTrainer(1024, 5).start({{&large, 0}}));
    EXPECT_FALSE(tkNMNormalTrainer(1025, 5).start({{&tooLarge, 0}}));

    tkNMStatistics full = learned(1);
    full.count = 2147483647L - 5;
    EXPECT_TRUE(tkNMNormalTrainer(1, 5).start({{&full, 0}}));
    EXPECT_FALSE(tkNMNormalTrainer(1, 6).start({{&full, 0}}));

    tkNMNormalTrainer trainer(1, 5);
    EXPECT_FALSE(trainer.isStarted());
    EXPECT_THROW(trainer.add(pattern.data()), tkAssertionFailure);
    ASSERT_TRUE(trainer.start({{&full, 0}}));
    EXPECT_TRUE(trainer.isStarted());
    EXPECT_THROW(trainer.start({{&full, 0}}), tkAssertionFailure);
    for (int k = 0; k < 5; ++k)
        EXPECT_TRUE(trainer.add(pattern.data()));
    trainer.finish();
    EXPECT_EQ(full.count, 2147483647L);
}
