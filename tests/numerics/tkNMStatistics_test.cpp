#include "numerics/tkNMStatistics.h"

#include "instructionSets.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

namespace
{
using Pattern = std::vector<double>;

bool haveSameBits(double a, double b)
{
    return a == b && std::signbit(a) == std::signbit(b);
}

/// The recursion as it is written down, over plain vectors.
struct PlainStatistics
{
    double n = 0.0;
    Pattern m, c;
    std::vector<Pattern> s;

    void add(const Pattern& x)
    {
        const std::size_t d = x.size();
        m.resize(d);
        c.resize(d);
        s.resize(d, Pattern(d));
        n += 1.0;
        Pattern before(d), after(d);
        for (std::size_t j = 0; j < d; ++j)
        {
            before[j] = (x[j] - m[j]) - c[j];
            const double step = before[j] / n + c[j];
            const double sum = m[j] + step;
            const double added = sum - m[j];
            c[j] = (m[j] - (sum - added)) + (step - added);
            m[j] = sum;
            after[j] = (x[j] - m[j]) - c[j];
        }
        for (std::size_t i = 0; i < d; ++i)
            for (std::size_t j = 0; j <= i; ++j)
                s[i][j] += before[i] * after[j];
    }
};

/// Ordinary, constant, distant, huge and tiny measurements, and zeros of both signs.
Pattern patternOf(std::size_t d, std::mt19937_64& generator)
{
    std::normal_distribution<double> deviate;
    Pattern pattern;
    for (std::size_t j = 0; j < d; ++j)
    {
        const double v = deviate(generator);
        const double values[7] = {v, 0.1, 1e8 + v, 1e146 * v, 1e-170 * v, v > 0.0 ? 0.0 : -0.0, std::round(v)};
        pattern.push_back(values[(j + d) % 7]);
    }
    return pattern;
}
} // namespace

TEST(tkNMStatistics, everyInstructionSetHasTheBitsOfTheRecursion)
{
    std::mt19937_64 generator(3);
    for (std::size_t d = 1; d <= 70; ++d)
    {
        PlainStatistics plain;
        const std::vector<tkNMInstructions> sets = instructionSets();
        std::vector<tkNMStatistics> statistics(sets.size(), tkNMStatistics(d));
        for (int k = 0; k < 30; ++k)
        {
            const Pattern x = patternOf(d, generator);
            plain.add(x);
            for (std::size_t set = 0; set < sets.size(); ++set)
                statistics[set].add(x.data(), sets[set]);
        }
        for (std::size_t set = 0; set < sets.size(); ++set)
        {
            const tkNMStatistics& actual = statistics[set];
            ASSERT_EQ(actual.count, 30);
            EXPECT_TRUE(actual == statistics.front());
            for (std::size_t i = 0; i < d; ++i)
            {
                ASSERT_TRUE(haveSameBits(actual.mean[i], plain.m[i])) << d << sets[set];
                ASSERT_TRUE(haveSameBits(actual.compensation[i], plain.c[i])) << d << sets[set];
                for (std::size_t j = 0; j <= i; ++j)
                    ASSERT_TRUE(haveSameBits(actual.crossProducts(i, j), plain.s[i][j])) << d << sets[set];
            }
        }
    }
}

TEST(tkNMStatistics, takeMoreMeasurementsThanTheStackHolds)
{
    const std::size_t d = 300;
    std::mt19937_64 generator(4);
    tkNMStatistics expected(d);
    tkNMStatistics actual(d);
    for (int k = 0; k < 3; ++k)
    {
        const Pattern x = patternOf(d, generator);
        expected.add(x.data(), tkNMInstructions::Definition);
        actual.add(x.data());
    }
    EXPECT_TRUE(actual == expected);
}

TEST(tkNMStatistics, theCompensationKeepsWhatTheMeanRounds)
{
    tkNMStatistics statistics(1);
    for (const double x : {1e15, 1e15 + 1.0, 1e15 + 3.0}) // doubles have steps of 1 / 8 there
        statistics.add(&x);
    EXPECT_NE(statistics.compensation[0], 0.0);
    EXPECT_NEAR((statistics.mean[0] - 1e15) + statistics.compensation[0], 4.0 / 3.0, 1e-15);
}

TEST(tkNMStatistics, equalityComparesEveryField)
{
    const Pattern x{1.0, 2.0};
    tkNMStatistics statistics(2);
    statistics.add(x.data());
    const tkNMStatistics before(statistics);
    EXPECT_TRUE(statistics == before);
    statistics.count = 2;
    EXPECT_FALSE(statistics == before);
    statistics = before;
    statistics.mean[1] = 3.0;
    EXPECT_FALSE(statistics == before);
    statistics = before;
    statistics.compensation[0] = 1e-20;
    EXPECT_FALSE(statistics == before);
    statistics = before;
    statistics.crossProducts(1, 0) = 1.0;
    EXPECT_FALSE(statistics == before);
    EXPECT_FALSE(tkNMStatistics(2) == tkNMStatistics(1));
}
