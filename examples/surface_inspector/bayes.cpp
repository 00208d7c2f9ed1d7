#include "bayes.h"

#include <algorithm>
#include <numeric>

namespace inspector
{

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

long bestSurfaceOf(const Decision& decision)
{
    const std::vector<tkClassifierCategoryResult>& categories = decision.result.categoryResults();
    return std::max_element(categories.begin(), categories.end(),
                            [](const tkClassifierCategoryResult& one, const tkClassifierCategoryResult& other)
                            { return one.matchScore() < other.matchScore(); })
        ->categoryLabel();
}

double certaintyOf(const Decision& decision)
{
    double best = 0.0;
    for (const tkClassifierCategoryResult& category : decision.result.categoryResults())
        best = std::max(best, category.classScore());
    return best;
}

} // namespace inspector
