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
    /// Shares the densities and their change number: what one object learns, the other has learned.
    tk_CategoryModelBayesian(const tk_CategoryModelBayesian& other);
    tk_CategoryModelBayesian(tk_CategoryModelBayesian&& other) noexcept;
    /// Strong exception guarantee.
    tk_CategoryModelBayesian& operator=(const tk_CategoryModelBayesian& other);
    tk_CategoryModelBayesian& operator=(tk_CategoryModelBayesian&& other) noexcept;
    ~tk_CategoryModelBayesian() override;

    /// Untrained densities of the given types; *requires* one type for each set. Throws for the sets in turn what
    /// tk_ProbabilityDensityFunction::create throws.
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

    /// The sets, then the densities. Throws tkArchive::Errors, in both directions, unless there is a density for each
    /// set and the number of measurements is that of all sets; a failed loading leaves neither sets nor densities.
    TK_FACTORY_RECORD;

    std::vector<std::vector<long>> dependencySets_;                     // in the order of evaluation
    std::vector<tkPtrHandle<tk_ProbabilityDensityFunction>> densities_; // parallel, none null
    tkPtrHandle<tkNMChangeNumber> changeNumber_;
};

#endif
