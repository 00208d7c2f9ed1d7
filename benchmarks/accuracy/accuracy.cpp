// Cross-validates Bayesian classification with one full dependency set per category.
//
// accuracy FREQUENCIES FOLDS DATA...: FREQUENCIES is "equal" or "shares" (of the training patterns), FOLDS a file with
// the number of the fold in which each pattern is tested, DATA the ARFF files whose patterns follow one another, with
// numbers in all columns but the last, which is the category. Prints the share of right decisions of each fold and the
// mean of these shares. accuracy.py makes the folds.

#include "clss/clastool/bayes/tkClassifierTrainParamsBayesian.h"
#include "clss/clastool/clastool/tkClassifierDataProvider.h"
#include "clss/clastool/clastool/tkClassifierResult.h"
#include "clss/clastool/clastool/tkClassifierTool.h"

#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <numeric>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <strings.h>
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

void readARFF(const char* file, Data& data)
{
    std::ifstream stream(file);
    bool isData = false;
    for (std::string line; std::getline(stream, line);)
    {
        line.erase(line.find_last_not_of(" \t\r") + 1);
        if (line.empty() || line[0] == '%')
            continue;
        if (!isData)
        {
            isData = strcasecmp(line.c_str(), "@data") == 0;
            continue;
        }
        std::istringstream fields(line);
        std::vector<double> values;
        std::string field;
        while (std::getline(fields, field, ',') && !fields.eof())
            values.push_back(std::stod(field));
        data.patterns.emplace_back(new tkFeaturePattern(values));
        data.labels.push_back(data.names.emplace(field, static_cast<long>(data.names.size())).first->second);
    }
    if (!isData)
        throw std::runtime_error(std::string("no data in ") + file);
}

/// The share of the patterns of one fold that a tool trained with the others classifies right.
double shareOfRight(const Data& data, const std::vector<long>& folds, long fold, bool hasEqualFrequencies)
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
    double right = 0.0;
    tkClassifierResult result;
    for (std::size_t i = 0; i < folds.size(); ++i)
        if (folds[i] == fold)
        {
            tool.run(*data.patterns[i], result);
            tested += 1.0;
            right += result.categoryResults().front().categoryLabel() == data.labels[i] ? 1.0 : 0.0;
        }
    return right / tested;
}
} // namespace

int main(int argc, char** argv)
{
    if (argc < 4)
    {
        std::cerr << "accuracy equal|shares FOLDS DATA...\n";
        return 2;
    }
    try
    {
        Data data;
        for (int i = 3; i < argc; ++i)
            readARFF(argv[i], data);
        std::ifstream stream(argv[2]);
        std::vector<long> folds;
        for (long fold = 0; stream >> fold;)
            folds.push_back(fold);
        if (folds.size() != data.patterns.size())
            throw std::runtime_error("as many folds as patterns are needed");
        double sum = 0.0;
        const std::set<long> tested(folds.begin(), folds.end());
        for (const long fold : tested)
        {
            const double share = shareOfRight(data, folds, fold, std::string(argv[1]) == "equal");
            std::printf("%.4f ", share);
            sum += share;
        }
        std::printf("%.4f\n", sum / static_cast<double>(tested.size()));
    }
    catch (const std::exception& error)
    {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
