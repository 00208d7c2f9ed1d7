#include "clss/model/tk_NoveltyEvidence.h"

#include "modelTestData.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierTrainParamsKNN.h"
#include "numerics/tkNMTail.h"

#include <algorithm>
#include <functional>
#include <limits>

namespace
{
using Types = tkClassifierDistributionTypes;
using Rows = std::vector<std::vector<double>>;

const double infinity = std::numeric_limits<double>::infinity();

/// The patterns of each category; the labels are 0, 1, ...
tk_NoveltyData dataOf(const std::vector<Rows>& categories)
{
    tk_NoveltyData data;
    data.numMeasurements = static_cast<long>(categories.front().front().size());
    long end = 0;
    for (std::size_t c = 0; c < categories.size(); ++c)
    {
        end += static_cast<long>(categories[c].size());
        data.labels.push_back(static_cast<long>(c));
        data.ends.push_back(end);
        for (const std::vector<double>& row : categories[c])
            data.measurements.insert(data.measurements.end(), row.begin(), row.end());
    }
    return data;
}

/// x' A^-1 y by Gaussian elimination with pivots.
double inverseProduct(Rows a, const std::vector<double>& x, std::vector<double> y)
{
    const std::size_t d = a.size();
    for (std::size_t k = 0; k < d; ++k)
    {
        std::size_t pivot = k;
        for (std::size_t i = k; i < d; ++i)
            pivot = std::abs(a[i][k]) > std::abs(a[pivot][k]) ? i : pivot;
        std::swap(a[k], a[pivot]);
        std::swap(y[k], y[pivot]);
        for (std::size_t i = k + 1; i < d; ++i)
        {
            const double factor = a[i][k] / a[k][k];
            for (std::size_t j = k; j < d; ++j)
                a[i][j] -= factor * a[k][j];
            y[i] -= factor * y[k];
        }
    }
    double sum = 0.0;
    for (std::size_t k = d; k-- > 0;)
    {
        for (std::size_t j = k + 1; j < d; ++j)
            y[k] -= a[k][j] * y[j];
        y[k] /= a[k][k];
        sum += x[k] * y[k];
    }
    return sum;
}

double meanOf(const Rows& rows, std::size_t j)
{
    double sum = 0.0;
    for (const std::vector<double>& row : rows)
        sum += row[j];
    return sum / static_cast<double>(rows.size());
}

double squaresOf(const Rows& rows, std::size_t i, std::size_t j)
{
    double sum = 0.0;
    for (const std::vector<double>& row : rows)
        sum += (row[i] - meanOf(rows, i)) * (row[j] - meanOf(rows, j));
    return sum;
}

/// The definition, with everything learned plainly from the patterns that are there.
class Oracle
{
public:
    /// `sets` of all categories; a set beginning with a binomial measurement has its maximum here.
    Oracle(const std::vector<Rows>& all, const std::vector<std::vector<std::size_t>>& sets,
           const std::map<std::size_t, double>& maxima = {})
        : sets_(sets),
          maxima_(maxima)
    {
        Rows together;
        for (const Rows& rows : all)
            together.insert(together.end(), rows.begin(), rows.end());
        for (std::size_t j = 0; j < together.front().size(); ++j)
        {
            means_.push_back(meanOf(together, j));
            units_.push_back(1.0 / std::sqrt(squaresOf(together, j, j) / static_cast<double>(together.size())));
        }
        for (std::size_t j = 0; j < means_.size(); ++j)
            noise_.push_back(1e-3 * std::max(within_(scaled_(all), j, j), 1e-4));
    }

    std::vector<double> evidence(const std::vector<Rows>& learned, const std::vector<double>& pattern,
                                 const std::vector<std::size_t>& used) const
    {
        const std::vector<Rows> categories = scaled_(learned);
        const std::vector<double> x = scaled_({{pattern}})[0][0];
        std::vector<double> evidence;
        for (std::size_t c = 0; c < categories.size(); ++c)
        {
            if (categories[c].empty())
            {
                evidence.push_back(-infinity);
                continue;
            }
            double sum = 0.0;
            long count = 0;
            for (const std::vector<std::size_t>& set : sets_)
            {
                std::vector<std::size_t> places;
                for (const std::size_t j : used)
                    if (std::count(set.begin(), set.end(), j))
                        places.push_back(j);
                if (places.empty())
                    continue;
                ++count;
                sum += maxima_.count(set[0])
                           ? lnBinomialTail_(learned[c], pattern[set[0]], set[0])
                           : lnNormalTail_(categories, c, x, places, static_cast<double>(set.size()) + 2.0);
            }
            evidence.push_back((count == 1 ? sum : tkNMTail::lnChiSquared(-sum, count)) /
                                   static_cast<double>(used.size()) +
                               nearness_(categories, c, x, used));
        }
        return evidence;
    }

private:
    std::vector<Rows> scaled_(std::vector<Rows> categories) const
    {
        for (Rows& rows : categories)
            for (std::vector<double>& row : rows)
                for (std::size_t j = 0; j < row.size(); ++j)
                    row[j] = (row[j] - means_[j]) * units_[j];
        return categories;
    }

    /// The covariance within the categories, without the noise.
    static double within_(const std::vector<Rows>& categories, std::size_t i, std::size_t j)
    {
        double sum = 0.0;
        double degrees = 0.0;
        for (const Rows& rows : categories)
            if (!rows.empty())
            {
                sum += squaresOf(rows, i, j);
                degrees += static_cast<double>(rows.size()) - 1.0;
            }
        return sum / std::max(degrees, 1.0);
    }

    Rows covariance_(const std::vector<Rows>& categories, const std::vector<std::size_t>& places) const
    {
        Rows p;
        for (const std::size_t i : places)
        {
            p.emplace_back();
            for (const std::size_t j : places)
                p.back().push_back(within_(categories, i, j) + (i == j ? noise_[i] : 0.0));
        }
        return p;
    }

    double lnNormalTail_(const std::vector<Rows>& categories, std::size_t c, const std::vector<double>& x,
                         const std::vector<std::size_t>& places, double weight) const
    {
        Rows a = covariance_(categories, places);
        std::vector<double> u;
        for (std::size_t i = 0; i < places.size(); ++i)
        {
            u.push_back(x[places[i]] - meanOf(categories[c], places[i]));
            for (std::size_t j = 0; j < places.size(); ++j)
                a[i][j] = weight * a[i][j] + squaresOf(categories[c], places[i], places[j]);
        }
        const double n = static_cast<double>(categories[c].size());
        const double p = static_cast<double>(places.size());
        return tkNMTail::lnF(inverseProduct(a, u, u) * n / (n + 1.0) * (n + 2.0) / p, p, n + 2.0);
    }

    double lnBinomialTail_(const Rows& learned, double x, std::size_t j) const
    {
        const double maximum = maxima_.at(j);
        const double n = static_cast<double>(learned.size());
        const double mean = meanOf(learned, j) / maximum;
        const double variance = squaresOf(learned, j, j) / (maximum * maximum) / (n - 1.0);
        if (n < 2.0 || variance <= 1e-15 || mean * (1.0 - mean) / variance + 0.5 < 1.0)
            return 0.0;
        const long trials = static_cast<long>(mean * (1.0 - mean) / variance + 0.5);
        const double all = n * static_cast<double>(trials);
        const double p = (all * mean + 0.5) / (all + 1.0);
        const long k = static_cast<long>(std::floor(static_cast<double>(trials) * x / maximum + 0.5));
        double atLeast = 0.0;
        double atMost = 0.0;
        for (long m = 0; m <= trials; ++m)
        {
            const double probability =
                std::exp(std::lgamma(static_cast<double>(trials) + 1.0) - std::lgamma(static_cast<double>(m) + 1.0) -
                         std::lgamma(static_cast<double>(trials - m) + 1.0)) *
                std::pow(p, static_cast<double>(m)) * std::pow(1.0 - p, static_cast<double>(trials - m));
            atLeast += m >= k ? probability : 0.0;
            atMost += m <= k ? probability : 0.0;
        }
        return std::min(0.0, std::log(2.0 * std::min(atLeast, atMost)));
    }

    double nearness_(const std::vector<Rows>& categories, std::size_t c, const std::vector<double>& x,
                     const std::vector<std::size_t>& used) const
    {
        const Rows p = covariance_(categories, used);
        std::vector<double> squares;
        for (const std::vector<double>& row : categories[c])
        {
            std::vector<double> difference;
            for (const std::size_t j : used)
                difference.push_back(x[j] - row[j]);
            squares.push_back(inverseProduct(p, difference, difference));
        }
        std::sort(squares.begin(), squares.end());
        squares.resize(std::min<std::size_t>(squares.size(), 3));
        double sum = 0.0;
        for (const double square : squares)
            sum += square;
        return -0.5 * std::log(std::max(sum / static_cast<double>(squares.size()), 1e-12));
    }

    std::vector<std::vector<std::size_t>> sets_;
    std::map<std::size_t, double> maxima_;
    std::vector<double> means_;
    std::vector<double> units_;
    std::vector<double> noise_;
};

void expectNear(const std::vector<double>& expected, const std::vector<double>& evidence, const std::string& where)
{
    ASSERT_EQ(expected.size(), evidence.size());
    for (std::size_t c = 0; c < expected.size(); ++c)
        if (std::isinf(expected[c]))
            EXPECT_EQ(expected[c], evidence[c]) << where << " category " << c;
        else
            EXPECT_NEAR(expected[c], evidence[c], 1e-8 * (1.0 + std::abs(expected[c]))) << where << " category " << c;
}

/// Every pattern left out, and judged with it, by all measurements and by those in `used`, against the oracle.
void compare(const std::vector<Rows>& categories, const tkClassifierTrainParams& params, const Oracle& oracle,
             const std::vector<std::size_t>& used)
{
    const tk_NoveltyData data = dataOf(categories);
    const auto evidence = tk_NoveltyEvidence::make(data, params);
    const auto view = evidence->view(std::vector<long>(used.begin(), used.end()));
    std::vector<double> found(categories.size());
    std::size_t i = 0;
    for (std::size_t c = 0; c < categories.size(); ++c)
        for (std::size_t r = 0; r < categories[c].size(); ++r, ++i)
        {
            const std::string where = "pattern " + std::to_string(i);
            std::vector<Rows> without = categories;
            without[c].erase(without[c].begin() + static_cast<std::ptrdiff_t>(r));
            view->fillLeftOut(i, found.data());
            expectNear(oracle.evidence(without, categories[c][r], used), found, where + " left out,");
            std::vector<double> moved = categories[c][r];
            moved[used.front()] += 0.75;
            view->fill(moved.data(), found.data());
            expectNear(oracle.evidence(categories, moved, used), found, where + " moved,");
        }
}

/// Patterns of four measurements that depend on one another.
std::vector<Rows> someCategories(const std::vector<std::size_t>& counts)
{
    tkRandomUniform uniform(3);
    std::vector<Rows> categories;
    for (std::size_t c = 0; c < counts.size(); ++c)
    {
        categories.emplace_back();
        for (std::size_t i = 0; i < counts[c]; ++i)
        {
            const double a = uniform.next(-1.0, 1.0);
            const double b = uniform.next(-1.0, 1.0);
            const double shift = static_cast<double>(c);
            categories.back().push_back(
                {100.0 * (a + shift), a + 0.3 * b, b - shift + 7.0, 0.01 * (a - b) + 0.02 * uniform.next(-1.0, 1.0)});
        }
    }
    return categories;
}

tkClassifierTrainParamsBayesian paramsOf(const std::vector<std::vector<std::size_t>>& sets, long numCategories)
{
    Types types(Types::eNormal);
    for (long label = 0; label < numCategories; ++label)
        for (const std::vector<std::size_t>& set : sets)
            types.setDependent(label, std::vector<long>(set.begin(), set.end()));
    return tkClassifierTrainParamsBayesian(types);
}
} // namespace

TEST(tk_NoveltyEvidence, bayesianIsThatOfPlainLearningWithoutThePattern)
{
    const std::vector<Rows> categories = someCategories({12, 7, 20});
    for (const std::vector<std::vector<std::size_t>>& sets : std::vector<std::vector<std::vector<std::size_t>>>{
             {{0, 1, 2, 3}}, {{0, 2}, {1, 3}}, {{3, 0}, {1}, {2}}, {{0}, {1}, {2}, {3}}})
        for (const std::vector<std::size_t>& used :
             std::vector<std::vector<std::size_t>>{{0, 1, 2, 3}, {1, 3}, {0, 1, 2}, {2}})
            compare(categories, paramsOf(sets, 3), Oracle(categories, sets), used);
}

TEST(tk_NoveltyEvidence, categoriesOfFewerPatternsThanMeasurementsAreLearned)
{
    const std::vector<Rows> categories = someCategories({1, 2, 3, 4, 5});
    compare(categories, paramsOf({{0, 1, 2, 3}}, 5), Oracle(categories, {{0, 1, 2, 3}}), {0, 1, 2, 3});
    const std::vector<Rows> one = someCategories({6});
    compare(one, paramsOf({{0, 1, 2, 3}}, 1), Oracle(one, {{0, 1, 2, 3}}), {0, 1, 2, 3});
    const std::vector<Rows> singles = someCategories({1, 1, 1});
    compare(singles, paramsOf({{0, 1, 2, 3}}, 3), Oracle(singles, {{0, 1, 2, 3}}), {0, 1, 2, 3});
}

TEST(tk_NoveltyEvidence, measurementsConstantInEachCategoryAreLearned)
{
    std::vector<Rows> categories = someCategories({6, 6});
    for (std::size_t c = 0; c < 2; ++c)
        for (std::vector<double>& row : categories[c])
            row[1] = static_cast<double>(c);
    compare(categories, paramsOf({{0, 1, 2, 3}}, 2), Oracle(categories, {{0, 1, 2, 3}}), {0, 1, 2, 3});
}

TEST(tk_NoveltyEvidence, binomialTailsAreSumsOfProbabilities)
{
    tkRandomUniform uniform(8);
    std::vector<Rows> categories(2);
    for (std::size_t c = 0; c < 2; ++c)
        for (int i = 0; i < 15; ++i)
        {
            double successes = 0.0;
            for (int trial = 0; trial < 10; ++trial)
                successes += uniform.next(0.0, 1.0) < (c == 0 ? 0.3 : 0.7) ? 1.0 : 0.0;
            categories[c].push_back({uniform.next(-1.0, 1.0), successes});
        }
    categories.push_back({{0.0, 4.0}, {1.0, 4.0}, {2.0, 4.0}}); // no trials can be estimated
    Types types(Types::eNormal);
    for (const long label : {0L, 1L, 2L})
        types.distributionTypeOverride(label, 1, Types::eBinomial);
    const tkClassifierTrainParamsBayesian params(types, tkClassifierFrequencies(), tkClassifierCosts(),
                                                 tkFeaturePattern({0.0, 11.0}, {0}));
    compare(categories, params, Oracle(categories, {{0}, {1}}, {{1, 11.0}}), {0, 1});
    compare(categories, params, Oracle(categories, {{0}, {1}}, {{1, 11.0}}), {1});
}

TEST(tk_NoveltyEvidence, binomialValuesBeyondAllTrialsAreImpossible)
{
    const tk_NoveltyData data = dataOf({{{1.0}, {4.0}, {6.0}, {5.0}, {3.0}}});
    Types types(Types::eBinomial);
    const tkClassifierTrainParamsBayesian params(types, tkClassifierFrequencies(), tkClassifierCosts(),
                                                 tkFeaturePattern({10.0}));
    const auto evidence = tk_NoveltyEvidence::make(data, params);
    const auto view = evidence->view({0});
    for (const double x : {-1e300, -5.0, 20.0, 1e300})
    {
        double found = 0.0;
        view->fill(&x, &found);
        EXPECT_EQ(-infinity, found) << x;
    }
}

TEST(tk_NoveltyEvidence, measurementThatIsTheSameEverywhereSaysNothing)
{
    std::vector<Rows> categories = someCategories({6, 6});
    for (Rows& rows : categories)
        for (std::vector<double>& row : rows)
            row[2] = 0.1;
    const tk_NoveltyData data = dataOf(categories);
    const auto evidence = tk_NoveltyEvidence::make(data, paramsOf({{0, 1, 2, 3}}, 2));
    std::vector<double> plain(2);
    std::vector<double> other(2);
    std::vector<double> x = categories[0][0];
    evidence->view({0, 1, 2, 3})->fill(x.data(), plain.data());
    x[2] = 1e9;
    evidence->view({0, 1, 2, 3})->fill(x.data(), other.data());
    EXPECT_EQ(plain, other);
    evidence->view({2})->fill(x.data(), other.data());
    EXPECT_EQ((std::vector<double>{0.0, 0.0}), other);
}

TEST(tk_NoveltyEvidence, farPatternsAndEqualOnesGiveNumbers)
{
    const tk_NoveltyData data = dataOf({{{1.0, 2.0}, {1.0, 2.0}, {1.0, 2.0}}, {{3.0, 2.5}, {3.0, 2.5}}});
    const auto evidence = tk_NoveltyEvidence::make(data, paramsOf({{0, 1}}, 2));
    const auto view = evidence->view({0, 1});
    std::vector<double> found(2);
    for (const std::vector<double>& x : Rows{{1e308, -1e308}, {1e100, 0.0}, {1.0, 2.0}})
    {
        view->fill(x.data(), found.data());
        for (const double each : found)
            EXPECT_TRUE(std::isfinite(each)) << x[0];
    }
    for (std::size_t i = 0; i < 5; ++i)
    {
        view->fillLeftOut(i, found.data());
        for (const double each : found)
            EXPECT_TRUE(std::isfinite(each)) << i;
    }
}

TEST(tk_NoveltyEvidence, neighboursGiveTheDistanceToTheKthOfTheCategory)
{
    const std::vector<Rows> categories = {{{0.0, 0.0}, {1.0, 0.0}, {3.0, 0.0}}, {{10.0, 0.0}}};
    const tk_NoveltyData data = dataOf(categories);
    const tkClassifierTrainParamsKNN params(2);
    const auto evidence = tk_NoveltyEvidence::make(data, params);
    const auto view = evidence->view({0, 1});
    const std::vector<double> x = {0.0, 4.0};
    std::vector<double> found(2);
    view->fill(x.data(), found.data());
    EXPECT_EQ((std::vector<double>{-std::sqrt(17.0), -std::sqrt(116.0)}), found);
    view->fillLeftOut(0, found.data());
    EXPECT_EQ((std::vector<double>{-3.0, -10.0}), found);
    view->fillLeftOut(3, found.data());
    EXPECT_EQ((std::vector<double>{-9.0, -infinity}), found);
    evidence->view({1})->fill(x.data(), found.data());
    EXPECT_EQ((std::vector<double>{-4.0, -4.0}), found);
}

TEST(tk_NoveltyEvidence, neighboursUseTheMetricAndTakeNaNForFar)
{
    class Metric : public tkPatternDistanceMetric
    {
    public:
        double distance(const tkFeaturePattern& query, const tkFeaturePattern& stored) const override
        {
            const double difference = stored.featureMeasurement(0, true) - query.featureMeasurement(0, true);
            return difference > 0.0 ? difference : std::numeric_limits<double>::quiet_NaN();
        }
        tkPtrHandle<tkPatternDistanceMetric> clone() const override
        {
            return tkPtrHandle<tkPatternDistanceMetric>(new Metric);
        }
    };
    const tk_NoveltyData data = dataOf({{{1.0}, {2.0}, {5.0}}});
    const tkClassifierTrainParamsKNN params(2, Metric(), tkClassifierCosts());
    const auto evidence = tk_NoveltyEvidence::make(data, params);
    const auto view = evidence->view({0});
    double found = 0.0;
    const double x = 0.0;
    view->fill(&x, &found);
    EXPECT_EQ(-2.0, found);
    view->fillLeftOut(1, &found);
    EXPECT_EQ(-infinity, found);
}
