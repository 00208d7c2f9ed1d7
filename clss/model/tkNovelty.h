#ifndef CLSS_MODEL_TKNOVELTY_H
#define CLSS_MODEL_TKNOVELTY_H

#include "clss/clastool/clastool/tkClassifierDataProvider.h"
#include "clss/clastool/clastool/tkFeaturePattern.h"
#include "foundation/tkExport.h"

#include <memory>
#include <vector>

class tkArchive;
class tkClassifierTrainParams;
struct tk_NoveltyModel;

/// Whether a pattern is like none of the known ones: the share alpha of the known patterns has a p-value below alpha.
///
/// It is learned and asked beside a tool, and tkDecisionRule::alpha() decides what is refused (see tkTrainer):
///     const tkNovelty novelty(training, params);
///     return [tool, novelty](const tkFeaturePattern& p) { return tkJudgement(tool.run(p), novelty.pValue(p)); };
/// For each category there is an evidence that a pattern is one of it. The best one is ranked among those of the known
/// patterns, each as learned without it (conformal prediction: Vovk, Gammerman and Shafer, Algorithmic Learning in a
/// Random World, 2005). Copies share what was learned. Several threads may ask one object.
class TK_EXPORT tkNovelty
{
public:
    /// Knows no category: every p-value is 1.0.
    tkNovelty();

    /// Learns from the patterns with a label whose measurements are all valid and finite.
    ///
    /// With parameters of Bayesian classification the evidence is made of two: the probability of patterns that are
    /// further from the category's mean, with the uncertainty of mean and covariance (Hotelling's T² for the normal
    /// dependency sets, the tails of the binomial ones, combined by Fisher's method), and the distance to the three
    /// nearest patterns in units of the covariance within the categories. Frequencies and costs have no influence, nor
    /// has what parameters of a derived class add. A measurement that is the same in all patterns says nothing.
    ///
    /// With parameters of nearest neighbours it is the distance to the k-th nearest pattern of the category, in their
    /// metric, with the sign changed; to the last one if the category has fewer.
    ///
    /// Throws as tkPatternScaler's constructor does for the data; then tkClassifierDefs::InsufficientTrainData for the
    /// least label of a category none of whose patterns has all measurements; then tkClassifierDefs::BadMethod unless
    /// the parameters are of one of the two kinds. Then, for those of Bayesian classification, what a training with
    /// them throws, and tkClassifierDefs::BadIndex for a dependency set with a measurement that the data do not have;
    /// for the others tkClassifierDefs::BadParams for a loaded k below 1, then tkBadPointer for a loaded metric that is
    /// null, then what the metric throws. Time in proportion to patterns² * measurements + patterns * categories *
    /// measurements² + categories * measurements³.
    tkNovelty(const tkClassifierDataProvider& data, const tkClassifierTrainParams& params);

    /// 0 if nothing was learned.
    long numMeasurements() const;
    /// The known categories, ascending.
    const std::vector<long>& categoryLabels() const;
    /// The number n of known patterns: p-values are multiples of 1 / (n + 1).
    long numPatterns() const;

    /// What is said about one pattern.
    struct Judgement
    {
        /// See pValue().
        double pValue;
        /// The best category's evidence: it orders patterns also where their p-values are equal, but only those with
        /// the same valid measurements.
        double evidence;
        /// Parallel to categoryLabels(): the rank of the category's evidence among its own patterns. With n patterns of
        /// a category it is 1 / (n + 1) at least.
        std::vector<double> categoryPValues;
    };

    /// (1 + number of known patterns whose best evidence is not greater) / (1 + number of known patterns). If the
    /// pattern and the known ones come in random order from one distribution, it is below alpha with a probability of
    /// alpha at most; but for this, that known patterns are judged by one pattern less than new ones.
    ///
    /// Measurements that are invalid or not finite are left out, and the ranks are those by the others, for known and
    /// judged patterns alike: among 256 of the known ones at most, evenly chosen from all categories, so that an alpha
    /// of 1/257 then refuses nothing. Without any measurement it is 1.0.
    ///
    /// Throws tkClassifierDefs::BadFeatures if something was learned and the pattern has not numMeasurements(), then
    /// what the metric throws. Time in proportion to patterns * measurements + categories * measurements²; with
    /// measurements left out as 256 patterns, and patterns * measurements² + categories * measurements³.
    double pValue(const tkFeaturePattern& pattern) const { return judge(pattern).pValue; }
    /// The same and more; without any measurement all p-values are 1.0 and the evidence is 0.0.
    Judgement judge(const tkFeaturePattern& pattern) const;

    /// Equal parameters, patterns and ranks.
    bool operator==(const tkNovelty& other) const;
    bool operator!=(const tkNovelty& other) const { return !(*this == other); }

private:
    friend TK_EXPORT tkArchive& operator||(tkArchive& archive, tkNovelty& novelty);

    std::shared_ptr<const tk_NoveltyModel> model_; // null: nothing was learned
};

/// The record is a version byte, the parameters, the patterns with their categories, and the evidences of all. What
/// does not fit together is refused with tkArchive::Errors, and the object then keeps what it held. Loading learns
/// anew but for the evidences.
TK_EXPORT tkArchive& operator||(tkArchive& archive, tkNovelty& novelty);

#endif
