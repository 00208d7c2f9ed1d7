#include "clss/clastool/clastool/tkDecisionTree.h"

#include "tests/clastool/treeTestData.h"
#include "tests/definition/trees.h"
#include "tests/golden/trees.h"
#include "tkAllocations.h"
#include "tkSmallStack.h"
#include "tkTest.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "foundation/tkArchiveFile.h"
#include "foundation/tkArchiveOperators.h"

#include <atomic>
#include <filesystem>
#include <functional>
#include <random>
#include <set>
#include <thread>
#include <type_traits>

namespace
{
using treeTest::asNode;
using treeTest::leaf;
using treeTest::node;
using treeTest::Predicate;
using treeTest::Tree;
using Labels = std::vector<long>;

const double notANumber = std::numeric_limits<double>::quiet_NaN();

Predicate anyPredicate()
{
    return Predicate(new tkComparisonPredicate(0, 1));
}

/// All objects of a tree, each once.
void collect(const tkDecisionTree* tree, std::set<const void*>& objects)
{
    const bool isNew = objects.insert(tree).second;
    const auto* const inner = dynamic_cast<const tkDecisionTreeNode*>(tree);
    if (!isNew || !inner)
        return;
    objects.insert(inner->predicateFunction().get());
    collect(inner->trueTree().get(), objects);
    collect(inner->falseTree().get(), objects);
}

std::size_t numObjects(const Tree& tree)
{
    std::set<const void*> objects;
    collect(tree.get(), objects);
    return objects.size();
}

/// A chain of nodes, each with one object as both subtrees.
Tree sharedChain(long levels, Tree end)
{
    const Predicate predicate = anyPredicate();
    for (; levels > 0; --levels)
        end = node(predicate, end, end);
    return end;
}

/// Clones that fail or tell that they were asked for.
class LoggingTree : public tkDecisionTree
{
public:
    LoggingTree(std::string& log, char name, bool fails = false) : log_(log), name_(name), fails_(fails) {}
    Labels categoryLabels() const override { return {}; }
    tkPtrHandle<tkDecisionTree> clone() const override
    {
        log_ += name_;
        if (fails_)
            throw tkClassifierDefs::BadParams(L"no clone");
        return tkPtrHandle<tkDecisionTree>(new tkDecisionTreeLeaf);
    }

private:
    std::string& log_;
    char name_;
    bool fails_;
};

class LoggingPredicate : public tkPredicateFunction
{
public:
    LoggingPredicate(std::string& log, bool fails = false) : log_(log), fails_(fails) {}
    bool outcome(const tkFeaturePattern&) const override { return true; }
    tkPtrHandle<tkPredicateFunction> clone() const override
    {
        log_ += 'p';
        if (fails_)
            throw tkClassifierDefs::BadParams(L"no clone");
        return tkPtrHandle<tkPredicateFunction>(new LoggingPredicate(*this));
    }

private:
    std::string& log_;
    bool fails_;
};

/// Equal to its like, and counts how often that was asked.
class CountingPredicate : public tkPredicateFunction
{
public:
    explicit CountingPredicate(long& comparisons) : comparisons_(comparisons) {}
    bool outcome(const tkFeaturePattern&) const override { return true; }
    tkPtrHandle<tkPredicateFunction> clone() const override
    {
        return tkPtrHandle<tkPredicateFunction>(new CountingPredicate(*this));
    }
    bool isEqual(const tkPredicateFunction&) const override
    {
        ++comparisons_;
        return true;
    }

private:
    long& comparisons_;
};

/// A host's node with a will of its own.
class HostNode : public tkDecisionTreeNode
{
public:
    using tkDecisionTreeNode::tkDecisionTreeNode;
    Labels categoryLabels() const override { return {8, 8, 9}; }
    tkPtrHandle<tkDecisionTree> clone() const override { return tkPtrHandle<tkDecisionTree>(new HostNode(*this)); }
    bool isEqual(const tkDecisionTree& other) const override
    {
        return dynamic_cast<const HostNode*>(&other) != nullptr;
    }
};

/// A host's node that leaves all to the library's.
class PlainHostNode : public tkDecisionTreeNode
{
public:
    using tkDecisionTreeNode::tkDecisionTreeNode;
    tkPtrHandle<tkDecisionTree> clone() const override { return tkPtrHandle<tkDecisionTree>(new PlainHostNode(*this)); }
};

template <class T>
void expectUnknownVersionAt(const std::string& record, std::size_t position, T& target)
{
    std::string damaged = record;
    damaged.at(position) = '\1';
    try
    {
        loadFromBytes(damaged, target);
        ADD_FAILURE() << "no exception for the version byte " << position;
    }
    catch (const tkArchive::UnknownVersion& unknown)
    {
        EXPECT_EQ("", unknown.where()) << position;
        EXPECT_EQ(0, unknown.number()) << position;
    }
}
} // namespace

static_assert(std::is_abstract_v<tkDecisionTree>);

// ---------------------------------------------------------------------------------------------------- leaves

TEST(tkDecisionTreeLeaf, holdsTheResultItWasGiven)
{
    EXPECT_TRUE(tkDecisionTreeLeaf().classifierResult() == tkClassifierResult());
    EXPECT_EQ(0, tkDecisionTreeLeaf().numCategories());

    tkDecisionTreeLeaf held(golden::leaf());
    EXPECT_TRUE(held.classifierResult() == golden::leaf().classifierResult());
    EXPECT_EQ(&held.classifierResult(), &held.classifierResult());
    held.classifierResult(treeTest::resultOf({4}));
    EXPECT_TRUE(held.classifierResult() == treeTest::resultOf({4}));
    held.classifierResult(held.classifierResult());
    EXPECT_TRUE(held.classifierResult() == treeTest::resultOf({4}));
}

TEST(tkDecisionTreeLeaf, labelsAreThoseOfTheResultInItsOrderRepeatedOnesIncluded)
{
    EXPECT_EQ((Labels{3, 7}), golden::leaf().categoryLabels());
    EXPECT_EQ(2, golden::leaf().numCategories());
    EXPECT_EQ((Labels{5, 0, 5, 5}), leaf({5, 0, 5, 5})->categoryLabels());
    EXPECT_EQ(4, leaf({5, 0, 5, 5})->numCategories());
}

TEST(tkDecisionTreeLeaf, equalOnesHaveEqualResults)
{
    EXPECT_TRUE(*leaf({1, 2}) == *leaf({1, 2}));
    EXPECT_FALSE(*leaf({1, 2}) != *leaf({1, 2}));
    EXPECT_TRUE(*leaf({1, 2}) != *leaf({2, 1}));
    EXPECT_TRUE(*leaf({1}) != *leaf({1}, 0.25));
    EXPECT_TRUE(*leaf({1}) != tkDecisionTreeLeaf());
    const Tree withNaN = leaf({1}, notANumber);
    EXPECT_FALSE(*withNaN == *withNaN);
}

TEST(tkDecisionTreeLeaf, copiesAndClonesAreEqualAndIndependent)
{
    const tkPtrHandle<tkDecisionTreeLeaf> original(new tkDecisionTreeLeaf(golden::leaf()));
    const tkPtrHandle<tkDecisionTree> clone = original->clone();
    const tkDecisionTreeLeaf copy(*original);
    EXPECT_EQ(1, clone->referenceCount());
    EXPECT_EQ(0, copy.referenceCount());
    tkDecisionTreeLeaf assigned;
    assigned = *original;
    original->classifierResult(tkClassifierResult());
    for (const tkDecisionTree* same :
         {static_cast<const tkDecisionTree*>(clone.get()), static_cast<const tkDecisionTree*>(&copy),
          static_cast<const tkDecisionTree*>(&assigned)})
        EXPECT_TRUE(*same == golden::leaf());
}

TEST(tkDecisionTreeLeaf, newResultWithoutMemoryChangesNothing)
{
    const tkDecisionTreeLeaf other(treeTest::resultOf(Labels(50, 1)));
    expectUnchangedWithoutMemory(golden::leaf(), [&](tkDecisionTreeLeaf& held) { held = other; });
    expectUnchangedWithoutMemory(golden::leaf(),
                                 [&](tkDecisionTreeLeaf& held) { held.classifierResult(other.classifierResult()); });
}

TEST(tkDecisionTreeLeaf, recordIsItsBaseRecordsAndTheResult)
{
    const std::string record = std::string(3, '\0') + storeToBytes(golden::leaf().classifierResult());
    EXPECT_EQ(record, storeToBytes(golden::leaf()));
    tkDecisionTreeLeaf loaded(treeTest::resultOf({1, 2, 3}));
    loadFromBytes(record, loaded);
    EXPECT_TRUE(loaded == golden::leaf());
    for (const std::size_t level : {0, 1, 2})
    {
        tkDecisionTreeLeaf unchanged(treeTest::resultOf({1}));
        expectUnknownVersionAt(record, level, unchanged);
        EXPECT_TRUE(unchanged == *leaf({1})) << level;
    }
    std::string resultOfLaterVersion = record;
    resultOfLaterVersion[3] = '\1';
    EXPECT_TK_THROW(loadFromBytes(resultOfLaterVersion, loaded), tkArchive::UnknownVersion,
                    L"A record has an unknown version (clss/clastool/clastool, 670)");
}

// ----------------------------------------------------------------------------------------------------- nodes

TEST(tkDecisionTreeNode, withoutArgumentsHasOneEmptyLeafAsBothSubtrees)
{
    const tkDecisionTreeNode inner;
    EXPECT_EQ(inner.trueTree(), inner.falseTree());
    EXPECT_TRUE(*inner.trueTree() == tkDecisionTreeLeaf());
    EXPECT_TRUE(*inner.predicateFunction() == tkRangePredicate());
    EXPECT_EQ(0, inner.numCategories());
    EXPECT_TRUE(inner == tkDecisionTreeNode());
    EXPECT_NE(inner.trueTree(), tkDecisionTreeNode().trueTree());
}

TEST(tkDecisionTreeNode, keepsClonesWhichShareWhatLiesBelow)
{
    const tkDecisionTreeNode below(tkValidityPredicate(), *leaf({1}), *leaf({2}));
    const tkDecisionTreeNode inner(tkComparisonPredicate(), below, below);
    EXPECT_NE(inner.trueTree().get(), &below);
    EXPECT_NE(inner.trueTree(), inner.falseTree());
    EXPECT_EQ(asNode(inner.trueTree()).trueTree(), below.trueTree());
    EXPECT_EQ(asNode(inner.falseTree()).trueTree(), below.trueTree());
    EXPECT_EQ(asNode(inner.falseTree()).falseTree(), below.falseTree());
    EXPECT_EQ(asNode(inner.falseTree()).predicateFunction(), below.predicateFunction());
    EXPECT_TRUE(*inner.trueTree() == below);
    EXPECT_TRUE(*inner.predicateFunction() == tkComparisonPredicate());
}

TEST(tkDecisionTreeNode, clonesTheTrueSubtreeThenTheFalseOneThenThePredicate)
{
    std::string log;
    const tkDecisionTreeNode made(LoggingPredicate(log), LoggingTree(log, 't'), LoggingTree(log, 'f'));
    EXPECT_EQ("tfp", log);

    log.clear();
    EXPECT_TK_THROW(tkDecisionTreeNode(LoggingPredicate(log, true), LoggingTree(log, 't'), LoggingTree(log, 'f', true)),
                    tkClassifierDefs::BadParams, L"no clone");
    EXPECT_EQ("tf", log);
}

TEST(tkDecisionTreeNode, settersKeepClones)
{
    tkDecisionTreeNode below(tkValidityPredicate(), *leaf({1}), *leaf({2}));
    const tkDecisionTreeNode before(below);
    tkDecisionTreeNode inner;
    inner.trueTree(below);
    inner.falseTree(below);
    tkRangePredicate predicate(tkRange(0.0, 1.0), {3});
    inner.predicateFunction(predicate);

    below.trueTree(*leaf({9}));
    below.predicateFunction(tkComparisonPredicate());
    predicate = tkRangePredicate();
    EXPECT_TRUE(*inner.trueTree() == before);
    EXPECT_TRUE(*inner.falseTree() == before);
    EXPECT_TRUE(*inner.predicateFunction() == tkRangePredicate(tkRange(0.0, 1.0), {3}));
    EXPECT_EQ(asNode(inner.trueTree()).falseTree(), below.falseTree());
    EXPECT_NE(inner.trueTree(), inner.falseTree());
}

TEST(tkDecisionTreeNode, failingCloneChangesNothing)
{
    std::string log;
    tkDecisionTreeNode inner(golden::node());
    EXPECT_TK_THROW(inner.trueTree(LoggingTree(log, 't', true)), tkClassifierDefs::BadParams, L"no clone");
    EXPECT_TK_THROW(inner.falseTree(LoggingTree(log, 'f', true)), tkClassifierDefs::BadParams, L"no clone");
    EXPECT_TK_THROW(inner.predicateFunction(LoggingPredicate(log, true)), tkClassifierDefs::BadParams, L"no clone");
    EXPECT_TRUE(inner == golden::node());
    expectUnchangedWithoutMemory(golden::node(), [&](tkDecisionTreeNode& n) { n.trueTree(golden::leaf()); });
    expectUnchangedWithoutMemory(golden::node(), [&](tkDecisionTreeNode& n) { n.falseTree(golden::leaf()); });
    expectUnchangedWithoutMemory(golden::node(),
                                 [&](tkDecisionTreeNode& n) { n.predicateFunction(golden::rangePredicate()); });
}

TEST(tkDecisionTreeNode, copiesAndClonesShareSubtreesAndPredicate)
{
    const tkDecisionTreeNode original(golden::node());
    const tkDecisionTreeNode copy(original);
    tkDecisionTreeNode assigned;
    assigned = original;
    const Tree clone = original.clone();
    EXPECT_EQ(1, clone->referenceCount());
    for (const tkDecisionTreeNode* same : {&copy, static_cast<const tkDecisionTreeNode*>(&assigned), &asNode(clone)})
    {
        EXPECT_EQ(same->trueTree(), original.trueTree());
        EXPECT_EQ(same->falseTree(), original.falseTree());
        EXPECT_EQ(same->predicateFunction(), original.predicateFunction());
        EXPECT_TRUE(*same == original);
    }
    assigned.trueTree(tkDecisionTreeLeaf());
    EXPECT_TRUE(original == golden::node());
}

TEST(tkDecisionTreeNode, maySurviveAssignmentFromItselfAndFromItsDescendants)
{
    tkDecisionTreeNode inner(golden::node());
    inner = *&inner;
    EXPECT_TRUE(inner == golden::node());

    const tkDecisionTreeNode below(tkValidityPredicate({3}), *leaf({4}), *leaf({5}));
    inner = tkDecisionTreeNode(tkComparisonPredicate(), below, tkDecisionTreeNode(tkValidityPredicate(), below, below));
    ASSERT_EQ(1, inner.falseTree()->referenceCount()) << "held by nobody else";
    inner = asNode(inner.falseTree());
    EXPECT_TRUE(inner == tkDecisionTreeNode(tkValidityPredicate(), below, below));
    inner = asNode(inner.trueTree());
    EXPECT_TRUE(inner == below);
}

TEST(tkDecisionTreeNode, settersTakeTheNodesOwnPartsAndDescendants)
{
    const tkDecisionTreeNode below(tkValidityPredicate({3}), *leaf({4}), *leaf({5}));
    tkDecisionTreeNode inner(tkComparisonPredicate(), below, *leaf({6}));
    inner.trueTree(*inner.trueTree());
    EXPECT_TRUE(*inner.trueTree() == below);
    inner.trueTree(*asNode(inner.trueTree()).falseTree());
    EXPECT_TRUE(*inner.trueTree() == *leaf({5}));
    inner.predicateFunction(*inner.predicateFunction());
    EXPECT_TRUE(*inner.predicateFunction() == tkComparisonPredicate());
    inner.falseTree(inner);
    EXPECT_TRUE(*inner.falseTree() == tkDecisionTreeNode(tkComparisonPredicate(), *leaf({5}), *leaf({6})));
    EXPECT_EQ((Labels{6, 5}), inner.categoryLabels());
}

TEST(tkDecisionTreeNode, labelsAreThoseOfTheFalseSideThenWhatTheTrueSideAdds)
{
    EXPECT_EQ((Labels{2, 0, 5}), node(anyPredicate(), leaf({0, 5}), leaf({2, 0}))->categoryLabels());
    EXPECT_EQ(3, node(anyPredicate(), leaf({0, 5}), leaf({2, 0}))->numCategories());
    EXPECT_EQ((Labels{0, 5, 2}), node(anyPredicate(), leaf({2, 0}), leaf({0, 5}))->categoryLabels());
    const Tree inner = node(anyPredicate(), leaf({1, 4}), leaf({3, 1}));
    EXPECT_EQ((Labels{3, 1, 4, 9}), node(anyPredicate(), leaf({9, 4}), inner)->categoryLabels());
    EXPECT_EQ((Labels{9, 4, 3, 1}), node(anyPredicate(), inner, leaf({9, 4}))->categoryLabels());
}

TEST(tkDecisionTreeNode, repeatedLabelsStayOnlyInTheLeafFurthestOnTheFalseSide)
{
    EXPECT_EQ((Labels{2, 2, 0}), node(anyPredicate(), leaf({0, 0, 2}), leaf({2, 2}))->categoryLabels());
    EXPECT_EQ((Labels{1}), node(anyPredicate(), leaf({1, 1}), leaf({}))->categoryLabels());
    const Tree inner = node(anyPredicate(), leaf({3, 3}), leaf({2, 2}));
    EXPECT_EQ((Labels{2, 2, 3, 1}), node(anyPredicate(), leaf({1, 1}), inner)->categoryLabels());
    EXPECT_EQ((Labels{1, 1, 2, 3}), node(anyPredicate(), inner, leaf({1, 1}))->categoryLabels());
    const Tree shared = leaf({2, 2});
    EXPECT_EQ((Labels{2, 2}), node(anyPredicate(), shared, shared)->categoryLabels());
}

TEST(tkDecisionTreeNode, equalOnesHaveEqualPredicatesAndEqualSubtreesOnBothSides)
{
    const Tree tree = node(treeTest::range(0.0, 1.0, {0}), leaf({1}), leaf({2}));
    EXPECT_TRUE(*tree == *node(treeTest::range(0.0, 1.0, {0}), leaf({1}), leaf({2})));
    EXPECT_FALSE(*tree != *node(treeTest::range(0.0, 1.0, {0}), leaf({1}), leaf({2})));
    EXPECT_TRUE(*tree != *node(treeTest::range(0.0, 1.0, {0}), leaf({2}), leaf({1}))) << "swapped subtrees";
    EXPECT_TRUE(*tree != *node(treeTest::range(0.0, 1.0, {1}), leaf({1}), leaf({2})));
    EXPECT_TRUE(*tree != *node(treeTest::range(0.0, 1.0, {0}), leaf({3}), leaf({2})));
    EXPECT_TRUE(*tree != *node(treeTest::range(0.0, 1.0, {0}), leaf({1}), leaf({3})));
    EXPECT_TRUE(*tree != *leaf({1}));
    EXPECT_TRUE(*leaf({1}) != *tree);
    EXPECT_TRUE(*tree != *node(treeTest::range(0.0, 1.0, {0}), tree, leaf({2})));
    EXPECT_TRUE(*node(treeTest::range(0.0, 1.0, {0}), tree, leaf({2})) != *tree);
}

TEST(tkDecisionTreeNode, treeThatHoldsANaNDoesNotEqualItself)
{
    const Tree withNaN = leaf({1}, notANumber);
    const Tree tree = node(anyPredicate(), leaf({1}), withNaN);
    EXPECT_FALSE(*tree == *tree);
    EXPECT_FALSE(*node(anyPredicate(), withNaN, withNaN) == *node(anyPredicate(), withNaN, withNaN));
    const Tree asking = node(treeTest::range(0.0, notANumber, {0}), leaf({1}), leaf({1}));
    EXPECT_FALSE(*asking == *asking);
    EXPECT_FALSE(*node(anyPredicate(), asking, asking) == *node(anyPredicate(), asking, asking));
}

TEST(tkDecisionTreeNode, asksTheTreesOfAHostsClass)
{
    const HostNode host(tkComparisonPredicate(), *leaf({1}), *leaf({2}));
    const tkDecisionTreeNode holder(tkComparisonPredicate(), host, *leaf({3, 9}));
    EXPECT_EQ((Labels{3, 9, 8}), holder.categoryLabels());
    EXPECT_EQ((Labels{8, 8, 9, 3}), tkDecisionTreeNode(tkComparisonPredicate(), *leaf({3, 9}), host).categoryLabels());
    const HostNode otherHost(tkValidityPredicate(), *leaf({1}), *leaf({2}));
    EXPECT_TRUE(holder == tkDecisionTreeNode(tkComparisonPredicate(), otherHost, *leaf({3, 9})));
    const tkDecisionTreeNode same(tkComparisonPredicate(), *leaf({1}), *leaf({2}));
    EXPECT_FALSE(holder == tkDecisionTreeNode(tkComparisonPredicate(), same, *leaf({3, 9})));
    EXPECT_FALSE(tkDecisionTreeNode(tkComparisonPredicate(), same, *leaf({3, 9})) == holder);

    const PlainHostNode a(tkComparisonPredicate(), same, *leaf({2}));
    EXPECT_EQ((Labels{2, 1}), a.categoryLabels());
    EXPECT_TRUE(a == PlainHostNode(tkComparisonPredicate(), same, *leaf({2})));
    EXPECT_FALSE(a == tkDecisionTreeNode(tkComparisonPredicate(), same, *leaf({2}))) << "another class";
    EXPECT_FALSE(tkDecisionTreeNode(tkComparisonPredicate(), same, *leaf({2})) == a);
    EXPECT_TRUE(tkDecisionTreeNode(tkComparisonPredicate(), a, a) == tkDecisionTreeNode(tkComparisonPredicate(), a, a));
}

// --------------------------------------------------------------------------------- trees with holes, as loaded

TEST(tkDecisionTreeNode, missingSubtreeOrPredicateIsABadPointerWhereItIsNeeded)
{
    const Tree whole = node(anyPredicate(), leaf({1}), leaf({2}));
    const Tree holes[] = {node(anyPredicate(), Tree(), leaf({2})), node(anyPredicate(), leaf({1}), Tree()),
                          node(anyPredicate(), Tree(), Tree())};
    for (const Tree& hole : holes)
    {
        EXPECT_THROW(hole->categoryLabels(), tkBadPointer);
        EXPECT_THROW(hole->numCategories(), tkBadPointer);
        EXPECT_THROW(hole->isEqual(*whole), tkBadPointer);
        EXPECT_THROW(whole->isEqual(*hole), tkBadPointer);
        EXPECT_THROW(hole->isEqual(*hole), tkBadPointer);
        EXPECT_THROW(node(anyPredicate(), hole, whole)->categoryLabels(), tkBadPointer);
        EXPECT_THROW(node(anyPredicate(), whole, hole)->categoryLabels(), tkBadPointer);
        const Tree clone = hole->clone();
        EXPECT_EQ(asNode(hole).trueTree(), asNode(clone).trueTree());
    }
    EXPECT_THROW(*asNode(holes[0]).trueTree(), tkBadPointer);

    const Tree unasked = node(Predicate(), leaf({1}), leaf({2}));
    EXPECT_THROW(unasked->isEqual(*whole), tkBadPointer);
    EXPECT_THROW(whole->isEqual(*unasked), tkBadPointer);
    EXPECT_EQ((Labels{2, 1}), unasked->categoryLabels()) << "needs no predicate";
}

TEST(tkDecisionTreeNode, firstDifferenceIsFoundBeforeWhatIsMissingBehindIt)
{
    const Tree a = node(anyPredicate(), leaf({1}), Tree());
    EXPECT_FALSE(a->isEqual(*node(treeTest::range(0.0, 1.0, {0}), leaf({1}), Tree())));
    EXPECT_FALSE(a->isEqual(*node(anyPredicate(), leaf({2}), Tree())));
    EXPECT_THROW(a->isEqual(*node(anyPredicate(), leaf({1}), leaf({2}))), tkBadPointer);
    EXPECT_THROW(node(anyPredicate(), Tree(), leaf({1}))->isEqual(*node(anyPredicate(), Tree(), leaf({2}))),
                 tkBadPointer);
    EXPECT_FALSE(a->isEqual(*leaf({1})));
}

TEST(tkDecisionTreeNode, missingPartsAreStoredAndComeBackMissing)
{
    const Tree hole = node(Predicate(), Tree(), leaf({2}));
    const std::string bytes = storeToBytes(asNode(hole));
    tkDecisionTreeNode loaded(golden::node());
    loadFromBytes(bytes, loaded);
    EXPECT_TRUE(loaded.trueTree().isNull());
    EXPECT_TRUE(loaded.predicateFunction().isNull());
    EXPECT_TRUE(*loaded.falseTree() == *leaf({2}));
    EXPECT_THROW(loaded.categoryLabels(), tkBadPointer);
    EXPECT_THROW(loaded.isEqual(loaded), tkBadPointer);
    EXPECT_THROW(tkDecisionTreeNode(*loaded.predicateFunction(), *leaf({1}), *leaf({1})), tkBadPointer);
}

// ---------------------------------------------------------------------------------------------------- records

TEST(tkDecisionTreeNode, recordIsItsBaseRecordsTheSubtreesAndThePredicate)
{
    const Tree shared = leaf({});
    const std::string record = literalBytes("\0\0\0"
                                            "\1\0\0\0\1\0\0\0\x12\0\0\0tkDecisionTreeLeaf"
                                            "\0\0\0"
                                            "\0\0\0\0\0\0\0\0\0\0\0\0\0\0"
                                            "\1\0\0\0"
                                            "\2\0\0\0\2\0\0\0\x15\0\0\0tkComparisonPredicate"
                                            "\0\0\0\0\0\0\0\1\0\0\0");
    EXPECT_EQ(record, storeToBytes(asNode(node(anyPredicate(), shared, shared))));
    tkDecisionTreeNode loaded(golden::node());
    loadFromBytes(record, loaded);
    EXPECT_EQ(loaded.trueTree(), loaded.falseTree());
    EXPECT_TRUE(loaded == *node(anyPredicate(), shared, shared));
    for (const std::size_t level : {0, 1, 2})
    {
        tkDecisionTreeNode unchanged(golden::node());
        expectUnknownVersionAt(record, level, unchanged);
        EXPECT_TRUE(unchanged == golden::node()) << level;
    }
}

TEST(tkDecisionTreeNode, truncatedRecordIsRefused)
{
    const std::string record = storeToBytes(golden::node());
    for (std::size_t length = 0; length < record.size(); ++length)
    {
        tkDecisionTreeNode loaded;
        EXPECT_THROW(loadFromBytes(record.substr(0, length), loaded), tkArchive::Errors) << length;
    }
}

TEST(tkDecisionTree, sharedSubtreesAreStoredOnceAndComeBackShared)
{
    treeTest::Random random(3);
    for (int i = 0; i < 30; ++i)
    {
        const std::vector<Tree> stored = random.trees(8);
        std::vector<Tree> loaded;
        loadFromBytes(storeToBytes(stored), loaded);
        ASSERT_EQ(stored.size(), loaded.size());
        for (std::size_t a = 0; a < stored.size(); ++a)
        {
            EXPECT_TRUE(*loaded[a] == *stored[a]);
            EXPECT_EQ(numObjects(stored[a]), numObjects(loaded[a]));
            if (const auto* const inner = dynamic_cast<const tkDecisionTreeNode*>(stored[a].get()))
                for (std::size_t b = 0; b < stored.size(); ++b)
                {
                    EXPECT_EQ(inner->trueTree() == stored[b], asNode(loaded[a]).trueTree() == loaded[b]);
                    EXPECT_EQ(inner->falseTree() == stored[b], asNode(loaded[a]).falseTree() == loaded[b]);
                }
        }
        EXPECT_EQ(storeToBytes(stored), storeToBytes(loaded));
    }
}

TEST(tkDecisionTree, goldenArchivesComeBackEqualAndStoreToTheSameBytes)
{
    const tkDecisionTreeLeaf goldenLeaf = golden::leaf();
    const tkDecisionTreeNode goldenNode = golden::node();
    const tkDecisionTreeNode goldenSharing = golden::sharingNode();
    const std::pair<const char*, const tkDecisionTree*> files[] = {
        {"tkDecisionTreeLeaf.v0.bin", &goldenLeaf},
        {"tkDecisionTreeNode.v0.bin", &goldenNode},
        {"tkDecisionTreeNode.shared.v0.bin", &goldenSharing}};
    for (const auto& [name, expected] : files)
    {
        const std::string bytes = goldenBytes(name);
        Tree loaded;
        loadFromBytes(bytes, loaded);
        EXPECT_TRUE(*loaded == *expected) << name;
        EXPECT_EQ(bytes, storeToBytes(loaded)) << name;
        EXPECT_EQ(numObjects(expected->clone()), numObjects(loaded)) << name;
    }
    Tree sharing;
    loadFromBytes(goldenBytes("tkDecisionTreeNode.shared.v0.bin"), sharing);
    const tkDecisionTreeNode& onTheTrueSide = asNode(asNode(sharing).trueTree());
    const tkDecisionTreeNode& onTheFalseSide = asNode(asNode(sharing).falseTree());
    EXPECT_NE(&onTheTrueSide, &onTheFalseSide);
    EXPECT_EQ(onTheTrueSide.trueTree(), onTheFalseSide.trueTree());
    EXPECT_EQ(onTheTrueSide.falseTree(), onTheFalseSide.falseTree());
    EXPECT_EQ(asNode(onTheTrueSide.falseTree()).trueTree(), asNode(onTheTrueSide.falseTree()).falseTree());
}

TEST(tkDecisionTree, deeperThanTheNestingLimitIsRefusedInBothDirections)
{
    const Tree deep = sharedChain(100, leaf({1}));
    std::ostringstream stream;
    tkArchive storing(stream);
    storing.nestingLimit(100);
    tkDecisionTreeNode stored(asNode(deep));
    try
    {
        storing || stored;
        ADD_FAILURE() << "stored";
    }
    catch (const tkArchive::Errors& error)
    {
        EXPECT_EQ(0u, error.message().find(L"More than 100 objects are nested"))
            << ::testing::PrintToString(error.message());
    }

    const std::string bytes = storeToBytes(stored);
    std::istringstream input(bytes);
    tkArchive loading(input);
    loading.nestingLimit(100);
    tkDecisionTreeNode loaded;
    EXPECT_THROW(loading || loaded, tkArchive::Errors);

    // The usual limit, reached and passed.
    EXPECT_THROW(storeToBytes(sharedChain(256, leaf({1}))), tkArchive::Errors);
    Tree back;
    loadFromBytes(storeToBytes(sharedChain(255, leaf({1}))), back);
    EXPECT_TRUE(*back == *sharedChain(255, leaf({1})));
}

TEST(tkDecisionTree, fileIsLeftAsItIsWhenATreeIsTooDeepForIt)
{
    const std::filesystem::path file =
        std::filesystem::path(::testing::TempDir()) / ("tkDecisionTree_test-" + std::to_string(std::random_device()()));
    tkArchiveFile::save(file, golden::node());
    EXPECT_THROW(tkArchiveFile::save(file, asNode(sharedChain(1100, leaf({1})))), tkArchive::Errors);
    tkDecisionTreeNode loaded;
    EXPECT_NO_THROW(tkArchiveFile::load(file, loaded));
    EXPECT_TRUE(loaded == golden::node());
    std::filesystem::remove(file);
}

// ------------------------------------------------------------------------------- against the plain definition

TEST(tkDecisionTree, labelsAreThoseOfThePlainDefinition)
{
    treeTest::Random random(4);
    for (int i = 0; i < 200; ++i)
        for (const Tree& tree : random.trees(8))
        {
            const Labels labels = definition::categoryLabels(*tree);
            EXPECT_EQ(labels, tree->categoryLabels());
            EXPECT_EQ(static_cast<long>(labels.size()), tree->numCategories());
        }
}

TEST(tkDecisionTree, equalityIsThatOfThePlainDefinition)
{
    treeTest::Random random(5);
    long equalPairs = 0;
    long pairs = 0;
    for (int i = 0; i < 100; ++i)
    {
        std::vector<Tree> trees = random.trees(5, i % 2 == 1);
        const std::size_t drawn = trees.size();
        for (std::size_t a = 0; a < drawn; ++a)
            trees.push_back(random.unshared(trees[a], 30));
        trees.push_back(node(anyPredicate(), trees[drawn - 1], trees[drawn - 2]));
        for (const Tree& a : trees)
            for (const Tree& b : trees)
            {
                const bool expected = definition::isEqual(*a, *b);
                EXPECT_EQ(expected, a->isEqual(*b));
                equalPairs += expected && a != b;
                ++pairs;
            }
    }
    EXPECT_GT(equalPairs, pairs / 100);
    EXPECT_LT(equalPairs, pairs / 2);
}

// ------------------------------------------------------------------------------------------- much of it shared

TEST(tkDecisionTree, sharedSubtreesAreMetOnceAndNotOncePerPath)
{
    const Tree a = sharedChain(60, node(anyPredicate(), leaf({2, 1}), leaf({4})));
    const Tree b = sharedChain(60, node(anyPredicate(), leaf({2, 1}), leaf({4})));
    EXPECT_EQ((Labels{4, 2, 1}), a->categoryLabels());
    EXPECT_TRUE(*a == *b);
    EXPECT_TRUE(*a == *a);
    EXPECT_FALSE(*a == *sharedChain(60, node(anyPredicate(), leaf({2, 1}), leaf({5}))));
    EXPECT_FALSE(*a == *sharedChain(59, node(anyPredicate(), leaf({2, 1}), leaf({4}))));
    EXPECT_FALSE(*a == *sharedChain(61, node(anyPredicate(), leaf({2, 1}), leaf({4}))));

    Tree loaded;
    loadFromBytes(storeToBytes(a), loaded);
    EXPECT_TRUE(*loaded == *a);
    EXPECT_EQ(numObjects(a), numObjects(loaded));

    // As the constructor makes it, of clones: two nodes on each level that share both of those below.
    Tree cloned = node(anyPredicate(), leaf({2, 1}), leaf({4}));
    for (int level = 0; level < 60; ++level)
        cloned = Tree(new tkDecisionTreeNode(*anyPredicate(), *cloned, *cloned));
    EXPECT_TRUE(*cloned == *a);
    EXPECT_TRUE(*a == *cloned);
    EXPECT_EQ((Labels{4, 2, 1}), cloned->categoryLabels());
}

TEST(tkDecisionTree, comparisonIsLinearThoughSharingDiffers)
{
    // 2^4 chains on either side. The first four decisions choose one on the left, the next four one on the right:
    // each chain of one side stands opposite to each of the other.
    long comparisons = 0;
    const Predicate predicate(new CountingPredicate(comparisons));
    const auto chain = [&predicate]
    {
        Tree end = leaf({1});
        for (int i = 0; i < 20; ++i)
            end = node(predicate, end, leaf({1}));
        return end;
    };
    const auto both = [&predicate](int levels, Tree below)
    {
        for (; levels > 0; --levels)
            below = node(predicate, below, below);
        return below;
    };
    const std::function<Tree(int, const std::function<Tree()>&)> each =
        [&](int levels, const std::function<Tree()>& below)
    { return levels == 0 ? below() : node(predicate, each(levels - 1, below), each(levels - 1, below)); };

    const Tree left = each(4, [&] { return both(4, chain()); });
    const Tree right = both(4, each(4, chain));
    EXPECT_TRUE(*left == *right);
    EXPECT_LE(comparisons, static_cast<long>(numObjects(left) + numObjects(right)));
}

// ------------------------------------------------------------------------------------------ deeper than stacks

namespace
{
constexpr long deep = 1000000;

enum class Shape
{
    trueSide,
    falseSide,
    zigzag,
    both,
};

/// A tree of a million levels; all but its nodes is shared.
Tree deepTree(Shape shape, const Tree& end)
{
    const Predicate predicate = anyPredicate();
    const Tree side = leaf({1});
    Tree tree = end;
    for (long level = 0; level < deep; ++level)
        switch (shape)
        {
        case Shape::trueSide:
            tree = node(predicate, tree, side);
            break;
        case Shape::falseSide:
            tree = node(predicate, side, tree);
            break;
        case Shape::zigzag:
            tree = level % 3 == 0 ? node(predicate, tree, side) : node(predicate, side, tree);
            break;
        case Shape::both:
            tree = node(predicate, tree, tree);
            break;
        }
    return tree;
}
} // namespace

class tkDecisionTreeDeep : public ::testing::TestWithParam<Shape>
{
};

TEST_P(tkDecisionTreeDeep, needsNoStackForItsDepth)
{
    tkOnSmallStack(
        []
        {
            Tree tree = deepTree(GetParam(), leaf({2}));
            EXPECT_EQ(GetParam() == Shape::both ? 1 : 2, tree->numCategories());
            tkDecisionTreeNode copy(asNode(tree));
            EXPECT_TRUE(copy == *tree);
            EXPECT_FALSE(*tree == *deepTree(GetParam(), leaf({3})));
            copy = tkDecisionTreeNode();
            tree = Tree(); // the last that holds it
        });
}

INSTANTIATE_TEST_SUITE_P(, tkDecisionTreeDeep,
                         ::testing::Values(Shape::trueSide, Shape::falseSide, Shape::zigzag, Shape::both));

TEST(tkDecisionTree, deepTreeIsBuiltWithTheConstructorAndTheSetters)
{
    tkOnSmallStack(
        []
        {
            const tkComparisonPredicate predicate;
            const tkDecisionTreeLeaf side;
            tkDecisionTreeNode tree;
            for (long level = 0; level < deep / 2; ++level)
                tree = tkDecisionTreeNode(predicate, side, tree);
            for (long level = 0; level < deep / 2; ++level)
                tree.trueTree(tree);
            const Tree held = tree.clone();
            EXPECT_EQ(0, held->numCategories());
            tree = asNode(tree.trueTree());
            EXPECT_FALSE(tree == *held);
        });
}

TEST(tkDecisionTree, destructionTakesWhatNobodyElseHoldsAndNothingMore)
{
    static long alive = 0;
    class Counted : public tkPredicateFunction
    {
    public:
        Counted() { ++alive; }
        Counted(const Counted& other) : tkPredicateFunction(other) { ++alive; }
        ~Counted() override { --alive; }
        bool outcome(const tkFeaturePattern&) const override { return true; }
        tkPtrHandle<tkPredicateFunction> clone() const override
        {
            return tkPtrHandle<tkPredicateFunction>(new Counted(*this));
        }
    };

    treeTest::Random random(6);
    for (int round = 0; round < 20; ++round)
    {
        std::vector<Tree> trees = {leaf({1})};
        const auto anyOf = [&] { return static_cast<std::size_t>(random.below(static_cast<long>(trees.size()))); };
        for (int i = 0; i < 100; ++i)
            trees.push_back(node(Predicate(new Counted), trees[anyOf()], trees[anyOf()]));
        EXPECT_EQ(100, alive);
        while (!trees.empty())
        {
            trees.erase(trees.begin() + static_cast<std::ptrdiff_t>(anyOf()));
            std::set<const void*> held;
            for (const Tree& tree : trees)
                collect(tree.get(), held);
            const bool isLeafHeld = held.size() % 2 == 1; // each node comes with its predicate
            EXPECT_EQ(static_cast<long>(held.size() - isLeafHeld) / 2, alive);
        }
        EXPECT_EQ(0, alive);
    }
}

TEST(tkDecisionTree, treesThatShareSubtreesAreDestroyedByTwoThreadsAtOnce)
{
    for (int round = 0; round < 20; ++round)
    {
        const Predicate predicate = anyPredicate();
        Tree shared = leaf({1});
        Tree trees[2] = {leaf({2}), leaf({3})};
        for (int level = 0; level < 5000; ++level)
        {
            shared = node(predicate, level % 2 == 0 ? shared : leaf({1}), shared);
            for (Tree& tree : trees)
                tree = level % 3 == 0 ? node(predicate, tree, shared) : node(predicate, shared, tree);
        }
        shared = Tree();
        std::atomic<int> ready{0};
        const auto destroy = [&ready](Tree& tree)
        {
            tkOnSmallStack(
                [&]
                {
                    ++ready;
                    while (ready < 2)
                        std::this_thread::yield();
                    tree = Tree();
                });
        };
        std::thread other([&] { destroy(trees[0]); });
        destroy(trees[1]);
        other.join();
        EXPECT_EQ(1, predicate->referenceCount()) << "of the nodes none is left";
    }
}
