#include "numerics/tkNMNormal.h"

#include "foundation/tkAssert.h"
#include "instructionSets.h"
#include "numerics/tkNMLearner.h"
#include "numerics/tkNMMahalanobis.h"
#include "numerics/tkNMNormalProducts.h"
#include "numerics/tkNMTriangle.h"
#include "tkTest.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <list>
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

namespace
{
bool haveSameBits(double a, double b)
{
    return std::isnan(a) ? std::isnan(b) : a == b && std::signbit(a) == std::signbit(b);
}

/// Ordinary numbers and, if `isHostile`, every so often one that is not.
double anyNumber(std::mt19937_64& generator, bool isHostile)
{
    std::normal_distribution<double> deviate;
    const double ordinary = deviate(generator) * std::exp(deviate(generator));
    if (!isHostile)
        return ordinary;
    const double strange[] = {0.0,    -0.0,   HUGE_VAL, -HUGE_VAL, std::nan(""), 1e300,
                              -1e200, 5e-324, 1e-310,   1e155,     -1e150,       1e-170};
    const std::size_t choice = generator() % 60;
    return choice < std::size(strange) ? strange[choice] : ordinary;
}

/// The formula of tkNMMahalanobis' comment, written out: with zeros above the diagonal and below the last row.
double plainDistance(const Pattern& mean, const Pattern& remainder, const tkNMTriangle& w, const Pattern& x)
{
    const std::size_t d = x.size();
    std::vector<double> v(d);
    for (std::size_t j = 0; j < d; ++j)
        v[j] = (x[j] - mean[j]) - remainder[j];
    if (d == 1)
        return (w(0, 0) * v[0]) * (w(0, 0) * v[0]);
    double q[8] = {};
    for (std::size_t i = 0; i < (d + 7) / 8 * 8; ++i)
    {
        double y = 0.0;
        for (std::size_t j = 0; j < std::min(i / 8 * 8 + 8, d); ++j)
            y += (i < d && j <= i ? w(i, j) : 0.0) * v[j];
        q[i % 8] += y * y;
    }
    return ((q[0] + q[4]) + (q[2] + q[6])) + ((q[1] + q[5]) + (q[3] + q[7]));
}
} // namespace

TEST(tkNMMahalanobis, everyLevelHasTheBitsOfTheFormula)
{
    std::mt19937_64 generator(5);
    for (std::size_t d = 0; d <= 140; ++d)
        for (int kind = 0; kind < 8; ++kind)
        {
            Pattern mean(d);
            Pattern remainder(d);
            tkNMTriangle w(d);
            for (std::size_t i = 0; i < d; ++i)
            {
                mean[i] = anyNumber(generator, kind == 1);
                remainder[i] = 1e-17 * anyNumber(generator, kind == 2);
                for (std::size_t j = 0; j <= i; ++j)
                    w(i, j) = anyNumber(generator, kind == 3);
            }
            const tkNMMahalanobis distance(mean, remainder, w);
            EXPECT_EQ(distance.dimension(), d);
            for (int query = 0; query < 4; ++query)
            {
                // At the end of its memory, so that a sanitizer sees whoever reads on; and not aligned.
                const auto memory = std::make_unique<double[]>(d + 1);
                Pattern x(d);
                for (double& value : x)
                    value = anyNumber(generator, kind >= 4);
                if (d > 0 && kind == 7)
                    x[generator() % d] = HUGE_VAL;
                std::copy(x.begin(), x.end(), memory.get() + 1);
                const double expected = plainDistance(mean, remainder, w, x);
                for (const tkNMInstructions level : instructionSets())
                    ASSERT_TRUE(haveSameBits(distance.squaredDistance(memory.get() + 1, level), expected))
                        << d << ' ' << kind << ' ' << level;
                bool isFinite = true;
                for (std::size_t j = 0; j < d; ++j)
                    isFinite = isFinite && std::isfinite((x[j] - mean[j]) - remainder[j]);
                ASSERT_EQ(distance.isFiniteAt(memory.get() + 1), isFinite);
            }
        }
}

TEST(tkNMMahalanobis, takesMoreMeasurementsThanTheStackHolds)
{
    const std::size_t d = 300;
    std::mt19937_64 generator(15);
    tkNMTriangle w(d);
    Pattern x(d);
    for (std::size_t i = 0; i < d; ++i)
    {
        x[i] = anyNumber(generator, false);
        for (std::size_t j = 0; j <= i; ++j)
            w(i, j) = anyNumber(generator, false);
    }
    const Pattern zeros(d);
    for (const tkNMInstructions level : instructionSets())
        EXPECT_EQ(tkNMMahalanobis(x, zeros, w).squaredDistance(zeros.data(), level), plainDistance(x, zeros, w, zeros));
}

namespace
{
/// A factor of a product: its numbers, and what it gives by itself.
struct Factor
{
    tkNMNormalProducts::Set set;
    tkNMMahalanobis distance;
    double logPeak;
};

Factor randomFactor(const tkNMNormalProducts::Set& set, bool isHostile, std::mt19937_64& generator)
{
    Pattern mean(set.size);
    Pattern remainder(set.size);
    tkNMTriangle w(set.size);
    for (std::size_t i = 0; i < set.size; ++i)
    {
        mean[i] = anyNumber(generator, isHostile);
        remainder[i] = 1e-17 * anyNumber(generator, isHostile);
        for (std::size_t j = 0; j <= i; ++j)
            w(i, j) = anyNumber(generator, isHostile);
    }
    return {set, tkNMMahalanobis(mean, remainder, w), anyNumber(generator, false)};
}

/// The formula of tkNMNormalProducts' comment, written out; `squares` become the sum of the squared distances.
double plainProduct(const std::vector<Factor>& factors, const double* x, double& squares)
{
    double sum = 0.0;
    squares = 0.0;
    for (const Factor& factor : factors)
    {
        const double square = factor.distance.squaredDistance(x + factor.set.first, tkNMInstructions::Portable);
        squares += square;
        sum += factor.logPeak - ((0.5 * square + 8192.0) - 8192.0);
    }
    return squares <= std::numeric_limits<double>::max() ? sum : std::nan("");
}
} // namespace

TEST(tkNMNormalProducts, everyLevelHasTheBitsOfEachProductAlone)
{
    std::mt19937_64 generator(16);
    const std::vector<std::vector<tkNMNormalProducts::Set>> shapes{
        {},
        {{0, 1}},
        {{0, 1}, {1, 1}, {2, 1}, {7, 1}},
        {{3, 2}, {0, 3}},
        {{0, 4}, {6, 1}, {4, 2}},
        {{1, 5}, {0, 7}},
        {{0, 8}},
        {{2, 13}, {0, 1}},
        {{0, 16}, {16, 6}},
        {{1, 31}},
        {{0, 47}},
    };
    const std::size_t reach = 48;
    int placed = 0;
    int taken = 0;
    int refused = 0;
    for (int round = 0; round < 1500; ++round)
    {
        const bool isHostile = round % 3 == 2;
        std::vector<std::vector<tkNMNormalProducts::Set>> sets(generator() % 24);
        for (auto& each : sets)
            each = shapes[(static_cast<std::size_t>(round) + generator() % 3) % shapes.size()];
        std::vector<std::vector<Factor>> factors(sets.size());
        // At the end of its memory, so that a sanitizer sees whoever reads on; and not aligned.
        const auto x = std::make_unique<double[]>(reach + 1);
        for (std::size_t j = 0; j <= reach; ++j)
            x[j] = anyNumber(generator, isHostile && round % 2 == 0);
        for (std::size_t c = 0; c < sets.size(); ++c)
            for (const tkNMNormalProducts::Set& set : sets[c])
                factors[c].push_back(randomFactor(set, isHostile && generator() % 4 == 0, generator));
        for (const tkNMInstructions level : instructionSets())
        {
            tkNMNormalProducts products(sets, level);
            ASSERT_EQ(products.size(), sets.size());
            ASSERT_LE(products.reach(), reach);
            for (std::size_t c = 0; c < sets.size(); ++c)
                for (std::size_t i = 0; i < sets[c].size() && products.hasPlaces(c); ++i)
                    products.fill(c, i, factors[c][i].distance, factors[c][i].logPeak);
            std::vector<double> logs(sets.size());
            const double* const point = x.get() + 1 + reach - products.reach();
            products.logDensities(point, logs.data());
            for (std::size_t c = 0; c < sets.size(); ++c)
            {
                if (!products.hasPlaces(c)) // its sets may end beyond the point
                {
                    ASSERT_TRUE(std::isnan(logs[c]));
                    continue;
                }
                double squares = 0.0;
                const double expected = plainProduct(factors[c], point, squares);
                ++placed;
                (std::isnan(expected) ? refused : taken) += 1;
                ASSERT_TRUE(haveSameBits(expected, logs[c])) << round << ' ' << c << ' ' << level;
            }
        }
    }
    EXPECT_GT(placed, 15000);
    EXPECT_GT(taken, 10000);
    EXPECT_GT(refused, 1000);
}

TEST(tkNMNormalProducts, placesAreEmptyUntilTheyAreFilledAndEmptyOneByOne)
{
    tkNMNormalProducts products({{{0, 1}, {1, 2}}, {{0, 1}, {1, 2}}}, tkNMInstructions::Portable);
    const double x[] = {2.0, 1.0, 3.0};
    tkNMTriangle one(1);
    one(0, 0) = 1.0;
    tkNMTriangle two(2);
    two(0, 0) = two(1, 1) = 1.0;
    const tkNMMahalanobis single({0.0}, {0.0}, one);
    const tkNMMahalanobis pair({0.0, 0.0}, {0.0, 0.0}, two);
    double logs[2] = {};
    const auto areThere = [&](bool first, bool second)
    {
        products.logDensities(x, logs);
        EXPECT_EQ(std::isnan(logs[0]), !first);
        EXPECT_EQ(std::isnan(logs[1]), !second);
    };
    ASSERT_TRUE(products.hasPlaces(0) && products.hasPlaces(1));
    areThere(false, false);
    products.fill(0, 0, single, -1.0);
    areThere(false, false);
    products.fill(0, 1, pair, -2.0);
    areThere(true, false);
    EXPECT_EQ(logs[0], (-1.0 - 2.0) + (-2.0 - 5.0));
    products.fill(1, 1, pair, 0.0);
    products.fill(1, 0, single, 0.0);
    areThere(true, true);
    products.empty(0, 1);
    areThere(false, true);
    EXPECT_THROW(products.fill(0, 0, pair, 0.0), tkAssertionFailure);
    EXPECT_THROW(products.fill(0, 2, pair, 0.0), tkAssertionFailure);
    EXPECT_THROW(products.fill(2, 0, single, 0.0), tkAssertionFailure);
    EXPECT_THROW(tkNMNormalProducts({{{0, 0}}}), tkAssertionFailure);
}

TEST(tkNMNormal, leavesItsPlaceWithEveryChange)
{
    using Change = std::function<void(tkNMNormal&)>;
    const std::vector<std::vector<tkNMNormalProducts::Set>> oneOfOne{{{0, 1}}};
    const double x = 2.5;
    std::list<tkNMNormal> others; // what is moved into them lives on
    const auto addOne = [&](tkNMNormal& normal) { normal.add(&x, 1); };
    const std::vector<Change> changes{
        addOne,
        [&](tkNMNormal& normal)
        {
            tkNMLearner learner(1, 1);
            ASSERT_TRUE(learner.start({{&normal, 0}}));
            ASSERT_TRUE(learner.add(&x));
        },
        [](tkNMNormal& normal) { normal.referenceDeviations({3.0}); },
        [](tkNMNormal& normal) { normal.clear(); },
        [](tkNMNormal& normal) { normal.restore(normal.mean(), normal.covariance(), normal.count()); },
        [](tkNMNormal& normal) {
            normal = trained({{4.0}, {5.0}});
        },
        [&](tkNMNormal& normal) { others.emplace_back(std::move(normal)); },
        [&](tkNMNormal& normal)
        {
            others.push_back(trained({{4.0}, {5.0}}));
            logDensity(others.back(), {1.0});
            std::swap(normal, others.back());
        },
        [&](tkNMNormal& normal)
        {
            const tkPtrHandle<tkNMNormalProducts> another(new tkNMNormalProducts(oneOfOne));
            normal.join(another, 0, 0);
        },
    };
    for (const Change& change : changes)
    {
        auto normal = std::make_unique<tkNMNormal>(trained({{1.0}, {2.0}, {4.0}}));
        const tkPtrHandle<tkNMNormalProducts> products(new tkNMNormalProducts(oneOfOne));
        const auto value = [&]
        {
            double log = 0.0;
            products->logDensities(&x, &log);
            return log;
        };
        const auto isMirrored = [&] { return value() == logDensity(*normal, {x}); };
        normal->join(products, 0, 0);
        EXPECT_TRUE(isMirrored());
        change(*normal);
        EXPECT_TRUE(std::isnan(value())) << &change - changes.data();
        if (normal->count() == 0)
            normal->add(&x, 1);
        normal->join(products, 0, 0);
        EXPECT_TRUE(isMirrored());
        {
            tkNMNormal copy(*normal);
            addOne(copy);
            EXPECT_TRUE(isMirrored());
        }
        normal.reset();
        EXPECT_TRUE(std::isnan(value()));
    }
}

TEST(tkNMNormal, onlyATrainedDistributionJoinsAndOnlyAPlaceOfItsSize)
{
    const std::vector<std::vector<tkNMNormalProducts::Set>> oneOfTwo{{{0, 2}}};
    const tkPtrHandle<tkNMNormalProducts> products(new tkNMNormalProducts(oneOfTwo));
    tkNMNormal empty;
    EXPECT_THROW(empty.join(products, 0, 0), tkAssertionFailure);
    tkNMNormal single = trained({{1.0}});
    EXPECT_THROW(single.join(products, 0, 0), tkAssertionFailure);
    tkNMNormal pair = trained({{1.0, 2.0}, {2.0, 1.0}, {5.0, 5.0}});
    EXPECT_THROW(pair.join(products, 0, 1), tkAssertionFailure);
    EXPECT_THROW(pair.join(products, 1, 0), tkAssertionFailure);
    pair.join(products, 0, 0);
    pair.join(products, 0, 0);
    double log = 0.0;
    const double x[] = {1.0, 4.0};
    products->logDensities(x, &log);
    EXPECT_EQ(log, logDensity(pair, {1.0, 4.0}));
}

TEST(tkNMMatrix, comesBackFromItsRecordWithItsRemainders)
{
    tkNMMatrix matrix(2, 3);
    matrix(0, 1) = 1.5;
    matrix(1, 2) = -2.0;
    tkNMMatrix loaded;
    loadFromBytes(storeToBytes(matrix), loaded);
    EXPECT_EQ(loaded, matrix);
    matrix.remainder(1, 0, 1e-20);
    EXPECT_NE(loaded, matrix);
    loadFromBytes(storeToBytes(matrix), loaded);
    EXPECT_EQ(loaded, matrix);
    EXPECT_EQ(loaded.remainder(1, 0), 1e-20);
    EXPECT_EQ(loaded.remainder(1, 1), 0.0);
}

TEST(tkNMMatrix, damagedRecordsAreRefused)
{
    std::string bytes = storeToBytes(tkNMMatrix(2, 3));
    tkNMMatrix matrix(1, 1);
    const auto load = [&]
    {
        std::istringstream stream(bytes);
        tkArchive archive(stream);
        archive || matrix;
    };
    bytes[1] = 3; // rows
    EXPECT_TK_THROW(load(), tkArchive::Errors, L"A stored matrix has another number of elements than its size says");
    bytes[1] = 2;
    bytes[0] = 1;
    EXPECT_THROW(load(), tkArchive::UnknownVersion);
    EXPECT_EQ(matrix, tkNMMatrix(1, 1));
}
