#include "tests/definition/trees.h"

#include <algorithm>

namespace definition
{
bool outcome(const tkPredicateFunction& predicate, const tkFeaturePattern& pattern)
{
    const auto usable = [&pattern](long index) { return index < pattern.numMeasurements() && pattern.isValid(index); };
    const std::vector<double>& values = pattern.featureMeasurements(false);
    if (const auto* const inRange = dynamic_cast<const tkRangePredicate*>(&predicate))
    {
        bool answer = true;
        for (const long index : inRange->indices())
            answer = answer && usable(index) && inRange->range().isWithin(values[index]);
        return answer;
    }
    if (const auto* const valid = dynamic_cast<const tkValidityPredicate*>(&predicate))
    {
        bool answer = true;
        for (const long index : valid->indices())
            answer = answer && usable(index);
        return answer;
    }
    const auto& comparison = dynamic_cast<const tkComparisonPredicate&>(predicate);
    const long first = comparison.index1();
    const long second = comparison.index2();
    return usable(first) && usable(second) && values[first] > values[second];
}

const tkClassifierResult& classifyByTree(const tkDecisionTree& tree, const tkFeaturePattern& pattern)
{
    if (const auto* const leaf = dynamic_cast<const tkDecisionTreeLeaf*>(&tree))
        return leaf->classifierResult();
    const auto& node = dynamic_cast<const tkDecisionTreeNode&>(tree);
    return outcome(*node.predicateFunction(), pattern) ? classifyByTree(*node.trueTree(), pattern)
                                                       : classifyByTree(*node.falseTree(), pattern);
}

std::vector<long> categoryLabels(const tkDecisionTree& tree)
{
    std::vector<long> labels;
    if (const auto* const leaf = dynamic_cast<const tkDecisionTreeLeaf*>(&tree))
    {
        for (const tkClassifierCategoryResult& category : leaf->classifierResult().categoryResults())
            labels.push_back(category.categoryLabel());
        return labels;
    }
    const auto& node = dynamic_cast<const tkDecisionTreeNode&>(tree);
    labels = categoryLabels(*node.falseTree());
    for (const long label : categoryLabels(*node.trueTree()))
        if (std::find(labels.begin(), labels.end(), label) == labels.end())
            labels.push_back(label);
    return labels;
}

bool isEqual(const tkDecisionTree& a, const tkDecisionTree& b)
{
    const auto* const nodeA = dynamic_cast<const tkDecisionTreeNode*>(&a);
    const auto* const nodeB = dynamic_cast<const tkDecisionTreeNode*>(&b);
    if (nodeA && nodeB)
        return nodeA->predicateFunction()->isEqual(*nodeB->predicateFunction()) &&
               isEqual(*nodeA->trueTree(), *nodeB->trueTree()) && isEqual(*nodeA->falseTree(), *nodeB->falseTree());
    if (nodeA || nodeB)
        return false;
    return dynamic_cast<const tkDecisionTreeLeaf&>(a).classifierResult() ==
           dynamic_cast<const tkDecisionTreeLeaf&>(b).classifierResult();
}
} // namespace definition
