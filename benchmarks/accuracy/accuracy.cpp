// Cross-validates Bayesian classification with one full dependency set per category, and other methods.
//
// accuracy FREQUENCIES FOLDS DATA [METHOD [LIMIT]]: FREQUENCIES is "equal" or "shares" (of the training patterns),
// FOLDS a file with the number of the fold in which each pattern is tested, DATA a file with a pattern on each line:
// its measurements and its category, separated by commas. METHOD is "joint", as said above, if it is left out;
// "independent": without dependency sets; "halves": the first half of the measurements is one set and the second half
// another; "pooled": as "joint" with covariances pooled by an amount that leave-one-out chooses; "gaps": as "joint",
// but it learns also from patterns with missing measurements, which are "nan" in DATA; "neighbours": the 5 nearest
// ones, and "scaled": the same with measurements divided by their deviations, both without regard to FREQUENCIES. With
// LIMIT, only so many patterns of each category are learned, the first ones. Prints a line for each fold: the share of
// right decisions, and the mean of -ln of the class score of the right category, where a score below 2^-52 counts as
// 2^-52 (a category without training patterns has a score of 0). accuracy.py makes folds and data.

#include "clss/clastool/bayes/tkClassifierTrainParamsBayesian.h"
#include "clss/clastool/clastool/tkClassifierDataProvider.h"
#include "clss/clastool/clastool/tkClassifierResult.h"
#include "clss/clastool/clastool/tkClassifierTool.h"
#include "clss/clastool/clastool/tkClassifierTrainParamsKNN.h"
#include "clss/model/tkCovariancePooling.h"
#include "clss/model/tkIncompleteTraining.h"
#include "clss/model/tkPatternScaler.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iostream>
#include <limits>
#include <map>
#include <memory>
#include <numeric>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{
using Pattern = tkPtrHandle_const<tkFeaturePattern>;

struct Data
{
    std::vector<Pattern> patterns;
    std::vector<long> labels;
    std::map<std::string, long> names; // of the labels, which number them as they come
};

void read(const char* file, Data& data)
{
    std::ifstream stream(file);
    for (std::string line; std::getline(stream, line);)
    {
        std::istringstream fields(line);
        std::vector<double> values;
        std::string field;
        while (std::getline(fields, field, ',') && !fields.eof())
            values.push_back(std::stod(field));
        std::vector<long> invalid;
        for (std::size_t j = 0; j < values.size(); ++j)
            if (std::isnan(values[j]))
                invalid.push_back(static_cast<long>(j));
        data.patterns.emplace_back(new tkFeaturePattern(values, invalid));
        data.labels.push_back(data.names.emplace(field, static_cast<long>(data.names.size())).first->second);
    }
    if (data.patterns.empty())
        throw std::runtime_error(std::string("no data in ") + file);
}

struct Figures
{
    double right = 0.0;
    double loss = 0.0;
};

/// -ln of the class score of a category.
double lossOf(const tkClassifierResult& result, long label)
{
    constexpr double least = std::numeric_limits<double>::epsilon();
    for (const tkClassifierCategoryResult& each : result.categoryResults())
        if (each.categoryLabel() == label && each.classScore() > least)
            return -std::log(each.classScore());
    return -std::log(least);
}

struct Way
{
    bool hasEqualFrequencies;
    std::string method;
    double limit; // patterns of a category that are learned
};

using Judge = std::function<tkClassifierResult(const tkFeaturePattern&)>;

Judge trainedNeighbours(const tkClassifierDataProviderMemory& training, bool isScaled)
{
    const long measurements = training.numMeasurements();
    const tkPatternScaler scaler =
        isScaled ? tkPatternScaler(training)
                 : tkPatternScaler(std::vector<double>(static_cast<std::size_t>(measurements), 0.0),
                                   std::vector<double>(static_cast<std::size_t>(measurements), 1.0));
    const auto tool = std::make_shared<tkClassifierTool>();
    tool->train(scaler.apply(training), tkClassifierTrainParamsKNN(5));
    return [=](const tkFeaturePattern& pattern) { return tool->run(scaler.apply(pattern)); };
}

Judge trainedBayesian(const tkClassifierDataProviderMemory& training, const tkClassifierTrainParamsBayesian& params,
                      const std::string& method)
{
    const auto tool = std::make_shared<tkClassifierTool>();
    if (method == "pooled")
        tool->train(training, tkCovariancePooling(params));
    else if (method == "gaps")
        tool->train(training, tkIncompleteTraining(params));
    else
        tool->train(training, params);
    return [=](const tkFeaturePattern& pattern) { return tool->run(pattern); };
}

/// The dependency sets of every category.
std::vector<std::vector<long>> dependencySets(long measurements, const std::string& method)
{
    std::vector<long> all(static_cast<std::size_t>(measurements));
    std::iota(all.begin(), all.end(), 0L);
    if (method == "independent")
        return {};
    if (method != "halves")
        return {all};
    const auto half = all.begin() + measurements / 2;
    return {std::vector<long>(all.begin(), half), std::vector<long>(half, all.end())};
}

/// What is learned from the patterns of the other folds and judges those of one.
Figures figuresOf(const Data& data, const std::vector<long>& folds, long fold, const Way& way)
{
    tkClassifierDataProviderMemory training;
    std::map<long, double> counts;
    for (std::size_t i = 0; i < folds.size(); ++i)
        if (folds[i] != fold && counts[data.labels[i]] < way.limit)
        {
            training.addData(data.patterns[i], data.labels[i]);
            counts[data.labels[i]] += 1.0;
        }
    const std::vector<std::vector<long>> sets = dependencySets(training.numMeasurements(), way.method);
    tkClassifierDistributionTypes types(tkClassifierDistributionTypes::eNormal);
    tkClassifierFrequencies frequencies;
    for (const auto& [label, count] : counts)
    {
        if (count == 0.0)
            continue;
        for (const std::vector<long>& set : sets)
            if (set.size() > 1)
                types.setDependent(label, set);
        if (!way.hasEqualFrequencies)
            frequencies.categoryFrequencyOverride(label, count);
    }
    const tkClassifierTrainParamsBayesian params(types, frequencies);
    const Judge judge = way.method == "neighbours" || way.method == "scaled"
                            ? trainedNeighbours(training, way.method == "scaled")
                            : trainedBayesian(training, params, way.method);

    double tested = 0.0;
    Figures figures;
    for (std::size_t i = 0; i < folds.size(); ++i)
        if (folds[i] == fold)
        {
            const tkClassifierResult result = judge(*data.patterns[i]);
            tested += 1.0;
            figures.right += result.categoryResults().front().categoryLabel() == data.labels[i] ? 1.0 : 0.0;
            figures.loss += lossOf(result, data.labels[i]);
        }
    return {figures.right / tested, figures.loss / tested};
}
} // namespace

int main(int argc, char** argv)
{
    if (argc < 4 || argc > 6)
    {
        std::cerr << "accuracy equal|shares FOLDS DATA [METHOD [LIMIT]]\n";
        return 2;
    }
    try
    {
        Data data;
        read(argv[3], data);
        std::ifstream stream(argv[2]);
        std::vector<long> folds;
        for (long fold = 0; stream >> fold;)
            folds.push_back(fold);
        if (folds.size() != data.patterns.size())
            throw std::runtime_error("as many folds as patterns are needed");
        const Way way{std::string(argv[1]) == "equal", argc > 4 ? argv[4] : "joint",
                      argc > 5 ? std::stod(argv[5]) : HUGE_VAL};
        if (std::set<std::string>{"joint", "independent", "halves", "pooled", "gaps", "neighbours", "scaled"}.count(
                way.method) == 0)
            throw std::runtime_error("there is no method " + way.method);
        for (const long fold : std::set<long>(folds.begin(), folds.end()))
        {
            const Figures figures = figuresOf(data, folds, fold, way);
            std::printf("%.6f %.6f\n", figures.right, figures.loss);
        }
    }
    catch (const std::exception& error)
    {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
