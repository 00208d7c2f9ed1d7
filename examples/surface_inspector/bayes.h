#ifndef SURFACE_INSPECTOR_BAYES_H
#define SURFACE_INSPECTOR_BAYES_H

#include "decision.h"

#include "clss/clastool/bayes/tkClassifierTrainParamsBayesian.h"

namespace inspector
{

/// Parameters of the main method: normal distributions, all measurements of a surface modelled jointly or, if not
/// `jointly`, each by itself. Every surface is as frequent as another.
tkClassifierTrainParamsBayesian bayesParams(const Dataset& dataset, bool jointly,
                                            const tkClassifierCosts& costs = tkClassifierCosts(1.0));

/// Log likelihood of the tile under the surface that it fits best: how well it fits at all, whatever the posterior
/// probabilities say. *Requires* a decision of the Bayesian method that is not a refusal.
double fitOf(const Decision& decision);

/// The surface that the tile fits best. *Requires* the same.
long bestSurfaceOf(const Decision& decision);

/// Posterior probability of the most probable surface. *Requires* a decision that is not a refusal.
double certaintyOf(const Decision& decision);

} // namespace inspector

#endif
