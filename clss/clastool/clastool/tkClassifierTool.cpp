#include "clss/clastool/clastool/tkClassifierTool.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tk_Classifier.h"
#include "clss/clastool/clastool/tk_ClassifierDecisionTree.h"
#include "clss/clastool/clastool/tk_Messages.h"
#include "clss/clastool/clastool/tk_RecordPlaces.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkAssert.h"

#include <utility>

tkClassifierTool::tkClassifierTool() : classifier_(new tkPtrHandle<tk_Classifier>) {}

tkClassifierTool::tkClassifierTool(const tkClassifierTool& other)
{
    *this = other;
}

tkClassifierTool::~tkClassifierTool()
{
    try
    {
        untrain();
    }
    catch (...)
    {
        // No exception may leave a destructor. The classifier is released all the same.
    }
}

tkClassifierTool& tkClassifierTool::operator=(const tkClassifierTool& other)
{
    classifier_.reset(new tkPtrHandle<tk_Classifier>);
    if (&other != this && other.isTrained())
        *classifier_ = (*other.classifier_)->clone();
    return *this;
}

void tkClassifierTool::train(const tkClassifierDataProvider& data, const tkClassifierTrainParams& params,
                             tkDiagObject* diag, unsigned long flags)
{
    const auto kept = tkKeepAlive(params); // the tool may hold the last handle
    if (isTrained())
        untrain();
    tk_Classifier* created = nullptr;
    try
    {
        created = params.newClassifier_();
    }
    catch (...)
    {
        *classifier_ = tkPtrHandle<tk_Classifier>();
        throw tkClassifierDefs::NotImplemented(
            L"The classification method specified by the training parameters is not implemented.");
    }
    TK_ASSERT(created != nullptr);
    *classifier_ = tkPtrHandle<tk_Classifier>(created);
    try
    {
        (*classifier_)->train(data, params, diag, flags);
    }
    catch (...)
    {
        untrain();
        throw;
    }
    checkReady_(params);
}

void tkClassifierTool::train(const tkDecisionTree& tree, tkDiagObject* diag, unsigned long flags)
{
    const auto kept = tkKeepAlive(tree); // the tool may hold the last handle
    if (isTrained())
        untrain();
    const tkPtrHandle<tk_ClassifierDecisionTree> created(new tk_ClassifierDecisionTree);
    *classifier_ = created;
    try
    {
        created->trainManual(tree, diag, flags);
    }
    catch (...)
    {
        untrain();
        throw;
    }
}

void tkClassifierTool::retrain(const tkClassifierTrainParams& params, tkDiagObject* diag, unsigned long flags)
{
    const auto kept = tkKeepAlive(params); // the tool may hold the last handle
    if (classifier_->isNull())
        throw tkClassifierDefs::NotTrained(tk_Messages::notTrainedForRetraining);
    (*classifier_)->retrain(params, diag, flags);
    checkReady_(params);
}

void tkClassifierTool::checkReady_(const tkClassifierTrainParams& params)
{
    if (!params.throwIfNotReady())
        return;
    try
    {
        (*classifier_)->checkRunnable_();
    }
    catch (const tkClassifierDefs::Errors&)
    {
        untrain();
        throw;
    }
}

void tkClassifierTool::untrain()
{
    if (!classifier_->isNull())
        (*classifier_)->untrain();
}

bool tkClassifierTool::isTrained() const
{
    return !classifier_->isNull() && (*classifier_)->isTrained();
}

tkPtrHandle_const<tkClassifierTrainParams> tkClassifierTool::trainParams() const
{
    if (classifier_->isNull())
        throw tkClassifierDefs::NotTrained(tk_Messages::notTrainedForParams);
    return (*classifier_)->trainParams();
}

tkPtrHandle_const<tkDecisionTree> tkClassifierTool::decisionTree() const
{
    if (!isTrained())
        throw tkClassifierDefs::NotTrained(L"Classifier tool must be trained before requesting the decision tree.");
    const auto* const classifier = dynamic_cast<const tk_ClassifierDecisionTree*>(classifier_->get());
    if (!classifier)
        throw tkClassifierDefs::BadMethod(L"Classifier tool was not trained using a decision tree.");
    return classifier->decisionTree();
}

void tkClassifierTool::run(const tkFeaturePattern& pattern, tkClassifierResult& result, tkDiagObject* diag,
                           unsigned long flags) const
{
    if (classifier_->isNull())
        throw tkClassifierDefs::NotTrained(tk_Messages::notTrainedForRunning);
    (*classifier_)->run(pattern, result, diag, flags);
}

tkClassifierResult tkClassifierTool::run(const tkFeaturePattern& pattern, tkDiagObject* diag, unsigned long flags) const
{
    tkClassifierResult result;
    run(pattern, result, diag, flags);
    return result;
}

bool tkClassifierTool::operator==(const tkClassifierTool& other) const
{
    if (isTrained() != other.isTrained())
        return false;
    return !isTrained() || (*classifier_)->isEquivalent(**other.classifier_);
}

tkArchive& operator||(tkArchive& archive, tkClassifierTool& tool)
{
    archive.exchangeVersion(tk_RecordPlaces::source, tk_RecordPlaces::toolLine);
    tkPtrHandle<tk_Classifier>& classifier = *tool.classifier_;
    archive || classifier;
    if (archive.isStoring() || classifier.isNull())
        return archive;
    // The archive keeps what it has loaded, for whoever meets it again. A tool untrains its classifier when it goes.
    const tkPtrHandle<tk_Classifier> kept = std::move(classifier); // if cloning fails, the tool is empty
    try
    {
        classifier = kept->clone();
    }
    catch (...)
    {
        archive.setFailed();
        throw;
    }
    return archive;
}
