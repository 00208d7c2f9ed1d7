#ifndef TESTS_CLASTOOL_TREETESTDATA_H
#define TESTS_CLASTOOL_TREETESTDATA_H

#include "tkTest.h"

#include "clss/clastool/clastool/tkDecisionTree.h"
#include "clss/clastool/clastool/tkFeaturePattern.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

/// Decision trees that share what they hold, and random ones.
namespace treeTest
{
using Tree = tkPtrHandle_const<tkDecisionTree>;
using Predicate = tkPtrHandle_const<tkPredicateFunction>;

/// A tree that gives itself away where it would be cloned, so that a node holds this very object (or null) and
/// several nodes hold the same one.
class AsIs : public tkDecisionTree
{
public:
    explicit AsIs(const Tree& tree) : tree_(const_cast<tkDecisionTree*>(tree.get())) {}
    std::vector<long> categoryLabels() const override { return tree_->categoryLabels(); }
    tkPtrHandle<tkDecisionTree> clone() const override { return tree_; }

private:
    tkPtrHandle<tkDecisionTree> tree_;
};

/// The same for predicates.
class PredicateAsIs : public tkPredicateFunction
{
public:
    explicit PredicateAsIs(const Predicate& predicate) : predicate_(const_cast<tkPredicateFunction*>(predicate.get()))
    {
    }
    bool outcome(const tkFeaturePattern& pattern) const override { return predicate_->outcome(pattern); }
    tkPtrHandle<tkPredicateFunction> clone() const override { return predicate_; }

private:
    tkPtrHandle<tkPredicateFunction> predicate_;
};

/// A node that holds these very objects.
inline Tree node(const Predicate& predicate, const Tree& trueTree, const Tree& falseTree)
{
    return Tree(new tkDecisionTreeNode(PredicateAsIs(predicate), AsIs(trueTree), AsIs(falseTree)));
}

/// A result of these labels in this order, as an archive may hold it: repeated or not. No labels: the default one.
inline tkClassifierResult resultOf(const std::vector<long>& labels, double score = 0.5)
{
    std::string bytes(2, '\0');
    bytes += storeToBytes(static_cast<unsigned long>(labels.size()));
    for (const long label : labels)
        bytes += '\0' + storeToBytes(label) + storeToBytes(score) + storeToBytes(score) + storeToBytes(0.0);
    bytes += storeToBytes(0.0);
    tkClassifierResult result;
    loadFromBytes(bytes, result);
    return result;
}

inline Tree leaf(const std::vector<long>& labels, double score = 0.5)
{
    return Tree(new tkDecisionTreeLeaf(resultOf(labels, score)));
}

inline Predicate range(double low, double high, const std::vector<long>& indices)
{
    return Predicate(new tkRangePredicate(tkRange(low, high), indices));
}

inline const tkDecisionTreeNode& asNode(const Tree& tree)
{
    return dynamic_cast<const tkDecisionTreeNode&>(*tree);
}

/// Random trees, predicates and patterns, the same for the same seed. Trees are drawn from few leaves, few
/// predicates and from what was drawn before: many are shared, and many are equal without being the same.
class Random
{
public:
    explicit Random(unsigned seed) : random_(seed) {}

    /// 0 ... count - 1.
    long below(long count) { return std::uniform_int_distribution<long>(0, count - 1)(random_); }

    double number()
    {
        static const double infinity = std::numeric_limits<double>::infinity();
        static const double numbers[] = {0.0, -0.0, 1.0, 2.0, 3.5, -infinity, infinity, std::nan("")};
        return numbers[below(8)];
    }

    tkFeaturePattern pattern()
    {
        std::vector<double> measurements(static_cast<std::size_t>(below(5)));
        std::vector<long> invalid;
        for (std::size_t i = 0; i < measurements.size(); ++i)
        {
            measurements[i] = number();
            if (below(4) == 0)
                invalid.push_back(static_cast<long>(i));
        }
        return tkFeaturePattern(measurements, invalid);
    }

    /// `withNaN`: a predicate that may be unequal to itself.
    Predicate predicate(bool withNaN = false)
    {
        const long kind = below(3);
        if (kind == 0)
            return Predicate(new tkComparisonPredicate(below(2), 2 + below(3)));
        std::vector<long> indices(static_cast<std::size_t>(below(3)));
        for (long& index : indices)
            index = below(5);
        if (kind == 1)
            return Predicate(new tkValidityPredicate(indices));
        if (withNaN && below(10) == 0)
            return range(std::nan(""), 1.0, indices);
        return below(3) == 0
                   ? range(-std::numeric_limits<double>::infinity(), std::numeric_limits<double>::infinity(), indices)
                   : range(0.0, static_cast<double>(below(3)), indices);
    }

    /// Trees of up to `maxHeight` nodes one below the other, several times as many as that.
    std::vector<Tree> trees(long maxHeight, bool withNaN = false)
    {
        std::vector<Predicate> predicates;
        for (int i = 0; i < 3; ++i)
            predicates.push_back(predicate(withNaN));
        std::vector<Tree> trees;
        std::vector<long> heights;
        for (int i = 0; i < 4; ++i)
        {
            std::vector<long> labels(static_cast<std::size_t>(below(4)));
            for (long& label : labels)
                label = below(6);
            trees.push_back(leaf(labels, withNaN && below(10) == 0 ? std::nan("") : 0.5));
            heights.push_back(0);
        }
        while (trees.size() < 4 + 6 * static_cast<std::size_t>(maxHeight))
        {
            const std::size_t trueTree = static_cast<std::size_t>(below(static_cast<long>(trees.size())));
            const std::size_t falseTree = static_cast<std::size_t>(below(static_cast<long>(trees.size())));
            const long height = 1 + std::max(heights[trueTree], heights[falseTree]);
            if (height > maxHeight)
                continue;
            trees.push_back(node(predicates[static_cast<std::size_t>(below(3))], trees[trueTree], trees[falseTree]));
            heights.push_back(height);
        }
        return trees;
    }

    /// The tree with each object copied as often as there are paths to it, here and there with another leaf.
    Tree unshared(const Tree& tree, long changeOneLeafIn)
    {
        if (const auto* const leafHere = dynamic_cast<const tkDecisionTreeLeaf*>(tree.get()))
            return below(changeOneLeafIn) == 0 ? leaf({7}) : Tree(leafHere->clone());
        const Tree trueTree = unshared(asNode(tree).trueTree(), changeOneLeafIn);
        const Tree falseTree = unshared(asNode(tree).falseTree(), changeOneLeafIn);
        return node(asNode(tree).predicateFunction()->clone(), trueTree, falseTree);
    }

private:
    std::mt19937 random_;
};
} // namespace treeTest

#endif
