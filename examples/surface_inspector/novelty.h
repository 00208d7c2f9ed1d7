#ifndef SURFACE_INSPECTOR_NOVELTY_H
#define SURFACE_INSPECTOR_NOVELTY_H

#include "decision.h"

#include "clss/clastool/clastool/tkClassifierTool.h"

#include <map>
#include <vector>

namespace inspector
{

/// The share of known tiles that may be taken for something never trained.
constexpr double noveltyLevel = 0.01;

/// How well a tile must fit to pass for one of the surfaces: for each surface, the fit below which noveltyLevel of its
/// tiles in the left halves lie. Each of them is judged by a classifier that was trained without it and its neighbours
/// (ten-fold cross-validation, each fold a band across every picture, because tiles side by side resemble each other).
///
/// A log likelihood over five measurements is no measure for one over six: a tile with invalid measurements is compared
/// with limits that were learned with the same measurements left out.
class NoveltyLimits
{
public:
    explicit NoveltyLimits(const Dataset& dataset);

    /// The limits of all surfaces, by label, for tiles with these measurements invalid. Minus infinity for a surface
    /// with too few tiles. The reference stays valid as long as the object does.
    const std::vector<double>& limits(const std::vector<long>& invalid);

    /// Sets the limit of a decision of the Bayesian method on such a tile: that of the surface that fits best.
    /// *Requires* a decision that is not a refusal.
    void setLimit(Decision& decision, const std::vector<long>& invalid);

    /// The decisions with their limits, and with -1 for the tiles whose fit is below.
    std::vector<Decision> refuseUnlike(std::vector<Decision> decisions, const std::vector<Measurements>& tiles);

private:
    std::vector<double> learn_(const std::vector<long>& invalid) const;

    const Dataset& dataset_;
    std::vector<long> folds_;             // of the tiles of the left halves
    std::vector<tkClassifierTool> tools_; // by fold, each trained on the others; an untrained one has nothing to judge
    std::map<std::vector<long>, std::vector<double>> limits_; // by invalid measurements; learned when first asked for
};

} // namespace inspector

#endif
