#include "clss/clastool/bayes/tk_ProbabilityDensityFunction.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkAssert.h"
#include "foundation/tkException.h"
#include "numerics/tkNMElementary.h"
#include "numerics/tkNMNormal.h"
#include "tkTest.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace
{
using Pattern = tkFeaturePattern;

const double notANumber = std::numeric_limits<double>::quiet_NaN();
const double infinity = std::numeric_limits<double>::infinity();

const wchar_t otherSize[] = L"Must call clear before updating with feature vectors of different sizes";
const wchar_t noData[] = L"No valid data has been used to train the distribution";
const wchar_t multivariate[] = L"Multivariate Binomial Distributions are not implemented";
const wchar_t aboveMaximum[] =
    L"Train data measurement cannot exceed its maximum value when using binomial distribution";
const wchar_t notEstimated[] = L"Insufficient data has been used to train the distribution";

tk_PDFBinomial binomial(double maximum, const std::vector<double>& values)
{
    tk_PDFBinomial density((Pattern({maximum})));
    std::vector<Pattern> patterns;
    for (const double value : values)
        patterns.push_back(Pattern({value}));
    density.updateWithData(patterns);
    return density;
}

double lnFactorial(long m)
{
    double sum = 0.0;
    for (long i = 2; i <= m; ++i)
        sum += tkNMElementary::log(static_cast<double>(i));
    return sum;
}

/// A binomial density with fields of any value, as a file may hold it.
tk_PDFBinomial loadedBinomial(long n, double p, double maximum)
{
    std::ostringstream stream;
    {
        tkArchive archive(stream);
        unsigned char version = 0;
        archive || version || version || version || n || p || maximum;
    }
    tk_PDFBinomial density((Pattern({1.0})));
    loadFromBytes(stream.str(), density);
    return density;
}
} // namespace

TEST(tk_PDFMultivariateNormal, patternByPatternIsOneCallBitForBit)
{
    std::mt19937_64 generator(1);
    std::normal_distribution<double> deviate(1e6);
    std::vector<Pattern> patterns;
    for (int i = 0; i < 200; ++i)
        patterns.push_back(Pattern({deviate(generator), deviate(generator), deviate(generator)},
                                   i % 7 == 0 ? std::vector<long>{1} : std::vector<long>{}));
    tk_PDFMultivariateNormal together;
    together.updateWithDataNormalize(patterns, 3.0);
    tk_PDFMultivariateNormal singly;
    for (const Pattern& pattern : patterns)
        singly.updateWithDataNormalize({pattern}, 3.0);
    EXPECT_EQ(together.normal().count(), 171);
    EXPECT_TRUE(together == singly);

    tk_PDFMultivariateNormal unscaled;
    unscaled.updateWithData(patterns);
    tk_PDFMultivariateNormal bySet;
    for (const Pattern& pattern : patterns)
        bySet.updateWithSet(pattern, {0, 1, 2});
    EXPECT_TRUE(unscaled == bySet);
    EXPECT_EQ(together.mean(), singly.mean());
    EXPECT_EQ(together.covariance(), singly.covariance());
}

TEST(tk_PDFMultivariateNormal, meanAndCovarianceHaveTheirShapes)
{
    tk_PDFMultivariateNormal density;
    EXPECT_FALSE(density.isValid());
    EXPECT_EQ(density.mean().rows(), 0);
    density.updateWithData({Pattern({1.0, 2.0}), Pattern({3.0, 6.0})});
    EXPECT_TRUE(density.isValid());
    EXPECT_EQ(density.mean().rows(), 2);
    EXPECT_EQ(density.mean().cols(), 1);
    EXPECT_EQ(density.mean()(1, 0), 4.0);
    EXPECT_EQ(density.covariance()(0, 1), 4.0);
    density.clear();
    EXPECT_TRUE(density == tk_PDFMultivariateNormal());
    density.updateWithData({Pattern({1.0})});
    EXPECT_EQ(density.mean().rows(), 1);
}

TEST(tk_PDFMultivariateNormal, otherSizesAreRefusedAndNothingIsLearned)
{
    tk_PDFMultivariateNormal density;
    EXPECT_TK_THROW(density.updateWithData({Pattern({1.0}), Pattern({1.0, 2.0})}), tkClassifierDefs::BadParams,
                    otherSize);
    EXPECT_FALSE(density.isValid());
    density.updateWithData({Pattern({1.0}, {0})}); // does not fix the dimension
    EXPECT_FALSE(density.isValid());
    density.updateWithData({Pattern({1.0, 2.0})});
    const tk_PDFMultivariateNormal before(density);
    EXPECT_TK_THROW(density.updateWithData({Pattern({1.0, 3.0}), Pattern({1.0}, {0})}), tkClassifierDefs::BadParams,
                    otherSize);
    EXPECT_TK_THROW(density.updateWithSet(Pattern({1.0}), {0}), tkClassifierDefs::BadParams, otherSize);
    EXPECT_THROW(density.updateWithData({Pattern({1.0, 3.0}), Pattern({1.0, 1e200})}), tkFailure);
    EXPECT_TRUE(density == before);
    density.updateWithData({});
    EXPECT_TRUE(density == before);
}

TEST(tk_PDFMultivariateNormal, unusablePatternsAreSkippedWhole)
{
    tk_PDFMultivariateNormal density;
    density.updateWithData(
        {Pattern({notANumber, 1.0}), Pattern({1.0, infinity}), Pattern({1.0, 2.0}, {1}), Pattern({5.0, 7.0})});
    EXPECT_EQ(density.normal().count(), 1);
    EXPECT_EQ(density.mean()(0, 0), 5.0);
}

TEST(tk_PDFMultivariateNormal, evaluationChecksDataThenLengthThenValidity)
{
    tk_PDFMultivariateNormal density;
    EXPECT_TK_THROW(density.logValue(Pattern({1.0}, {0})), tkClassifierDefs::InsufficientTrainData, noData);
    density.updateWithData({Pattern({1.0, 2.0}), Pattern({2.0, 5.0}), Pattern({3.0, 4.0})});
    EXPECT_THROW(density.logValue(Pattern({1.0}, {0})), tkFailure);
    EXPECT_EQ(density.logValue(Pattern({1.0, 1.0}, {0, 1})), 0.0);
    tk_PDFMultivariateNormal first;
    first.updateWithData({Pattern({1.0}), Pattern({2.0}), Pattern({3.0})});
    EXPECT_DOUBLE_EQ(density.logValue(Pattern({1.5, notANumber}, {1})), first.logValue(Pattern({1.5})));
    EXPECT_NEAR(first.logValue(Pattern({3.0})), -0.5 * (std::log(2.0 * 3.14159265358979323846) + 1.0), 1e-12);
}

TEST(tk_PDFMultivariateNormal, aSetIsEvaluatedAsItsRestriction)
{
    std::mt19937_64 generator(3);
    std::normal_distribution<double> deviate;
    const std::vector<long> set{4, 0, 7, 2};
    const auto random = [&](std::vector<long> invalid)
    {
        std::vector<double> values(6);
        for (double& v : values)
            v = deviate(generator);
        return Pattern(values, invalid);
    };
    for (const std::vector<long>& used : {std::vector<long>{4, 0, 2}, set})
    {
        tk_PDFMultivariateNormal density;
        tk_PDFMultivariateNormal plain;
        for (int i = 0; i < 40; ++i)
        {
            const Pattern pattern = random(i % 5 ? std::vector<long>{} : std::vector<long>{2});
            density.updateWithSet(pattern, used);
            plain.updateWithData({tk_ProbabilityDensityFunction::restriction(pattern, used)});
        }
        EXPECT_TRUE(density == plain);
        if (!density.isValid()) // index 7 is never there
            continue;
        for (int i = 0; i < 1000; ++i)
        {
            const Pattern pattern = random(i % 3 ? std::vector<long>{} : std::vector<long>{i % 6});
            EXPECT_EQ(density.logValueOfSet(pattern, used),
                      density.logValue(tk_ProbabilityDensityFunction::restriction(pattern, used)));
        }
    }
}

TEST(tk_PDFMultivariateNormal, comesBackEqualAndGoesOnAsTheOriginal)
{
    std::mt19937_64 generator(4);
    std::normal_distribution<double> deviate(1e8);
    tk_PDFMultivariateNormal original;
    for (int i = 0; i < 30; ++i)
        original.updateWithData({Pattern({deviate(generator), deviate(generator) / 3.0})});
    const std::string bytes = storeToBytes(original);
    tk_PDFMultivariateNormal loaded;
    loadFromBytes(bytes, loaded);
    EXPECT_TRUE(loaded.isEquivalent(original));
    EXPECT_EQ(storeToBytes(loaded), bytes);
    for (int i = 0; i < 30; ++i)
    {
        const Pattern pattern({deviate(generator), deviate(generator)});
        original.updateWithData({pattern});
        loaded.updateWithData({pattern});
    }
    EXPECT_TRUE(loaded == original);
    EXPECT_EQ(storeToBytes(loaded), storeToBytes(original));
}

TEST(tk_PDFMultivariateNormal, unknownVersionsAreRefusedAtEachLevel)
{
    for (const std::size_t level : {0u, 1u, 2u})
    {
        std::string bytes = storeToBytes(tk_PDFMultivariateNormal());
        bytes[level] = 1;
        tk_PDFMultivariateNormal density;
        EXPECT_THROW(loadFromBytes(bytes, density), tkArchive::UnknownVersion) << level;
        bytes = storeToBytes(tk_PDFBinomial(Pattern({1.0})));
        bytes[level] = 1;
        tk_PDFBinomial other((Pattern({1.0})));
        EXPECT_THROW(loadFromBytes(bytes, other), tkArchive::UnknownVersion) << level;
    }
}

TEST(tk_PDFBinomial, requiresAValidMaximum)
{
    EXPECT_THROW(tk_PDFBinomial(Pattern({1.0}, {0})), tkAssertionFailure);
    EXPECT_THROW(tk_PDFBinomial{Pattern()}, tkAssertionFailure);
}

TEST(tk_PDFBinomial, estimatesTrialsByTheMethodOfMoments)
{
    const tk_PDFBinomial density = binomial(2.0, {0.0, 1.0, 1.0, 2.0});
    EXPECT_EQ(density.numTrials(), 2); // p 0.5, variance 1/6
    EXPECT_EQ(density.logValue(Pattern({2.0})), lnFactorial(2) - (lnFactorial(2) + lnFactorial(0)) +
                                                    2.0 * tkNMElementary::log(0.5) + 0.0 * tkNMElementary::log(0.5));
    EXPECT_NEAR(density.logValue(Pattern({1.0})), std::log(0.5), 1e-15);
    std::vector<double> values{0.0, 1.0, 1.0, 2.0};
    do
        EXPECT_EQ(binomial(2.0, values).numTrials(), 2);
    while (std::next_permutation(values.begin(), values.end()));
}

TEST(tk_PDFBinomial, withoutVarianceItIsNotTrained)
{
    const std::vector<std::vector<double>> trainings = {{3.0}, {3.0, 3.0, 3.0}};
    for (const std::vector<double>& values : trainings)
    {
        const tk_PDFBinomial density = binomial(10.0, values);
        EXPECT_EQ(density.numTrials(), 0);
        EXPECT_TK_THROW(density.logValue(Pattern({1.0, 2.0}, {0})), tkClassifierDefs::InsufficientTrainData,
                        notEstimated);
    }
    EXPECT_FALSE(binomial(10.0, {3.0}) == binomial(10.0, {4.0})); // p is stored all the same
    tk_PDFBinomial empty((Pattern({10.0})));
    empty.updateWithData({});
    empty.updateWithData({Pattern({3.0}, {0})});
    EXPECT_TRUE(empty == tk_PDFBinomial(Pattern({10.0})));
}

TEST(tk_PDFBinomial, trainingChecksShapeThenMaximum)
{
    tk_PDFBinomial density = binomial(2.0, {0.0, 1.0, 2.0});
    const tk_PDFBinomial before(density);
    EXPECT_TK_THROW(density.updateWithData({Pattern({3.0, 3.0})}), tkClassifierDefs::NotImplemented, multivariate);
    EXPECT_TK_THROW(density.updateWithSet(Pattern({3.0, 3.0}), {0, 1}), tkClassifierDefs::NotImplemented, multivariate);
    EXPECT_TK_THROW(density.updateWithData({Pattern({1.0}), Pattern({1.0, 3.0})}), tkClassifierDefs::BadParams,
                    aboveMaximum);
    EXPECT_TK_THROW(density.updateWithData({Pattern({1.0}), Pattern({1.0, 2.0})}), tkClassifierDefs::BadParams,
                    otherSize);
    EXPECT_TK_THROW(density.updateWithSet(Pattern({2.5}), {0}), tkClassifierDefs::BadParams, aboveMaximum);
    EXPECT_TRUE(density == before);
    density.updateWithData({Pattern({3.0}, {0})}); // an invalid value may exceed it
    EXPECT_TRUE(density == before);
    density.updateWithData({Pattern({-1.0})}); // as one below 0 may
    EXPECT_FALSE(density == before);
}

TEST(tk_PDFBinomial, evaluationChecksTrialsThenShapeThenValidityThenMaximum)
{
    const tk_PDFBinomial density = binomial(2.0, {0.0, 1.0, 2.0, 1.0});
    EXPECT_TK_THROW(density.logValue(Pattern({3.0, 3.0}, {0})), tkClassifierDefs::NotImplemented, multivariate);
    EXPECT_EQ(density.logValue(Pattern({3.0}, {0})), 0.0);
    EXPECT_TK_THROW(density.logValue(Pattern({2.1})), tkClassifierDefs::BadParams,
                    L"Feature measurement must be <= specified maximum value");
    EXPECT_THROW(density.logValue(Pattern({-2.0})), tkAssertionFailure); // the factorial of a negative number
}

TEST(tk_PDFBinomial, hasTheBitsOfThePlainSumsAndStaysFastBeyond)
{
    for (const long n : {1L, 20L, 1000L, 65535L})
        for (const double x : {0.0, 0.25, 0.7, 1.0})
        {
            const long k = static_cast<long>(static_cast<double>(n) * x / 1.0 + 0.5);
            EXPECT_EQ(loadedBinomial(n, 0.3, 1.0).logValue(Pattern({x})),
                      lnFactorial(n) - (lnFactorial(k) + lnFactorial(n - k)) +
                          static_cast<double>(k) * tkNMElementary::log(0.3) +
                          static_cast<double>(n - k) * tkNMElementary::log(1.0 - 0.3));
        }
    const long n = 100000;
    EXPECT_NEAR(loadedBinomial(n, 0.3, 1.0).logValue(Pattern({0.0})), static_cast<double>(n) * std::log(0.7), 1e-7);
    EXPECT_NEAR(loadedBinomial(n, 0.3, 1.0).logValue(Pattern({0.3})),
                -0.5 * std::log(2 * 3.14159265358979323846 * n * 0.21), 1e-4);
    for (int i = 0; i < 100000; ++i)
        ASSERT_TRUE(std::isfinite(loadedBinomial(2147483647, 0.5, 1.0).logValue(Pattern({0.5})))) << i;
}

TEST(tk_PDFBinomial, conversionsSaturate)
{
    EXPECT_EQ(binomial(1.0, {0.5, 0.5 + 1e-8}).numTrials(), 0); // variance within 1e-15 of 0
    EXPECT_EQ(binomial(1.0, {0.5, 0.5 + 1e-7}).numTrials(), 2147483647);
    EXPECT_EQ(binomial(1.0, {-1e10, -1e10 - 0.01}).numTrials(), -2147483647 - 1);
    EXPECT_THROW(loadedBinomial(-5, 0.5, 1.0).logValue(Pattern({0.5})), tkAssertionFailure);
    EXPECT_THROW(loadedBinomial(5, 0.5, 0.0).logValue(Pattern({-1.0})), tkAssertionFailure);
}

TEST(tk_PDFBinomial, clearKeepsProbabilityAndMaximum)
{
    tk_PDFBinomial density = binomial(2.0, {0.0, 1.0, 1.0, 2.0});
    density.clear();
    EXPECT_TRUE(density == loadedBinomial(0, 0.5, 2.0));
    density.updateWithData({Pattern({0.0}), Pattern({1.0}), Pattern({1.0}), Pattern({2.0})});
    EXPECT_TRUE(density == binomial(2.0, {0.0, 1.0, 1.0, 2.0}));
}

TEST(tk_PDFBinomial, equalityIgnoresTheAccumulatorAndNaN)
{
    EXPECT_TRUE(loadedBinomial(2, notANumber, 1.0) == loadedBinomial(2, 0.5, notANumber));
    EXPECT_FALSE(loadedBinomial(2, 0.5, 1.0) == loadedBinomial(3, 0.5, 1.0));
    EXPECT_FALSE(loadedBinomial(2, 0.5, 1.0) == loadedBinomial(2, 0.25, 1.0));
    EXPECT_FALSE(loadedBinomial(2, 0.5, 1.0) == loadedBinomial(2, 0.5, 2.0));
    EXPECT_FALSE(loadedBinomial(2, 0.5, 1.0).isEquivalent(tk_PDFMultivariateNormal()));
    EXPECT_FALSE(tk_PDFMultivariateNormal().isEquivalent(loadedBinomial(2, 0.5, 1.0)));
    const tk_PDFBinomial original = binomial(2.0, {0.0, 1.0, 1.0, 2.0});
    tk_PDFBinomial loaded = binomial(7.0, {1.0, 2.0});
    loadFromBytes(storeToBytes(original), loaded);
    EXPECT_TRUE(loaded.isEquivalent(original));
    loaded.updateWithData({Pattern({2.0})}); // a new accumulator: p is 1, n stays
    EXPECT_TRUE(loaded == loadedBinomial(2, 1.0, 2.0));
}

TEST(tk_ProbabilityDensityFunction, restrictionTakesTheSetInItsOrder)
{
    const Pattern pattern({1.0, 2.0, 3.0}, {1});
    EXPECT_EQ(tk_ProbabilityDensityFunction::restriction(pattern, {2, 1, 5, 0}), Pattern({3.0, 0.0, 0.0, 1.0}, {1, 2}));
    EXPECT_TK_THROW(tk_ProbabilityDensityFunction::restriction(pattern, {5, -1}), tkClassifierDefs::BadIndex,
                    L"Feature measurement indices must be >= 0");
}

TEST(tk_ProbabilityDensityFunction, createsTheDensityOfAType)
{
    using Types = tkClassifierDistributionTypes;
    const auto create = [](Types::DistributionType type, const std::vector<long>& set) {
        return tk_ProbabilityDensityFunction::create(type, set, Pattern({5.0, 7.0}, {0}));
    };
    EXPECT_TRUE(create(Types::eNormal, {1, -1})->isEquivalent(tk_PDFMultivariateNormal()));
    EXPECT_TRUE(create(Types::eBinomial, {1, 0})->isEquivalent(tk_PDFBinomial(Pattern({7.0}))));
    EXPECT_TRUE(create(Types::eBinomial, {0, 1})->isEquivalent(tk_PDFBinomial(Pattern({1.0})))); // invalid
    EXPECT_TRUE(create(Types::eBinomial, {2})->isEquivalent(tk_PDFBinomial(Pattern({1.0}))));    // not there
    EXPECT_TK_THROW(create(Types::eBinomial, {1, -1}), tkClassifierDefs::BadIndex,
                    L"Feature measurement indices must be >= 0");
    EXPECT_TK_THROW(create(Types::ePoisson, {0}), tkClassifierDefs::NotImplemented,
                    L"Poisson distribution is not implemented");
    EXPECT_TK_THROW(create(Types::eUniform, {0}), tkClassifierDefs::NotImplemented,
                    L"Uniform distribution is not implemented");
    for (const int unknown : {-1, 4})
        EXPECT_TK_THROW(create(static_cast<Types::DistributionType>(unknown), {0}), tkClassifierDefs::BadParams,
                        L"Unknown distribution type");
}
