#include "novelty.h"

#include "bayes.h"

#include "clss/clastool/clastool/tkClassifierDataProvider.h"

#include <algorithm>
#include <limits>

namespace inspector
{

namespace
{

/// Each classifier has nine tenths of the tiles: the limits are for one that has them all.
constexpr long numFolds = 10;

/// The fold of every tile: those of one surface stand row by row, so that equal parts of their list are bands.
std::vector<long> foldsOf(const std::vector<Tile>& tiles)
{
    std::vector<long> folds;
    for (auto first = tiles.begin(); first != tiles.end();)
    {
        const auto last =
            std::find_if(first, tiles.end(), [&](const Tile& tile) { return tile.label != first->label; });
        const long count = static_cast<long>(last - first);
        for (long i = 0; i < count; ++i)
            folds.push_back(i * numFolds / count);
        first = last;
    }
    return folds;
}

} // namespace

NoveltyLimits::NoveltyLimits(const Dataset& dataset) : dataset_(dataset), folds_(foldsOf(dataset.train))
{
    const std::vector<Pattern> patterns = patternsOf(dataset.train);
    for (long fold = 0; fold < numFolds; ++fold)
    {
        tools_.emplace_back();
        tkClassifierDataProviderMemory provider;
        for (std::size_t i = 0; i < patterns.size(); ++i)
        {
            if (folds_[i] != fold)
                provider.addData(patterns[i], dataset.train[i].label);
        }
        if (provider.numPatterns() > 0)
            tools_.back().train(provider, bayesParams(dataset, true));
    }
}

const std::vector<double>& NoveltyLimits::limits(const std::vector<long>& invalid)
{
    const auto known = limits_.find(invalid);
    return known != limits_.end() ? known->second : limits_.emplace(invalid, learn_(invalid)).first->second;
}

void NoveltyLimits::setLimit(Decision& decision, const std::vector<long>& invalid)
{
    decision.limit = limits(invalid)[static_cast<std::size_t>(bestSurfaceOf(decision))];
}

std::vector<Decision> NoveltyLimits::refuseUnlike(std::vector<Decision> decisions,
                                                  const std::vector<Measurements>& tiles)
{
    for (std::size_t i = 0; i < decisions.size(); ++i)
    {
        Decision& decision = decisions[i];
        if (!decision.refusal.empty())
            continue;
        setLimit(decision, tiles[i].invalid);
        if (fitOf(decision) < decision.limit)
            decision.label = -1;
    }
    return decisions;
}

std::vector<double> NoveltyLimits::learn_(const std::vector<long>& invalid) const
{
    std::vector<std::vector<double>> fits(dataset_.surfaces.size());
    for (std::size_t i = 0; i < folds_.size(); ++i)
    {
        const tkClassifierTool& tool = tools_[static_cast<std::size_t>(folds_[i])];
        if (!tool.isTrained())
            continue;
        const Tile& tile = dataset_.train[i];
        const Decision decision = decide(tool, *patternOf({tile.measured.values, invalid}));
        if (decision.refusal.empty())
            fits[static_cast<std::size_t>(tile.label)].push_back(fitOf(decision));
    }
    std::vector<double> limits;
    for (std::vector<double>& ofSurface : fits)
    {
        std::sort(ofSurface.begin(), ofSurface.end());
        limits.push_back(
            ofSurface.empty()
                ? -std::numeric_limits<double>::infinity()
                : ofSurface[static_cast<std::size_t>(noveltyLevel * static_cast<double>(ofSurface.size()))]);
    }
    return limits;
}

} // namespace inspector
