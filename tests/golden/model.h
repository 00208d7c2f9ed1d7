#ifndef TESTS_GOLDEN_MODEL_H
#define TESTS_GOLDEN_MODEL_H

#include "clss/clastool/clastool/tkClassifierTool.h"
#include "clss/clastool/clastool/tkClassifierTrainParamsKNN.h"
#include "clss/model/tkAssessment.h"
#include "clss/model/tkConfusionMatrix.h"
#include "clss/model/tkCovariancePooling.h"
#include "clss/model/tkDecisionRule.h"
#include "clss/model/tkIncompleteTraining.h"
#include "clss/model/tkNovelty.h"
#include "clss/model/tkPatternScaler.h"
#include "clss/model/tkTrainingReport.h"
#include "tests/golden/bayes.h"
#include "tests/golden/dataModel.h"

/// The objects of the model layer whose records are stored in this folder.
namespace golden
{
inline tkPatternScaler scaler()
{
    return tkPatternScaler({-2.5, 0.0, 1000.25}, {0.125, 1.0, 3.0});
}

inline tkDecisionRule decisionRule()
{
    tkDecisionRule rule(frequencies(), costs());
    rule.refusalCost(0.5);
    rule.alpha(0.015625);
    return rule;
}

/// Two patterns of category 7, one of them refused; three of category 258.
inline tkConfusionMatrix confusionMatrix()
{
    return {{7, 7, 258, 258, 258}, {7, tkDecisionRule::noneOfThese, 258, 7, tkDecisionRule::cannotTell}};
}

inline tkCovariancePooling covariancePooling()
{
    return tkCovariancePooling(trainParamsBayesian(), 0.25);
}

/// Two categories of two measurements, joint and pooled by half.
inline tkClassifierTool pooledTool()
{
    tkClassifierDataProviderMemory data;
    const std::vector<std::vector<double>> rows = {{1, 5}, {2, 4}, {4, 4}, {3, 1}, {2, 1}, {3, 2}};
    for (std::size_t i = 0; i < rows.size(); ++i)
        data.addData(rows[i], i < 3 ? 4 : 9);
    tkClassifierDistributionTypes types(tkClassifierDistributionTypes::eNormal);
    types.setDependent(4, {0, 1});
    types.setDependent(9, {1, 0});
    tkClassifierTool tool;
    tool.train(data, tkCovariancePooling(tkClassifierTrainParamsBayesian(types), 0.5));
    return tool;
}

inline tkIncompleteTraining incompleteTraining()
{
    return tkIncompleteTraining(trainParamsBayesian(), 258);
}

/// A category of two joint measurements, one of which a pattern lacks.
inline tkClassifierTool incompleteTool()
{
    tkClassifierDataProviderMemory data;
    for (const std::vector<double>& row : std::vector<std::vector<double>>{{1, 5}, {2, 4}, {4, 4}, {3, 1}})
        data.addData(row, 4);
    data.addData(tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern({2.0, 0.0}, {1})), 4);
    tkClassifierDistributionTypes types(tkClassifierDistributionTypes::eNormal);
    types.setDependent(4, {0, 1});
    tkClassifierTool tool;
    tool.train(data, tkIncompleteTraining(tkClassifierTrainParamsBayesian(types), 200));
    return tool;
}

/// Three patterns, of which the second one has no label: the first judged with two categories, the last with none.
inline tkAssessment assessment()
{
    tkClassifierDataProviderMemory data;
    data.addData({1.0}, 7);
    data.addData({2.0}, -1);
    data.addData({3.0}, 258);
    return tkAssessment::heldOut(data,
                                 [](const tkFeaturePattern& pattern)
                                 {
                                     return pattern.featureMeasurement(0, true) == 1.0
                                                ? tkJudgement(result(), 0.25)
                                                : tkJudgement(tkClassifierResult());
                                 });
}

/// Patterns of which a person should know: in category 4 measurements 0 and 1 nearly agree and measurement 2 is
/// constant; category 9 has one of its patterns as well, and one with a gap.
inline tkClassifierDataProviderMemory doubtfulData()
{
    tkClassifierDataProviderMemory data;
    for (const double x : {1.0, 2.0, 3.0, 4.0, 5.0})
        data.addData({x, x == 3.0 ? 3.0625 : x, 8.0}, 4);
    data.addData({0.0, 0.0, 0.0}, -1);
    for (const double x : {-3.0, -1.0, 1.0, 3.0})
        data.addData({100.0 + x, x * x, 8.5 - x / 4.0}, 9);
    data.addData({3.0, 3.0625, 8.0}, 9);
    data.addData(tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern({101.0, 1.0, 0.0}, {2})), 9);
    return data;
}

inline tkTrainingReport trainingReport()
{
    tkClassifierDistributionTypes types(tkClassifierDistributionTypes::eNormal);
    types.setDependent(4, {0, 1});
    return tkTrainingReport(doubtfulData(), tkClassifierTrainParamsBayesian(types));
}

/// Two categories of two measurements.
inline tkClassifierDataProviderMemory noveltyData()
{
    tkClassifierDataProviderMemory data;
    const std::vector<std::vector<double>> rows = {{1, 5}, {2, 4}, {4, 4}, {3, 1}, {2, 1}};
    for (std::size_t i = 0; i < rows.size(); ++i)
        data.addData(rows[i], i < 3 ? 4 : 258);
    return data;
}

/// The measurements are joint in the first category.
inline tkNovelty novelty()
{
    tkClassifierDistributionTypes types(tkClassifierDistributionTypes::eNormal);
    types.setDependent(4, {0, 1});
    return tkNovelty(noveltyData(), tkClassifierTrainParamsBayesian(types));
}

inline tkNovelty noveltyOfNeighbors()
{
    return tkNovelty(noveltyData(), tkClassifierTrainParamsKNN(2));
}
} // namespace golden

#endif
