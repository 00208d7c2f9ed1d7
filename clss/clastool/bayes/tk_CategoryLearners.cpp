#include "clss/clastool/bayes/tk_CategoryLearners.h"

tk_CategoryLearners::tk_CategoryLearners(long numMeasurements, long numPatterns)
    : size_(static_cast<std::size_t>(numMeasurements)),
      numPatterns_(static_cast<std::size_t>(numPatterns)),
      numbers_(smallLabels_, none_)
{
}

void tk_CategoryLearners::add(long label, tk_CategoryModelBayesian& model)
{
    const std::size_t number = categories_.size();
    categories_.push_back({&model, tkNMLearner(size_, numPatterns_), true});
    if (label >= 0 && label < static_cast<long>(smallLabels_))
        numbers_[static_cast<std::size_t>(label)] = number;
    else
        numbersOfRest_.emplace(label, number);
    categories_.back().mayStart = model.startLearner(categories_.back().learner);
}

void tk_CategoryLearners::adapt_(Category_& category, const tkFeaturePattern& pattern)
{
    category.learner.finish();
    category.model->adapt(pattern);
    if (category.mayStart && !category.learner.isStarted())
        category.mayStart = category.model->startLearner(category.learner);
}
