#ifndef CLSS_CLASTOOL_BAYES_TK_BAYESTRAINER_H
#define CLSS_CLASTOOL_BAYES_TK_BAYESTRAINER_H

#include "clss/clastool/bayes/tk_CategoryModelBayesian.h"

#include <cstddef>
#include <unordered_map>
#include <vector>

/// Computes tk_CategoryModelBayesian::adapt for the patterns of a training, whose categories it finds by label.
///
/// It takes the statistics of the normal densities over consecutive measurements out and lets a trainer add the
/// patterns; other densities learn by themselves. Every pattern that the normal densities might skip or refuse is
/// learned by the model. Exceptions are thrown for the pattern that causes them. The destructor brings all statistics
/// back. tk_BayesTrainer_test.cpp holds it to the bits.
class tk_BayesTrainer
{
public:
    /// For at most `numPatterns` patterns of `numMeasurements` measurements; those of other sizes cost more.
    tk_BayesTrainer(long numMeasurements, long numPatterns);
    tk_BayesTrainer(const tk_BayesTrainer&) = delete;
    tk_BayesTrainer& operator=(const tk_BayesTrainer&) = delete;
    ~tk_BayesTrainer();

    /// From now on, patterns of this label belong to `model`. *Requires* that the label is new, and that the model
    /// outlives this.
    void add(long label, tk_CategoryModelBayesian& model);

    /// Adapts the model of this label to the pattern; throws what it throws. False, and nothing done, if the label
    /// is new: a null handle fails only after that.
    bool adapt(long label, const tkPtrHandle_const<tkFeaturePattern>& handle);

private:
    struct Category_;

    static constexpr std::size_t none_ = static_cast<std::size_t>(-1);
    static constexpr long smallLabels_ = 1024;

    std::size_t number_(long label) const
    {
        if (label >= 0 && label < static_cast<long>(numbers_.size()))
            return numbers_[static_cast<std::size_t>(label)];
        const auto found = numbersOfRest_.find(label);
        return found == numbersOfRest_.end() ? none_ : found->second;
    }

    void adaptModel_(Category_& category, const tkFeaturePattern& pattern);
    static bool adaptByTrainer_(Category_& category, const tkFeaturePattern& pattern);
    static void adaptOthers_(Category_& category, const tkFeaturePattern& pattern);
    static void start_(Category_& category);
    static void swapStatistics_(Category_& category) noexcept;
    static void bringBack_(Category_& category) noexcept;

    std::size_t size_;
    std::size_t numPatterns_;
    std::vector<Category_> categories_;
    std::vector<std::size_t> numbers_;                    // in categories_, of the labels 0, 1, ... up to a small one
    std::unordered_map<long, std::size_t> numbersOfRest_; // of the others
};

#endif
