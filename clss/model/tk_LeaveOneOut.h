#ifndef CLSS_MODEL_TK_LEAVEONEOUT_H
#define CLSS_MODEL_TK_LEAVEONEOUT_H

#include "clss/clastool/clastool/tkClassifierResult.h"
#include "clss/clastool/clastool/tkClassifierTrainParams.h"
#include "clss/model/tk_LabelledPatterns.h"

#include <cstddef>
#include <functional>

/// What a tool says about pattern i of some data that it was trained with, but for pattern i.
using tk_LeftOutJudge = std::function<tkClassifierResult(std::size_t i)>;

/// The judge for these data and parameters, by one training instead of one for each pattern; empty where there is no
/// short way. The data and the parameters must outlive it.
///
/// Bayesian classification with normal densities: leaving out x of the n patterns of a category, with mean m,
/// covariance C, q = (x - m)' C^-1 (x - m) and a = (n - 1) / (n - 2), gives by the formula of Sherman and Morrison
///     ln det C' = d ln a + ln det C + ln(1 - n / (n - 1)^2 q),   q' = (n / (n - 1))^2 q / (a (1 - n / (n - 1)^2 q)).
/// Scores agree with those of a training without the pattern to 1e-10. The tool is trained anew where that is not sure:
/// for the patterns of a category with a density that is not normal, or with an eigenvalue of a correlation matrix
/// below 2^-12 (so that no repaired covariance is among them), for patterns that make up most of a variance of their
/// category or have q > 64, and for all if a measurement is constant in a category but not in all together.
///
/// Nearest neighbours with the norm distance and finite patterns: the nearest k + 1 but for the pattern itself, found
/// by all distances if several are at the k-th one; the same bits.
TK_EXPORT tk_LeftOutJudge tk_leaveOneOut(const tk_LabelledPatterns& data, const tkClassifierTrainParams& params);

#endif
