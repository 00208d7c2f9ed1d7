#include "bayes.h"

#include "clss/clastool/clastool/tkClassifierDataProvider.h"
#include "clss/clastool/clastool/tkClassifierTool.h"

#include <algorithm>
#include <limits>
#include <numeric>

namespace inspector
{

namespace
{

constexpr long numFolds = 5;

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

tkClassifierTrainParamsBayesian bayesParams(const Dataset& dataset, bool jointly, const tkClassifierCosts& costs)
{
    tkClassifierDistributionTypes types(tkClassifierDistributionTypes::eNormal);
    if (jointly)
    {
        std::vector<long> all(numMeasurements);
        std::iota(all.begin(), all.end(), 0);
        for (std::size_t label = 0; label < dataset.surfaces.size(); ++label)
            types.setDependent(static_cast<long>(label), all);
    }
    return tkClassifierTrainParamsBayesian(types, tkClassifierFrequencies(), costs);
}

double fitOf(const Decision& decision)
{
    return -decision.result.matchScoreFactorLog();
}

double certaintyOf(const Decision& decision)
{
    double best = 0.0;
    for (const tkClassifierCategoryResult& category : decision.result.categoryResults())
        best = std::max(best, category.classScore());
    return best;
}

double noveltyThreshold(const Dataset& dataset)
{
    const std::vector<Pattern> patterns = patternsOf(dataset.train);
    const std::vector<long> folds = foldsOf(dataset.train);
    std::vector<double> fits;
    for (long fold = 0; fold < numFolds; ++fold)
    {
        tkClassifierDataProviderMemory provider;
        for (std::size_t i = 0; i < patterns.size(); ++i)
        {
            if (folds[i] != fold)
                provider.addData(patterns[i], dataset.train[i].label);
        }
        if (std::count(folds.begin(), folds.end(), fold) == static_cast<long>(folds.size()))
            continue; // nothing is left to learn from
        tkClassifierTool tool;
        tool.train(provider, bayesParams(dataset, true));
        for (std::size_t i = 0; i < patterns.size(); ++i)
        {
            if (folds[i] == fold)
                fits.push_back(fitOf(decide(tool, *patterns[i])));
        }
    }
    if (fits.empty())
        return -std::numeric_limits<double>::infinity();
    std::sort(fits.begin(), fits.end());
    return fits[static_cast<std::size_t>(noveltyLevel * static_cast<double>(fits.size()))];
}

std::vector<Decision> refuseUnlike(std::vector<Decision> decisions, double threshold)
{
    for (Decision& decision : decisions)
    {
        if (decision.refusal.empty() && fitOf(decision) < threshold)
            decision.label = -1;
    }
    return decisions;
}

} // namespace inspector
