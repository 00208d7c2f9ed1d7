#include "decision.h"

#include "progress.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierTool.h"
#include "clss/clastool/clastool/tkFeaturePattern.h"

namespace inspector
{

std::vector<Pattern> patternsOf(const std::vector<Tile>& tiles)
{
    std::vector<Pattern> patterns;
    patterns.reserve(tiles.size());
    for (const Tile& tile : tiles)
        patterns.push_back(patternOf(tile.measured));
    return patterns;
}

Decision decide(const tkClassifierTool& tool, const tkFeaturePattern& pattern)
{
    Decision decision;
    try
    {
        tool.run(pattern, decision.result);
        decision.label = decision.result.categoryResults().front().categoryLabel();
    }
    catch (const tkClassifierDefs::Errors& error)
    {
        decision.refusal = error.what();
    }
    return decision;
}

std::vector<Decision> decideAll(const tkClassifierTool& tool, const std::vector<Pattern>& patterns,
                                const std::string& step)
{
    Progress progress(step, patterns.size());
    std::vector<Decision> decisions;
    decisions.reserve(patterns.size());
    for (const Pattern& pattern : patterns)
    {
        decisions.push_back(decide(tool, *pattern));
        progress.advance();
    }
    return decisions;
}

long countChanged(const std::vector<Decision>& before, const std::vector<Decision>& after)
{
    long count = 0;
    for (std::size_t i = 0; i < before.size(); ++i)
        count += before[i].label != after[i].label;
    return count;
}

long countDiffering(const std::vector<Decision>& one, const std::vector<Decision>& other)
{
    long count = 0;
    for (std::size_t i = 0; i < one.size(); ++i)
        count += one[i] != other[i];
    return count;
}

Confusion confusionOf(const Dataset& dataset, const std::vector<Tile>& tiles, const std::vector<Decision>& decisions)
{
    const long numSurfaces = static_cast<long>(dataset.surfaces.size());
    Confusion confusion;
    confusion.counts.assign(dataset.surfaces.size(), std::vector<long>(dataset.surfaces.size() + 1));
    confusion.total = static_cast<long>(decisions.size());
    for (std::size_t i = 0; i < decisions.size(); ++i)
    {
        const long truth = tiles[i].label;
        const long label = decisions[i].label;
        const long column = label >= 0 && label < numSurfaces ? label : numSurfaces;
        ++confusion.counts[static_cast<std::size_t>(truth)][static_cast<std::size_t>(column)];
        if (label == truth)
            ++confusion.right;
    }
    return confusion;
}

} // namespace inspector
