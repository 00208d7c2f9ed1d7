#include "clss/clastool/bayes/tk_BayesAccelerator.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "numerics/tkNMFactorisation.h"

#include <algorithm>
#include <cmath>
#include <typeinfo>
#include <unordered_set>
#include <utility>

tk_BayesAccelerator::tk_BayesAccelerator(const Models& models) : batch_(noteCategories_(models)) {}

std::vector<std::vector<tkNMNormalBatch::Density>> tk_BayesAccelerator::noteCategories_(const Models& models)
{
    std::vector<std::vector<tkNMNormalBatch::Density>> batched(models.size());
    std::unordered_set<const tkNMNormal*> copied;
    categories_.resize(models.size());
    for (std::size_t c = 0; c < models.size(); ++c)
    {
        const auto& model = static_cast<const tk_CategoryModelBayesian&>(*models[c]);
        if (typeid(model) != typeid(tk_CategoryModelBayesian) || !model.changeNumber())
            continue;
        Category_& category = categories_[c];
        category.changeNumber = model.changeNumber();
        category.value = model.changeNumber()->value();

        bool isBatched = true; // as long as all before are
        for (std::size_t i = 0; i < model.densities().size(); ++i)
        {
            const std::vector<long>& set = model.dependencySets()[i];
            const tk_PDFMultivariateNormal* const density = normalOverRange(model, i);
            const tkNMNormal* const normal = density ? &density->normal() : nullptr;
            // A density that another model has taken over since would change without this model's number.
            const bool isWatched = normal && normal->count() > 0 &&
                                   normal->changeNumber().get() == model.changeNumber().get() &&
                                   normal->dimension() == static_cast<long>(set.size());
            isBatched = isBatched && isWatched && copied.insert(normal).second;
            if (isBatched)
                batched[c].push_back({static_cast<std::size_t>(set.front()), &normal->factorisation()});
            else
                category.rest.push_back(isWatched ? normal : nullptr);
        }
        category.numBatched = batched[c].size();
    }
    return batched;
}

void tk_BayesAccelerator::matchScores(const Models& models, const tkFeaturePattern& pattern, double* scores) const
{
    const std::vector<double>& x = pattern.featureMeasurements(false);
    const bool isBatched = x.size() >= batch_.reach() && pattern.numInvalid() == 0;
    if (isBatched)
        batch_.logLikelihoods(x.data(), scores);
    for (std::size_t c = 0; c < models.size(); ++c)
    {
        const auto& model = static_cast<const tk_CategoryModelBayesian&>(*models[c]);
        const Category_& category = categories_[c];
        if (!isBatched || !isCurrent_(category, model) || std::isnan(scores[c]))
            scores[c] = model.matchScore(pattern);
        else if (!category.rest.empty())
            scores[c] = addRest_(category, model, pattern, scores[c]);
    }
}

/// Whether the model has the densities that it had, as they were.
bool tk_BayesAccelerator::isCurrent_(const Category_& category, const tk_CategoryModelBayesian& model)
{
    const tkNMChangeNumber* const number = category.changeNumber.get();
    return number && number == model.changeNumber().get() && number->value() == category.value;
}

/// The score with the log values of the densities that are not in the batch.
double tk_BayesAccelerator::addRest_(const Category_& category, const tk_CategoryModelBayesian& model,
                                     const tkFeaturePattern& pattern, double score) const
{
    const std::vector<double>& x = pattern.featureMeasurements(false);
    try
    {
        for (std::size_t i = 0; i < category.rest.size(); ++i)
        {
            const std::vector<long>& set = model.dependencySets()[category.numBatched + i];
            const tkNMNormal* const normal = category.rest[i];
            if (normal && static_cast<std::size_t>(set.back()) < x.size())
                score += normal->factorisation().logDensity(&x[static_cast<std::size_t>(set.front())], instructions_);
            else
                score += model.densities()[category.numBatched + i]->logValueOfSet(pattern, set);
        }
        return std::isfinite(score) ? score : model.matchScore(pattern); // which saturates
    }
    catch (const tkClassifierDefs::InsufficientTrainData&)
    {
        return model.matchScore(pattern); // which names the category
    }
}

tk_PDFMultivariateNormal* tk_BayesAccelerator::normalOverRange(const tk_CategoryModelBayesian& model, std::size_t i)
{
    const std::vector<long>& set = model.dependencySets()[i];
    const auto isNoStep = [](long a, long b) { return b <= a || b - a > 1; };
    if (set.empty() || set.front() < 0 || std::adjacent_find(set.begin(), set.end(), isNoStep) != set.end())
        return nullptr;
    tk_ProbabilityDensityFunction& density = *model.densities()[i];
    return typeid(density) == typeid(tk_PDFMultivariateNormal) ? static_cast<tk_PDFMultivariateNormal*>(&density)
                                                               : nullptr;
}
