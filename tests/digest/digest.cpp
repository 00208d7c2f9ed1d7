// digest [EXPECTED]: computes one hash of everything that the library computes about a subject, by every instruction
// set of the machine, and prints them. With a file of expected hashes, it fails if one differs: results have the same
// bits with every compiler, optimisation level, instruction set and platform.
// digest --store FILE: trains every method on the digest's data and stores the tools in one archive.
// digest --load FILE: loads such an archive, which another platform may have stored, and fails unless its tools are
// those that are trained here.

#include "clss/clastool/bayes/tk_CategoryModelBayesian.h"
#include "clss/clastool/bayes/tk_ClassifierBayesian.h"
#include "clss/clastool/bayes/tk_ProbabilityDensityFunction.h"
#include "clss/clastool/clastool.h"
#include "clss/clastool/clastool/tk_DataGenerator.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkRandom.h"
#include "instructionSets.h"
#include "numerics/kernels/tkNMElementaryKernel.h"
#include "numerics/kernels/tkNMNormalBatch.h"
#include "numerics/tkNMDecision.h"
#include "numerics/tkNMElementary.h"
#include "numerics/tkNMNeighborSearch.h"
#include "numerics/tkNMNormal.h"
#include "numerics/tkNMStatistics.h"

#include <cstdint>
#include <cstring>
#include <fstream>
#include <functional>
#include <iostream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace
{
/// Fowler, Noll and Vo's hash (FNV-1a) of 64 bits, over bytes, and over doubles by their 64-bit patterns.
class Hash
{
public:
    void add(const std::string& bytes)
    {
        for (const char c : bytes)
            value_ = (value_ ^ static_cast<unsigned char>(c)) * 0x100000001b3u;
    }

    void add(std::uint64_t bits)
    {
        for (int i = 0; i < 8; ++i, bits >>= 8)
            value_ = (value_ ^ (bits & 0xff)) * 0x100000001b3u;
    }

    void add(double value)
    {
        std::uint64_t bits = 0;
        std::memcpy(&bits, &value, sizeof bits);
        add(bits);
    }

    void add(const std::vector<double>& values)
    {
        for (const double value : values)
            add(value);
    }

    std::string text() const
    {
        std::ostringstream stream;
        stream.fill('0');
        stream.width(16);
        stream << std::hex << value_;
        return stream.str();
    }

private:
    std::uint64_t value_ = 0xcbf29ce484222325u;
};

// ---- Data -----------------------------------------------------------------------------------------------------------

using Measurements = std::vector<std::vector<double>>;

/// Numbers from exact operations alone, so that the data do not depend on what is hashed.
class Numbers
{
public:
    explicit Numbers(std::uint64_t seed) : generator_(seed) {}

    /// A multiple of 2^-53 in [0, 1).
    double next() { return static_cast<double>(generator_() >> 11) * 0x1p-53; }
    /// About normal: a sum of four, less its mean.
    double bell() { return ((next() + next()) + (next() + next())) - 2.0; }
    std::uint64_t bits() { return generator_(); }

private:
    std::mt19937_64 generator_;
};

constexpr long numMeasurements = 6;
constexpr long numCategories = 5;

/// A row about the centre of its category, whose second and third measurement depend on one another, and the last but
/// one does not vary in one category.
std::vector<double> row(Numbers& numbers, long category)
{
    std::vector<double> x;
    for (long j = 0; j < numMeasurements; ++j)
        x.push_back(numbers.bell() * static_cast<double>(1 + j * j) + static_cast<double>(category * (j + 1) % 4));
    x[2] += 0.75 * x[1];
    if (category == 2)
        x[4] = 8.5;
    return x;
}

Measurements queries()
{
    Numbers numbers(2);
    Measurements rows;
    for (long i = 0; i < 400; ++i)
        rows.push_back(row(numbers, i % numCategories));
    return rows;
}

tkClassifierDataProviderMemory data()
{
    Numbers numbers(1);
    tkClassifierDataProviderMemory provider;
    for (long i = 0; i < 900; ++i)
        provider.addData(row(numbers, i % numCategories), i % numCategories);
    return provider;
}

tkClassifierCosts costs()
{
    tkClassifierCosts costs(1.0);
    costs.misclassificationCostOverride(0, 3, 2.5);
    costs.misclassificationCostOverride(4, 1, 0.125);
    return costs;
}

tkClassifierTool bayesianTool(bool areJoint)
{
    tkClassifierDistributionTypes types(tkClassifierDistributionTypes::eNormal);
    for (long category = 0; areJoint && category < numCategories; ++category)
        types.setDependent(category, {1, 2, 3, 4});
    tkClassifierFrequencies frequencies(1.0);
    frequencies.categoryFrequencyOverride(2, 0.3);
    tkClassifierTool tool;
    tool.train(data(), tkClassifierTrainParamsBayesian(types, frequencies, costs()));
    return tool;
}

/// One measurement, which counts successes.
tkClassifierTool binomialTool()
{
    Numbers numbers(3);
    tkClassifierDataProviderMemory provider;
    for (long i = 0; i < 300; ++i)
    {
        double successes = 0.0;
        for (int trial = 0; trial < 12; ++trial)
            successes += numbers.next() < (i % 2 == 0 ? 0.3 : 0.6) ? 1.0 : 0.0;
        provider.addData(std::vector<double>{successes}, i % 2);
    }
    tkClassifierTrainParamsBayesian params{tkClassifierDistributionTypes(tkClassifierDistributionTypes::eBinomial)};
    params.maxMeasurementValues(tkFeaturePattern({16.0}));
    tkClassifierTool tool;
    tool.train(provider, params);
    return tool;
}

tkClassifierTool neighborTool(double order)
{
    tkClassifierTool tool;
    tool.train(data(), tkClassifierTrainParamsKNN(7, tkPatternDistanceMetricNorm(order), costs()));
    return tool;
}

tkClassifierTool treeTool()
{
    const tkDecisionTreeLeaf one(tkClassifierResult({{1, 0.25, 0.5, 0.125}, {3, 1.0, 0.5, 0.0}}, -2.0));
    const tkDecisionTreeLeaf other(tkClassifierResult({{0, 0.0, 1.0, 0.0}}, 0.0));
    const tkDecisionTreeNode below(tkComparisonPredicate(0, 5), one, tkDecisionTreeLeaf());
    const tkDecisionTreeNode root(tkRangePredicate(tkRange(0.0, 2.0), {1, 3}), below, other);
    tkClassifierTool tool;
    tool.train(root);
    return tool;
}

std::vector<std::pair<std::string, tkClassifierTool>> tools()
{
    return {{"independent", bayesianTool(false)},
            {"joint", bayesianTool(true)},
            {"binomial", binomialTool()},
            {"neighbors, order 1", neighborTool(1.0)},
            {"neighbors, order 1.5", neighborTool(1.5)},
            {"neighbors, order 2", neighborTool(2.0)},
            {"neighbors, order 3", neighborTool(3.0)},
            {"tree", treeTool()}};
}

/// What the tool is run with: for the binomial one counts, for Bayesian classifiers also patterns of which some
/// measurements are invalid.
std::vector<tkFeaturePattern> patternsFor(const std::string& tool)
{
    std::vector<tkFeaturePattern> patterns;
    if (tool == "binomial")
        for (int count = 0; count <= 16; ++count)
            patterns.emplace_back(std::vector<double>{static_cast<double>(count)});
    else
        for (const std::vector<double>& query : queries())
        {
            patterns.emplace_back(query);
            if (tool == "joint" || tool == "independent")
            {
                patterns.emplace_back(query, std::vector<long>{static_cast<long>(patterns.size()) / 2 % 6});
                patterns.emplace_back(query, std::vector<long>{1, 4});
            }
        }
    return patterns;
}

template <class T>
std::string stored(T object)
{
    std::ostringstream stream;
    {
        tkArchive archive(stream);
        archive || object;
    }
    return stream.str();
}

// ---- Subjects -------------------------------------------------------------------------------------------------------

/// Throws if what was stored, loaded and stored again has other bytes.
void archives(Hash& hash)
{
    for (const auto& [name, tool] : tools())
    {
        const std::string bytes = stored(tool);
        std::istringstream stream(bytes);
        tkArchive archive(stream);
        tkClassifierTool loaded;
        archive || loaded;
        if (!(loaded == tool) || stored(loaded) != bytes)
            throw std::runtime_error(name + " comes back changed");
        hash.add(bytes);
    }
}

/// Match scores, class scores, and costs, of each tool as it comes out of an archive.
void results(Hash& matchScores, Hash& classScores)
{
    for (const auto& [name, tool] : tools())
    {
        std::istringstream stream(stored(tool));
        tkArchive archive(stream);
        tkClassifierTool loaded;
        archive || loaded;
        if (name != "tree")
            loaded.retrain(*loaded.trainParams()); // nearest neighbours forget their parameters when they are loaded
        for (const tkFeaturePattern& pattern : patternsFor(name))
        {
            const tkClassifierResult result = loaded.run(pattern);
            matchScores.add(result.matchScoreFactorLog());
            for (const tkClassifierCategoryResult& each : result.categoryResults())
            {
                matchScores.add(static_cast<std::uint64_t>(each.categoryLabel()));
                matchScores.add(each.matchScore());
                classScores.add(static_cast<std::uint64_t>(each.categoryLabel()));
                classScores.add(each.classScore());
                classScores.add(each.expectedCost());
            }
        }
    }
}

/// Means, compensations and sums of cross products, learned by one instruction set.
void statistics(Hash& hash, tkNMInstructions set)
{
    Numbers numbers(4);
    for (const std::size_t d : {1u, 2u, 6u, 13u, 40u})
    {
        tkNMStatistics learned(d);
        std::vector<double> x(d);
        for (int i = 0; i < 200; ++i)
        {
            for (std::size_t j = 0; j < d; ++j)
                x[j] = numbers.bell() + (j > 0 ? 0.5 * x[j - 1] : 0.0);
            learned.add(x.data(), set);
        }
        hash.add(learned.mean);
        hash.add(learned.compensation);
        for (std::size_t i = 0; i < d; ++i)
            for (std::size_t j = 0; j <= i; ++j)
                hash.add(learned.crossProducts(i, j));
    }
}

/// Log densities, each by itself and in sums for several categories, and of the marginals with every third measurement
/// left out. Half of the distributions have learned fewer patterns than they have measurements.
void logDensities(Hash& hash, tkNMInstructions set)
{
    Numbers numbers(5);
    for (const std::size_t d : {1u, 2u, 6u, 13u, 40u})
        for (const std::size_t count : {d / 2 + 2, 3 * d + 5})
        {
            std::vector<tkNMNormal> normals(9);
            std::vector<tkNMNormalBatch::Category> categories;
            std::vector<double> x(d);
            for (tkNMNormal& normal : normals)
            {
                for (std::size_t i = 0; i < count; ++i)
                {
                    for (std::size_t j = 0; j < d; ++j)
                        x[j] = numbers.bell() + (j > 0 ? 0.5 * x[j - 1] : 0.0);
                    normal.add(x.data(), static_cast<long>(d));
                }
                categories.push_back({categories.size(), {{0, &normal.factorisation()}}});
            }
            const tkNMNormalBatch batch(categories, set);
            const std::unique_ptr<bool[]> valid(new bool[d]);
            for (std::size_t j = 0; j < d; ++j)
                valid[j] = j % 3 != 1;
            for (int query = 0; query < 10; ++query)
            {
                for (double& measurement : x)
                    measurement = 2.0 * numbers.bell();
                std::vector<double> sums(normals.size());
                batch.addLogDensities(x.data(), sums.data());
                hash.add(sums);
                for (const tkNMNormal& normal : normals)
                {
                    double log = 0.0;
                    normal.logDensity(x.data(), static_cast<long>(d), log, set);
                    hash.add(log);
                    normal.logMarginal(x.data(), valid.get(), static_cast<long>(d), log);
                    hash.add(log);
                }
            }
        }
}

class Table : public tkNMNeighborSearch::Rows
{
public:
    explicit Table(Measurements rows) : rows_(std::move(rows)) {}

    void fetch(const long* indices, long count, const double** rows) const override
    {
        for (long i = 0; i < count; ++i)
            rows[i] = rows_[static_cast<std::size_t>(indices[i])].data();
    }

private:
    Measurements rows_;
};

void neighborLists(Hash& hash, tkNMInstructions set)
{
    Numbers numbers(6);
    for (const long columns : {2L, 6L, 33L})
        for (const long numRows : {40L, 3000L})
        {
            Measurements rows(static_cast<std::size_t>(numRows));
            for (std::vector<double>& each : rows)
                for (long j = 0; j < columns; ++j)
                    each.push_back(numbers.bell());
            const Table table(rows);
            tkNMNeighborSearch search;
            search.update(table, numRows, columns);
            std::vector<double> query(static_cast<std::size_t>(columns));
            for (const double order : {1.0, 1.5, 2.0, 3.0, 7.25})
                for (const long k : {1L, 5L, 25L})
                {
                    for (double& measurement : query)
                        measurement = numbers.bell();
                    std::vector<long> indices(static_cast<std::size_t>(k));
                    std::vector<double> distances(static_cast<std::size_t>(2 * k));
                    const long found =
                        search.nearest(table, query.data(), order, k, indices.data(), distances.data(), set);
                    for (std::size_t i = 0; i < static_cast<std::size_t>(found); ++i)
                    {
                        hash.add(static_cast<std::uint64_t>(indices[i]));
                        hash.add(distances[i]);
                    }
                }
        }
}

void decisions(Hash& hash, tkNMInstructions set)
{
    Numbers numbers(7);
    for (const std::size_t n : {1u, 2u, 5u, 8u, 31u, 100u})
    {
        const std::size_t room = tkNMDecision::roundUp(n);
        std::vector<double> scores(room);
        std::vector<double> weights(room);
        std::vector<double> risks(room);
        double weightSum = 0.0;
        for (std::size_t i = 0; i < n; ++i)
        {
            scores[i] = numbers.next();
            weightSum += weights[i] = 0.5 + numbers.next();
        }
        std::vector<tkNMDecision::CostOverride> overrides;
        for (std::size_t j = 1; j < n; j += 8)
            overrides.push_back({j - 1, j, 3.0 * numbers.next()});
        hash.add(tkNMDecision::compute(scores.data(), weights.data(), weightSum, risks.data(), n, 1.0, overrides.data(),
                                       overrides.size(), set));
        for (std::size_t i = 0; i < n; ++i)
        {
            hash.add(weights[i]);
            hash.add(risks[i]);
        }
    }
}

void ruleScores(Hash& hash)
{
    Numbers numbers(8);
    std::vector<tkClassifierRule> rules;
    for (long label = 0; label < 12; ++label)
    {
        std::vector<tkPtrHandle<tkClsFtSc>> functions;
        for (long j = 0; j < numMeasurements; ++j)
        {
            const double centre = 2.0 * numbers.bell();
            tkClassifierFeatureScoreTwoSided twoSided;
            twoSided.init(centre, centre - 1.0, centre - 6.0, centre, centre + 1.5, centre + 7.0, 1.0, 0.1, 1.0, 0.2);
            tkClassifierFeatureScoreOneSided oneSided;
            oneSided.init(centre, centre + 3.0, centre + 9.0, 1.0, 0.3);
            functions.push_back(j == 3   ? tkClassifierFeatureScoreIgnore().clone()
                                : j == 1 ? oneSided.clone()
                                         : twoSided.clone());
        }
        tkClassifierRule rule;
        rule.init(functions, label);
        rules.push_back(rule);
    }
    tkClassifierRuleTable table;
    table.train(rules);
    hash.add(stored(table));
    for (const std::vector<double>& query : queries())
    {
        const tkClassifierFeatureVector vector(query);
        for (const tkClassifierRule& rule : rules)
            hash.add(rule.score(vector));
        hash.add(static_cast<std::uint64_t>(table.classifyHardThreshold(vector, 0.4)));
    }
}

void generatedData(Hash& hash)
{
    tkRandomUniform uniform(11);
    tkRandomGaussian gaussian(12);
    for (int i = 0; i < 10000; ++i)
    {
        hash.add(uniform.next(-3.0, 7.5));
        hash.add(gaussian.next(2.0, 0.3));
    }
    const tk_ClassDataGenerator one({{0.0, 1.0}, {2.0, 3.0}, {-1.0, 0.1}}, 50);
    const tk_ClassDataGenerator other({{1.0, 2.0}, {2.0, 0.5}, {4.0, 0.2}}, 40);
    tk_TotalDataGenerator total({one, other});
    hash.add(stored(total.generateData()));
}

/// What is learned, chosen and said beyond the tools: scalers, pooled covariances, densities learned from gaps,
/// leave-one-out and cross-validation with their figures, reports.
void models(Hash& hash)
{
    Numbers numbers(10);
    tkClassifierDataProviderMemory whole;
    tkClassifierDataProviderMemory gappy;
    for (long i = 0; i < 200; ++i)
    {
        const std::vector<double> x = row(numbers, i % numCategories);
        std::vector<long> invalid;
        for (long j = 0; j < numMeasurements; ++j)
            if (numbers.next() < 0.125)
                invalid.push_back(j);
        whole.addData(x, i % numCategories);
        gappy.addData(tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern(x, invalid)), i % numCategories);
    }
    tkClassifierDistributionTypes types(tkClassifierDistributionTypes::eNormal);
    for (long category = 0; category < numCategories; ++category)
        types.setDependent(category, {1, 2, 3, 4});
    tkClassifierFrequencies frequencies(1.0);
    frequencies.categoryFrequencyOverride(2, 0.3);
    const tkClassifierTrainParamsBayesian joint(types, frequencies, costs());
    const tkClassifierTrainParamsKNN neighbors(7, tkPatternDistanceMetricNorm(1.5), costs());

    for (const auto method : {tkPatternScaler::eDeviation, tkPatternScaler::eQuartiles, tkPatternScaler::eRange})
        hash.add(stored(tkPatternScaler(gappy, method)));
    tkClassifierTool tool;
    tool.train(whole, tkCovariancePooling(joint));
    hash.add(stored(tool));
    hash.add(tkCovariancePooling::choose(whole, joint));
    tool.train(gappy, tkIncompleteTraining(joint, 200));
    hash.add(stored(tool));
    for (const tkAssessment& assessment :
         {tkAssessment::leaveOneOut(whole, joint), tkAssessment::leaveOneOut(whole, neighbors),
          tkAssessment::crossValidate(gappy, tkIncompleteTraining(joint, 200),
                                      tkAssessment::stratifiedFolds(gappy, 5))})
    {
        hash.add(stored(assessment));
        tkDecisionRule rule(joint);
        rule.refusalCost(0.2);
        hash.add(stored(rule));
        for (const long decision : assessment.decisions(rule))
            hash.add(static_cast<std::uint64_t>(decision));
        hash.add(assessment.logLoss(rule));
        hash.add(assessment.calibrationError(rule));
        hash.add(assessment.confusion(rule).expectedCost(rule));
        const tkRate accuracy = assessment.confusion(rule).accuracy();
        hash.add(accuracy.low);
        hash.add(accuracy.high);
        for (const tkAssessment::RefusalPoint& point : assessment.costAgainstRefusals(rule))
            hash.add(std::vector<double>{point.refusalCost, point.refused, point.cost});
    }
    hash.add(stored(tkTrainingReport(whole, joint)));
    hash.add(stored(tkTrainingReport(gappy, tkClassifierTrainParamsBayesian())));
    hash.add(stored(tkTrainingReport(whole, neighbors)));
}

/// 10^6 arguments of each function: most where results are usual, some of any bits.
void elementary(Hash& hash, tkNMInstructions set)
{
    Numbers numbers(9);
    const std::size_t count = 1000000;
    const auto arguments = [&](double scale)
    {
        std::vector<double> x(count);
        for (std::size_t i = 0; i < count; ++i)
        {
            x[i] = scale * numbers.bell();
            const std::uint64_t bits = numbers.bits();
            if (i % 16 == 0)
                std::memcpy(&x[i], &bits, sizeof bits);
        }
        return x;
    };
    std::vector<double> results(count);
    const auto compute = [&](const std::vector<double>& x, double (*plain)(double, double), double y,
                             const std::function<void()>& kernel)
    {
        if (set != tkNMInstructions::Definition)
            kernel();
        else
            for (std::size_t i = 0; i < count; ++i)
                results[i] = plain(x[i], y);
        hash.add(results);
    };
    std::vector<double> x = arguments(300.0);
    compute(
        x, [](double a, double) { return tkNMElementary::exp(a); }, 0.0,
        [&] { tkNMElementaryKernel::exp(x.data(), results.data(), count, set); });
    for (double& each : x = arguments(40.0))
        each = each < 0.0 ? -each : each;
    compute(
        x, [](double a, double) { return tkNMElementary::log(a); }, 0.0,
        [&] { tkNMElementaryKernel::log(x.data(), results.data(), count, set); });
    for (const double y : {1.0, 2.0, 3.0, 0.5, 1.5, 1.0 / 3.0, -7.25})
        compute(
            x, [](double a, double b) { return tkNMElementary::pow(a, b); }, y,
            [&] { tkNMElementaryKernel::pow(x.data(), y, results.data(), count, set); });
}

// ---------------------------------------------------------------------------------------------------------------------

/// The hash that all instruction sets of the machine give; throws if they differ.
std::string ofAllSets(const std::function<void(Hash&, tkNMInstructions)>& subject)
{
    std::string common;
    for (const tkNMInstructions set : instructionSets())
    {
        Hash hash;
        subject(hash, set);
        if (!common.empty() && common != hash.text())
        {
            std::ostringstream text;
            text << set << " gives " << hash.text() << " instead of " << common;
            throw std::runtime_error(text.str());
        }
        common = hash.text();
    }
    return common;
}

std::string digest()
{
    Hash archived, matches, scores, rules, generated, modelled;
    archives(archived);
    results(matches, scores);
    ruleScores(rules);
    generatedData(generated);
    models(modelled);
    std::ostringstream text;
    text << "archives " << archived.text() << '\n';
    text << "match_scores " << matches.text() << '\n';
    text << "class_scores_and_costs " << scores.text() << '\n';
    text << "rule_scores " << rules.text() << '\n';
    text << "generated_data " << generated.text() << '\n';
    text << "models " << modelled.text() << '\n';
    text << "statistics " << ofAllSets(statistics) << '\n';
    text << "log_densities " << ofAllSets(logDensities) << '\n';
    text << "neighbor_lists " << ofAllSets(neighborLists) << '\n';
    text << "decisions " << ofAllSets(decisions) << '\n';
    text << "exp_log_pow " << ofAllSets(elementary) << '\n';
    return text.str();
}

std::string contents(const std::string& name)
{
    std::ifstream file(name, std::ios::binary);
    if (!file)
        throw std::runtime_error(name + " cannot be read");
    return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

/// Whether it is the one expected, if one is.
bool printDigest(const std::vector<std::string>& expectedOrNone)
{
    const std::string actual = digest();
    std::cout << actual;
    if (expectedOrNone.empty())
        return true;
    const std::string expected = contents(expectedOrNone[0]);
    if (actual == expected)
        return true;
    std::cout << "expected:\n" << expected;
    return false;
}

void storeTools(const std::string& name)
{
    std::ofstream file(name, std::ios::binary);
    tkArchive archive(file);
    for (auto& [method, tool] : tools())
        archive || tool;
    file.close();
    if (!file)
        throw std::runtime_error(name + " cannot be written");
}

void loadTools(const std::string& name)
{
    std::istringstream stream(contents(name));
    tkArchive archive(stream);
    for (const auto& [method, tool] : tools())
    {
        tkClassifierTool loaded;
        archive || loaded;
        if (!(loaded == tool))
            throw std::runtime_error(method + " differs from what is trained here");
    }
    if (stream.peek() != std::istringstream::traits_type::eof())
        throw std::runtime_error(name + " goes on after the tools");
}
} // namespace

int main(int argc, char** argv)
{
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    try
    {
        if (arguments.size() == 2 && arguments[0] == "--store")
            storeTools(arguments[1]);
        else if (arguments.size() == 2 && arguments[0] == "--load")
            loadTools(arguments[1]);
        else
            return printDigest(arguments) ? 0 : 1;
        return 0;
    }
    catch (const std::exception& error)
    {
        std::cout << "failed: " << error.what() << '\n';
    }
    return 1;
}
