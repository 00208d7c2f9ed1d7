#ifndef CLSS_MODEL_TKTRAININGREPORT_H
#define CLSS_MODEL_TKTRAININGREPORT_H

#include "foundation/tkExport.h"

#include <functional>
#include <string>
#include <vector>

class tkArchive;
class tkClassifierDataProvider;
class tkClassifierTrainParams;
class tk_ClassifierBayesian;

/// What a person should know before trusting a training with certain data and parameters: what is missing, constant,
/// contradictory or scarce in the data, and which labels are likely to be wrong.
///
/// Patterns are named by their number in the data, measurements by their index, categories by their label. A value
/// counts if it is valid and finite. Patterns of label -1 are left out. A new report is that of no data.
class TK_EXPORT tkTrainingReport
{
public:
    /// Is told after each pattern that leave-one-out has judged how many of how many are done. To cancel, it throws:
    /// the exception passes on unchanged.
    using Progress = std::function<void(long done, long total)>;

    tkTrainingReport() = default;

    /// Looks at the data, trains with them, and judges each pattern by a training without it, as
    /// tkAssessment::leaveOneOut() does, at its cost. What a training throws is reported and not thrown, if it is a
    /// tkException. Throws as tkPatternScaler's constructor does for the data.
    tkTrainingReport(const tkClassifierDataProvider& data, const tkClassifierTrainParams& params,
                     const Progress& progress = Progress());

    tkTrainingReport(const tkTrainingReport&) = default;
    tkTrainingReport(tkTrainingReport&&) = default;
    /// Strong exception guarantee.
    tkTrainingReport& operator=(const tkTrainingReport& other) { return *this = tkTrainingReport(other); }
    tkTrainingReport& operator=(tkTrainingReport&&) = default;

    struct Category
    {
        long label = 0;
        long numPatterns = 0;
        long numComplete = 0; // of which all measurements count
    };
    /// The categories, ascending, and the number of patterns without a label.
    const std::vector<Category>& categories() const { return categories_; }
    long numUnlabelled() const { return numUnlabelled_; }

    struct Measurement
    {
        long numInvalid = 0;
        long numNonFinite = 0; // of the valid ones
        /// The standard deviation over all categories, with divisor count - 1; 0.0 if the measurement is constant: it
        /// differs from its mean by rounding at most.
        double deviation = 0.0;
        /// How well it alone separates the categories: the correlation ratio eta squared (Pearson, Drapers' Company
        /// Research Memoirs, Biometric Series II, 1905), the share of its variance that lies between the means of the
        /// categories. 0.0: all means are equal; 1.0: it is constant in each category and not in all. It does not see
        /// what differs in spread alone. 0.0 for a constant one.
        double separation = 0.0;
        /// If it varies: the categories in which it is constant over two patterns or more, ascending.
        std::vector<long> constantIn;
    };
    /// One for each measurement.
    const std::vector<Measurement>& measurements() const { return measurements_; }

    /// A normal density, of one measurement or a dependency set, that has learned less than ten patterns for each of
    /// its measurements, the least that is advised (Jain, Duin and Mao, IEEE Trans. Pattern Anal. Mach. Intell. 22,
    /// 2000, 4-37). With no more patterns than measurements its covariance is singular.
    struct ScarceSet
    {
        long label = 0;
        std::vector<long> measurements;
        long numPatterns = 0; // as the density counts them
    };
    /// For Bayesian parameters, in the order of categories and sets; pooled covariances count what they borrow.
    const std::vector<ScarceSet>& scarceSets() const { return scarceSets_; }

    /// A direction in which a dependency set hardly varies: with each measurement in units of its deviation in the
    /// category, the sum of weight and measurement has this deviation, less than 1/30 of the direction that varies most
    /// (Belsley, Kuh and Welsch, Regression Diagnostics, 1980: a condition index above 30).
    struct NearDependency
    {
        long label = 0;
        std::vector<long> measurements;
        std::vector<double> weights; // parallel, of length 1; the one of largest magnitude is > 0.0
        double deviation = 0.0;
    };
    /// For Bayesian parameters, of normal densities with more patterns than measurements; those of one set in ascending
    /// order of the deviations. Measurements that are constant in the category are not looked at.
    const std::vector<NearDependency>& nearDependencies() const { return nearDependencies_; }

    /// Patterns that are equal in all that counts and have different labels: groups of two or more, in ascending order
    /// of their first ones.
    const std::vector<std::vector<long>>& contradictions() const { return contradictions_; }

    /// A pattern whose label may be wrong: after a training without it, another category has a class score of at least
    /// 0.99. With k neighbours this is the share of their votes; up to k = 99 all must be of that category.
    struct DoubtfulLabel
    {
        long pattern = 0;
        long label = 0;
        long decided = 0;
        double score = 0.0;
    };
    /// In the order of the patterns; and the number of those that could not be judged, because a training without them,
    /// or running it, throws a tkException.
    const std::vector<DoubtfulLabel>& doubtfulLabels() const { return doubtfulLabels_; }
    long numUnjudged() const { return numUnjudged_; }

    /// For nearest neighbours with the norm distance: measurements that vary, but less than 1/10 as much as the one
    /// with the largest deviation, so that they hardly take part. tkPatternScaler is the remedy.
    const std::vector<long>& outweighed() const { return outweighed_; }

    /// The message of the tkException that the training throws. Nothing is known then of sets, and no pattern is
    /// judged. Empty if there is none.
    const std::wstring& trainingError() const { return trainingError_; }

    /// All of this as English text, a line for each point.
    std::wstring text() const;

    /// Exact comparison.
    bool operator==(const tkTrainingReport& other) const;
    bool operator!=(const tkTrainingReport& other) const { return !(*this == other); }

private:
    friend TK_EXPORT tkArchive& operator||(tkArchive& archive, tkTrainingReport& report);

    void addSets_(const tk_ClassifierBayesian& classifier);

    std::vector<Category> categories_;
    long numUnlabelled_ = 0;
    std::vector<Measurement> measurements_;
    std::vector<ScarceSet> scarceSets_;
    std::vector<NearDependency> nearDependencies_;
    std::vector<std::vector<long>> contradictions_;
    std::vector<DoubtfulLabel> doubtfulLabels_;
    long numUnjudged_ = 0;
    std::vector<long> outweighed_;
    std::wstring trainingError_;
};

/// The record is a version byte and the fields in the order of the getters. Loading checks no values, but throws
/// tkArchive::Errors if a direction has not as many weights as measurements; a failed loading changes nothing.
TK_EXPORT tkArchive& operator||(tkArchive& archive, tkTrainingReport& report);

#endif
