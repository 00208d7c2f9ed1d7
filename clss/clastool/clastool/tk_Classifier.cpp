#include "clss/clastool/clastool/tk_Classifier.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tk_Messages.h"
#include "clss/clastool/clastool/tk_PersistentClasses.h"
#include "foundation/tkArchiveOperators.h"

void tk_Classifier::train(const tkClassifierDataProvider& data, const tkClassifierTrainParams& params,
                          tkDiagObject* diag, unsigned long flags)
{
    const auto kept = tkKeepAlive(params); // the classifier may hold the last handle
    if (isTrained())
        untrain();
    tkDiagObject* const destination = tkDiagObject::getRecordingDestination(diag, flags);
    recordTrainInputs_(destination, flags);
    train_(data, params);
    trainParams_ = params.clone();
    recordTrainDetails_(diag, flags);
    recordTrainResults_(destination, flags);
}

void tk_Classifier::retrain(const tkClassifierTrainParams& params, tkDiagObject*, unsigned long)
{
    if (!isTrained())
        throw tkClassifierDefs::NotTrained(tk_Messages::notTrainedForRetraining);
    if (trainParams_.isNull() || !params.isSameTechnique_(*trainParams_))
        throw tkClassifierDefs::BadMethod(L"Cannot retrain with a different classification technique.");
    retrain_(params);
    trainParams_ = params.clone();
}

void tk_Classifier::trainStart(const tkClassifierTrainParams& params)
{
    const auto kept = tkKeepAlive(params); // the classifier may hold the last handle
    if (isTrained())
        untrain();
    trainStart_(params);
    trainParams_ = params.clone();
}

void tk_Classifier::trainIncremental(const tkFeaturePattern& pattern, long label, tkDiagObject*, unsigned long)
{
    if (!isTrained())
        throw tkClassifierDefs::NotTrained(L"Classifier tool must be trained before incremental training.");
    trainIncremental_(pattern, label);
}

void tk_Classifier::untrain()
{
    if (!isTrained())
        return;
    untrain_();
    trainParams_ = tkPtrHandle_const<tkClassifierTrainParams>();
}

bool tk_Classifier::isTrained() const
{
    return isTrained_();
}

void tk_Classifier::run(const tkFeaturePattern& pattern, tkClassifierResult& result, tkDiagObject* diag,
                        unsigned long flags) const
{
    if (!isTrained())
        throw tkClassifierDefs::NotTrained(tk_Messages::notTrainedForRunning);
    tkDiagObject* const destination = tkDiagObject::getRecordingDestination(diag, flags);
    recordRunInputs_(destination, flags, pattern);
    run_(pattern, result);
    recordRunDetails_(destination, flags);
    recordRunResults_(destination, flags, pattern, result);
}

tkPtrHandle_const<tkClassifierTrainParams> tk_Classifier::trainParams() const
{
    if (!isTrained())
        throw tkClassifierDefs::NotTrained(tk_Messages::notTrainedForParams);
    if (trainParams_.isNull())
        throw tkClassifierDefs::BadMethod(L"Classifier tool was not automatically trained.");
    return trainParams_;
}

bool tk_Classifier::isEquivalent(const tk_Classifier& other) const
{
    if (isTrained() != other.isTrained())
        return false;
    if (!trainParams_.isNull() && !other.trainParams_.isNull())
        return trainParams_->isEqual_(*other.trainParams_);
    return trainParams_ == other.trainParams_;
}

TK_DEFINE_RECORD(tk_Classifier, 0)

void tk_Classifier::serialize_(tkArchive& archive, unsigned char)
{
    tk_linkPersistentClasses();
    tkPersistent::dispatchSerialize(archive);
    archive || trainParams_;
}
