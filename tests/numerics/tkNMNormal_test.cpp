#include "numerics/tkNMNormal.h"

#include "foundation/tkAssert.h"
#include "instructionSets.h"
#include "numerics/tkNMFactorisation.h"
#include "tkTest.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <functional>
#include <limits>
#include <memory>
#include <random>
#include <thread>
#include <vector>

namespace
{
using Pattern = std::vector<double>;
using Patterns = std::vector<Pattern>;

tkNMNormal trained(const Patterns& patterns)
{
    tkNMNormal normal;
    for (const Pattern& pattern : patterns)
        EXPECT_EQ(normal.add(pattern.data(), static_cast<long>(pattern.size())), tkNMNormal::eOk);
    return normal;
}

double logDensity(const tkNMNormal& normal, const Pattern& pattern)
{
    double result = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(normal.logDensity(pattern.data(), static_cast<long>(pattern.size()), result), tkNMNormal::eOk);
    return result;
}

double logMarginal(const tkNMNormal& normal, const Pattern& pattern, const std::vector<long>& validOnes)
{
    const auto valid = std::make_unique<bool[]>(pattern.size());
    for (const long j : validOnes)
        valid[static_cast<std::size_t>(j)] = true;
    double result = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(normal.logMarginal(pattern.data(), valid.get(), static_cast<long>(pattern.size()), result),
              tkNMNormal::eOk);
    return result;
}

/// Patterns whose measurements depend on one another.
Patterns randomPatterns(std::size_t count, std::size_t dimension, unsigned seed, double offset = 0.0)
{
    std::mt19937_64 generator(seed);
    std::normal_distribution<double> deviate;
    Patterns patterns(count, Pattern(dimension));
    for (Pattern& pattern : patterns)
    {
        const double common = deviate(generator);
        for (std::size_t j = 0; j < dimension; ++j)
            pattern[j] = offset + common * 0.5 + deviate(generator) * (1.0 + static_cast<double>(j));
    }
    return patterns;
}

/// Digits of agreement.
double digits(double value, long double exact)
{
    return -std::log10(static_cast<double>(std::fabs((value - exact) / exact)) + 1e-17);
}

/// The deviation as two passes in long double give it.
long double twoPassDeviation(const Pattern& values)
{
    long double sum = 0;
    for (const double v : values)
        sum += static_cast<long double>(v) - values.front();
    const long double mean = sum / values.size();
    long double squares = 0;
    for (const double v : values)
        squares += (v - static_cast<long double>(values.front()) - mean) *
                   (v - static_cast<long double>(values.front()) - mean);
    return std::sqrt(squares / (values.size() - 1));
}

double deviationOf(const Pattern& values)
{
    tkNMNormal normal;
    for (const double v : values)
        normal.add(&v, 1);
    return std::sqrt(normal.variance(0));
}
} // namespace

TEST(tkNMNormal, agreesWithTheReferenceTables)
{
    std::ifstream table(CLASTOOL_REFERENCE_DIR "/normal.txt");
    std::string word;
    std::size_t d = 0;
    std::size_t n = 0;
    std::size_t queries = 0;
    int cases = 0;
    const auto read = [&](std::size_t count)
    {
        Pattern values(count);
        for (double& v : values)
            table >> v;
        return values;
    };
    while (table >> word >> d >> n >> queries)
    {
        ASSERT_EQ(word, "case");
        ++cases;
        Patterns patterns;
        for (std::size_t i = 0; i < n; ++i)
            patterns.push_back(read(d));
        const tkNMNormal normal = trained(patterns);
        const Pattern means = read(d);
        const Pattern variances = read(d);
        for (std::size_t j = 0; j < d; ++j)
        {
            EXPECT_NEAR(normal.mean(static_cast<long>(j)), means[j], 1e-13 * std::sqrt(variances[j]) * 100.0);
            EXPECT_NEAR(normal.variance(static_cast<long>(j)), variances[j], 1e-12 * variances[j]);
        }
        std::vector<long> even;
        for (std::size_t j = 0; j < d; j += 2)
            even.push_back(static_cast<long>(j));
        for (std::size_t q = 0; q < queries; ++q)
        {
            const Pattern pattern = read(d);
            const Pattern expected = read(2);
            EXPECT_NEAR(logDensity(normal, pattern), expected[0], 1e-9 * std::fabs(expected[0])) << "d " << d;
            EXPECT_NEAR(logMarginal(normal, pattern, even), expected[1], 1e-9 * std::fabs(expected[1])) << "d " << d;
        }
    }
    EXPECT_EQ(cases, 14);
}

/// Singular covariances, of which marginals are wanted: against 50 digits and another way to compute them. Eigenvalues
/// of 2^-28 are known to some 2^-53, which is what the tolerance is for; where the floor is higher, it is as much less.
TEST(tkNMNormal, marginalsOfRepairedDistributionsAgreeWithFiftyDigits)
{
    std::ifstream table(CLASTOOL_REFERENCE_DIR "/normalMarginals.txt");
    const auto read = [&](std::size_t count)
    {
        Pattern values(count);
        for (double& v : values)
            table >> v;
        return values;
    };
    std::string word;
    std::size_t d = 0;
    std::size_t n = 0;
    std::size_t queries = 0;
    int marginals = 0;
    while (table >> word >> d >> n >> queries)
    {
        ASSERT_EQ(word, "case");
        Patterns patterns;
        for (std::size_t i = 0; i < n; ++i)
            patterns.push_back(read(d));
        tkNMNormal normal = trained(patterns);
        normal.referenceDeviations(read(d));
        for (std::size_t q = 0; q < queries; ++q, ++marginals)
        {
            const Pattern flags = read(d);
            std::vector<long> valid;
            for (std::size_t j = 0; j < d; ++j)
                if (flags[j] != 0.0)
                    valid.push_back(static_cast<long>(j));
            const Pattern x = read(d);
            const double expected = read(1)[0];
            const double error =
                std::fabs(logMarginal(normal, x, valid) - expected) / std::max(1.0, std::fabs(expected));
            EXPECT_LT(error, n > d ? 1e-6 : 1e-11) << d << ' ' << n;
        }
    }
    EXPECT_EQ(marginals, 1000);
}

TEST(tkNMNormal, keepsElevenDigitsOfDeviationsFarFromZero)
{
    for (const std::size_t count : {101u, 1001u, 10001u, 1000001u})
    {
        std::mt19937_64 generator(count);
        std::normal_distribution<double> deviate;
        Pattern values(count);
        for (double& v : values)
            v = 1e8 + deviate(generator);
        EXPECT_GT(digits(deviationOf(values), twoPassDeviation(values)), 11.0) << count;
    }
}

/// A value c, then c - h and c + h in turn: the mean is c and the deviation h.
TEST(tkNMNormal, keepsTheDigitsOfAlternatingValues)
{
    const auto alternating = [](double centre, double low, double high)
    {
        Pattern values{centre};
        for (int i = 0; i < 500; ++i)
        {
            values.push_back(low);
            values.push_back(high);
        }
        return values;
    };
    EXPECT_EQ(deviationOf({10000001, 10000003, 10000002}), 1.0);
    EXPECT_GT(digits(deviationOf(alternating(1.2, 1.1, 1.3)), 0.1L), 14.0);
    for (const double c : {1000000.0, 10000000.0})
    {
        const Pattern values = alternating(c + 0.2, c + 0.1, c + 0.3);
        EXPECT_GT(digits(deviationOf(values), twoPassDeviation(values)), 13.0);
        EXPECT_GT(digits(deviationOf(values), 0.1L), 8.2); // the decimal values are not doubles
    }
}

TEST(tkNMNormal, countOneHasNoCovarianceAndTwoDivideByOne)
{
    const tkNMNormal one = trained({{1.0, 4.0}});
    EXPECT_EQ(one.covariance(), tkNMMatrix(2, 2));
    const tkNMNormal two = trained({{1.0, 4.0}, {3.0, 8.0}});
    EXPECT_EQ(two.mean()(0, 0), 2.0);
    EXPECT_EQ(two.mean()(1, 0), 6.0);
    EXPECT_EQ(two.covariance()(0, 0), 2.0);
    EXPECT_EQ(two.covariance()(0, 1), 4.0);
    EXPECT_EQ(two.covariance()(1, 0), 4.0);
    EXPECT_EQ(two.covariance()(1, 1), 8.0);
}

TEST(tkNMNormal, restoredStatisticsGoOnBitForBit)
{
    for (const double offset : {0.0, 1.0 / 3.0, 1e8})
        for (const std::size_t d : {1u, 2u, 7u})
            for (std::size_t cut = 0; cut < 60; ++cut)
            {
                const Patterns patterns = randomPatterns(60, d, 17, offset);
                tkNMNormal original = trained(Patterns(patterns.begin(), patterns.begin() + static_cast<long>(cut)));
                tkNMMatrix mean = original.mean();
                tkNMMatrix covariance = original.covariance();
                tkNMNormal restored;
                ASSERT_TRUE(restored.restore(mean, covariance, original.count()));
                ASSERT_TRUE(restored == original);
                for (std::size_t i = cut; i < patterns.size(); ++i)
                {
                    original.add(patterns[i].data(), static_cast<long>(d));
                    restored.add(patterns[i].data(), static_cast<long>(d));
                }
                ASSERT_TRUE(restored == original);
                ASSERT_TRUE(restored.mean() == original.mean());
                ASSERT_TRUE(restored.covariance() == original.covariance());
                ASSERT_EQ(logDensity(restored, patterns[0]), logDensity(original, patterns[0]));
            }
}

TEST(tkNMNormal, statisticsThatDoNotFitTogetherAreNotRestored)
{
    const tkNMNormal original = trained(randomPatterns(5, 2, 1));
    tkNMNormal normal(original);
    EXPECT_FALSE(normal.restore(tkNMMatrix(2, 1), tkNMMatrix(2, 2), -1));
    EXPECT_FALSE(normal.restore(tkNMMatrix(2, 2), tkNMMatrix(2, 2), 1));
    EXPECT_FALSE(normal.restore(tkNMMatrix(2, 1), tkNMMatrix(2, 3), 1));
    EXPECT_FALSE(normal.restore(tkNMMatrix(2, 1), tkNMMatrix(3, 3), 1));
    EXPECT_TRUE(normal == original);
}

TEST(tkNMNormal, refusesInTheDocumentedOrder)
{
    tkNMNormal normal;
    const double huge[2] = {1.0, 1e200};
    const double fine[2] = {1.0, 2.0};
    double result = 7.0;
    const bool none[2] = {false, false};
    EXPECT_EQ(normal.logDensity(fine, 2, result), tkNMNormal::eNoValidData);
    EXPECT_EQ(normal.logMarginal(fine, none, 2, result), tkNMNormal::eNoValidData);
    EXPECT_EQ(normal.add(huge, 2), tkNMNormal::eOutOfRange);
    EXPECT_EQ(normal.count(), 0);
    EXPECT_EQ(normal.add(fine, 2), tkNMNormal::eOk);
    EXPECT_EQ(normal.add(huge, 1), tkNMNormal::eSizeChanged);
    EXPECT_EQ(normal.add(huge, 2), tkNMNormal::eOutOfRange);
    EXPECT_EQ(normal.count(), 1);
    EXPECT_EQ(normal.logDensity(fine, 1, result), tkNMNormal::eWrongLength);
    EXPECT_EQ(normal.logMarginal(fine, none, 1, result), tkNMNormal::eWrongLength);
    EXPECT_EQ(result, 7.0);
    EXPECT_EQ(normal.logMarginal(fine, none, 2, result), tkNMNormal::eOk);
    EXPECT_EQ(result, 0.0);
    normal.clear();
    EXPECT_EQ(normal.add(fine, 1), tkNMNormal::eOk);
}

TEST(tkNMNormal, marginalIsTheIntegralOverTheInvalidMeasurement)
{
    const tkNMNormal normal = trained(randomPatterns(50, 2, 3));
    const double m = normal.mean(1);
    const double deviation = std::sqrt(normal.variance(1));
    for (const double x : {-1.0, 0.5, 2.0})
    {
        // The trapezoidal rule converges exponentially for a density that vanishes at both ends.
        double integral = 0.0;
        const double step = deviation / 16.0;
        for (int i = -400; i <= 400; ++i)
            integral += step * std::exp(logDensity(normal, {x, m + i * step}));
        EXPECT_NEAR(std::exp(logMarginal(normal, {x, 1e300}, {0})) / integral, 1.0, 1e-10);
    }
}

TEST(tkNMNormal, theValueOfAnInvalidMeasurementIsNotRead)
{
    const tkNMNormal normal = trained(randomPatterns(50, 3, 3));
    const double expected = logMarginal(normal, {1.0, 0.0, 2.0}, {0, 2});
    EXPECT_EQ(logMarginal(normal, {1.0, std::nan(""), 2.0}, {0, 2}), expected);
    EXPECT_EQ(logMarginal(normal, {1.0, 3.0, 2.0}, {0, 1, 2}), logDensity(normal, {1.0, 3.0, 2.0}));
}

TEST(tkNMNormal, powerOfTwoUnitsCancelExactlyBetweenCategories)
{
    const Patterns dataA = randomPatterns(30, 5, 1);
    const Patterns dataB = randomPatterns(30, 5, 2, 0.7);
    const Patterns queries = randomPatterns(20, 5, 3, 0.3);
    for (const int k : {-40, -13, 1, 7, 40})
    {
        const auto scaled = [k](Patterns patterns)
        {
            for (Pattern& pattern : patterns)
                for (std::size_t j = 0; j < pattern.size(); ++j)
                    pattern[j] = std::ldexp(pattern[j], j % 2 ? k : -k / 2);
            return patterns;
        };
        const tkNMNormal a = trained(dataA);
        const tkNMNormal b = trained(dataB);
        const tkNMNormal scaledA = trained(scaled(dataA));
        const tkNMNormal scaledB = trained(scaled(dataB));
        const Patterns scaledQueries = scaled(queries);
        for (std::size_t q = 0; q < queries.size(); ++q)
            EXPECT_EQ(logDensity(a, queries[q]) - logDensity(b, queries[q]),
                      logDensity(scaledA, scaledQueries[q]) - logDensity(scaledB, scaledQueries[q]));
    }
}

/// x and y of deviation 1 with a correlation that leaves the smallest eigenvalue at 2e-8 of the largest: the exact
/// density, without any ridge.
TEST(tkNMNormal, aConditionOfOneHundredMillionIsNotAltered)
{
    const double e = 1e-4;
    tkNMNormal normal = trained({{1, 1 + e}, {1, 1 - e}, {-1, -1 + e}, {-1, -1 - e}});
    const long double sxx = 4.0L / 3;
    const tkNMMatrix c = normal.covariance();
    const long double det = static_cast<long double>(c(0, 0)) * c(1, 1) - static_cast<long double>(c(0, 1)) * c(0, 1);
    const long double x = 0.5L;
    const long double y = 0.5001L;
    const long double square = (x * x * c(1, 1) - 2 * x * y * c(0, 1) + y * y * c(0, 0)) / det;
    const long double expected = -0.5L * (2 * 1.8378770664093454836L + std::log(det) + square);
    EXPECT_NEAR(static_cast<double>(sxx), c(0, 0), 1e-15);
    EXPECT_NEAR(logDensity(normal, {0.5, 0.5001}), static_cast<double>(expected), 1e-6);
}

TEST(tkNMNormal, degenerateDataGiveFiniteLogDensities)
{
    const Patterns sets[] = {
        {{0.0, 0.0}},                                      // one pattern, of zeros
        {{5.0, -7.0}},                                     // one pattern
        {{0.1, 3.0}, {0.1, 4.0}, {0.1, 5.0}},              // one constant
        {{1.0, 2.0}, {2.0, 4.0}, {3.0, 6.0}, {4.0, 8.0}},  // collinear
        {{1e-300, 1e140}, {2e-300, -1e140}, {0.0, 3e140}}, // squares that underflow, and large ones
    };
    for (const Patterns& patterns : sets)
    {
        const tkNMNormal normal = trained(patterns);
        for (const Pattern& pattern : {Pattern{0.0, 0.0}, Pattern{1.0, -1.0}, Pattern{1e300, -1e300}})
        {
            EXPECT_TRUE(std::isfinite(logDensity(normal, pattern)));
            EXPECT_TRUE(std::isfinite(logMarginal(normal, pattern, {1})));
        }
        EXPECT_GE(logDensity(normal, patterns[0]), logDensity(normal, {1e3, -2e3}));
    }
    const Patterns few = randomPatterns(5, 12, 9);
    EXPECT_TRUE(std::isfinite(logDensity(trained(few), few[2])));
}

TEST(tkNMNormal, marginalsOfDistributionsThatNearlyCountAsSingularAreFinite)
{
    // Three measurements whose smallest eigenvalue passes the floor as the noise grows.
    for (const unsigned seed : {6548u, 9503u, 12571u})
    {
        std::mt19937_64 generator(1);
        std::normal_distribution<double> deviate;
        double values[6][3];
        for (unsigned t = 0; t <= seed; ++t)
            for (auto& row : values)
                for (double& v : row)
                    v = deviate(generator);
        for (double noise = 1e-9; noise < 1e-2; noise *= 1.01)
        {
            tkNMNormal normal;
            for (const auto& row : values)
            {
                const double pattern[] = {1e-4 * row[1] + row[2], row[1], row[1] + noise * row[0]};
                normal.add(pattern, 3);
            }
            for (const std::vector<long>& valid : {std::vector<long>{1, 2}, {0, 2}, {0, 1}, {0}, {1}, {2}})
                ASSERT_TRUE(std::isfinite(logMarginal(normal, {0.1, 0.2, 0.3}, valid))) << seed << ' ' << noise;
        }
    }
}

TEST(tkNMNormal, aReferenceGivesConstantMeasurementsTheirUnit)
{
    tkNMNormal normal = trained({{0.0}, {0.0}});
    normal.referenceDeviations({1024.0});
    const double atMean = logDensity(normal, {0.0});
    EXPECT_NEAR(logDensity(normal, {1.0}), atMean - 0.5 / 64.0, 1e-11); // a deviation of 1024 / 2^7
    tkNMNormal varying = trained({{0.0}, {1.0}});
    const double before = logDensity(varying, {3.0});
    varying.referenceDeviations({1024.0});
    EXPECT_EQ(logDensity(varying, {3.0}), before);
}

TEST(tkNMNormal, infiniteMeasurementsGiveWhatTheArithmeticGives)
{
    const tkNMNormal normal = trained({{1.0}, {2.0}});
    EXPECT_EQ(logDensity(normal, {std::numeric_limits<double>::infinity()}), -std::numeric_limits<double>::infinity());
    EXPECT_TRUE(std::isnan(logDensity(normal, {std::nan("")})));
}

TEST(tkNMNormal, threadsMayEvaluateOneObjectThatWasNeverEvaluated)
{
    const Patterns patterns = randomPatterns(80, 20, 4);
    for (int round = 0; round < 20; ++round)
    {
        const tkNMNormal shared = trained(patterns);
        std::vector<double> results(4);
        std::vector<std::thread> threads;
        for (std::size_t t = 0; t < results.size(); ++t)
            threads.emplace_back([&, t] { results[t] = logDensity(shared, patterns[7]); });
        for (std::thread& thread : threads)
            thread.join();
        for (const double result : results)
            EXPECT_EQ(result, logDensity(trained(patterns), patterns[7]));
    }
}

TEST(tkNMNormal, everyInstructionSetHasTheLogDensityOfTheDefinition)
{
    for (const std::size_t d : {1u, 2u, 7u, 8u, 9u, 31u, 64u})
    {
        const Patterns patterns = randomPatterns(3 * d, d, 23);
        const tkNMNormal normal = trained(patterns);
        for (const Pattern& pattern : patterns)
        {
            double expected = 0.0;
            double actual = 1.0;
            normal.logDensity(pattern.data(), static_cast<long>(d), expected, tkNMInstructions::Definition);
            for (const tkNMInstructions set : instructionSets())
            {
                normal.logDensity(pattern.data(), static_cast<long>(d), actual, set);
                EXPECT_EQ(actual, expected) << d << ' ' << set;
            }
            EXPECT_EQ(logDensity(normal, pattern), expected);
            EXPECT_EQ(normal.factorisation().logDensity(pattern.data()), expected);
        }
    }
}

TEST(tkNMNormal, statisticsThatAreSwappedOutLearnWhatTheDistributionWould)
{
    const Patterns patterns = randomPatterns(20, 5, 6);
    tkNMNormal expected = trained(patterns);
    tkNMNormal normal = trained(Patterns(patterns.begin(), patterns.begin() + 8));
    logDensity(normal, patterns[0]); // factors, which must not outlive the change
    tkNMStatistics statistics;
    normal.swapStatistics(statistics);
    EXPECT_EQ(normal.count(), 0);
    EXPECT_EQ(normal.dimension(), 0);
    for (std::size_t i = 8; i < patterns.size(); ++i)
        statistics.add(patterns[i].data());
    normal.swapStatistics(statistics);
    EXPECT_TRUE(normal == expected);
    EXPECT_TRUE(normal.statistics() == expected.statistics());
    EXPECT_TRUE(statistics == tkNMStatistics());
    EXPECT_EQ(logDensity(normal, patterns[0]), logDensity(expected, patterns[0]));
}

TEST(tkNMNormal, onlyATrainedDistributionIsFactored)
{
    EXPECT_THROW(tkNMNormal().factorisation(), tkAssertionFailure);
    const tkNMNormal normal = trained({{1.0, 2.0}, {2.0, 1.0}, {5.0, 5.0}});
    EXPECT_EQ(normal.factorisation().dimension(), 2u);
    EXPECT_EQ(&normal.factorisation(), &normal.factorisation());
}

namespace
{
tkPtrHandle<tkNMChangeNumber> newNumber()
{
    return tkPtrHandle<tkNMChangeNumber>(new tkNMChangeNumber);
}
} // namespace

TEST(tkNMNormal, itsNumberGrowsWithEveryChange)
{
    using Change = std::function<void(tkNMNormal&)>;
    const double x = 2.5;
    const std::vector<Change> changes{
        [&](tkNMNormal& normal) { normal.add(&x, 1); },
        [](tkNMNormal& normal) { normal.referenceDeviations({3.0}); },
        [](tkNMNormal& normal) { normal.clear(); },
        [](tkNMNormal& normal) { normal.restore(normal.mean(), normal.covariance(), normal.count()); },
        [](tkNMNormal& normal) {
            normal = trained({{4.0}, {5.0}});
        },
        [](tkNMNormal& normal) { const tkNMNormal taken(std::move(normal)); },
        [](tkNMNormal& normal)
        {
            tkNMStatistics statistics;
            normal.swapStatistics(statistics);
        },
        [](tkNMNormal& normal)
        {
            tkNMNormal other = trained({{4.0}, {5.0}});
            std::swap(normal, other);
        },
        [](tkNMNormal& normal) { normal.changeNumber(newNumber()); },
    };
    for (const Change& change : changes)
    {
        tkNMNormal normal = trained({{1.0}, {2.0}, {4.0}});
        const tkPtrHandle<tkNMChangeNumber> number = newNumber();
        normal.changeNumber(number);
        const std::uint64_t before = number->value();
        change(normal);
        EXPECT_GT(number->value(), before) << &change - changes.data();
    }
}

TEST(tkNMNormal, theSameReferencesAgainChangeNothing)
{
    // As when a second classifier that shares the density is loaded while others run the first.
    tkNMNormal normal = trained({{1.0, 2.0}, {2.0, 2.0}, {4.0, 2.0}});
    const tkPtrHandle<tkNMChangeNumber> number(new tkNMChangeNumber);
    normal.changeNumber(number);
    normal.referenceDeviations({3.0, 5.0});
    const tkNMFactorisation* const factorisation = &normal.factorisation();
    const std::uint64_t noted = number->value();
    normal.referenceDeviations({3.0, 5.0});
    EXPECT_EQ(&normal.factorisation(), factorisation);
    EXPECT_EQ(number->value(), noted);
    normal.referenceDeviations({3.0, 6.0});
    EXPECT_NE(number->value(), noted);
}

TEST(tkNMNormal, itsNumberStaysWithTheObjectAndWithEvaluations)
{
    tkNMNormal normal = trained({{1.0}, {2.0}, {4.0}});
    tkNMNormal sibling = trained({{1.0}, {2.0}});
    const tkPtrHandle<tkNMChangeNumber> number = newNumber();
    normal.changeNumber(number);
    sibling.changeNumber(number);
    const std::uint64_t before = number->value();
    const double huge = 1e200;
    EXPECT_EQ(normal.add(&huge, 1), tkNMNormal::eOutOfRange); // no change
    logDensity(normal, {3.0});
    logMarginal(normal, {3.0}, {0});
    {
        tkNMNormal copy(normal);
        EXPECT_TRUE(copy.changeNumber().isNull());
        copy.clear();
        const tkNMNormal moved(std::move(copy));
        EXPECT_TRUE(moved.changeNumber().isNull());
    }
    EXPECT_EQ(number->value(), before);

    normal = trained({{4.0}, {5.0}});
    EXPECT_EQ(normal.changeNumber().get(), number.get());
    const std::uint64_t after = number->value();
    sibling.clear(); // one number for both
    EXPECT_GT(number->value(), after);
}

TEST(tkNMNormal, movedFromItIsNewAndAssignedToItselfUnchanged)
{
    const Patterns patterns = randomPatterns(10, 3, 31);
    tkNMNormal normal = trained(patterns);
    normal.referenceDeviations({1.0, 2.0, 3.0});
    const tkNMNormal expected(normal);
    tkNMNormal& same = normal;
    normal = same;
    EXPECT_TRUE(normal == expected);
    EXPECT_EQ(normal.referenceDeviations(), expected.referenceDeviations());
    const tkNMNormal taken(std::move(normal));
    EXPECT_TRUE(taken == expected);
    EXPECT_EQ(taken.referenceDeviations(), (Pattern{1.0, 2.0, 3.0}));
    EXPECT_EQ(normal.count(), 0); // NOLINT: what a moved-from distribution is, is stated here
    EXPECT_EQ(normal.dimension(), 0);
    EXPECT_TRUE(normal.referenceDeviations().empty());
    EXPECT_EQ(normal.add(patterns[0].data(), 2), tkNMNormal::eOk);
}

TEST(tkNMNormal, copiesGoOnApart)
{
    const Patterns patterns = randomPatterns(12, 2, 32);
    const tkNMNormal original = trained(patterns);
    const double expected = logDensity(original, patterns[3]);
    tkNMNormal copy(original);
    EXPECT_EQ(logDensity(copy, patterns[3]), expected);
    copy.add(patterns[0].data(), 2);
    EXPECT_TRUE(copy != original);
    EXPECT_NE(logDensity(copy, patterns[3]), expected);
    EXPECT_EQ(logDensity(original, patterns[3]), expected);
}

TEST(tkNMNormal, equalityLooksAtWhatWasLearnedAlone)
{
    tkNMNormal a = trained({{1.0, 2.0}, {3.0, 5.0}});
    const tkNMNormal b(a);
    a.referenceDeviations({7.0, 8.0});
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a == trained({{1.0, 2.0}, {3.0, 5.5}}));
    EXPECT_FALSE(a == trained({{1.0, 2.0}}));
    EXPECT_FALSE(a == trained({{3.0, 5.0}, {1.0, 2.5}}));
    EXPECT_TRUE(tkNMNormal() == tkNMNormal());
    EXPECT_FALSE(a == tkNMNormal());
}

TEST(tkNMNormal, clearForgetsEverythingButTheNumber)
{
    tkNMNormal normal = trained({{1.0, 2.0}, {3.0, 5.0}});
    normal.referenceDeviations({7.0, 8.0});
    const tkPtrHandle<tkNMChangeNumber> number = newNumber();
    normal.changeNumber(number);
    normal.clear();
    EXPECT_TRUE(normal == tkNMNormal());
    EXPECT_TRUE(normal.referenceDeviations().empty());
    EXPECT_EQ(normal.mean().rows(), 0);
    EXPECT_EQ(normal.covariance().rows(), 0);
    EXPECT_EQ(normal.changeNumber().get(), number.get());
    const double x = 4.0;
    EXPECT_EQ(normal.add(&x, 1), tkNMNormal::eOk); // of another dimension
    EXPECT_EQ(normal.dimension(), 1);
}

TEST(tkNMNormal, checkSaysWhatAddWouldSay)
{
    tkNMNormal normal;
    const double largest = tkNMNormal::largestMagnitude();
    const double infinity = std::numeric_limits<double>::infinity();
    const double values[] = {0.0,      largest,   -largest,    std::nextafter(largest, infinity),
                             infinity, -infinity, std::nan("")};
    for (int round = 0; round < 2; ++round) // of a new distribution, and of one with patterns of two measurements
    {
        for (const double x : values)
            for (const double y : values)
                for (const long dimension : {0L, 1L, 2L})
                {
                    const double pattern[] = {x, y};
                    tkNMNormal copy(normal);
                    const tkNMNormal::Outcome outcome = normal.check(pattern, dimension);
                    EXPECT_EQ(copy.add(pattern, dimension), outcome);
                    EXPECT_EQ(copy.count(), normal.count() + (outcome == tkNMNormal::eOk ? 1 : 0));
                    const bool fits = round == 0 || dimension == 2;
                    const bool isInRange =
                        (dimension < 1 || std::fabs(x) <= largest) && (dimension < 2 || std::fabs(y) <= largest);
                    EXPECT_EQ(outcome, !fits       ? tkNMNormal::eSizeChanged
                                       : isInRange ? tkNMNormal::eOk
                                                   : tkNMNormal::eOutOfRange);
                }
        const double pattern[] = {1.0, 2.0};
        normal.add(pattern, 2);
    }
}

TEST(tkNMNormal, countsAsManyPatternsAsAnArchiveCanHold)
{
    tkNMNormal normal;
    tkNMMatrix mean(1, 1);
    tkNMMatrix covariance(1, 1);
    covariance(0, 0) = 4.0;
    ASSERT_TRUE(normal.restore(mean, covariance, 2147483646));
    const double x = 1.0;
    EXPECT_EQ(normal.add(&x, 1), tkNMNormal::eOk);
    EXPECT_EQ(normal.count(), 2147483647L);
    EXPECT_EQ(normal.check(&x, 1), tkNMNormal::eOutOfRange);
    EXPECT_EQ(normal.add(&x, 1), tkNMNormal::eOutOfRange);
    EXPECT_EQ(normal.count(), 2147483647L);
    EXPECT_NEAR(normal.variance(0), 4.0, 1e-6);
    EXPECT_TRUE(std::isfinite(logDensity(normal, {3.0})));
}

TEST(tkNMNormal, meansAndVariancesAreThoseOfItsMatrices)
{
    const tkNMNormal normal = trained(randomPatterns(17, 4, 33));
    for (long j = 0; j < 4; ++j)
    {
        EXPECT_EQ(normal.mean(j), normal.mean()(j, 0));
        EXPECT_EQ(normal.variance(j), normal.covariance()(j, j));
        for (long i = 0; i < 4; ++i)
        {
            EXPECT_EQ(normal.covariance()(i, j), normal.covariance()(j, i));
            EXPECT_EQ(normal.covariance().compensation(i, j), normal.covariance().compensation(j, i));
        }
    }
    for (const long j : {-1L, 4L})
    {
        EXPECT_THROW(normal.mean(j), tkAssertionFailure);
        EXPECT_THROW(normal.variance(j), tkAssertionFailure);
    }
}

TEST(tkNMNormal, theDensityIntegratesToOne)
{
    const tkNMNormal normal = trained(randomPatterns(40, 2, 34));
    const double steps[] = {std::sqrt(normal.variance(0)) / 8.0, std::sqrt(normal.variance(1)) / 8.0};
    double integral = 0.0;
    for (int i = -80; i <= 80; ++i)
        for (int j = -80; j <= 80; ++j)
            integral += steps[0] * steps[1] *
                        std::exp(logDensity(normal, {normal.mean(0) + i * steps[0], normal.mean(1) + j * steps[1]}));
    EXPECT_NEAR(integral, 1.0, 1e-9);
}
