#ifndef CLSS_CLASTOOL_CLASTOOL_TKDECISIONTREE_H
#define CLSS_CLASTOOL_CLASTOOL_TKDECISIONTREE_H

#include "clss/clastool/clastool/tkClassifierResult.h"
#include "clss/clastool/clastool/tkPredicateFunction.h"

/// A decision tree built by hand: a node (tkDecisionTreeNode) or a leaf (tkDecisionTreeLeaf).
///
/// Subtrees may be shared, within a tree and between trees: a chain of nodes whose two subtrees are one object
/// has far more paths than objects. All operations take time for each object and not for each path.
/// Trees of exactly these classes need no stack for their depth, except in archives: storing and loading recurse, and
/// an archive refuses trees deeper than its nesting limit. A tree of a host's class is asked and destroyed recursively.
/// A tree loaded from damaged data may lack subtrees or predicates: where one is needed, tkBadPointer is thrown.
class TK_EXPORT tkDecisionTree : public tkPersistent, public tkRepBase
{
public:
    tkDecisionTree() = default;

    /// The labels that can come out of the tree, as the leaves list them from the false side to the true side,
    /// each at its first place. Duplicates are dropped, except within the first (all-false) leaf.
    virtual std::vector<long> categoryLabels() const = 0;

    /// Number of categoryLabels(), which are gathered to be counted.
    long numCategories() const;

    /// A new tree of the same class that shares its subtrees with this one. Constant time.
    virtual tkPtrHandle<tkDecisionTree> clone() const = 0;

    /// The same shape with equal predicates and equal results; which subtrees are shared makes no difference.
    /// An override asks the base first.
    virtual bool isEqual(const tkDecisionTree& other) const;
    bool operator==(const tkDecisionTree& other) const { return isEqual(other); }
    bool operator!=(const tkDecisionTree& other) const { return !(*this == other); }

protected:
    tkDecisionTree(const tkDecisionTree&) = default;
    tkDecisionTree& operator=(const tkDecisionTree&) = default;

    TK_RECORD;
};

/// An inner node: a predicate, and the subtrees that follow when it is true and when it is false.
///
/// The node keeps clones of what it is given. Changing a tree afterwards does not change the nodes that it was
/// given to, except through what lies deeper: a clone shares that. Copies share subtrees and predicate.
class TK_EXPORT tkDecisionTreeNode : public tkDecisionTree
{
public:
    /// The default predicate, whether measurement 0 is valid, and one empty leaf as both subtrees.
    tkDecisionTreeNode();
    /// Clones of the three.
    tkDecisionTreeNode(const tkPredicateFunction& predicate, const tkDecisionTree& trueTree,
                       const tkDecisionTree& falseTree);
    tkDecisionTreeNode(const tkDecisionTreeNode&) = default;
    ~tkDecisionTreeNode() override;

    /// Shares what the other node has; it may be one below this. Cannot fail.
    tkDecisionTreeNode& operator=(const tkDecisionTreeNode& other) noexcept;

    /// The subtree that follows when the predicate is true: shared when read, cloned when set.
    const tkPtrHandle_const<tkDecisionTree>& trueTree() const { return trueTree_; }
    /// Throws what the clone throws, and then changes nothing; so do the other setters.
    void trueTree(const tkDecisionTree& tree);

    /// The subtree that follows when the predicate is false.
    const tkPtrHandle_const<tkDecisionTree>& falseTree() const { return falseTree_; }
    void falseTree(const tkDecisionTree& tree);

    /// The question asked here: shared when read, cloned when set.
    const tkPtrHandle_const<tkPredicateFunction>& predicateFunction() const { return predicateFunction_; }
    void predicateFunction(const tkPredicateFunction& predicate);

    /// Throw tkBadPointer where a loaded tree lacks a part. Time for each object below this node, but a clone, which
    /// shares subtrees and predicate, takes constant time.
    std::vector<long> categoryLabels() const override;
    tkPtrHandle<tkDecisionTree> clone() const override;
    bool isEqual(const tkDecisionTree& other) const override;

private:
    static tkDecisionTreeNode* takeLast_(tkPtrHandle_const<tkDecisionTree>& tree) noexcept;
    static void destroy_(tkDecisionTreeNode* node) noexcept;

    TK_FACTORY_RECORD;

    // None is null, unless loaded.
    tkPtrHandle_const<tkDecisionTree> trueTree_;
    tkPtrHandle_const<tkDecisionTree> falseTree_;
    tkPtrHandle_const<tkPredicateFunction> predicateFunction_;
};

/// A leaf: the finished result of every pattern that reaches it.
class TK_EXPORT tkDecisionTreeLeaf : public tkDecisionTree
{
public:
    /// A copy of the result; by default one without categories.
    tkDecisionTreeLeaf(const tkClassifierResult& result = tkClassifierResult());

    /// The result, copied when set.
    const tkClassifierResult& classifierResult() const { return classifierResult_; }
    void classifierResult(const tkClassifierResult& result) { classifierResult_ = result; }

    /// The labels of the result's categories in their order.
    std::vector<long> categoryLabels() const override;
    tkPtrHandle<tkDecisionTree> clone() const override;
    /// Same class and equal results.
    bool isEqual(const tkDecisionTree& other) const override;

private:
    TK_FACTORY_RECORD;

    tkClassifierResult classifierResult_;
};

#endif
