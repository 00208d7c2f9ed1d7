#include "numerics/tkNMLearner.h"

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
using Parts = std::vector<tkNMLearner::Part>;

bool haveSameBits(double a, double b)
{
    return a == b && std::signbit(a) == std::signbit(b);
}

void expectSameBits(const tkNMNormal& a, const tkNMNormal& b)
{
    ASSERT_EQ(a.count(), b.count());
    ASSERT_EQ(a.dimension(), b.dimension());
    EXPECT_TRUE(a == b);
    const tkNMMatrix means[2] = {a.mean(), b.mean()};
    const tkNMMatrix covariances[2] = {a.covariance(), b.covariance()};
    for (long i = 0; i < a.dimension(); ++i)
    {
        EXPECT_TRUE(haveSameBits(means[0](i, 0), means[1](i, 0)));
        EXPECT_TRUE(haveSameBits(means[0].remainder(i, 0), means[1].remainder(i, 0)));
        for (long j = 0; j <= i; ++j)
        {
            EXPECT_TRUE(haveSameBits(covariances[0](i, j), covariances[1](i, j)));
            EXPECT_TRUE(haveSameBits(covariances[0].remainder(i, j), covariances[1].remainder(i, j)));
        }
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

/// One distribution for each set, which has learned some patterns: not all the same number.
std::vector<tkNMNormal> normalsOf(const std::vector<std::size_t>& sets, std::mt19937_64& generator)
{
    std::vector<tkNMNormal> normals(sets.size());
    for (std::size_t s = 0; s < sets.size(); ++s)
        for (std::size_t k = 0; k <= s % 3; ++k)
            normals[s].add(patternOf(sets[s], generator).data(), static_cast<long>(sets[s]));
    return normals;
}

Parts partsOf(std::vector<tkNMNormal>& normals)
{
    Parts parts;
    std::size_t first = 0;
    for (tkNMNormal& normal : normals)
    {
        parts.push_back({&normal, first});
        first += static_cast<std::size_t>(normal.dimension());
    }
    return parts;
}

void addToEach(std::vector<tkNMNormal>& normals, const Pattern& pattern)
{
    const double* x = pattern.data();
    for (tkNMNormal& normal : normals)
    {
        EXPECT_EQ(normal.add(x, normal.dimension()), tkNMNormal::eOk);
        x += normal.dimension();
    }
}
} // namespace

TEST(tkNMLearner, everyLevelLearnsWithTheBitsOfSinglePatterns)
{
    std::mt19937_64 generator(8);
    for (std::size_t size = 1; size <= 70; ++size)
        for (std::size_t kind = 0; kind < 5; ++kind)
        {
            const std::vector<tkNMNormal> start = normalsOf(setsOf(size, kind), generator);
            const std::size_t count = 1 + (size * 5 + kind) % 50; // up to three blocks and a part of one
            std::vector<Pattern> patterns;
            for (std::size_t k = 0; k < count; ++k)
                patterns.push_back(patternOf(size, generator));
            std::vector<tkNMNormal> expected(start);
            for (const Pattern& pattern : patterns)
                addToEach(expected, pattern);
            for (const tkNMInstructions level : instructionSets())
            {
                std::vector<tkNMNormal> normals(start);
                double density = 0.0;
                for (tkNMNormal& normal : normals) // makes a factor, which must not outlive the change
                    normal.logDensity(patterns[0].data(), normal.dimension(), density);
                {
                    tkNMLearner learner(size, count, level);
                    ASSERT_TRUE(learner.start(partsOf(normals)));
                    for (const Pattern& pattern : patterns)
                        ASSERT_TRUE(learner.add(pattern.data()));
                }
                for (std::size_t s = 0; s < normals.size(); ++s)
                {
                    expectSameBits(normals[s], expected[s]);
                    double expectedDensity = 1.0;
                    normals[s].logDensity(patterns[0].data(), normals[s].dimension(), density);
                    expected[s].logDensity(patterns[0].data(), normals[s].dimension(), expectedDensity);
                    EXPECT_EQ(density, expectedDensity) << size;
                }
            }
        }
}

TEST(tkNMLearner, theDistributionsMayLearnOnTheirOwnInBetween)
{
    std::mt19937_64 generator(9);
    for (std::size_t kind = 0; kind < 3; ++kind)
    {
        std::vector<tkNMNormal> normals = normalsOf(setsOf(11, kind), generator);
        std::vector<tkNMNormal> expected(normals);
        tkNMLearner learner(11, 100);
        ASSERT_TRUE(learner.start(partsOf(normals)));
        for (int k = 0; k < 90; ++k)
        {
            const Pattern pattern = patternOf(11, generator);
            addToEach(expected, pattern);
            if (k % 7 == 3 || k % 31 > 28)
            {
                learner.finish();
                learner.finish();
                addToEach(normals, pattern);
            }
            else
                ASSERT_TRUE(learner.add(pattern.data()));
        }
        tkNMLearner moved(std::move(learner));
        const Pattern last = patternOf(11, generator);
        addToEach(expected, last);
        ASSERT_TRUE(moved.add(last.data()));
        moved.finish();
        for (std::size_t s = 0; s < normals.size(); ++s)
            expectSameBits(normals[s], expected[s]);
    }
}

TEST(tkNMLearner, learnsNothingFromWhatNoDistributionTakes)
{
    std::mt19937_64 generator(10);
    const double largest = tkNMNormal::largestMagnitude();
    const double infinity = std::numeric_limits<double>::infinity();
    for (const tkNMInstructions level : instructionSets())
        for (const std::size_t size : {1, 7, 8, 16, 21})
            for (std::size_t j = 0; j < size; ++j)
            {
                std::vector<tkNMNormal> normals = normalsOf(setsOf(size, j % 3), generator);
                std::vector<tkNMNormal> expected(normals);
                tkNMLearner learner(size, 100, level);
                ASSERT_TRUE(learner.start(partsOf(normals)));
                Pattern pattern = patternOf(size, generator);
                for (const double bad : {std::nextafter(largest, infinity), -std::nextafter(largest, infinity),
                                         infinity, -infinity, std::nan(""), -std::nan("")})
                {
                    pattern[j] = bad;
                    EXPECT_FALSE(learner.add(pattern.data()));
                }
                for (const double good : {largest, -largest, 0.0, 1.0})
                {
                    pattern[j] = good;
                    EXPECT_TRUE(learner.add(pattern.data()));
                    addToEach(expected, pattern);
                }
                learner.finish();
                for (std::size_t s = 0; s < normals.size(); ++s)
                    expectSameBits(normals[s], expected[s]);
            }
}

TEST(tkNMLearner, startsOnlyWhereEveryPatternCanBeLearned)
{
    const Pattern pattern(1025, 1.0);
    const auto normal = [&](long dimension)
    {
        tkNMNormal result;
        result.add(pattern.data(), dimension);
        return result;
    };
    tkNMNormal empty, one = normal(1), other = normal(1), two = normal(2);
    EXPECT_TRUE(tkNMLearner(3, 5).start({{&one, 0}, {&two, 1}}));
    EXPECT_TRUE(tkNMLearner(3, 5).start({{&two, 1}, {&one, 0}}));
    EXPECT_FALSE(tkNMLearner(2, 5).start({{&one, 0}, {&empty, 1}}));               // not trained
    EXPECT_FALSE(tkNMLearner(3, 5).start({{&one, 0}, {&other, 1}}));               // the third is nobody's
    EXPECT_FALSE(tkNMLearner(2, 5).start({{&one, 1}, {&two, 0}}));                 // one belongs to both
    EXPECT_FALSE(tkNMLearner(2, 5).start({{&one, 0}, {&two, 1}}));                 // reaches beyond the end
    EXPECT_FALSE(tkNMLearner(2, 5).start({{&one, 0}, {&two, 3}}));                 // begins beyond the end
    EXPECT_FALSE(tkNMLearner(1, 5).start({{&one, static_cast<std::size_t>(-1)}})); // so that the end would wrap
    EXPECT_FALSE(tkNMLearner(0, 5).start({}));
    EXPECT_FALSE(tkNMLearner(2, 5).start({}));

    tkNMNormal large = normal(1024);
    tkNMNormal tooLarge = normal(1025);
    EXPECT_TRUE(tkNMLearner(1024, 5).start({{&large, 0}}));
    EXPECT_FALSE(tkNMLearner(1025, 5).start({{&tooLarge, 0}}));

    tkNMNormal full;
    ASSERT_TRUE(full.restore(one.mean(), one.covariance(), 2147483647L - 5));
    EXPECT_TRUE(tkNMLearner(1, 5).start({{&full, 0}}));
    EXPECT_FALSE(tkNMLearner(1, 6).start({{&full, 0}}));

    tkNMLearner learner(1, 5);
    EXPECT_FALSE(learner.isStarted());
    EXPECT_THROW(learner.add(pattern.data()), tkAssertionFailure);
    ASSERT_TRUE(learner.start({{&full, 0}}));
    EXPECT_TRUE(learner.isStarted());
    for (int k = 0; k < 5; ++k)
        EXPECT_TRUE(learner.add(pattern.data()));
    learner.finish();
    EXPECT_EQ(full.count(), 2147483647L);
    EXPECT_EQ(full.add(pattern.data(), 1), tkNMNormal::eOutOfRange);
}

TEST(tkNMTriangle, addsProductsBelowTheDiagonalAlone)
{
    std::mt19937_64 generator(11);
    std::uniform_real_distribution<double> deviate(0.5, 2.0);
    for (std::size_t d = 1; d <= 35; ++d)
        for (const tkNMInstructions level : instructionSets())
        {
            const std::size_t stride = (d + 7) / 8 * 8;
            const std::size_t count = 1 + d % 5;
            Pattern a(count * stride);
            Pattern b(count * stride);
            for (std::size_t k = 0; k < count; ++k)
                for (std::size_t j = 0; j < d; ++j)
                {
                    a[k * stride + j] = j == k ? HUGE_VAL : deviate(generator);
                    b[k * stride + j] = deviate(generator);
                }
            tkNMTriangle expected(d);
            tkNMTriangle triangle(d);
            for (int times = 0; times < 2; ++times)
            {
                for (std::size_t k = 0; k < count; ++k)
                    for (std::size_t i = 0; i < d; ++i)
                        for (std::size_t j = 0; j <= i; ++j)
                            expected(i, j) += a[k * stride + i] * b[k * stride + j];
                triangle.addProducts(a.data(), b.data(), count, stride, level);
                EXPECT_TRUE(triangle == expected) << d; // with the zeros that the formulas rely on
            }
        }
}
