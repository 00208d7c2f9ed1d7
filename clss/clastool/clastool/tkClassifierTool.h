#ifndef CLSS_CLASTOOL_CLASTOOL_TKCLASSIFIERTOOL_H
#define CLSS_CLASTOOL_CLASTOOL_TKCLASSIFIERTOOL_H

#include "clss/clastool/clastool/tkClassifierDataProvider.h"
#include "clss/clastool/clastool/tkClassifierResult.h"
#include "clss/clastool/clastool/tkClassifierTrainParams.h"
#include "foundation/tkDiagObject.h"

#include <memory>

class tkDecisionTree;
class tk_Classifier;

/// Trains and runs a classifier of any method; the training parameters choose the method.
///
/// States: empty; holding an untrained classifier; trained from data; trained from a decision tree. A method's training
/// that fails leaves the tool untrained. Copies never share a classifier. One trained tool may be run from many threads
/// at once; every other operation needs the tool to itself. Stored and loaded with `archive || tool`; a loaded
/// nearest-neighbour tool runs with default parameters until tool.retrain(*tool.trainParams()), see
/// tkClassifierTrainParamsKNN.
class TK_EXPORT tkClassifierTool
{
public:
    tkClassifierTool();
    tkClassifierTool(const tkClassifierTool& other);
    /// Untrains the classifier before it releases it.
    ~tkClassifierTool();

    /// Takes a clone of the other tool's classifier if that is trained, otherwise becomes empty. Assigning a
    /// tool to itself leaves it empty: the classifier is released before the other tool is looked at.
    tkClassifierTool& operator=(const tkClassifierTool& other);

    /// Exchanges the classifiers of two tools, trained or not.
    void swap(tkClassifierTool& other) noexcept { classifier_.swap(other.classifier_); }

    /// Trains a new classifier of the technique that `params` chooses, then, if params.throwIfNotReady(), checks
    /// that it can run. Throws tkClassifierDefs::NotImplemented if `params` cannot create a classifier (the tool
    /// is then empty); what the method's training throws (untrained); and what the check throws (untrained after a
    /// tkClassifierDefs::Errors; an exception of another class leaves the tool trained).
    void train(const tkClassifierDataProvider& data, const tkClassifierTrainParams& params,
               tkDiagObject* diag = nullptr, unsigned long flags = 0);

    /// Replaces the parameters without new training, then checks as train() does. Throws
    /// tkClassifierDefs::NotTrained if untrained, tkClassifierDefs::BadMethod if the tool was not trained
    /// automatically with the same technique, what the method throws (the classifier keeps what its method left), and
    /// what the check throws, as for train(): after a tkClassifierDefs::Errors the tool is untrained, after another
    /// exception it is trained with the new parameters.
    void retrain(const tkClassifierTrainParams& params, tkDiagObject* diag = nullptr, unsigned long flags = 0);

    /// Makes the tool a decision-tree classifier with a clone of `tree`, which may be a part of the tool's own one.
    /// Throws what the clone throws.
    void train(const tkDecisionTree& tree, tkDiagObject* diag = nullptr, unsigned long flags = 0);

    /// Forgets what was learned.
    void untrain();
    bool isTrained() const;

    /// The parameters of the last training or retraining, shared. Throws tkClassifierDefs::NotTrained if untrained,
    /// tkClassifierDefs::BadMethod if the tool was not trained automatically.
    tkPtrHandle_const<tkClassifierTrainParams> trainParams() const;

    /// The tree, shared. Throws tkClassifierDefs::NotTrained if untrained, then tkClassifierDefs::BadMethod if the tool
    /// was not trained from a tree.
    tkPtrHandle_const<tkDecisionTree> decisionTree() const;

    /// Classifies `pattern`. Throws tkClassifierDefs::NotTrained if untrained, then what the method throws;
    /// `result` is then as it was.
    void run(const tkFeaturePattern& pattern, tkClassifierResult& result, tkDiagObject* diag = nullptr,
             unsigned long flags = 0) const;

    /// The same, with the result as its value.
    tkClassifierResult run(const tkFeaturePattern& pattern, tkDiagObject* diag = nullptr,
                           unsigned long flags = 0) const;

    /// Both untrained, or equivalent classifiers.
    bool operator==(const tkClassifierTool& other) const;
    bool operator!=(const tkClassifierTool& other) const { return !(*this == other); }

private:
    friend TK_EXPORT tkArchive& operator||(tkArchive& archive, tkClassifierTool& tool);

    void checkReady_(const tkClassifierTrainParams& params);

    std::unique_ptr<tkPtrHandle<tk_Classifier>> classifier_; // never null; the handle may be
};

inline void swap(tkClassifierTool& a, tkClassifierTool& b) noexcept
{
    a.swap(b);
}

/// Loading gives a tool a classifier of its own, a clone of the one that the archive keeps.
/// Storing writes each classifier once per archive, as it is then: a tool that is trained anew between two stores into
/// one archive comes back old.
TK_EXPORT tkArchive& operator||(tkArchive& archive, tkClassifierTool& tool);

#endif
