#ifndef TESTS_SUPPORT_BAYESIANTOOL_H
#define TESTS_SUPPORT_BAYESIANTOOL_H

#include "clss/clastool/bayes/tkClassifierTrainParamsBayesian.h"
#include "clss/clastool/clastool/tkClassifierDataProvider.h"
#include "clss/clastool/clastool/tkClassifierResult.h"
#include "clss/clastool/clastool/tkClassifierTool.h"

#include <set>
#include <vector>

/// Labelled rows of measurements.
struct BayesianData
{
    void add(long label, const std::vector<double>& row)
    {
        rows.push_back(row);
        labels.push_back(label);
    }

    std::vector<std::vector<double>> rows;
    std::vector<long> labels;
};

/// A tool of normal densities: of all measurements together, or each on its own.
inline tkClassifierTool bayesianTool(const BayesianData& data, bool isJoint)
{
    tkClassifierDataProviderMemory provider;
    for (std::size_t i = 0; i < data.rows.size(); ++i)
        provider.addData(tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern(data.rows[i])), data.labels[i]);
    tkClassifierDistributionTypes types(tkClassifierDistributionTypes::eNormal);
    std::vector<long> all;
    for (long j = 0; j < provider.numMeasurements(); ++j)
        all.push_back(j);
    if (isJoint)
        for (const long label : std::set<long>(data.labels.begin(), data.labels.end()))
            types.setDependent(label, all);
    tkClassifierTool tool;
    tool.train(provider, tkClassifierTrainParamsBayesian(types));
    return tool;
}

inline tkClassifierResult resultOf(const tkClassifierTool& tool, const std::vector<double>& row,
                                   const std::vector<long>& invalid = {})
{
    tkClassifierResult result;
    tool.run(tkFeaturePattern(row, invalid), result);
    return result;
}

/// The result of one category.
inline tkClassifierCategoryResult resultOf(const tkClassifierResult& result, long label)
{
    for (const tkClassifierCategoryResult& each : result.categoryResults())
        if (each.categoryLabel() == label)
            return each;
    return tkClassifierCategoryResult();
}

/// The share of these data that the tool gives their label.
inline double shareOfRight(const tkClassifierTool& tool, const BayesianData& data)
{
    double right = 0.0;
    for (std::size_t i = 0; i < data.rows.size(); ++i)
        right += resultOf(tool, data.rows[i]).categoryResults().front().categoryLabel() == data.labels[i] ? 1.0 : 0.0;
    return right / static_cast<double>(data.rows.size());
}

#endif
