#ifndef CLSS_MODEL_TK_NOVELTYEVIDENCE_H
#define CLSS_MODEL_TK_NOVELTYEVIDENCE_H

#include "clss/clastool/clastool/tkClassifierTrainParams.h"
#include "clss/clastool/clastool/tkFeaturePattern.h"

#include <cstddef>
#include <memory>
#include <vector>

/// The patterns that novelty is learned from: those whose measurements are all valid and finite, category by category.
struct TK_EXPORT tk_NoveltyData
{
    std::size_t numPatterns() const { return ends.empty() ? 0 : static_cast<std::size_t>(ends.back()); }
    std::size_t begin(std::size_t category) const
    {
        return category == 0 ? 0 : static_cast<std::size_t>(ends[category - 1]);
    }
    std::size_t end(std::size_t category) const { return static_cast<std::size_t>(ends[category]); }
    const double* pattern(std::size_t i) const
    {
        return measurements.data() + i * static_cast<std::size_t>(numMeasurements);
    }

    long numMeasurements = 0;
    std::vector<long> labels;         // of the categories, ascending
    std::vector<long> ends;           // parallel: where a category's patterns end, each with one at least
    std::vector<double> measurements; // numMeasurements of each pattern
};

/// What speaks for a pattern being one of each category: larger for a pattern that is more like those of the category.
/// Only evidences by the same measurements can be compared. The data must outlive it.
class TK_EXPORT tk_NoveltyEvidence
{
public:
    /// For patterns that have certain measurements and no others.
    class View
    {
    public:
        virtual ~View() = default;

        /// The evidence for each category. `pattern` has all measurements, of which only those of the view are read;
        /// they are finite. Minus infinity for a category without patterns; never NaN.
        virtual void fill(const double* pattern, double* evidence) const = 0;

        /// The same for pattern i of the data, as it would be without this pattern.
        virtual void fillLeftOut(std::size_t i, double* evidence) const = 0;
    };

    virtual ~tk_NoveltyEvidence() = default;

    /// *Requires* measurements, in ascending order, that there are.
    virtual std::unique_ptr<const View> view(const std::vector<long>& measurements) const = 0;

    /// Throws tkClassifierDefs::BadMethod unless the parameters are those of Bayesian or nearest-neighbour
    /// classification. For the first then throws what a training with these data throws, and
    /// tkClassifierDefs::BadIndex for a dependency set with a measurement that there is not; for the others
    /// tkClassifierDefs::BadParams for a loaded k below 1, then tkBadPointer for a loaded metric that is null.
    static std::unique_ptr<const tk_NoveltyEvidence> make(const tk_NoveltyData& data,
                                                          const tkClassifierTrainParams& params);
};

#endif
