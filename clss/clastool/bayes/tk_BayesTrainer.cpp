#include "clss/clastool/bayes/tk_BayesTrainer.h"

#include "clss/clastool/bayes/tk_BayesAccelerator.h"

#include <utility>

tk_BayesTrainer::tk_BayesTrainer(long numMeasurements, long numPatterns)
    : size_(static_cast<std::size_t>(numMeasurements)),
      numPatterns_(static_cast<std::size_t>(numPatterns)),
      numbers_(smallLabels_, none_)
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
    const std::size_t numDensities = model.densities().size();
    for (std::size_t i = 0; i < numDensities && category.densities.size() == i; ++i)
        if (tk_PDFMultivariateNormal* const density = tk_BayesAccelerator::normalOverRange(model, i))
            category.densities.push_back(density);
    if (category.densities.size() < numDensities)
        category.densities.clear();
    category.statistics.resize(category.densities.size());

    const std::size_t number = categories_.size();
    categories_.push_back(std::move(category));
    if (label >= 0 && label < static_cast<long>(smallLabels_))
        numbers_[static_cast<std::size_t>(label)] = number;
    else
        numbersOfRest_.emplace(label, number);
    start_(categories_.back());
}

void tk_BayesTrainer::adaptModel_(Category_& category, const tkFeaturePattern& pattern)
{
    bringBack_(category);
    category.model->adapt(pattern);
    start_(category);
}

/// Takes the statistics out, once each density has learned a pattern; before, their sizes are not known.
void tk_BayesTrainer::start_(Category_& category)
{
    const std::vector<std::vector<long>>& sets = category.model->dependencySets();
    for (std::size_t i = 0; i < category.densities.size(); ++i)
        if (category.densities[i]->normal().dimension() != static_cast<long>(sets[i].size()))
            return;
    if (category.densities.empty())
        return;
    swapStatistics_(category);
    if (category.trainer.isStarted())
        return;
    std::vector<tkNMNormalTrainer::Part> parts;
    for (std::size_t i = 0; i < sets.size(); ++i)
        parts.push_back({&category.statistics[i], static_cast<std::size_t>(sets[i].front())});
    if (category.trainer.start(parts))
        return;
    bringBack_(category);
    category.densities.clear();
}

void tk_BayesTrainer::swapStatistics_(Category_& category) noexcept
{
    for (std::size_t i = 0; i < category.densities.size(); ++i)
        category.densities[i]->swapStatistics(category.statistics[i]);
    category.hasStatistics = !category.hasStatistics;
}

void tk_BayesTrainer::bringBack_(Category_& category) noexcept
{
    category.trainer.finish();
    if (category.hasStatistics)
        swapStatistics_(category);
}
