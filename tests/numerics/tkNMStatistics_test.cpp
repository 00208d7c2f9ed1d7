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

TEST(tkNMStatistics, theFirstPatternIsTheMeanAndHasNoCrossProducts)
{
    const Pattern x{1.5, -1e300 * 0.0, 1e-300, 0x1p490, -7.0};
    for (const tkNMInstructions set : instructionSets())
    {
        tkNMStatistics statistics(x.size());
        EXPECT_EQ(statistics.count, 0);
        statistics.add(x.data(), set);
        EXPECT_EQ(statistics.count, 1);
        EXPECT_EQ(statistics.mean, x) << set;
        EXPECT_EQ(statistics.compensation, Pattern(x.size())) << set;
        EXPECT_EQ(statistics.crossProducts, tkNMTriangle(x.size())) << set;
    }
}

TEST(tkNMStatistics, equalPatternsLeaveNoDeviation)
{
    const Pattern x{0.1, 1e8 + 0.3, -1e-200};
    tkNMStatistics statistics(x.size());
    for (int i = 0; i < 1000; ++i)
        statistics.add(x.data());
    EXPECT_EQ(statistics.mean, x);
    EXPECT_EQ(statistics.compensation, Pattern(x.size()));
    EXPECT_EQ(statistics.crossProducts, tkNMTriangle(x.size()));
}

/// Whole numbers, whose sums are exact: the mean of 1, ..., n is (n + 1) / 2, the sum of squares (n^3 - n) / 12.
TEST(tkNMStatistics, agreeWithSumsThatAreKnown)
{
    tkNMStatistics statistics(2);
    for (int n = 1; n <= 2000; ++n)
    {
        const double x[] = {static_cast<double>(n), static_cast<double>(-2 * n)};
        statistics.add(x);
        const double count = n;
        const double squares = (count * count * count - count) / 12.0;
        ASSERT_NEAR(statistics.mean[0] + statistics.compensation[0], (count + 1.0) / 2.0, 1e-13 * count);
        ASSERT_NEAR(statistics.mean[1] + statistics.compensation[1], -(count + 1.0), 1e-13 * count);
        ASSERT_NEAR(statistics.crossProducts(0, 0), squares, 1e-12 * squares);
        ASSERT_NEAR(statistics.crossProducts(1, 0), -2.0 * squares, 1e-12 * squares);
        ASSERT_NEAR(statistics.crossProducts(1, 1), 4.0 * squares, 1e-12 * squares);
    }
}

/// An offset that no digit of the values survives in a sum of squares.
TEST(tkNMStatistics, offsetsOfTheMeasurementsCostNoDigits)
{
    std::mt19937_64 generator(5);
    std::normal_distribution<double> deviate;
    tkNMStatistics near(1);
    tkNMStatistics far(1);
    const double offset = 0x1p30;
    for (int i = 0; i < 10000; ++i)
    {
        const double x = std::round(deviate(generator) * 0x1p20) / 0x1p20; // exact with the offset
        const double shifted = x + offset;
        near.add(&x);
        far.add(&shifted);
    }
    EXPECT_NEAR((far.mean[0] - offset) + far.compensation[0], near.mean[0] + near.compensation[0], 1e-15);
    EXPECT_NEAR(far.crossProducts(0, 0), near.crossProducts(0, 0), 1e-12 * near.crossProducts(0, 0));
}

TEST(tkNMStatistics, largestMeasurementsDoNotOverflow)
{
    const double largest = tkNMStatistics::largestMagnitude;
    tkNMStatistics statistics(2);
    for (int i = 0; i < 1000; ++i)
    {
        const double sign = i % 2 == 0 ? 1.0 : -1.0;
        const double x[] = {sign * largest, largest};
        statistics.add(x);
    }
    for (const double sum : {statistics.crossProducts(0, 0), statistics.crossProducts(1, 0)})
        EXPECT_TRUE(std::isfinite(sum));
    EXPECT_NEAR(statistics.crossProducts(0, 0) / largest / largest, 1000.0, 1e-9);
    EXPECT_EQ(statistics.crossProducts(1, 1), 0.0);
}
