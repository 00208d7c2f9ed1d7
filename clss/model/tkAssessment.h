#ifndef CLSS_MODEL_TKASSESSMENT_H
#define CLSS_MODEL_TKASSESSMENT_H

#include "clss/clastool/clastool/tkClassifierDataProvider.h"
#include "clss/model/tkConfusionMatrix.h"
#include "clss/model/tkDecisionRule.h"
#include "clss/model/tkJudgement.h"

#include <cstddef>
#include <functional>
#include <vector>

class tkClassifierTool;
class tkClassifierTrainParams;

/// How good a training is, judged by patterns that it has not learned.
///
/// It keeps the match scores of every pattern, so that other frequencies, costs, costs of refusals and alphas are tried
/// without training anew: each figure below is asked with a tkDecisionRule; the parameters of the training are one. A
/// new assessment has no patterns. Patterns of label -1 are not assessed.
class TK_EXPORT tkAssessment
{
public:
    /// Is told after each pattern how many of how many have been judged. To cancel, it throws: like every exception of
    /// a training or a judgement, this passes on unchanged, and nothing remains.
    using Progress = std::function<void(long done, long total)>;

    tkAssessment() = default;
    tkAssessment(const tkAssessment&) = default;
    tkAssessment(tkAssessment&&) = default;
    /// Strong exception guarantee.
    tkAssessment& operator=(const tkAssessment& other) { return *this = tkAssessment(other); }
    tkAssessment& operator=(tkAssessment&&) = default;

    /// Deals the patterns of each category to `numFolds` folds, in an order that `seed` shuffles: both the folds and
    /// the parts of one category in them differ by one pattern at most. Patterns of label -1 get -1. Throws as
    /// tkPatternScaler's constructor does for the data, then tkClassifierDefs::BadParams if numFolds < 2, then if there
    /// are fewer patterns with a label.
    static std::vector<long> stratifiedFolds(const tkClassifierDataProvider& data, long numFolds, long seed = 1);

    /// Judges the patterns of each fold after a training with all others, in ascending order of the folds. There is one
    /// fold for every pattern of the data; -1 marks one that is only learned. Throws tkClassifierDefs::BadParams if
    /// folds and patterns differ in number, then if a fold is below -1, then as tkPatternScaler's constructor does for
    /// the data.
    static tkAssessment crossValidate(const tkClassifierDataProvider& data, const tkTrainer& trainer,
                                      const std::vector<long>& folds, const Progress& progress = Progress());
    /// The same with a tkClassifierTool that is trained with these parameters.
    static tkAssessment crossValidate(const tkClassifierDataProvider& data, const tkClassifierTrainParams& params,
                                      const std::vector<long>& folds, const Progress& progress = Progress());

    /// Judges each pattern after a training with all others: as many trainings as there are patterns. Throws as
    /// tkPatternScaler's constructor does for the data.
    static tkAssessment leaveOneOut(const tkClassifierDataProvider& data, const tkTrainer& trainer,
                                    const Progress& progress = Progress());
    /// The same with a tkClassifierTool and these parameters. One training is enough for nearest neighbours with the
    /// norm distance and finite patterns, with the same bits, and for the categories of a Bayesian classifier that have
    /// normal densities with well-conditioned covariances, with scores equal to 1e-10. Other patterns, and those far
    /// from their category, are judged by a training each.
    static tkAssessment leaveOneOut(const tkClassifierDataProvider& data, const tkClassifierTrainParams& params,
                                    const Progress& progress = Progress());

    /// Judges patterns that were held out from the training. Throws as tkPatternScaler's constructor does for the data.
    static tkAssessment heldOut(const tkClassifierDataProvider& data, const tkJudge& judge,
                                const Progress& progress = Progress());
    static tkAssessment heldOut(const tkClassifierDataProvider& data, const tkClassifierTool& tool,
                                const Progress& progress = Progress());

    /// The patterns assessed, in the order of the data: where each stands in the data, its category and p-value.
    long numPatterns() const { return static_cast<long>(labels_.size()); }
    const std::vector<long>& indices() const { return indices_; }
    const std::vector<long>& labels() const { return labels_; }
    const std::vector<double>& pValues() const { return pValues_; }

    /// What was said about a pattern, its categories ranked by the rule. Empty if it was so. Throws what the
    /// constructor of tkClassifierResult throws. *Requires* 0 <= i < numPatterns().
    tkClassifierResult result(long i, const tkDecisionRule& rule) const;

    /// The rule's decision for each pattern: none of these if the p-value is below alpha; cannot tell if the least
    /// expected cost is greater than a refusal's, or no category was named; otherwise the first category of result().
    /// Throws as result().
    std::vector<long> decisions(const tkDecisionRule& rule) const;

    /// The decisions counted; tkConfusionMatrix has recall, precision, accuracy and expected cost. Throws as result().
    tkConfusionMatrix confusion(const tkDecisionRule& rule) const { return {labels_, decisions(rule)}; }

    /// Mean of -ln of the class score of the right category. A score below 2^-52, or none at all, counts as 2^-52, so
    /// that one pattern costs 36.04 at most. 0.0 without patterns. Refusals do not count. Throws as result().
    double logLoss(const tkDecisionRule& rule) const;

    /// One bin of the reliability diagram: patterns whose largest class score lies in it.
    struct ReliabilityBin
    {
        long count;
        double meanScore;  // 0.0 if the count is 0
        double shareRight; // of patterns whose category has this score; 0.0 if the count is 0
    };

    /// Whether class scores mean what they say: of patterns with a largest class score s, the share s should be of this
    /// category. Bin b of B takes scores in (b / B, (b + 1) / B], and the first one 0.0, as which a score of NaN and a
    /// pattern without categories count. Refusals do not count. Throws tkClassifierDefs::BadParams if numBins < 1, then
    /// as result().
    std::vector<ReliabilityBin> reliability(const tkDecisionRule& rule, long numBins = 10) const;
    /// Expected calibration error: sum over the bins of count / numPatterns() |meanScore - shareRight| (Naeini, Cooper
    /// and Hauskrecht, AAAI 2015). 0.0 without patterns. Throws as reliability().
    double calibrationError(const tkDecisionRule& rule, long numBins = 10) const;

    /// With a refusal's cost of `refusalCost`, the share `refused` of all patterns is refused, and each of the others
    /// costs `cost` on average.
    struct RefusalPoint
    {
        double refusalCost;
        double refused;
        double cost;
    };

    /// What refusing the least certain patterns saves: a point for each expected cost of a decision, ascending, at
    /// which the patterns that cost more are refused. The categories are as frequent as the rule says, as in
    /// tkConfusionMatrix::expectedCost(). Patterns that are none of these are refused at every point, and so are those
    /// without a category; a pattern whose expected cost is NaN is refused at none, as by decisions(), and counts as
    /// one of 0.0. Frequencies that are not finite give NaN. The rule's own refusalCost() is not looked at. Throws as
    /// result(). Sorts the patterns.
    std::vector<RefusalPoint> costAgainstRefusals(const tkDecisionRule& rule) const;

    /// Exact comparison of all patterns.
    bool operator==(const tkAssessment& other) const;
    bool operator!=(const tkAssessment& other) const { return !(*this == other); }

private:
    friend TK_EXPORT tkArchive& operator||(tkArchive& archive, tkAssessment& assessment);

    void add_(long index, long label, const tkJudgement& judgement);
    std::size_t begin_(std::size_t i) const; // where the pattern's categories begin
    template <class Visit>
    void forEachDecided_(const tkDecisionRule& rule, Visit visit) const;

    std::vector<long> indices_;
    std::vector<long> labels_;                 // parallel to indices_
    std::vector<double> pValues_;              // parallel
    std::vector<double> matchScoreFactorLogs_; // parallel
    std::vector<long> ends_;                   // parallel: where the pattern's categories end
    std::vector<long> categories_;             // of all patterns; those of one ascending
    std::vector<double> matchScores_;          // parallel to categories_
};

/// The record is a version byte, indices, labels, p-values, logarithms of factors, ends, categories, match scores.
/// Loading checks no values, but throws tkArchive::Errors if the first five or the last two differ in length, or if the
/// ends do not ascend to the number of categories; a failed loading changes nothing.
TK_EXPORT tkArchive& operator||(tkArchive& archive, tkAssessment& assessment);

#endif
