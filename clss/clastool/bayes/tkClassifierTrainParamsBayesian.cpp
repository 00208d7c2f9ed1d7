#include "clss/clastool/bayes/tkClassifierTrainParamsBayesian.h"

#include "clss/clastool/bayes/tk_ClassifierBayesian.h"
#include "foundation/tkArchive.h"

#include <typeinfo>

tkClassifierTrainParamsBayesian::tkClassifierTrainParamsBayesian(const tkClassifierDistributionTypes& distributionTypes,
                                                                 const tkClassifierFrequencies& categoryFrequencies,
                                                                 const tkClassifierCosts& misclassificationCosts,
                                                                 const tkFeaturePattern& maxMeasurementValues)
    : distributionTypes_(distributionTypes),
      categoryFrequencies_(categoryFrequencies),
      misclassificationCosts_(misclassificationCosts),
      maxMeasurementValues_(maxMeasurementValues)
{
}

tkPtrHandle<tkClassifierTrainParams> tkClassifierTrainParamsBayesian::clone() const
{
    return tkPtrHandle<tkClassifierTrainParams>(new tkClassifierTrainParamsBayesian(*this));
}

bool tkClassifierTrainParamsBayesian::isEqual_(const tkClassifierTrainParams& other) const
{
    if (!tkClassifierTrainParams::isEqual_(other) || typeid(*this) != typeid(other))
        return false;
    const auto& bayesian = static_cast<const tkClassifierTrainParamsBayesian&>(other);
    return distributionTypes_ == bayesian.distributionTypes_ &&
           misclassificationCosts_ == bayesian.misclassificationCosts_ &&
           categoryFrequencies_ == bayesian.categoryFrequencies_ &&
           maxMeasurementValues_ == bayesian.maxMeasurementValues_;
}

bool tkClassifierTrainParamsBayesian::isSameTechnique_(const tkClassifierTrainParams& other) const
{
    return dynamic_cast<const tkClassifierTrainParamsBayesian*>(&other) != nullptr;
}

tk_Classifier* tkClassifierTrainParamsBayesian::newClassifier_() const
{
    return new tk_ClassifierBayesian;
}

TK_DEFINE_FACTORY_RECORD(tkClassifierTrainParamsBayesian, 0)

void tkClassifierTrainParamsBayesian::serialize_(tkArchive& archive, unsigned char)
{
    tkClassifierTrainParams::dispatchSerialize(archive);
    // The record has the costs before the frequencies.
    archive || distributionTypes_ || misclassificationCosts_ || categoryFrequencies_ || maxMeasurementValues_;
}
