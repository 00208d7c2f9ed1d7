#include "clss/model/tk_ClassifierPooled.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/model/tkCovariancePooling.h"
#include "clss/model/tk_CovariancePool.h"
#include "clss/model/tk_LabelledPatterns.h"
#include "foundation/tkAssert.h"

tkPtrHandle<tk_Classifier> tk_ClassifierPooled::clone() const
{
    return tkPtrHandle<tk_Classifier>(new tk_ClassifierPooled(*this));
}

void tk_ClassifierPooled::train_(const tkClassifierDataProvider& data, const tkClassifierTrainParams& params)
{
    const auto* const pooling = dynamic_cast<const tkCovariancePooling*>(&params);
    TK_ASSERT(pooling != nullptr);
    if (!pooling->isChosen()) // a record may hold any amount, which the setter refuses
        tkCovariancePooling(*pooling).amount(pooling->amount());
    tk_ClassifierBayesian::train_(data, params);
    const tk_CovariancePool pool(categoryModels());
    pool.pool(pooling->isChosen() ? pool.choose(tk_LabelledPatterns::usable(data), pooling->categoryFrequencies())
                                  : pooling->amount());
    complete_();
}

void tk_ClassifierPooled::retrain_(const tkClassifierTrainParams& params)
{
    const auto* const pooling = dynamic_cast<const tkCovariancePooling*>(&params);
    const tkPtrHandle_const<tkClassifierTrainParams> kept = trainParams();
    const auto* const current = dynamic_cast<const tkCovariancePooling*>(kept.get());
    if (!pooling || !current || pooling->isChosen() != current->isChosen() || pooling->amount() != current->amount())
        throw tkClassifierDefs::BadParams(L"Cannot retrain a Bayesian classifier with another pooling of covariances.");
    tk_ClassifierBayesian::retrain_(params);
}

TK_DEFINE_FACTORY_RECORD(tk_ClassifierPooled, 0)

void tk_ClassifierPooled::serialize_(tkArchive& archive, unsigned char)
{
    tk_ClassifierBayesian::dispatchSerialize(archive);
}
