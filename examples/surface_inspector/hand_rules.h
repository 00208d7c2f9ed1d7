#ifndef SURFACE_INSPECTOR_HAND_RULES_H
#define SURFACE_INSPECTOR_HAND_RULES_H

#include "decision.h"

#include "clss/clastool/clastool/tkClassifierRuleTable.h"

#include <optional>
#include <vector>

namespace inspector
{

/// A rule decides where its score is above this.
constexpr double ruleThreshold = 0.75;

/// What a table of rules written by hand makes of the tiles.
struct RuleFindings
{
    tkClassifierRuleTable table;
    Confusion learned;
    Confusion confusion;
    std::vector<Decision> tests; ///< of dataset.test; -1: no rule fits
    Decision flatTile;           ///< on the tile with an invalid measurement
    std::size_t closest;         ///< the tile of dataset.test for which the second best rule speaks most
    std::vector<double> scores;  ///< of the rules for this tile, in their order
};

/// The measurements as the rules read them; an invalid one is NaN, which every rule leaves out.
tkClassifierFeatureVector featureVector(const Measurements& measured);

/// Decides on the tiles of the right halves, and on one more that has an invalid measurement. Nothing unless the
/// surfaces are brick, grass and gravel by name, in any order: the rules were written for them.
std::optional<RuleFindings> decideWithRules(const Dataset& dataset, const Measurements& flatTile);

} // namespace inspector

#endif
