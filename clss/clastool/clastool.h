#ifndef CLSS_CLASTOOL_CLASTOOL_H
#define CLSS_CLASTOOL_CLASTOOL_H

/// All published headers: what a host needs (tk) and what a technique of its own builds on (tk_).
///
/// A program that trains and runs classifiers needs tkClassifierTool, the parameters of its method
/// (tkClassifierTrainParamsBayesian, tkClassifierTrainParamsKNN or a tkDecisionTree), tkFeaturePattern,
/// tkClassifierDataProviderMemory, tkClassifierResult and, to save and load, tkArchiveFile. Rule tables
/// (tkClassifierRuleTable) stand beside them. tkClassifierDefs has the errors.
///
/// Which header has what:
///
///     the measurements of one object        tkFeaturePattern
///     labelled patterns to learn from       tkClassifierDataProvider; tk_DataGenerator makes synthetic ones
///     training, running, saving             tkClassifierTool
///     the ranked categories of a pattern    tkClassifierResult
///     costs of wrong decisions, priors      tkClassifierCosts, tkClassifierFrequencies
///     Bayesian classification               tkClassifierTrainParamsBayesian, tkClassifierDistributionTypes
///       with few patterns, with gaps        tkCovariancePooling, tkIncompleteTraining
///     nearest neighbours                    tkClassifierTrainParamsKNN, tkPatternDistanceMetric
///     trees built by hand                   tkDecisionTree, tkPredicateFunction
///     rules and membership functions        tkClassifierRuleTable, tkClassifierFeatureScore, tkClsFtSc
///     different units made comparable       tkPatternScaler
///     how good a training is                tkAssessment, tkConfusionMatrix
///     when to decide for no category        tkDecisionRule
///     archives and files                    tkArchiveFile, tkArchiveOperators, tkArchiveErrors
///     ranges, random numbers, assertions    tkRange, tkRandom, tkAssert
///     a method of one's own                 tkClassifierTrainParams, tk_Classifier, tk_CategoryModel

#include "clss/clastool/bayes/tkClassifierDistributionTypes.h"
#include "clss/clastool/bayes/tkClassifierTrainParamsBayesian.h"
#include "clss/clastool/bayes/tk_CategoryModelBayesian.h"
#include "clss/clastool/bayes/tk_ClassifierBayesian.h"
#include "clss/clastool/bayes/tk_ProbabilityDensityFunction.h"
#include "clss/clastool/clastool/tkClassifierCosts.h"
#include "clss/clastool/clastool/tkClassifierDataProvider.h"
#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierFeatureScore.h"
#include "clss/clastool/clastool/tkClassifierFrequencies.h"
#include "clss/clastool/clastool/tkClassifierResult.h"
#include "clss/clastool/clastool/tkClassifierRuleTable.h"
#include "clss/clastool/clastool/tkClassifierTool.h"
#include "clss/clastool/clastool/tkClassifierTrainParams.h"
#include "clss/clastool/clastool/tkClassifierTrainParamsKNN.h"
#include "clss/clastool/clastool/tkClsFtSc.h"
#include "clss/clastool/clastool/tkDecisionTree.h"
#include "clss/clastool/clastool/tkFeaturePattern.h"
#include "clss/clastool/clastool/tkPatternDistanceMetric.h"
#include "clss/clastool/clastool/tkPredicateFunction.h"
#include "clss/clastool/clastool/tk_CategoryModel.h"
#include "clss/clastool/clastool/tk_Classifier.h"
#include "clss/clastool/clastool/tk_ClassifierDecisionTree.h"
#include "clss/clastool/clastool/tk_ClassifierKNN.h"
#include "clss/clastool/clastool/tk_DataGenerator.h"
#include "clss/model/tkAssessment.h"
#include "clss/model/tkConfusionMatrix.h"
#include "clss/model/tkCovariancePooling.h"
#include "clss/model/tkDecisionRule.h"
#include "clss/model/tkIncompleteTraining.h"
#include "clss/model/tkJudgement.h"
#include "clss/model/tkNovelty.h"
#include "clss/model/tkPatternScaler.h"
#include "clss/model/tkTrainingReport.h"
#include "clss/model/tk_ClassifierIncomplete.h"
#include "clss/model/tk_ClassifierPooled.h"
#include "foundation/tkArchiveErrors.h"
#include "foundation/tkArchiveFile.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkAssert.h"
#include "foundation/tkRandom.h"
#include "foundation/tkRange.h"

#endif
