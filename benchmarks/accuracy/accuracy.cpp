// Cross-validates Bayesian classification with one full dependency set per category.
//
// accuracy FREQUENCIES FOLDS DATA: FREQUENCIES is "equal" or "shares" (of the training patterns), FOLDS a file with the
// number of the fold in which each pattern is tested, DATA a file with a pattern on each line: its measurements and its
// category, separated by commas. Prints the share of right decisions, and the mean of -ln of the class score of the
// right category (at most 700 for a pattern, so that one at a score of 0 does not hide the others; a category without
// training patterns has a score of 0), both averaged over the folds. accuracy.py makes folds and data.

#include "clss/clastool/bayes/tkClassifierTrainParamsBayesian.h"
#include "clss/clastool/clastool/tkClassifierDataProvider.h"
#include "clss/clastool/clastool/tkClassifierResult.h"
#include "clss/clastool/clastool/tkClassifierTool.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
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
        data.patterns.emplace_back(new tkFeaturePattern(values));
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
    for (const tkClassifierCategoryResult& each : result.categoryResults())
        if (each.categoryLabel() == label && each.classScore() > 0.0)
            return std::min(-std::log(each.classScore()), 700.0);
    return 700.0;
}

/// What a tool trained with the patterns of the other folds makes of those of one.
Figures figuresOf(const Data& data, const std::vector<long>& folds, long fold, bool hasEqualFrequencies)
{
    tkClassifierDataProviderMemory training;
    std::map<long, double> counts;
    for (std::size_t i = 0; i < folds.size(); ++i)
        if (folds[i] != fold)
        {
            training.addData(data.patterns[i], data.labels[i]);
            counts[data.labels[i]] += 1.0;
        }
    std::vector<long> all(static_cast<std::size_t>(training.numMeasurements()));
    std::iota(all.begin(), all.end(), 0L);
    tkClassifierDistributionTypes types(tkClassifierDistributionTypes::eNormal);
    tkClassifierFrequencies frequencies;
    for (const auto& [label, count] : counts)
    {
        types.setDependent(label, all);
        if (!hasEqualFrequencies)
            frequencies.categoryFrequencyOverride(label, count);
    }
    tkClassifierTool tool;
    tool.train(training, tkClassifierTrainParamsBayesian(types, frequencies));

    double tested = 0.0;
    Figures figures;
    tkClassifierResult result;
    for (std::size_t i = 0; i < folds.size(); ++i)
        if (folds[i] == fold)
        {
            tool.run(*data.patterns[i], result);
            tested += 1.0;
            figures.right += result.categoryResults().front().categoryLabel() == data.labels[i] ? 1.0 : 0.0;
            figures.loss += lossOf(result, data.labels[i]);
        }
    return {figures.right / tested, figures.loss / tested};
}
} // namespace

int main(int argc, char** argv)
{
    if (argc != 4)
    {
        std::cerr << "accuracy equal|shares FOLDS DATA\n";
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
        Figures sum;
        const std::set<long> tested(folds.begin(), folds.end());
        for (const long fold : tested)
        {
            const Figures figures = figuresOf(data, folds, fold, std::string(argv[1]) == "equal");
            sum.right += figures.right;
            sum.loss += figures.loss;
        }
        const double n = static_cast<double>(tested.size());
        std::printf("%.4f %.3f\n", sum.right / n, sum.loss / n);
    }
    catch (const std::exception& error)
    {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
