#include "clss/clastool/clastool/tk_ClassifierDecisionTree.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkAssert.h"

#include <typeinfo>

namespace
{
[[noreturn]] void failAutomaticTraining()
{
    throw tkClassifierDefs::NotImplemented(L"Automatic decision tree training is not implemented.");
}

[[noreturn]] void failIncrementalTraining()
{
    throw tkClassifierDefs::NotImplemented(L"Incremental decision tree training is not implemented.");
}

/// Whether the tree is of exactly this class. Compares addresses, since comparing type_info compares names where types
/// differ, which takes longer than a predicate. So it may be false for the class itself, if a program has two copies of
/// its type information; the callers then take a slower way.
template <class Tree>
bool isExactly(const tkDecisionTree& tree)
{
    return &typeid(tree) == &typeid(Tree);
}

/// The tree as one of class `Tree` or derived from it, or null.
template <class Tree>
const Tree* as(const tkDecisionTree& tree)
{
    return isExactly<Tree>(tree) ? static_cast<const Tree*>(&tree) : dynamic_cast<const Tree*>(&tree);
}

/// The predicate's answer. The commonest class is called directly, so that its comparison is inlined into the descent
/// and the processor can predict the branch.
bool outcomeOf(const tkPredicateFunction& predicate, const tkFeaturePattern& pattern)
{
    return &typeid(predicate) == &typeid(tkRangePredicate)
               ? static_cast<const tkRangePredicate&>(predicate).tkRangePredicate::outcome(pattern)
               : predicate.outcome(pattern);
}
} // namespace

void tk_ClassifierDecisionTree::trainManual(const tkDecisionTree& tree, tkDiagObject* diag, unsigned long flags)
{
    const tkPtrHandle_const<tkDecisionTree> previous = decisionTree_; // `tree` may be in it
    if (isTrained())
        untrain();
    decisionTree_ = tree.clone();
    tkDiagObject* const destination = tkDiagObject::getRecordingDestination(diag, flags);
    recordTrainInputs_(destination, flags);
    recordTrainDetails_(diag, flags);
    recordTrainResults_(destination, flags);
}

const tkPtrHandle_const<tkDecisionTree>& tk_ClassifierDecisionTree::decisionTree() const
{
    TK_ASSERT(isTrained());
    return decisionTree_;
}

tkPtrHandle<tk_Classifier> tk_ClassifierDecisionTree::clone() const
{
    return tkPtrHandle<tk_Classifier>(new tk_ClassifierDecisionTree(*this));
}

bool tk_ClassifierDecisionTree::isEquivalent(const tk_Classifier& other) const
{
    return typeid(*this) == typeid(other) && *this == static_cast<const tk_ClassifierDecisionTree&>(other);
}

bool tk_ClassifierDecisionTree::operator==(const tk_ClassifierDecisionTree& other) const
{
    return typeid(*this) == typeid(other) && tk_Classifier::isEquivalent(other) &&
           decisionTree_->isEqual(*other.decisionTree_);
}

void tk_ClassifierDecisionTree::train_(const tkClassifierDataProvider&, const tkClassifierTrainParams&)
{
    failAutomaticTraining();
}

void tk_ClassifierDecisionTree::retrain_(const tkClassifierTrainParams&)
{
    failAutomaticTraining();
}

void tk_ClassifierDecisionTree::trainStart_(const tkClassifierTrainParams&)
{
    failIncrementalTraining();
}

void tk_ClassifierDecisionTree::trainIncremental_(const tkFeaturePattern&, long)
{
    failIncrementalTraining();
}

void tk_ClassifierDecisionTree::untrain_()
{
    decisionTree_ = tkPtrHandle_const<tkDecisionTree>();
}

bool tk_ClassifierDecisionTree::isTrained_() const
{
    return !decisionTree_.isNull();
}

void tk_ClassifierDecisionTree::run_(const tkFeaturePattern& pattern, tkClassifierResult& result) const
{
    TK_ASSERT(isTrained());
    const tkDecisionTree* tree = decisionTree_.get();
    while (!isExactly<tkDecisionTreeLeaf>(*tree))
    {
        const auto* const node = as<tkDecisionTreeNode>(*tree);
        if (!node)
            break;
        tree = &*(outcomeOf(*node->predicateFunction(), pattern) ? node->trueTree() : node->falseTree());
    }
    const auto* const leaf = as<tkDecisionTreeLeaf>(*tree);
    TK_ASSERT(leaf != nullptr);
    result = leaf->classifierResult();
}

TK_DEFINE_FACTORY_RECORD(tk_ClassifierDecisionTree, 0)

void tk_ClassifierDecisionTree::serialize_(tkArchive& archive, unsigned char)
{
    tk_Classifier::dispatchSerialize(archive);
    archive || decisionTree_;
}
