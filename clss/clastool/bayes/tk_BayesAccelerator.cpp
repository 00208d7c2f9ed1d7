#include "clss/clastool/bayes/tk_BayesAccelerator.h"

#include "foundation/tkException.h"
#include "foundation/tkScratch.h"
#include "numerics/kernels/tkNMNormalBatch.h"
#include "numerics/tkNMNormal.h"

#include <algorithm>
#include <cmath>
#include <typeinfo>
#include <unordered_set>
#include <utility>

namespace
{
struct OtherDensity
{
    std::size_t category;
    std::size_t number; // in its model
};

struct StepPlan
{
    std::vector<tkNMNormalBatch::Category> batched;
    std::vector<OtherDensity> others;
};

const tk_CategoryModelBayesian& modelOf(const tkPtrHandle<tk_CategoryModel>& handle)
{
    return static_cast<const tk_CategoryModelBayesian&>(*handle);
}

/// The distribution of set i, if it is trained and changes with the model's number, else null.
const tkNMNormal* normalToCopy(const tk_CategoryModelBayesian& model, std::size_t i)
{
    const tk_PDFMultivariateNormal* const density = tk_BayesAccelerator::normalOverRange(model, i);
    const tkNMNormal* const normal = density ? &density->normal() : nullptr;
    // A density that another model has taken over since would change without this model's number.
    return normal && normal->count() > 0 && normal->changeNumber().get() == model.changeNumber().get() &&
                   normal->dimension() == static_cast<long>(model.dependencySets()[i].size())
               ? normal
               : nullptr;
}

/// Adds the densities of a category in their order: in each step any number of normal ones, then any number of others.
void addCategory(const tk_CategoryModelBayesian& model, std::size_t category,
                 std::unordered_set<const tkNMNormal*>& copied, std::vector<StepPlan>& plans)
{
    bool isStepComplete = true;
    std::size_t step = 0; // the next one
    for (std::size_t i = 0; i < model.densities().size(); ++i)
    {
        const tkNMNormal* const normal = normalToCopy(model, i);
        const bool isBatched = normal && copied.insert(normal).second;
        if (i == 0 || (isBatched && isStepComplete))
        {
            if (step == plans.size())
                plans.emplace_back();
            plans[step++].batched.push_back({category, {}});
        }
        StepPlan& plan = plans[step - 1];
        if (isBatched)
            plan.batched.back().densities.push_back(
                {static_cast<std::size_t>(model.dependencySets()[i].front()), &normal->factorisation()});
        else
            plan.others.push_back({category, i});
        isStepComplete = !isBatched;
    }
}
} // namespace

struct tk_BayesAccelerator::Step_
{
    tkNMNormalBatch batch;            // the next normal densities of each category
    std::vector<OtherDensity> others; // those between these and the ones of the next step, category by category
};

tk_BayesAccelerator::tk_BayesAccelerator(const Models& models) : categories_(models.size())
{
    std::unordered_set<const tkNMNormal*> copied;
    std::vector<StepPlan> plans;
    for (std::size_t c = 0; c < models.size(); ++c)
    {
        const tk_CategoryModelBayesian& model = modelOf(models[c]);
        if (typeid(model) != typeid(tk_CategoryModelBayesian) || !model.changeNumber())
            continue;
        categories_[c] = {model.changeNumber(), model.changeNumber()->value()};
        addCategory(model, c, copied, plans);
    }
    steps_.reserve(plans.size());
    for (StepPlan& plan : plans)
    {
        steps_.push_back({tkNMNormalBatch(plan.batched), std::move(plan.others)});
        reach_ = std::max(reach_, steps_.back().batch.reach());
    }
}

tk_BayesAccelerator::~tk_BayesAccelerator() = default;

void tk_BayesAccelerator::matchScores(const Models& models, const tkFeaturePattern& pattern, double* scores) const
{
    const bool areAdded = addSteps_(models, pattern, scores);
    for (std::size_t c = 0; c < models.size(); ++c)
        if (!areAdded || !std::isfinite(scores[c]) || !isCurrent_(c, models))
            scores[c] = modelOf(models[c]).matchScore(pattern);
}

/// Whether the model has the densities that it had, as they were.
bool tk_BayesAccelerator::isCurrent_(std::size_t category, const Models& models) const
{
    const Category_& noted = categories_[category];
    const tkNMChangeNumber* const number = noted.changeNumber.get();
    return number && number == modelOf(models[category]).changeNumber().get() && number->value() == noted.value;
}

/// Computes the scores of the categories that are current, as far as sums do not overflow. False if the models have to
/// be asked, the first of which then throws if one does.
bool tk_BayesAccelerator::addSteps_(const Models& models, const tkFeaturePattern& pattern, double* scores) const
{
    const std::vector<double>& x = pattern.featureMeasurements(false);
    if (x.size() < reach_)
        return false;
    const bool areAllValid = pattern.numInvalid() == 0;
    tkScratch<bool, 256> valid(areAllValid ? 0 : reach_);
    for (std::size_t j = 0; j < valid.size(); ++j)
        valid[j] = pattern.isValid(static_cast<long>(j));
    std::fill_n(scores, models.size(), 0.0);
    try
    {
        for (const Step_& step : steps_)
        {
            if (areAllValid)
                step.batch.addLogDensities(x.data(), scores);
            else
                step.batch.addLogMarginals(x.data(), valid.data(), scores);
            for (const OtherDensity& other : step.others)
                if (isCurrent_(other.category, models))
                {
                    const tk_CategoryModelBayesian& model = modelOf(models[other.category]);
                    scores[other.category] +=
                        model.densities()[other.number]->logValueOfSet(pattern, model.dependencySets()[other.number]);
                }
        }
        return true;
    }
    catch (const tkException&)
    {
        return false;
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
