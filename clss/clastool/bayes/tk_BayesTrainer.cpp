#include "clss/clastool/bayes/tk_BayesTrainer.h"

#include "clss/clastool/bayes/tk_BayesAccelerator.h"
#include "numerics/kernels/tkNMNormalTrainer.h"
#include "numerics/tkNMNormal.h"

#include <algorithm>
#include <utility>

struct tk_BayesTrainer::Category_
{
    struct Normal
    {
        std::size_t number; // in the model
        tk_PDFMultivariateNormal* density;
        tkNMStatistics statistics; // its own, or empty ones
    };

    tk_CategoryModelBayesian* model;
    tkNMNormalTrainer trainer;
    std::vector<Normal> normals;     // empty: none of them can be trained so
    std::vector<std::size_t> others; // numbers of the other densities
    bool hasStatistics = false;
};

tk_BayesTrainer::tk_BayesTrainer(long numMeasurements, long numPatterns)
    : size_(static_cast<std::size_t>(numMeasurements)),
      numPatterns_(static_cast<std::size_t>(numPatterns))
{
}

tk_BayesTrainer::~tk_BayesTrainer()
{
    for (Category_& category : categories_)
        bringBack_(category);
}

void tk_BayesTrainer::add(long label, tk_CategoryModelBayesian& model)
{
    Category_ category{&model, tkNMNormalTrainer(size_, numPatterns_), {}, {}};
    for (std::size_t i = 0; i < model.densities().size(); ++i)
        if (tk_PDFMultivariateNormal* const density = tk_BayesAccelerator::normalOverRange(model, i))
            category.normals.push_back({i, density, tkNMStatistics()});
        else
            category.others.push_back(i);

    const std::size_t number = categories_.size();
    categories_.push_back(std::move(category));
    if (label >= 0 && label < smallLabels_)
    {
        const std::size_t place = static_cast<std::size_t>(label);
        numbers_.resize(std::max(numbers_.size(), place + 1), none_);
        numbers_[place] = number;
    }
    else
        numbersOfRest_.emplace(label, number);
    start_(categories_.back());
}

bool tk_BayesTrainer::adapt(long label, const tkPtrHandle_const<tkFeaturePattern>& handle)
{
    const std::size_t number = number_(label);
    if (number == none_)
        return false;
    Category_& category = categories_[number];
    const tkFeaturePattern& pattern = *handle;
    const std::vector<double>& x = pattern.featureMeasurements(false);
    if (!category.hasStatistics || x.size() != size_ || pattern.numInvalid() > 0 || !adaptByTrainer_(category, pattern))
        adaptModel_(category, pattern);
    return true;
}

/// False, and nothing done, for a pattern that a normal density might skip or refuse.
bool tk_BayesTrainer::adaptByTrainer_(Category_& category, const tkFeaturePattern& pattern)
{
    const double* const x = pattern.featureMeasurements(false).data();
    if (!category.others.empty())
    {
        if (!category.trainer.canAdd(x))
            return false;
        adaptOthers_(category, pattern);
    }
    return category.trainer.add(x);
}

void tk_BayesTrainer::adaptModel_(Category_& category, const tkFeaturePattern& pattern)
{
    bringBack_(category);
    category.model->adapt(pattern);
    start_(category);
}

/// Has the other densities learn the pattern. Where one throws, the normal ones before it have learned it.
void tk_BayesTrainer::adaptOthers_(Category_& category, const tkFeaturePattern& pattern)
{
    const tk_CategoryModelBayesian& model = *category.model;
    for (const std::size_t i : category.others)
        try
        {
            model.densities()[i]->updateWithSet(pattern, model.dependencySets()[i]);
        }
        catch (...)
        {
            bringBack_(category);
            for (const Category_::Normal& normal : category.normals)
                if (normal.number < i)
                    normal.density->updateWithSet(pattern, model.dependencySets()[normal.number]);
            throw;
        }
}

/// Takes the statistics out, once each density has learned a pattern; before, their sizes are not known.
void tk_BayesTrainer::start_(Category_& category)
{
    const std::vector<std::vector<long>>& sets = category.model->dependencySets();
    for (const Category_::Normal& normal : category.normals)
        if (normal.density->normal().dimension() != static_cast<long>(sets[normal.number].size()))
            return;
    if (category.normals.empty())
        return;
    swapStatistics_(category);
    if (category.trainer.isStarted())
        return;
    std::vector<tkNMNormalTrainer::Part> parts;
    parts.reserve(category.normals.size());
    for (Category_::Normal& normal : category.normals)
        parts.push_back({&normal.statistics, static_cast<std::size_t>(sets[normal.number].front())});
    if (category.trainer.start(parts))
        return;
    bringBack_(category);
    category.normals.clear();
}

void tk_BayesTrainer::swapStatistics_(Category_& category) noexcept
{
    for (Category_::Normal& normal : category.normals)
        normal.density->swapStatistics(normal.statistics);
    category.hasStatistics = !category.hasStatistics;
}

void tk_BayesTrainer::bringBack_(Category_& category) noexcept
{
    category.trainer.finish();
    if (category.hasStatistics)
        swapStatistics_(category);
}
