#ifndef CLSS_CLASTOOL_BAYES_TK_CATEGORYLEARNERS_H
#define CLSS_CLASTOOL_BAYES_TK_CATEGORYLEARNERS_H

#include "clss/clastool/bayes/tk_CategoryModelBayesian.h"
#include "numerics/tkNMLearner.h"

#include <cstddef>
#include <unordered_map>
#include <vector>

/// The categories that a training has met, found by label, with a learner for each where its densities allow one.
///
/// Whatever could fail does so at its own pattern. The models have all that was learned when this goes, also where an
/// exception ends the training.
class tk_CategoryLearners
{
public:
    /// For at most `numPatterns` patterns of `numMeasurements` measurements; others are welcome, but slower.
    tk_CategoryLearners(long numMeasurements, long numPatterns);

    /// The patterns of this label are `model`'s from now on. *Requires* that the label is new, and that the model
    /// outlives this.
    void add(long label, tk_CategoryModelBayesian& model);

    /// Lets the model of this label adapt to the pattern; throws what it throws. False, and nothing done, if the label
    /// is new: a null handle fails only after that.
    bool adapt(long label, const tkPtrHandle_const<tkFeaturePattern>& handle)
    {
        const std::size_t number = number_(label);
        if (number == none_)
            return false;
        Category_& category = categories_[number];
        const tkFeaturePattern& pattern = *handle;
        const std::vector<double>& x = pattern.featureMeasurements(false);
        if (!category.learner.isStarted() || x.size() != size_ || pattern.numInvalid() > 0 ||
            !category.learner.add(x.data()))
            adapt_(category, pattern);
        return true;
    }

private:
    struct Category_
    {
        tk_CategoryModelBayesian* model;
        tkNMLearner learner;
        bool mayStart; // whether the learner could, or could later
    };

    static constexpr std::size_t none_ = static_cast<std::size_t>(-1);
    static constexpr std::size_t smallLabels_ = 1024;

    std::size_t number_(long label) const
    {
        if (label >= 0 && label < static_cast<long>(smallLabels_))
            return numbers_[static_cast<std::size_t>(label)];
        const auto found = numbersOfRest_.find(label);
        return found == numbersOfRest_.end() ? none_ : found->second;
    }

    /// The way that every pattern may take.
    void adapt_(Category_& category, const tkFeaturePattern& pattern);

    std::size_t size_;
    std::size_t numPatterns_;
    std::vector<Category_> categories_;
    std::vector<std::size_t> numbers_;                    // in categories_, of the small labels
    std::unordered_map<long, std::size_t> numbersOfRest_; // of the others
};

#endif
