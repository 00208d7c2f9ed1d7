#include "clss/clastool/clastool/tk_DataGenerator.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "foundation/tkRandom.h"
#include "tkAllocations.h"
#include "tkTest.h"

#include <cmath>

namespace
{
using Distributions = std::vector<tkPair<double>>;

Distributions distributions(std::size_t features, double mean)
{
    Distributions d;
    for (std::size_t j = 0; j < features; ++j)
        d.emplace_back(mean + static_cast<double>(j), 0.5 + static_cast<double>(j));
    return d;
}

/// The merged and shuffled data, step by step as defined, from each category's own data.
tkClassifierDataProviderMemory plainMerge(std::vector<tk_ClassDataGenerator> generators)
{
    tkClassifierDataProviderMemory all;
    for (std::size_t g = 0; g < generators.size(); ++g)
    {
        tkClassifierDataProviderMemory data = generators[g].generateData();
        for (long k = 0; k < data.numMeasurements(); ++k)
            all.addData(data.featurePattern(k), static_cast<long>(g));
    }
    const long m = all.numMeasurements();
    std::vector<long> order;
    for (long i = 0; i < m; ++i)
        order.push_back(i);
    tkRandomUniform uniform(1);
    for (long i = 0; i < m; ++i)
    {
        const double r = uniform.next(0.0, static_cast<double>(m));
        long j = static_cast<long>(r);
        if (j == m)
            j = m - 1;
        const long temporary = order[j];
        order[j] = order[i];
        order[i] = temporary;
    }
    tkClassifierDataProviderMemory result;
    for (long i = 0; i < m; ++i)
        result.addData(all.featurePattern(order[i]), all.categoryLabel(order[i]));
    return result;
}
/// Lets generateData() of a fresh copy run out of memory at its first allocation, at its second and so on. Requires
/// that the next call then gives what a first call gives: a failed one leaves nothing behind.
template <class Generator>
void expectNothingLeftBehind(const Generator& fresh)
{
    Generator untroubled(fresh);
    tkClassifierDataProviderMemory expected = untroubled.generateData();
    tkClassifierDataProviderMemory again = untroubled.generateData();
    ASSERT_GT(expected.numPatterns(), 0);
    std::size_t allowed = 0;
    for (bool failed = true; failed; ++allowed)
    {
        Generator generator(fresh);
        failed = false;
        try
        {
            const tkAllocations limited(allowed);
            generator.generateData();
        }
        catch (const std::bad_alloc&)
        {
            failed = true;
        }
        EXPECT_TRUE(generator.generateData() == (failed ? expected : again)) << "after " << allowed;
    }
    EXPECT_GT(allowed, 10u);
}
/// Lets an assignment of `other` run out of memory in the same way; what throws changes nothing.
template <class Generator>
void expectAssignedWholeOrNotAtAll(const Generator& before, const Generator& other)
{
    tkClassifierDataProviderMemory expected = Generator(before).generateData();
    tkClassifierDataProviderMemory otherData = Generator(other).generateData();
    ASSERT_TRUE(expected != otherData);
    std::size_t allowed = 0;
    for (bool failed = true; failed; ++allowed)
    {
        Generator generator(before);
        failed = false;
        try
        {
            const tkAllocations limited(allowed);
            generator = other;
        }
        catch (const std::bad_alloc&)
        {
            failed = true;
        }
        EXPECT_TRUE(generator.generateData() == (failed ? expected : otherData)) << "after " << allowed;
    }
    EXPECT_GT(allowed, 1u);
}
} // namespace

TEST(tk_ClassDataGenerator, drawsPatternByPatternFeatureByFeatureFromSeedOne)
{
    const Distributions d = distributions(3, 10.0);
    tk_ClassDataGenerator generator(d, 10);
    tkClassifierDataProviderMemory data = generator.generateData();
    ASSERT_EQ(10, data.numPatterns());
    ASSERT_EQ(3, data.numMeasurements());
    tkRandomGaussian gaussian(1);
    for (long i = 0; i < 10; ++i)
    {
        EXPECT_EQ(0, data.categoryLabel(i));
        EXPECT_EQ(0, data.featurePattern(i)->numInvalid());
        for (long j = 0; j < 3; ++j)
        {
            const tkPair<double>& p = d[static_cast<std::size_t>(j)];
            EXPECT_EQ(gaussian.next(p.first, p.second), data.featurePattern(i)->featureMeasurement(j, true));
        }
    }
}

TEST(tk_ClassDataGenerator, laterCallsAndCopiesReturnTheSameObjects)
{
    tk_ClassDataGenerator generator(distributions(2, 0.0), 4);
    tkClassifierDataProviderMemory first = generator.generateData();
    tkClassifierDataProviderMemory second = generator.generateData();
    EXPECT_TRUE(first == second);
    EXPECT_TRUE(first.featurePattern(3) == second.featurePattern(3));
    tk_ClassDataGenerator copy(generator);
    tkClassifierDataProviderMemory third = copy.generateData();
    EXPECT_TRUE(third.featurePattern(3) == first.featurePattern(3));
    copy = tk_ClassDataGenerator(distributions(2, 0.0), 4);
    EXPECT_FALSE(copy.generateData().featurePattern(3) == first.featurePattern(3));
}

TEST(tk_ClassDataGenerator, equalParametersGiveEqualData)
{
    EXPECT_TRUE(tk_ClassDataGenerator(distributions(3, 1.0), 7).generateData() ==
                tk_ClassDataGenerator(distributions(3, 1.0), 7).generateData());
}

TEST(tk_ClassDataGenerator, withoutPatternsOrFeaturesToDraw)
{
    tk_ClassDataGenerator nothing;
    EXPECT_EQ(0, nothing.generateData().numPatterns());
    tk_ClassDataGenerator negative(distributions(2, 0.0), -3);
    EXPECT_EQ(0, negative.generateData().numPatterns());

    // Data without measurements count as not drawn: each call appends.
    tk_ClassDataGenerator featureless({}, 3);
    EXPECT_EQ(3, featureless.generateData().numPatterns());
    EXPECT_EQ(6, featureless.generateData().numPatterns());
    EXPECT_EQ(9, featureless.generateData().numPatterns());
}

TEST(tk_ClassDataGenerator, callThatRunsOutOfMemoryLeavesNothingBehind)
{
    expectNothingLeftBehind(tk_ClassDataGenerator(distributions(2, 0.0), 3));
    expectNothingLeftBehind(tk_ClassDataGenerator({}, 3)); // here what is left behind would show as more patterns
}

TEST(tk_ClassDataGenerator, assignmentThatRunsOutOfMemoryChangesNothing)
{
    tk_ClassDataGenerator filled(distributions(2, 7.0), 4);
    filled.generateData();
    expectAssignedWholeOrNotAtAll(tk_ClassDataGenerator(distributions(3, 0.0), 2), filled);
}

TEST(tk_ClassDataGenerator, ofMorePatternsBeginsWithTheSameOnes)
{
    tkClassifierDataProviderMemory few = tk_ClassDataGenerator(distributions(3, 1.0), 3).generateData();
    tkClassifierDataProviderMemory many = tk_ClassDataGenerator(distributions(3, 1.0), 8).generateData();
    for (long i = 0; i < few.numPatterns(); ++i)
        EXPECT_TRUE(*few.featurePattern(i) == *many.featurePattern(i));
}

TEST(tk_ClassDataGenerator, momentsOfManyPatternsAreThoseAskedFor)
{
    const long n = 100000;
    tk_ClassDataGenerator generator({{3.0, 2.0}, {-1.0, 0.25}}, n);
    tkClassifierDataProviderMemory data = generator.generateData();
    double mean[2] = {0, 0}, variance[2] = {0, 0}, product = 0;
    for (long i = 0; i < n; ++i)
    {
        const std::vector<double>& x = data.featurePattern(i)->featureMeasurements(true);
        const double z[2] = {(x[0] - 3.0) / 2.0, (x[1] + 1.0) / 0.25};
        for (int j = 0; j < 2; ++j)
        {
            mean[j] += z[j] / n;
            variance[j] += z[j] * z[j] / n;
        }
        product += z[0] * z[1] / n;
    }
    const double error = std::sqrt(1.0 / n);
    for (int j = 0; j < 2; ++j)
    {
        EXPECT_NEAR(0.0, mean[j], 5 * error);
        EXPECT_NEAR(1.0, variance[j], 5 * std::sqrt(2.0) * error);
    }
    EXPECT_NEAR(0.0, product, 5 * error); // the features are independent
}

TEST(tk_TotalDataGenerator, takesAsManyPatternsAsThereAreMeasurements)
{
    // Two patterns of each category are gathered, and of these four only the first two are shuffled.
    tk_TotalDataGenerator total(
        {tk_ClassDataGenerator(distributions(2, 0.0), 5), tk_ClassDataGenerator(distributions(2, 50.0), 5)});
    tkClassifierDataProviderMemory data = total.generateData();
    ASSERT_EQ(2, data.numPatterns());
    EXPECT_EQ(0, data.categoryLabel(0));
    EXPECT_EQ(0, data.categoryLabel(1));
}

TEST(tk_TotalDataGenerator, categoriesWithoutPatternsGiveNone)
{
    // A category without patterns has no measurements either, and the labels of the others stay their places.
    tk_TotalDataGenerator total({tk_ClassDataGenerator(distributions(2, 0.0), 0), tk_ClassDataGenerator({}, 4),
                                 tk_ClassDataGenerator(distributions(2, 0.0), 2)});
    tkClassifierDataProviderMemory data = total.generateData();
    ASSERT_EQ(2, data.numPatterns());
    EXPECT_EQ(2, data.categoryLabel(0));
    EXPECT_EQ(2, data.categoryLabel(1));
}

TEST(tk_TotalDataGenerator, callThatRunsOutOfMemoryLeavesNothingBehind)
{
    expectNothingLeftBehind(tk_TotalDataGenerator(
        {tk_ClassDataGenerator(distributions(3, 0.0), 3), tk_ClassDataGenerator(distributions(3, 5.0), 4)}));
}

TEST(tk_TotalDataGenerator, assignmentThatRunsOutOfMemoryChangesNothing)
{
    tk_TotalDataGenerator filled({tk_ClassDataGenerator(distributions(2, 7.0), 4)});
    filled.generateData();
    expectAssignedWholeOrNotAtAll(tk_TotalDataGenerator({tk_ClassDataGenerator(distributions(3, 0.0), 3),
                                                         tk_ClassDataGenerator(distributions(3, 2.0), 3)}),
                                  filled);
}

TEST(tk_TotalDataGenerator, shufflesAsDefined)
{
    for (std::size_t features = 1; features <= 40; ++features)
    {
        const std::vector<tk_ClassDataGenerator> generators = {tk_ClassDataGenerator(distributions(features, 0.0), 50),
                                                               tk_ClassDataGenerator(distributions(features, 5.0), 45)};
        tk_TotalDataGenerator total(generators);
        EXPECT_TRUE(total.generateData() == plainMerge(generators)) << features << " features";
    }
}

TEST(tk_TotalDataGenerator, laterCallsAndCopiesReturnTheSameObjects)
{
    tk_ClassDataGenerator generator(distributions(3, 0.0), 5);
    tk_TotalDataGenerator total({generator});
    tkClassifierDataProviderMemory first = total.generateData();
    tkClassifierDataProviderMemory second = total.generateData();
    EXPECT_TRUE(first == second);
    EXPECT_TRUE(first.featurePattern(0) == second.featurePattern(0));
    EXPECT_TRUE(tk_TotalDataGenerator(total).generateData().featurePattern(0) == first.featurePattern(0));
    // The total has copies of its generators, which share no patterns with one that had drawn none.
    EXPECT_FALSE(generator.generateData().featurePattern(0) == first.featurePattern(0));
    total = tk_TotalDataGenerator({generator});
    EXPECT_FALSE(total.generateData().featurePattern(0) == first.featurePattern(0));
}

TEST(tk_TotalDataGenerator, fewerPatternsThanMeasurementsIsABadIndex)
{
    tk_TotalDataGenerator total(
        {tk_ClassDataGenerator(distributions(4, 0.0), 2), tk_ClassDataGenerator(distributions(4, 1.0), 2)});
    for (int call = 0; call < 2; ++call)
        EXPECT_TK_THROW(total.generateData(), tkClassifierDefs::BadIndex,
                        L"Feature pattern index must be >=0 and < number of patterns.");
}

TEST(tk_TotalDataGenerator, categoriesOfDifferentLengthsAreRefused)
{
    tk_TotalDataGenerator total(
        {tk_ClassDataGenerator(distributions(2, 0.0), 5), tk_ClassDataGenerator(distributions(3, 1.0), 5)});
    EXPECT_TK_THROW(total.generateData(), tkClassifierDefs::BadFeatures,
                    L"Feature pattern must have the same number of measurements as the rest of the data.");
}

TEST(tk_TotalDataGenerator, withoutGeneratorsThereAreNoData)
{
    tk_TotalDataGenerator total;
    EXPECT_EQ(0, total.generateData().numPatterns());
    EXPECT_EQ(0, total.generateData().numPatterns());
}
