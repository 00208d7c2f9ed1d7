#include "clss/model/tkIncompleteTraining.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/model/tk_ClassifierIncomplete.h"
#include "foundation/tkArchive.h"

#include <typeinfo>

tkIncompleteTraining::tkIncompleteTraining(const tkClassifierTrainParamsBayesian& params, long maxSteps)
    : tkClassifierTrainParamsBayesian(params)
{
    this->maxSteps(maxSteps);
}

void tkIncompleteTraining::maxSteps(long maxSteps)
{
    if (maxSteps < 1)
        throw tkClassifierDefs::BadParams(L"The number of steps must be >= 1");
    maxSteps_ = maxSteps;
}

tkPtrHandle<tkClassifierTrainParams> tkIncompleteTraining::clone() const
{
    return tkPtrHandle<tkClassifierTrainParams>(new tkIncompleteTraining(*this));
}

bool tkIncompleteTraining::isEqual_(const tkClassifierTrainParams& other) const
{
    if (!tkClassifierTrainParamsBayesian::isEqual_(other) || typeid(*this) != typeid(other))
        return false;
    return maxSteps_ == dynamic_cast<const tkIncompleteTraining&>(other).maxSteps_;
}

bool tkIncompleteTraining::isSameTechnique_(const tkClassifierTrainParams& other) const
{
    return dynamic_cast<const tkIncompleteTraining*>(&other) != nullptr;
}

tk_Classifier* tkIncompleteTraining::newClassifier_() const
{
    return new tk_ClassifierIncomplete;
}

TK_DEFINE_FACTORY_RECORD(tkIncompleteTraining, 0)

void tkIncompleteTraining::serialize_(tkArchive& archive, unsigned char)
{
    tkClassifierTrainParamsBayesian::dispatchSerialize(archive);
    archive || maxSteps_;
}
