#include "clss/model/tkCovariancePooling.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tk_Messages.h"
#include "clss/model/tk_ClassifierPooled.h"
#include "clss/model/tk_CovariancePool.h"
#include "clss/model/tk_LabelledPatterns.h"
#include "foundation/tkArchive.h"

#include <typeinfo>

tkCovariancePooling::tkCovariancePooling(const tkClassifierTrainParamsBayesian& params)
    : tkClassifierTrainParamsBayesian(params)
{
}

tkCovariancePooling::tkCovariancePooling(const tkClassifierTrainParamsBayesian& params, double amount)
    : tkClassifierTrainParamsBayesian(params)
{
    this->amount(amount);
}

void tkCovariancePooling::amount(double amount)
{
    if (!(amount >= 0.0 && amount <= 1.0))
        throw tkClassifierDefs::BadParams(L"The amount of pooling must be >= 0.0 and <= 1.0");
    amount_ = amount;
    isChosen_ = false;
}

double tkCovariancePooling::choose(const tkClassifierDataProvider& data, const tkClassifierTrainParamsBayesian& params)
{
    tk_ClassifierBayesian classifier;
    classifier.train(data, params);
    const tk_LabelledPatterns usable = tk_LabelledPatterns::usable(data);
    if (usable.patterns.empty())
        throw tkClassifierDefs::InsufficientTrainData(tk_Messages::noValidTrainData);
    return tk_CovariancePool(classifier.categoryModels()).choose(usable, params.categoryFrequencies());
}

tkPtrHandle<tkClassifierTrainParams> tkCovariancePooling::clone() const
{
    return tkPtrHandle<tkClassifierTrainParams>(new tkCovariancePooling(*this));
}

bool tkCovariancePooling::isEqual_(const tkClassifierTrainParams& other) const
{
    if (!tkClassifierTrainParamsBayesian::isEqual_(other) || typeid(*this) != typeid(other))
        return false;
    const auto& pooling = dynamic_cast<const tkCovariancePooling&>(other);
    return isChosen_ == pooling.isChosen_ && amount_ == pooling.amount_;
}

bool tkCovariancePooling::isSameTechnique_(const tkClassifierTrainParams& other) const
{
    return dynamic_cast<const tkCovariancePooling*>(&other) != nullptr;
}

tk_Classifier* tkCovariancePooling::newClassifier_() const
{
    return new tk_ClassifierPooled;
}

TK_DEFINE_FACTORY_RECORD(tkCovariancePooling, 0)

void tkCovariancePooling::serialize_(tkArchive& archive, unsigned char)
{
    tkClassifierTrainParamsBayesian::dispatchSerialize(archive);
    archive || isChosen_ || amount_;
}
