#ifndef SURFACE_INSPECTOR_BAYES_H
#define SURFACE_INSPECTOR_BAYES_H

#include "decision.h"

#include "clss/clastool/bayes/tkClassifierTrainParamsBayesian.h"

#include <vector>

namespace inspector
{

/// Parameters of the main method: normal distributions, all measurements of a surface modelled jointly or, if not
/// `jointly`, each by itself. Every surface is as frequent as another.
tkClassifierTrainParamsBayesian bayesParams(const Dataset& dataset, bool jointly,
                                            const tkClassifierCosts& costs = tkClassifierCosts(1.0));

/// Log likelihood of the tile under the surface that it fits best: how well it fits at all, whatever the posterior
/// probabilities say. *Requires* a decision of the Bayesian method that is not a refusal.
double fitOf(const Decision& decision);

/// Posterior probability of the most probable surface. *Requires* a decision that is not a refusal.
double certaintyOf(const Decision& decision);

/// The share of known tiles that may be taken for something never trained.
constexpr double noveltyLevel = 0.01;

/// A fit below which a tile is none of the surfaces: so few tiles of the left halves fit worse, each judged by a
/// classifier that was trained without it and its neighbours (five-fold cross-validation, each fold a band across
/// every picture, because tiles side by side resemble each other). Minus infinity if there are too few tiles.
double noveltyThreshold(const Dataset& dataset);

/// The decisions, with -1 for the tiles whose fit is below the threshold.
std::vector<Decision> refuseUnlike(std::vector<Decision> decisions, double threshold);

} // namespace inspector

#endif
