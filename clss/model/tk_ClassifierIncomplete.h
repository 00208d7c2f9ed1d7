#ifndef CLSS_MODEL_TK_CLASSIFIERINCOMPLETE_H
#define CLSS_MODEL_TK_CLASSIFIERINCOMPLETE_H

#include "clss/clastool/bayes/tk_ClassifierBayesian.h"

/// The Bayesian classifier of tkIncompleteTraining: a training ends with new statistics for the normal densities whose
/// patterns have gaps.
///
/// A density counts the patterns that have a measurement of its set. A measurement that no pattern of the category has
/// gets the mean and variance of all categories, and is independent of the others.
class TK_EXPORT tk_ClassifierIncomplete : public tk_ClassifierBayesian
{
public:
    tkPtrHandle<tk_Classifier> clone() const override;

protected:
    /// Throws as tk_LabelledPatterns does for the data, then tkClassifierDefs::BadParams for a loaded number of steps
    /// below 1, then as the base, then tkFailure for a measurement above tkNMNormal::largestMagnitude().
    void train_(const tkClassifierDataProvider& data, const tkClassifierTrainParams& params) override;
    /// Throws tkClassifierDefs::BadParams if the number of steps is another than was trained with, or the parameters
    /// are not of tkIncompleteTraining; then as the base.
    void retrain_(const tkClassifierTrainParams& params) override;

private:
    TK_FACTORY_RECORD;
};

#endif
