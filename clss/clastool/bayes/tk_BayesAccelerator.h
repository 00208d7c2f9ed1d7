#ifndef CLSS_CLASTOOL_BAYES_TK_BAYESACCELERATOR_H
#define CLSS_CLASTOOL_BAYES_TK_BAYESACCELERATOR_H

#include "clss/clastool/bayes/tk_CategoryModelBayesian.h"
#include "numerics/tkNMChangeNumber.h"

#include <cstddef>
#include <cstdint>
#include <vector>

/// Computes tk_CategoryModelBayesian::matchScore for all categories of a classifier.
///
/// It copies the factorisations of the trained normal densities over consecutive measurements, and evaluates those of
/// all categories side by side; other densities are evaluated one by one, in the order of the sets. It notes the change
/// number of each category and compares it when a pattern is scored: a category that has changed is evaluated by its
/// model, and so are all categories for a pattern that is too short. Nothing is written after construction, so that
/// copies of a classifier share one and several threads may use it. tk_BayesAccelerator_test.cpp holds it to the bits.
class TK_EXPORT tk_BayesAccelerator
{
public:
    using Models = std::vector<tkPtrHandle<tk_CategoryModel>>;

    /// For these models, each a tk_CategoryModelBayesian. A density that several sets or models share is copied for one
    /// of them at most, so that the memory is in proportion to the distinct densities.
    explicit tk_BayesAccelerator(const Models& models);
    tk_BayesAccelerator(const tk_BayesAccelerator&) = delete;
    tk_BayesAccelerator& operator=(const tk_BayesAccelerator&) = delete;
    ~tk_BayesAccelerator();

    /// scores[i] = models[i]->matchScore(pattern), in this order of evaluation, for the models of the construction.
    /// Throws what the models throw.
    void matchScores(const Models& models, const tkFeaturePattern& pattern, double* scores) const;

    /// The normal density of set i, if the set is a range of consecutive measurements and the density of the very class
    /// tk_PDFMultivariateNormal: a derived one may evaluate and learn in another way. Otherwise null.
    static tk_PDFMultivariateNormal* normalOverRange(const tk_CategoryModelBayesian& model, std::size_t i);

private:
    struct Category_
    {
        tkPtrHandle<tkNMChangeNumber> changeNumber; // null: not accelerated
        std::uint64_t value = 0;                    // of the change number, as it was
    };
    struct Step_;

    bool isCurrent_(std::size_t category, const Models& models) const;
    bool addSteps_(const Models& models, const tkFeaturePattern& pattern, double* scores) const;

    std::vector<Category_> categories_;
    std::vector<Step_> steps_;
    std::size_t reach_ = 0; // number of measurements of a pattern that the normal densities read
};

#endif
