#ifndef CLSS_CLASTOOL_CLASTOOL_TK_CLASSIFIERDECISIONTREE_H
#define CLSS_CLASTOOL_CLASTOOL_TK_CLASSIFIERDECISIONTREE_H

#include "clss/clastool/clastool/tkDecisionTree.h"
#include "clss/clastool/clastool/tk_Classifier.h"

/// The decision-tree classifier: gives every pattern the result of the leaf that it reaches in a tree built by
/// hand. It learns nothing from data and has no training parameters. Copies share the tree, which nobody changes: a
/// classifier keeps a clone of its own. A trained one may be run in many threads at once.
class TK_EXPORT tk_ClassifierDecisionTree : public tk_Classifier
{
public:
    /// Installs a clone of `tree`, which shares the subtrees: untrain() if trained; the clone;
    /// recordTrainInputs_(); recordTrainDetails_(), which receives `diag` itself and not its recording
    /// destination; recordTrainResults_(). Throws what the clone throws; the classifier is then untrained.
    void trainManual(const tkDecisionTree& tree, tkDiagObject* diag = nullptr, unsigned long flags = 0);

    /// The tree, shared. *Requires* a trained classifier.
    const tkPtrHandle_const<tkDecisionTree>& decisionTree() const;

    /// A copy that shares the tree.
    tkPtrHandle<tk_Classifier> clone() const override;

    /// The same class, then as tk_Classifier compares, then equal trees. Throws tkBadPointer if both are untrained.
    bool isEquivalent(const tk_Classifier& other) const override;
    bool operator==(const tk_ClassifierDecisionTree& other) const;
    bool operator!=(const tk_ClassifierDecisionTree& other) const { return !(*this == other); }

protected:
    /// The four steps of training from data throw tkClassifierDefs::NotImplemented, one text for training and
    /// retraining, another for incremental training.
    void train_(const tkClassifierDataProvider& data, const tkClassifierTrainParams& params) override;
    void retrain_(const tkClassifierTrainParams& params) override;
    void trainStart_(const tkClassifierTrainParams& params) override;
    void trainIncremental_(const tkFeaturePattern& pattern, long label) override;
    /// Releases the tree.
    void untrain_() override;
    /// Whether there is a tree.
    bool isTrained_() const override;
    /// Every tree can be run.
    void checkRunnable_() const override {}
    /// Follows the predicates from the root to a leaf and copies its result: one predicate per level of the tree.
    /// Allocates nothing but what the copy needs. Throws what the predicates throw, and tkBadPointer where a loaded
    /// tree lacks a part. *Requires* nodes and leaves of this library's classes or derived from them.
    void run_(const tkFeaturePattern& pattern, tkClassifierResult& result) const override;

private:
    // Records nothing.
    void recordTrainInputs_(tkDiagObject*, unsigned long) const override {}
    void recordTrainDetails_(tkDiagObject*, unsigned long) const override {}
    void recordTrainResults_(tkDiagObject*, unsigned long) const override {}
    void recordRunInputs_(tkDiagObject*, unsigned long, const tkFeaturePattern&) const override {}
    void recordRunDetails_(tkDiagObject*, unsigned long) const override {}
    void recordRunResults_(tkDiagObject*, unsigned long, const tkFeaturePattern&,
                           const tkClassifierResult&) const override
    {
    }

    TK_FACTORY_RECORD;

    tkPtrHandle_const<tkDecisionTree> decisionTree_; // null: untrained
};

#endif
