#include "tests/definition/definition.h"

#include "numerics/tkNMElementary.h"
#include "tests/definition/neighbours.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <stdexcept>

namespace definition
{
Result result(const Result& matchResults, const tkClassifierFrequencies& frequencies, const tkClassifierCosts& costs)
{
    for (std::size_t i = 0; i < matchResults.size(); ++i)
        for (std::size_t j = i + 1; j < matchResults.size(); ++j)
            if (matchResults[i].label == matchResults[j].label)
                throw std::invalid_argument("The category labels of the match results must be unique.");
    std::vector<double> priors;
    double priorSum = 0.0;
    for (const CategoryResult& category : matchResults)
    {
        priors.push_back(frequencies.categoryFrequency(category.label));
        priorSum += priors.back();
    }
    std::vector<double> joint;
    double jointSum = 0.0;
    for (std::size_t i = 0; i < matchResults.size(); ++i)
    {
        joint.push_back(matchResults[i].matchScore * priors[i] / priorSum);
        jointSum += joint.back();
    }
    Result ranked;
    for (std::size_t i = 0; i < matchResults.size(); ++i)
    {
        double cost = 0.0;
        for (std::size_t j = 0; j < matchResults.size(); ++j)
            if (j != i)
                cost += costs.misclassificationCost(matchResults[j].label, matchResults[i].label) * joint[j];
        ranked.push_back({matchResults[i].label, matchResults[i].matchScore, joint[i] / jointSum, cost / jointSum});
    }
    std::sort(ranked.begin(), ranked.end(),
              [](const CategoryResult& a, const CategoryResult& b) { return a.expectedCost < b.expectedCost; });
    return ranked;
}

bool agrees(const Result& result, const tkClassifierResult& libraryResult)
{
    Result sorted = result;
    std::sort(sorted.begin(), sorted.end(),
              [](const CategoryResult& a, const CategoryResult& b)
              { return a.expectedCost != b.expectedCost ? a.expectedCost < b.expectedCost : a.label < b.label; });
    const std::vector<tkClassifierCategoryResult>& categories = libraryResult.categoryResults();
    return std::equal(sorted.begin(), sorted.end(), categories.begin(), categories.end(),
                      [](const CategoryResult& a, const tkClassifierCategoryResult& b)
                      {
                          return a.label == b.categoryLabel() && a.matchScore == b.matchScore() &&
                                 a.classScore == b.classScore() && a.expectedCost == b.expectedCost();
                      });
}

double NormMetric::distance(const tkFeaturePattern& a, const tkFeaturePattern& b) const
{
    if (a.numMeasurements() != b.numMeasurements())
        throw std::invalid_argument("The patterns differ in length");
    const std::vector<double>& x = a.featureMeasurements(true);
    const std::vector<double>& y = b.featureMeasurements(true);
    double sum = 0.0;
    for (std::size_t i = 0; i < x.size(); ++i)
        sum += std::pow(std::fabs(x[i] - y[i]), order_);
    return std::pow(sum, 1.0 / order_);
}

std::vector<long> nearest(tkClassifierDataProviderMemory& provider, const Metric& metric, long k,
                          const tkFeaturePattern& query)
{
    NeighbourList list(k);
    for (long i = 0; i < provider.numPatterns(); ++i)
    {
        const PatternHandle pattern = provider.featurePattern(i);
        list.offer(i, metric.distance(query, *pattern));
    }
    return list.indices();
}

Result classifyByNeighbours(tkClassifierDataProviderMemory& provider, const Metric& metric, long k,
                            const tkFeaturePattern& query)
{
    const std::vector<long> indices = nearest(provider, metric, k, query);
    std::map<long, long> votes;
    for (const long index : indices)
        ++votes[provider.categoryLabel(index)];
    Result matchResults;
    for (const auto& [label, count] : votes)
        matchResults.push_back({label, static_cast<double>(count) / static_cast<double>(indices.size()), 0.0, 0.0});
    return result(matchResults, tkClassifierFrequencies(1.0), tkClassifierCosts(1.0));
}

int reports = 0;

double oneSidedScore(double x0, double x1, double xc, double y0, double y1, double v)
{
    if ((x0 < x1 && xc < x1) || (x0 > x1 && xc > x1))
        throw Failure{L"x1 must lie between x0 and xc"};
    if (x0 <= x1 && x1 <= xc)
    {
        if (v > xc)
            return 0.0;
        if (v >= x1)
            return y1;
        if (v <= x0)
            return y0;
        return (x1 * y0 - x0 * y1 - v * (y0 - y1)) / (x1 - x0);
    }
    if (xc <= x1 && x1 <= x0)
    {
        if (v < xc)
            return 0.0;
        if (v <= x1)
            return y1;
        if (v >= x0)
            return y0;
        return (x1 * y0 - x0 * y1 - v * (y0 - y1)) / (x1 - x0);
    }
    ++reports;
    return 0.0;
}

double oneSidedScore(const tkClassifierFeatureScoreOneSided& f, double v)
{
    return oneSidedScore(f.x0(), f.x1(), f.xc(), f.y0(), f.y1(), v);
}

double twoSidedScore(const tkClassifierFeatureScoreTwoSided& f, double v)
{
    if ((f.x1() > f.x0() && f.x1() > f.xc()) || (f.x1() < f.x0() && f.x1() < f.xc()))
        throw Failure{L"x1 must lie between x0 and xc"};
    if ((f.x1h() > f.x0h() && f.x1h() > f.xch()) || (f.x1h() < f.x0h() && f.x1h() < f.xch()))
        throw Failure{L"x1 must lie between x0 and xc"};
    const double lowest = f.x0h() > f.xch() ? f.xch() : f.x0h();
    if (f.x1h() < lowest)
    {
        ++reports;
        return 0.0;
    }
    if (f.x0() > lowest || f.x1() > lowest || f.xc() > lowest)
        throw Failure{L"Bad x values"};
    return v >= lowest ? oneSidedScore(f.High(), v) : oneSidedScore(f.Low(), v);
}

double TwoSidedScore::score(double value) const
{
    return twoSidedScore(parameters_, value);
}

double ruleScore(const tkClassifierRule& rule, const std::vector<double>& values)
{
    if (values.size() != rule.scoringMethods().size())
        throw Failure{L"MismatchedFeatureVectorSize"};
    double product = 1.0;
    double used = 0.0;
    for (std::size_t i = 0; i < values.size(); ++i)
    {
        const tkClsFtSc& function = *rule.scoringMethods()[i];
        const auto* const two = dynamic_cast<const tkClassifierFeatureScoreTwoSided*>(&function);
        const auto* const one = dynamic_cast<const tkClassifierFeatureScoreOneSided*>(&function);
        const double s = two   ? twoSidedScore(*two, values[i])
                         : one ? oneSidedScore(*one, values[i])
                               : function.score(values[i]);
        if (s == -1.0 || std::isnan(s))
            continue;
        product = product * s;
        used = used + 1.0;
    }
    return product > 0.0 ? tkNMElementary::pow(product, 1.0 / used) : product;
}

long classifyByRules(const std::vector<tkClassifierRule>& rules, const std::vector<double>& values, double threshold)
{
    for (const tkClassifierRule& rule : rules)
        if (ruleScore(rule, values) > threshold)
            return rule.label();
    return -1;
}

double Rule::score(const std::vector<double>& values) const
{
    if (values.size() != scores.size())
        throw std::invalid_argument("MismatchedFeatureVectorSize");
    double product = 1.0;
    double used = 0.0;
    for (std::size_t i = 0; i < scores.size(); ++i)
    {
        const tkPtrHandle<Score> function = scores[i];
        const double s = function->score(values[i]);
        if (s == -1.0 || std::isnan(s))
            continue;
        product = product * s;
        used = used + 1.0;
    }
    return product > 0.0 ? std::pow(product, 1.0 / used) : product;
}

long classifyByRules(const std::vector<Rule>& rules, const std::vector<double>& values, double threshold)
{
    for (const Rule& rule : rules)
        if (rule.score(values) > threshold)
            return rule.label;
    return -1;
}

void NormalDensity::add(const tkFeaturePattern& pattern)
{
    const std::vector<double> x = pattern.featureMeasurements(true);
    const std::size_t n = x.size();
    if (count_ == 0.0)
    {
        mean_.assign(n, 0.0);
        products_.assign(n * n, 0.0);
    }
    count_ += 1.0;
    std::vector<double> before(n);
    for (std::size_t i = 0; i < n; ++i)
    {
        before[i] = x[i] - mean_[i];
        mean_[i] += before[i] / count_;
    }
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = 0; j < n; ++j)
            products_[i * n + j] += before[i] * (x[j] - mean_[j]);
}

double NormalDensity::logValue(const tkFeaturePattern& pattern) const
{
    const std::vector<double> x = pattern.featureMeasurements(true);
    const std::size_t n = x.size();
    std::vector<double> factor(n * n, 0.0); // Cholesky's, lower triangle
    std::vector<double> z(n);               // factor * z = x - mean
    double logValue = 0.0;
    for (std::size_t i = 0; i < n; ++i)
    {
        for (std::size_t j = 0; j <= i; ++j)
        {
            double sum = products_[i * n + j] / (count_ - 1.0);
            for (std::size_t k = 0; k < j; ++k)
                sum -= factor[i * n + k] * factor[j * n + k];
            factor[i * n + j] = i == j ? std::sqrt(sum) : sum / factor[j * n + j];
        }
        double sum = x[i] - mean_[i];
        for (std::size_t k = 0; k < i; ++k)
            sum -= factor[i * n + k] * z[k];
        z[i] = sum / factor[i * n + i];
        logValue -= 0.5 * (std::log(2.0 * std::acos(-1.0)) + z[i] * z[i]) + std::log(factor[i * n + i]);
    }
    return logValue;
}

namespace
{
PatternHandle restricted(const tkFeaturePattern& pattern, const std::vector<long>& set)
{
    std::vector<double> measurements;
    std::vector<long> invalid;
    for (const long index : set)
    {
        if (!pattern.isValid(index))
            invalid.push_back(static_cast<long>(measurements.size()));
        measurements.push_back(pattern.featureMeasurement(index, false));
    }
    return PatternHandle(new tkFeaturePattern(measurements, invalid));
}
} // namespace

std::vector<Category> trainNormals(tkClassifierDataProviderMemory& provider, const std::vector<std::vector<long>>& sets)
{
    std::vector<Category> categories;
    for (long i = 0; i < provider.numPatterns(); ++i)
    {
        const PatternHandle pattern = provider.featurePattern(i);
        const long label = provider.categoryLabel(i);
        auto category =
            std::find_if(categories.begin(), categories.end(), [label](const Category& c) { return c.label == label; });
        if (category == categories.end())
        {
            categories.push_back({label, sets, {}});
            category = categories.end() - 1;
            for (std::size_t s = 0; s < sets.size(); ++s)
                category->densities.emplace_back(new NormalDensity);
        }
        for (std::size_t s = 0; s < sets.size(); ++s)
            category->densities[s]->add(*restricted(*pattern, category->sets[s]));
    }
    return categories;
}

Result classifyByNormals(const std::vector<Category>& categories, const tkFeaturePattern& pattern)
{
    std::vector<double> scores;
    for (const Category& category : categories)
    {
        double score = 0.0;
        for (std::size_t s = 0; s < category.sets.size(); ++s)
            score += category.densities[s]->logValue(*restricted(pattern, category.sets[s]));
        scores.push_back(score);
    }
    const double best = *std::max_element(scores.begin(), scores.end());
    Result matchResults;
    for (std::size_t i = 0; i < scores.size(); ++i)
        matchResults.push_back({categories[i].label, std::exp(scores[i] - best), 0.0, 0.0});
    return result(matchResults, tkClassifierFrequencies(1.0), tkClassifierCosts(1.0));
}

bool nearlyAgrees(const Result& result, const tkClassifierResult& libraryResult)
{
    const std::vector<tkClassifierCategoryResult>& categories = libraryResult.categoryResults();
    const auto near = [](double a, double b) { return std::fabs(a - b) <= 1e-8; };
    if (result.size() != categories.size() || result.front().label != categories.front().categoryLabel())
        return false;
    return std::all_of(result.begin(), result.end(),
                       [&](const CategoryResult& a)
                       {
                           return std::any_of(categories.begin(), categories.end(),
                                              [&](const tkClassifierCategoryResult& b)
                                              {
                                                  return a.label == b.categoryLabel() &&
                                                         near(a.matchScore, b.matchScore()) &&
                                                         near(a.classScore, b.classScore()) &&
                                                         near(a.expectedCost, b.expectedCost());
                                              });
                       });
}

bool RangePredicate::outcome(const tkFeaturePattern& pattern) const
{
    for (const long index : indices_)
    {
        if (!pattern.isValid(index))
            return false;
        const double value = pattern.featureMeasurement(index, true);
        if (!(value >= low_ && value <= high_))
            return false;
    }
    return true;
}

Result classifyByTree(tkPtrHandle_const<Tree> tree, const tkFeaturePattern& pattern)
{
    if (const auto* leaf = dynamic_cast<const Leaf*>(tree.get()))
        return leaf->result();
    const auto& node = dynamic_cast<const Node&>(*tree);
    return classifyByTree(node.predicate()->outcome(pattern) ? node.trueTree() : node.falseTree(), pattern);
}
} // namespace definition
