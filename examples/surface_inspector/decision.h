#ifndef SURFACE_INSPECTOR_DECISION_H
#define SURFACE_INSPECTOR_DECISION_H

#include "dataset.h"

#include "clss/clastool/clastool/tkClassifierResult.h"
#include "foundation/tkPtrHandle.h"

#include <limits>
#include <string>
#include <vector>

class tkClassifierTool;
class tkFeaturePattern;

namespace inspector
{

using Pattern = tkPtrHandle_const<tkFeaturePattern>;

std::vector<Pattern> patternsOf(const std::vector<Tile>& tiles);

/// What a classifier says of one tile.
struct Decision
{
    long label = -1;           ///< the category of least expected cost; -1: none
    tkClassifierResult result; ///< every category that the classifier ranks
    std::string refusal;       ///< the library's words, empty if it had none

    /// The fit below which the tile is none of the surfaces, where somebody has asked for it.
    double limit = -std::numeric_limits<double>::infinity();

    bool operator==(const Decision& other) const
    {
        return label == other.label && result == other.result && refusal == other.refusal;
    }
    bool operator!=(const Decision& other) const { return !(*this == other); }
};

Decision decide(const tkClassifierTool& tool, const tkFeaturePattern& pattern);

/// Shows its progress as `step`.
std::vector<Decision> decideAll(const tkClassifierTool& tool, const std::vector<Pattern>& patterns,
                                const std::string& step);

/// How many decisions chose another category.
long countChanged(const std::vector<Decision>& before, const std::vector<Decision>& after);

/// How many decisions are not equal.
long countDiffering(const std::vector<Decision>& one, const std::vector<Decision>& other);

/// How the tiles of every surface (row) were decided (column). The last column counts those for which no surface was
/// named.
struct Confusion
{
    std::vector<std::vector<long>> counts;
    long right = 0;
    long total = 0;

    long count(long truth, long decision) const
    {
        return counts[static_cast<std::size_t>(truth)][static_cast<std::size_t>(decision)];
    }
    double accuracy() const { return static_cast<double>(right) / static_cast<double>(total); }
};

/// *Requires* a decision on every one of the tiles, in their order.
Confusion confusionOf(const Dataset& dataset, const std::vector<Tile>& tiles, const std::vector<Decision>& decisions);

} // namespace inspector

#endif
