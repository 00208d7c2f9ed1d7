#ifndef CLSS_CLASTOOL_BAYES_TKCLASSIFIERTRAINPARAMSBAYESIAN_H
#define CLSS_CLASTOOL_BAYES_TKCLASSIFIERTRAINPARAMSBAYESIAN_H

#include "clss/clastool/bayes/tkClassifierDistributionTypes.h"
#include "clss/clastool/clastool/tkClassifierCosts.h"
#include "clss/clastool/clastool/tkClassifierFrequencies.h"
#include "clss/clastool/clastool/tkClassifierTrainParams.h"
#include "clss/clastool/clastool/tkFeaturePattern.h"

/// Parameters of Bayesian classification: each category is modelled by the probability densities of its
/// measurements (Duda, Hart and Stork, Pattern Classification, 2nd ed., chapters 2 and 3).
///
/// The distribution types and maximum values shape the models when they are trained and cannot change in a
/// retraining; frequencies and costs take part in each decision and can.
///
/// The object owns its four values, and setters replace them whole. Nothing is checked here that the values have not
/// checked themselves. Several threads may read one object.
class TK_EXPORT tkClassifierTrainParamsBayesian : public tkClassifierTrainParams
{
public:
    /// By default normal distributions of independent measurements, equal frequencies, unit costs and no maximum
    /// values.
    tkClassifierTrainParamsBayesian(const tkClassifierDistributionTypes& distributionTypes =
                                        tkClassifierDistributionTypes(tkClassifierDistributionTypes::eNormal),
                                    const tkClassifierFrequencies& categoryFrequencies = tkClassifierFrequencies(),
                                    const tkClassifierCosts& misclassificationCosts = tkClassifierCosts(),
                                    const tkFeaturePattern& maxMeasurementValues = tkFeaturePattern());
    tkClassifierTrainParamsBayesian(const tkClassifierTrainParamsBayesian&) = default;
    tkClassifierTrainParamsBayesian(tkClassifierTrainParamsBayesian&&) = default;
    /// Strong exception guarantee.
    tkClassifierTrainParamsBayesian& operator=(const tkClassifierTrainParamsBayesian& other)
    {
        return *this = tkClassifierTrainParamsBayesian(other);
    }
    tkClassifierTrainParamsBayesian& operator=(tkClassifierTrainParamsBayesian&&) = default;

    /// Distribution of every measurement of every category, and the dependency sets. A type that cannot be trained
    /// shows itself in the training. Strong exception guarantee, as of all setters here.
    const tkClassifierDistributionTypes& distributionTypes() const { return distributionTypes_; }
    void distributionTypes(const tkClassifierDistributionTypes& types) { distributionTypes_ = types; }

    /// A-priori frequencies of the categories, relative weights. Where there is none for a label, the default counts.
    const tkClassifierFrequencies& categoryFrequencies() const { return categoryFrequencies_; }
    void categoryFrequencies(const tkClassifierFrequencies& frequencies) { categoryFrequencies_ = frequencies; }

    /// Costs of deciding for one category when another is true, in a unit of the host's; the results' expected costs
    /// have the same unit.
    const tkClassifierCosts& misclassificationCosts() const { return misclassificationCosts_; }
    void misclassificationCosts(const tkClassifierCosts& costs) { misclassificationCosts_ = costs; }

    /// For binomial measurements, the largest value that measurement i can take, in its own unit; 1.0 where it is
    /// invalid or not there.
    const tkFeaturePattern& maxMeasurementValues() const { return maxMeasurementValues_; }
    void maxMeasurementValues(const tkFeaturePattern& values) { maxMeasurementValues_ = values; }

    /// A copy that shares nothing with this object.
    tkPtrHandle<tkClassifierTrainParams> clone() const override;

    /// Same class, and equal distribution types, costs, frequencies and maximum values.
    bool operator==(const tkClassifierTrainParams& other) const { return isEqual_(other); }
    bool operator!=(const tkClassifierTrainParams& other) const { return !(*this == other); }

protected:
    /// As operator ==.
    bool isEqual_(const tkClassifierTrainParams& other) const override;
    /// Whether they are Bayesian parameters, derived classes included; their values do not matter. A retraining throws
    /// for other distribution types or maximum values later.
    bool isSameTechnique_(const tkClassifierTrainParams& other) const override;
    /// A tk_ClassifierBayesian.
    tk_Classifier* newClassifier_() const override;

private:
    /// The distribution types, the costs, the frequencies, the maximum values, in this order.
    TK_FACTORY_RECORD;

    tkClassifierDistributionTypes distributionTypes_;
    tkClassifierFrequencies categoryFrequencies_;
    tkClassifierCosts misclassificationCosts_;
    tkFeaturePattern maxMeasurementValues_;
};

#endif
