#ifndef CLSS_MODEL_TKINCOMPLETETRAINING_H
#define CLSS_MODEL_TKINCOMPLETETRAINING_H

#include "clss/clastool/bayes/tkClassifierTrainParamsBayesian.h"

#include <functional>

/// Parameters of Bayesian classification that learns from patterns with gaps, where a normal density skips a training
/// pattern with an invalid measurement whole: the more measurements a dependency set has, the less is left.
///
/// Mean and covariance of each set approach those of maximum likelihood for the measurements that are there, by the
/// EM algorithm (Dempster, Laird and Rubin, J. R. Stat. Soc. B 39, 1977, 1-38; Little and Rubin, Statistical Analysis
/// with Missing Data, 1987, section 8.2). That a measurement is missing must not depend on its value. Sets without
/// gaps, and binomial densities, learn as ever. All else is as in tkClassifierTrainParamsBayesian.
class TK_EXPORT tkIncompleteTraining : public tkClassifierTrainParamsBayesian
{
public:
    /// Is told after each density how many of how many are learned. To cancel a training, it throws; the exception
    /// passes on unchanged, and the tool is untrained.
    using Progress = std::function<void(long done, long total)>;

    /// Throws as maxSteps(long) does.
    tkIncompleteTraining(const tkClassifierTrainParamsBayesian& params = tkClassifierTrainParamsBayesian(),
                         long maxSteps = 10);

    /// The most steps for a density; it ends earlier where no mean moves and no covariance changes by more than 10^-6
    /// of the deviations. The algorithm starts from independent measurements, and what the patterns tell little about
    /// takes it the longest: where they are few, the maximum of the likelihood fits them much better than others, and
    /// some steps classify better than many. Throws tkClassifierDefs::BadParams if maxSteps < 1.
    long maxSteps() const { return maxSteps_; }
    void maxSteps(long maxSteps);

    /// Nobody is told at first. Copied with the parameters, but neither compared nor stored.
    const Progress& progress() const { return progress_; }
    void progress(const Progress& progress) { progress_ = progress; }

    tkPtrHandle<tkClassifierTrainParams> clone() const override;

protected:
    bool isEqual_(const tkClassifierTrainParams& other) const override;
    /// Only other parameters of this class are.
    bool isSameTechnique_(const tkClassifierTrainParams& other) const override;
    tk_Classifier* newClassifier_() const override;

private:
    TK_FACTORY_RECORD;

    long maxSteps_ = 10; // >= 1, unless loaded
    Progress progress_;
};

#endif
