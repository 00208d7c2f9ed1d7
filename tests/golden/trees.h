#ifndef TESTS_GOLDEN_TREES_H
#define TESTS_GOLDEN_TREES_H

#include "clss/clastool/clastool/tkClassifierTool.h"
#include "clss/clastool/clastool/tkDecisionTree.h"
#include "clss/clastool/clastool/tkPredicateFunction.h"
#include "clss/clastool/clastool/tk_ClassifierDecisionTree.h"

#include <limits>

/// The decision trees and predicates whose records are stored in this folder.
namespace golden
{
inline tkRangePredicate rangePredicate()
{
    return tkRangePredicate(tkRange(-1.5, std::numeric_limits<double>::infinity()), {2, 0, 2147483647});
}

inline tkValidityPredicate validityPredicate()
{
    return tkValidityPredicate({0, 3, 3});
}

inline tkComparisonPredicate comparisonPredicate()
{
    return tkComparisonPredicate(258, 1);
}

inline tkDecisionTreeLeaf leaf()
{
    return tkDecisionTreeLeaf(tkClassifierResult({{7, 0.25, 0.5, 0.125}, {3, 1.0, 0.5, 0.0}}, -2.0));
}

/// All three predicates, and leaves of one, two and no categories.
inline tkDecisionTreeNode node()
{
    const tkDecisionTreeLeaf other(tkClassifierResult({{0, 0.0, 1.0, 0.0}}, 0.0));
    const tkDecisionTreeNode inner(validityPredicate(), tkDecisionTreeLeaf(), other);
    return tkDecisionTreeNode(comparisonPredicate(), leaf(), tkDecisionTreeNode(rangePredicate(), inner, leaf()));
}

/// A node with two subtrees that share all that is below them, down to a leaf that is both subtrees of its node.
inline tkDecisionTreeNode sharingNode()
{
    const tkDecisionTreeNode below(validityPredicate(), leaf(), tkDecisionTreeNode());
    return tkDecisionTreeNode(comparisonPredicate(), below, below);
}

inline tk_ClassifierDecisionTree treeClassifier()
{
    tk_ClassifierDecisionTree classifier;
    classifier.trainManual(node());
    return classifier;
}

inline tkClassifierTool treeTool()
{
    tkClassifierTool tool;
    tool.train(node());
    return tool;
}
} // namespace golden

#endif
