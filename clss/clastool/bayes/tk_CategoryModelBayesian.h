#ifndef CLSS_CLASTOOL_BAYES_TK_CATEGORYMODELBAYESIAN_H
#define CLSS_CLASTOOL_BAYES_TK_CATEGORYMODELBAYESIAN_H

#include "clss/clastool/bayes/tkClassifierDistributionTypes.h"
#include "clss/clastool/bayes/tk_ProbabilityDensityFunction.h"
#include "clss/clastool/clastool/tk_CategoryModel.h"
#include "foundation/tkPtrHandle.h"
#include "numerics/tkNMNormalProducts.h"

#include <cstddef>
#include <utility>
#include <vector>

class tkNMLearner;

/// One category as a product of probability densities, one for each set of measurements. The number of
/// measurements is the size of all sets together. Copies share the densities.
class TK_EXPORT tk_CategoryModelBayesian : public tk_CategoryModel
{
public:
    /// An empty model, for loading.
    tk_CategoryModelBayesian() = default;
    tk_CategoryModelBayesian(const tk_CategoryModelBayesian&) = default;
    tk_CategoryModelBayesian(tk_CategoryModelBayesian&&) = default;
    /// Whole or, if memory runs out, not at all.
    tk_CategoryModelBayesian& operator=(const tk_CategoryModelBayesian& other)
    {
        return *this = tk_CategoryModelBayesian(other);
    }
    tk_CategoryModelBayesian& operator=(tk_CategoryModelBayesian&& other);

    /// Untrained densities of the given types, *requires* one type for each set. A binomial density has the
    /// maximum of its set's first measurement, 1.0 if that is invalid or not there. For the sets in turn throws
    /// tkClassifierDefs::NotImplemented for ePoisson and eUniform, tkClassifierDefs::BadParams for an unknown
    /// type, and tkClassifierDefs::BadIndex for a negative index in a binomial set.
    tk_CategoryModelBayesian(long categoryLabel, const std::vector<std::vector<long>>& dependencySets,
                             const std::vector<tkClassifierDistributionTypes::DistributionType>& types,
                             const tkFeaturePattern& maxMeasurementValues);

    const std::vector<std::vector<long>>& dependencySets() const { return dependencySets_; }
    const std::vector<tkPtrHandle<tk_ProbabilityDensityFunction>>& densities() const { return densities_; }

    /// The log likelihood: the sum of the densities' log values, in the order of the sets. Where finite values
    /// overflow, it is the largest double of its sign. Throws what the densities throw;
    /// tkClassifierDefs::InsufficientTrainData tells the category in addition.
    double matchScore(const tkFeaturePattern& pattern, tkDiagObject* diag = nullptr,
                      unsigned long flags = 0) const override;

    /// Updates the densities in the order of the sets. Where one throws, those before it have learned.
    void adapt(const tkFeaturePattern& pattern, tkDiagObject* diag = nullptr, unsigned long flags = 0) override;

    /// Lets the learner learn for the densities, what adapt() would from a pattern of the same measurements, all valid,
    /// once each of them has learned a pattern; until then nothing is done. False if it never can: they are not all
    /// normal over neighbouring measurements, or the learner refuses.
    bool startLearner(tkNMLearner& learner) const;

    /// The measurements of each density before the first one that is not a trained normal one over neighbouring
    /// measurements.
    std::vector<tkNMNormalProducts::Set> normalSets() const;

    /// Fills a product with the densities of normalSets(), which leave it when another model is assigned to this one. A
    /// change of the densities in its demands.
    void join(const tkPtrHandle<tkNMNormalProducts>& products, std::size_t product);

    /// Whether this product has the densities, so that it gives, if it gives anything, the bits of their sum.
    bool isProduct(const tkNMNormalProducts* products, std::size_t product) const
    {
        return place_.products.get() == products && place_.product == product;
    }

    /// matchScore() with what the product gives for the densities in it.
    double matchScoreBehindProduct(const tkFeaturePattern& pattern, double score) const
    {
        return place_.size == densities_.size() ? score : addScores_(pattern, place_.size, score);
    }

    /// Equal label and number of measurements, and equivalent densities; the sets themselves are not compared.
    bool operator==(const tk_CategoryModelBayesian& other) const;
    bool operator!=(const tk_CategoryModelBayesian& other) const { return !(*this == other); }

private:
    /// The nearest way to a normal density over consecutive measurements.
    struct Shortcut_
    {
        tk_PDFMultivariateNormal* normalOrNull = nullptr; // null: another density, or another kind of set
        std::size_t first = 0;                            // measurement
        std::size_t size = 0;

        /// Whether it can be taken if the first `reach` measurements are known to be valid.
        bool isWithin(std::size_t reach) const { return normalOrNull && first < reach && size <= reach - first; }
    };

    /// The product that has the densities; that of a model, not of its copies, which may live on when the model has
    /// others.
    struct Place_
    {
        Place_() = default;
        Place_(const Place_&) {}
        Place_(Place_&& other) noexcept { *this = std::move(other); }
        Place_& operator=(Place_&& other) noexcept
        {
            products = std::move(other.products);
            product = other.product;
            size = std::exchange(other.size, 0);
            return *this;
        }

        tkPtrHandle<tkNMNormalProducts> products; // null: none
        std::size_t product = 0;
        std::size_t size = 0; // number of densities in it, the first ones
    };

    void leaveProduct_();

    /// The score with the log values of the densities from the `first` on.
    double addScores_(const tkFeaturePattern& pattern, std::size_t first, double score) const;

    static std::vector<Shortcut_>
    shortcutsTo_(const std::vector<std::vector<long>>& sets,
                 const std::vector<tkPtrHandle<tk_ProbabilityDensityFunction>>& densities);

    TK_FACTORY_RECORD;

    std::vector<std::vector<long>> dependencySets_;
    std::vector<tkPtrHandle<tk_ProbabilityDensityFunction>> densities_; // parallel
    std::vector<Shortcut_> shortcuts_;                                  // parallel, for a pattern without gaps
    Place_ place_;
};

#endif
