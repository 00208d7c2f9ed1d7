#ifndef CLSS_MODEL_TKJUDGEMENT_H
#define CLSS_MODEL_TKJUDGEMENT_H

#include "clss/clastool/clastool/tkClassifierResult.h"

#include <functional>
#include <utility>

class tkClassifierDataProvider;
class tkFeaturePattern;

/// What is said about one pattern: a result, and how probable such a pattern is.
struct tkJudgement
{
    /// A result converts to a judgement without a p-value. Nothing is checked.
    tkJudgement(tkClassifierResult judged, double p = 1.0) : result(std::move(judged)), pValue(p) {}

    tkClassifierResult result;
    double pValue; // in [0, 1], see tkDecisionRule::alpha(); 1.0 where it is not known
};

/// Judges a pattern. What it throws passes through whoever calls it.
using tkJudge = std::function<tkJudgement(const tkFeaturePattern& pattern)>;

/// Learns from patterns and returns what judges others. All that belongs to a training stands in it, a scaling of
/// the measurements, say, for it must not have seen what is judged:
///     [&](const tkClassifierDataProvider& training)
///     {
///         const tkPatternScaler scaler(training);
///         tkClassifierTool tool;
///         tool.train(scaler.apply(training), params);
///         return [scaler, tool](const tkFeaturePattern& pattern) { return tool.run(scaler.apply(pattern)); };
///     }
using tkTrainer = std::function<tkJudge(const tkClassifierDataProvider& training)>;

#endif
