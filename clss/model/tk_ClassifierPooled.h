#ifndef CLSS_MODEL_TK_CLASSIFIERPOOLED_H
#define CLSS_MODEL_TK_CLASSIFIERPOOLED_H

#include "clss/clastool/bayes/tk_ClassifierBayesian.h"

/// The Bayesian classifier of tkCovariancePooling: a training ends with the pooling of the covariances.
///
/// The densities then hold the pooled covariances. Where a > 0 they count one pattern more than P has degrees of
/// freedom, for that is how well they are known.
class TK_EXPORT tk_ClassifierPooled : public tk_ClassifierBayesian
{
public:
    /// Shares the category models, as all copies of a Bayesian classifier do.
    tkPtrHandle<tk_Classifier> clone() const override;

protected:
    /// Throws tkClassifierDefs::BadParams for a loaded amount that is no share, then as the base.
    void train_(const tkClassifierDataProvider& data, const tkClassifierTrainParams& params) override;
    /// Keeps the densities as they were pooled: a chosen amount is not chosen anew for other frequencies. Throws
    /// tkClassifierDefs::BadParams if another pooling is asked for than was trained with, then as the base.
    void retrain_(const tkClassifierTrainParams& params) override;

private:
    TK_FACTORY_RECORD;
};

#endif
