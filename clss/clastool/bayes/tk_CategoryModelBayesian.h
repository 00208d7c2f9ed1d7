#ifndef CLSS_CLASTOOL_BAYES_TK_CATEGORYMODELBAYESIAN_H
#define CLSS_CLASTOOL_BAYES_TK_CATEGORYMODELBAYESIAN_H

#include "clss/clastool/bayes/tkClassifierDistributionTypes.h"
#include "clss/clastool/bayes/tk_ProbabilityDensityFunction.h"
#include "clss/clastool/clastool/tk_CategoryModel.h"
#include "foundation/tkPtrHandle.h"

#include <vector>

/// One category as a product of probability densities, one for each set of measurements. The number of
/// measurements is the size of all sets together. Copies share the densities.
class TK_EXPORT tk_CategoryModelBayesian : public tk_CategoryModel
{
public:
    /// An empty model, for loading.
    tk_CategoryModelBayesian();
    tk_CategoryModelBayesian(const tk_CategoryModelBayesian& other);
    tk_CategoryModelBayesian(tk_CategoryModelBayesian&& other) noexcept;
    /// Strong exception guarantee.
    tk_CategoryModelBayesian& operator=(const tk_CategoryModelBayesian& other);
    tk_CategoryModelBayesian& operator=(tk_CategoryModelBayesian&& other) noexcept;
    ~tk_CategoryModelBayesian() override;

    /// Untrained densities of the given types; *requires* one type for each set. A binomial density has the
    /// maximum of its set's first measurement, 1.0 if that is invalid or not there. For the sets in turn throws
    /// tkClassifierDefs::NotImplemented for ePoisson and eUniform, tkClassifierDefs::BadParams for an unknown
    /// type, and tkClassifierDefs::BadIndex for a negative index in a binomial set.
    tk_CategoryModelBayesian(long categoryLabel, const std::vector<std::vector<long>>& dependencySets,
                             const std::vector<tkClassifierDistributionTypes::DistributionType>& types,
                             const tkFeaturePattern& maxMeasurementValues);

    const std::vector<std::vector<long>>& dependencySets() const { return dependencySets_; }
    const std::vector<tkPtrHandle<tk_ProbabilityDensityFunction>>& densities() const { return densities_; }

    /// Grows with every change of a normal density, as long as no model loaded later shares the density and has taken
    /// it over. A model that gets other densities gets their number with them. Null in an empty model.
    const tkPtrHandle<tkNMChangeNumber>& changeNumber() const { return changeNumber_; }

    /// The log likelihood: the sum of the densities' log values, in the order of the sets. Where finite values
    /// overflow, it is the largest double of its sign. Throws what the densities throw,
    /// tkClassifierDefs::InsufficientTrainData with the category added to its message.
    double matchScore(const tkFeaturePattern& pattern, tkDiagObject* diag = nullptr,
                      unsigned long flags = 0) const override;

    /// Updates the densities in the order of the sets. Where one throws, those before it have learned.
    void adapt(const tkFeaturePattern& pattern, tkDiagObject* diag = nullptr, unsigned long flags = 0) override;

    /// Same class, equal label and number of measurements, and equivalent densities; the sets are not compared.
    bool operator==(const tk_CategoryModelBayesian& other) const;
    bool operator!=(const tk_CategoryModelBayesian& other) const { return !(*this == other); }

private:
    void watchDensities_();

    TK_FACTORY_RECORD; // throws tkArchive::Errors, in both directions, unless the number of measurements is the sets'
                       // size

    std::vector<std::vector<long>> dependencySets_;
    std::vector<tkPtrHandle<tk_ProbabilityDensityFunction>> densities_; // parallel
    tkPtrHandle<tkNMChangeNumber> changeNumber_;
};

#endif
