#include "clss/clastool/clastool/tk_ClassifierDecisionTree.h"

#include "tests/clastool/treeTestData.h"
#include "tests/definition/trees.h"
#include "tests/golden/trees.h"
#include "tkAllocations.h"
#include "tkSmallStack.h"
#include "tkTest.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierTrainParamsKNN.h"
#include "clss/clastool/clastool/tk_ClassifierKNN.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkAssert.h"

#include <algorithm>
#include <limits>
#include <thread>
#include <vector>

namespace
{
using treeTest::asNode;
using treeTest::leaf;
using treeTest::node;
using treeTest::Predicate;
using treeTest::Tree;

const wchar_t noAutomaticTraining[] = L"Automatic decision tree training is not implemented.";
const wchar_t noIncrementalTraining[] = L"Incremental decision tree training is not implemented.";

/// Makes the steps of the method callable.
class Classifier : public tk_ClassifierDecisionTree
{
public:
    using tk_ClassifierDecisionTree::checkRunnable_;
    using tk_ClassifierDecisionTree::retrain_;
    using tk_ClassifierDecisionTree::run_;
    using tk_ClassifierDecisionTree::train_;
    using tk_ClassifierDecisionTree::trainIncremental_;
    using tk_ClassifierDecisionTree::trainStart_;
};

Predicate comparison()
{
    return Predicate(new tkComparisonPredicate(0, 1));
}

tk_ClassifierDecisionTree classifierOf(const tkDecisionTree& tree)
{
    tk_ClassifierDecisionTree classifier;
    classifier.trainManual(tree);
    return classifier;
}

tkClassifierResult resultFor(const tk_ClassifierDecisionTree& classifier, const tkFeaturePattern& pattern)
{
    tkClassifierResult result;
    classifier.run(pattern, result);
    return result;
}

/// Changes the flags and counts how often it was asked for the destination, or refuses.
class Diag : public tkDiagObject
{
public:
    long asked = 0;
    unsigned long flags = 0;
    bool fails = false;

protected:
    tkDiagObject* recordingDestination_(unsigned long& callersFlags) override
    {
        ++asked;
        flags = callersFlags;
        callersFlags = 0;
        if (fails)
            throw tkClassifierDefs::BadParams(L"no recording");
        return nullptr;
    }
};

/// Sends what is recorded to another object, with other flags.
class RedirectingDiag : public tkDiagObject
{
public:
    tkDiagObject* destination = nullptr;

protected:
    tkDiagObject* recordingDestination_(unsigned long& flags) override
    {
        flags += 100;
        return destination;
    }
};

/// Tells which object each hook of a training is given to record into.
class RecordingClassifier : public tk_ClassifierDecisionTree
{
public:
    mutable std::vector<std::string> calls;

private:
    void recordTrainInputs_(tkDiagObject* diag, unsigned long flags) const override { note("inputs", diag, flags); }
    void recordTrainDetails_(tkDiagObject* diag, unsigned long flags) const override { note("details", diag, flags); }
    void recordTrainResults_(tkDiagObject* diag, unsigned long flags) const override { note("results", diag, flags); }

    void note(const char* hook, const tkDiagObject* diag, unsigned long flags) const
    {
        const auto* const redirecting = dynamic_cast<const RedirectingDiag*>(diag);
        calls.push_back(std::string(hook) + (redirecting && redirecting->destination ? " caller " : " destination ") +
                        std::to_string(flags) + (isTrained() ? " trained" : " untrained"));
    }
};

class UnknownTree : public tkDecisionTree
{
public:
    std::vector<long> categoryLabels() const override { return {}; }
    tkPtrHandle<tkDecisionTree> clone() const override { return tkPtrHandle<tkDecisionTree>(new UnknownTree(*this)); }
};

class FailingTree : public UnknownTree
{
public:
    tkPtrHandle<tkDecisionTree> clone() const override { throw tkClassifierDefs::BadParams(L"no clone"); }
};

/// A range predicate that is always false.
class NeverInRange : public tkRangePredicate
{
public:
    bool outcome(const tkFeaturePattern&) const override { return false; }
    tkPtrHandle<tkPredicateFunction> clone() const override
    {
        return tkPtrHandle<tkPredicateFunction>(new NeverInRange(*this));
    }
};

class FailingPredicate : public tkPredicateFunction
{
public:
    bool outcome(const tkFeaturePattern&) const override { throw tkClassifierDefs::BadFeatures(L"no outcome"); }
    tkPtrHandle<tkPredicateFunction> clone() const override
    {
        return tkPtrHandle<tkPredicateFunction>(new FailingPredicate(*this));
    }
};
} // namespace

TEST(tk_ClassifierDecisionTree, isUntrainedAtFirst)
{
    const tk_ClassifierDecisionTree classifier;
    EXPECT_FALSE(classifier.isTrained());
    EXPECT_THROW(classifier.decisionTree(), tkAssertionFailure);
    tkClassifierResult result = treeTest::resultOf({5});
    EXPECT_TK_THROW(classifier.run(tkFeaturePattern(), result), tkClassifierDefs::NotTrained,
                    L"Classifier tool must be trained before running.");
    EXPECT_TRUE(result == treeTest::resultOf({5}));
    EXPECT_THROW(Classifier().run_(tkFeaturePattern(), result), tkAssertionFailure);
    EXPECT_TK_THROW(classifier.trainParams(), tkClassifierDefs::NotTrained,
                    L"Classifier tool must be trained before requesting the training parameters.");
}

TEST(tk_ClassifierDecisionTree, keepsACloneOfTheRoot)
{
    tkDecisionTreeNode tree(golden::node());
    tk_ClassifierDecisionTree classifier;
    classifier.trainManual(tree);
    EXPECT_TRUE(classifier.isTrained());
    EXPECT_NE(classifier.decisionTree().get(), &tree);
    EXPECT_EQ(asNode(classifier.decisionTree()).falseTree(), tree.falseTree());
    EXPECT_EQ(&classifier.decisionTree(), &classifier.decisionTree()) << "a reference";

    tree.falseTree(*leaf({9}));
    tree.predicateFunction(tkValidityPredicate());
    EXPECT_TRUE(*classifier.decisionTree() == golden::node());
}

TEST(tk_ClassifierDecisionTree, newTreeReplacesTheOldOne)
{
    tk_ClassifierDecisionTree classifier = classifierOf(golden::node());
    const Tree before = classifier.decisionTree();
    classifier.trainManual(*leaf({3}));
    EXPECT_TRUE(*classifier.decisionTree() == *leaf({3}));
    EXPECT_EQ(1, before->referenceCount());
    EXPECT_TRUE(*before == golden::node());
    classifier.untrain();
    EXPECT_FALSE(classifier.isTrained());
    EXPECT_THROW(classifier.decisionTree(), tkAssertionFailure);
}

TEST(tk_ClassifierDecisionTree, takesItsOwnTreeOrAPartOfItAgain)
{
    tk_ClassifierDecisionTree classifier = classifierOf(golden::node());
    ASSERT_EQ(1, classifier.decisionTree()->referenceCount()) << "held by nobody else";
    classifier.trainManual(*classifier.decisionTree());
    EXPECT_TRUE(*classifier.decisionTree() == golden::node());
    const Tree part = golden::node().falseTree();
    classifier.trainManual(*asNode(classifier.decisionTree()).falseTree());
    EXPECT_TRUE(*classifier.decisionTree() == *part);
}

TEST(tk_ClassifierDecisionTree, failingCloneLeavesItUntrained)
{
    tk_ClassifierDecisionTree classifier = classifierOf(golden::node());
    EXPECT_TK_THROW(classifier.trainManual(FailingTree()), tkClassifierDefs::BadParams, L"no clone");
    EXPECT_FALSE(classifier.isTrained());
}

TEST(tk_ClassifierDecisionTree, asksForTheRecordingDestinationOnceTheTreeIsInstalled)
{
    tk_ClassifierDecisionTree classifier;
    Diag diag;
    classifier.trainManual(*leaf({3}), &diag, 5);
    EXPECT_EQ(1, diag.asked);
    EXPECT_EQ(5u, diag.flags);

    tkClassifierResult result;
    classifier.run(tkFeaturePattern(), result, &diag, 6);
    EXPECT_EQ(2, diag.asked);
    EXPECT_EQ(6u, diag.flags);
    EXPECT_TRUE(result == treeTest::resultOf({3}));

    diag.fails = true;
    EXPECT_TK_THROW(classifier.trainManual(*leaf({4}), &diag), tkClassifierDefs::BadParams, L"no recording");
    EXPECT_TRUE(*classifier.decisionTree() == *leaf({4}));
    EXPECT_TK_THROW(classifier.trainManual(FailingTree(), &diag), tkClassifierDefs::BadParams, L"no clone");
}

TEST(tk_ClassifierDecisionTree, trainingFromDataIsNotImplemented)
{
    const tkClassifierDataProviderMemory data;
    const tkClassifierTrainParamsKNN params(1);
    for (const bool isTrained : {false, true})
    {
        Classifier classifier;
        if (isTrained)
            classifier.trainManual(*leaf({3}));
        EXPECT_TK_THROW(classifier.train_(data, params), tkClassifierDefs::NotImplemented, noAutomaticTraining);
        EXPECT_TK_THROW(classifier.retrain_(params), tkClassifierDefs::NotImplemented, noAutomaticTraining);
        EXPECT_TK_THROW(classifier.trainStart_(params), tkClassifierDefs::NotImplemented, noIncrementalTraining);
        EXPECT_TK_THROW(classifier.trainIncremental_(tkFeaturePattern(), 0), tkClassifierDefs::NotImplemented,
                        noIncrementalTraining);
        EXPECT_EQ(isTrained, classifier.isTrained());
        EXPECT_NO_THROW(classifier.checkRunnable_());
    }
}

TEST(tk_ClassifierDecisionTree, publicTrainingOperationsRefuseEachInItsWay)
{
    const tkClassifierDataProviderMemory data;
    const tkClassifierTrainParamsKNN params(1);
    tk_ClassifierDecisionTree classifier;
    EXPECT_TK_THROW(classifier.retrain(params), tkClassifierDefs::NotTrained,
                    L"Classifier tool must be trained before retraining.");
    EXPECT_TK_THROW(classifier.trainIncremental(tkFeaturePattern(), 0), tkClassifierDefs::NotTrained,
                    L"Classifier tool must be trained before incremental training.");

    classifier.trainManual(*leaf({3}));
    EXPECT_TK_THROW(classifier.retrain(params), tkClassifierDefs::BadMethod,
                    L"Cannot retrain with a different classification technique.");
    EXPECT_TK_THROW(classifier.trainParams(), tkClassifierDefs::BadMethod,
                    L"Classifier tool was not automatically trained.");
    EXPECT_TK_THROW(classifier.trainIncremental(tkFeaturePattern(), 0), tkClassifierDefs::NotImplemented,
                    noIncrementalTraining);
    EXPECT_TRUE(classifier.isTrained());

    EXPECT_TK_THROW(classifier.train(data, params), tkClassifierDefs::NotImplemented, noAutomaticTraining);
    EXPECT_FALSE(classifier.isTrained()) << "untrained before the method is asked";
    classifier.trainManual(*leaf({3}));
    EXPECT_TK_THROW(classifier.trainStart(params), tkClassifierDefs::NotImplemented, noIncrementalTraining);
    EXPECT_FALSE(classifier.isTrained());
}

// ---------------------------------------------------------------------------------------------------- running

TEST(tk_ClassifierDecisionTree, singleLeafGivesEveryPatternItsResult)
{
    const tk_ClassifierDecisionTree classifier = classifierOf(golden::leaf());
    for (const tkFeaturePattern& pattern :
         {tkFeaturePattern(), tkFeaturePattern({1.0}), tkFeaturePattern({1.0, 2.0}, {0, 1}),
          tkFeaturePattern({std::nan(""), 1.0, 2.0})})
        EXPECT_TRUE(resultFor(classifier, pattern) == golden::leaf().classifierResult());
}

TEST(tk_ClassifierDecisionTree, followsTheOutcomeToTheTrueOrTheFalseSide)
{
    const tk_ClassifierDecisionTree classifier = classifierOf(*node(comparison(), leaf({1}), leaf({0})));
    EXPECT_TRUE(resultFor(classifier, tkFeaturePattern({1.0, 2.0})) == treeTest::resultOf({0}));
    EXPECT_TRUE(resultFor(classifier, tkFeaturePattern({2.0, 1.0})) == treeTest::resultOf({1}));
    EXPECT_TRUE(resultFor(classifier, tkFeaturePattern({2.0})) == treeTest::resultOf({0}));
    EXPECT_TRUE(resultFor(classifier, tkFeaturePattern({2.0, 1.0}, {1})) == treeTest::resultOf({0}));
}

TEST(tk_ClassifierDecisionTree, givesTheLeafsResultUnchanged)
{
    const tkClassifierResult odd = treeTest::resultOf({4, 4, 2}, 0.875);
    EXPECT_TRUE(resultFor(classifierOf(tkDecisionTreeLeaf(odd)), tkFeaturePattern()) == odd);
}

TEST(tk_ClassifierDecisionTree, resultsAreThoseOfThePlainDefinition)
{
    treeTest::Random random(7);
    for (int i = 0; i < 100; ++i)
        for (const Tree& tree : random.trees(8))
        {
            const tk_ClassifierDecisionTree classifier = classifierOf(*tree);
            for (int k = 0; k < 5; ++k)
            {
                const tkFeaturePattern pattern = random.pattern();
                EXPECT_TRUE(resultFor(classifier, pattern) == definition::classifyByTree(*tree, pattern));
            }
        }
}

TEST(tk_ClassifierDecisionTree, rangePredicatesAreAskedAsTheyStand)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double infinity = std::numeric_limits<double>::infinity();
    const std::vector<double> values{nan, -infinity, -1.0, -0.0, 0.0, 5e-324, 0.5, 1.0, 2.0, infinity};
    const std::vector<tkRange> ranges{tkRange(),         tkRange(0.0, 1.0),      tkRange(1.0, 0.0),
                                      tkRange(nan, 1.0), tkRange(0.0, infinity), tkRange(-infinity, 0.5)};
    const std::vector<std::vector<long>> lists{{}, {0}, {1}, {2}, {0, 1}, {1, 0, 1}, {0, 2}};
    for (const tkRange& range : ranges)
        for (const std::vector<long>& list : lists)
        {
            const tkRangePredicate predicate(range, list);
            const tk_ClassifierDecisionTree classifier =
                classifierOf(tkDecisionTreeNode(predicate, *leaf({1}), *leaf({2})));
            for (const double a : values)
                for (const double b : values)
                    for (const std::vector<long>& invalid : std::vector<std::vector<long>>{{}, {0}, {1}})
                    {
                        bool outcome = true;
                        for (const long i : list)
                        {
                            const double value = i == 0 ? a : b;
                            const bool isValid = i < 2 && std::find(invalid.begin(), invalid.end(), i) == invalid.end();
                            if (!isValid || !range.isWithin(value))
                                outcome = false;
                        }
                        const tkFeaturePattern pattern({a, b}, invalid);
                        EXPECT_EQ(outcome ? 1 : 2,
                                  resultFor(classifier, pattern).categoryResults().front().categoryLabel());
                        EXPECT_EQ(outcome, predicate.outcome(pattern));
                    }
        }
}

TEST(tk_ClassifierDecisionTree, predicateOfAClassDerivedFromTheRangePredicateGivesItsOwnOutcome)
{
    const tk_ClassifierDecisionTree classifier =
        classifierOf(tkDecisionTreeNode(NeverInRange(), *leaf({1}), *leaf({2})));
    EXPECT_EQ(2, resultFor(classifier, tkFeaturePattern({1.0})).categoryResults().front().categoryLabel());
}

TEST(tk_ClassifierDecisionTree, runAllocatesNothingButTheResultsCategories)
{
    Tree tree = leaf({1, 2, 3});
    for (int level = 0; level < 1000; ++level)
        tree = node(comparison(), tree, tree);
    const tk_ClassifierDecisionTree classifier = classifierOf(*tree);
    const tkFeaturePattern pattern({2.0, 1.0});

    tkClassifierResult result;
    std::size_t allocations;
    {
        const tkAllocations watch;
        classifier.run(pattern, result);
        allocations = watch.count();
    }
    EXPECT_EQ(1u, allocations) << "the vector of categories";
    EXPECT_TRUE(result == treeTest::resultOf({1, 2, 3}));
    {
        const tkAllocations watch;
        classifier.run(pattern, result);
        allocations = watch.count();
    }
    EXPECT_EQ(0u, allocations) << "the result has room already";
    expectUnchangedWithoutMemory(treeTest::resultOf({9}), [&](tkClassifierResult& r) { classifier.run(pattern, r); });
}

TEST(tk_ClassifierDecisionTree, runDoesNotCountReferences)
{
    // Threads that run one tree would otherwise wait for one another at every node.
    const Tree shared = leaf({1});
    long count = 0;
    class Watching : public tkPredicateFunction
    {
    public:
        Watching(const Tree& tree, long& count) : tree_(tree.get()), count_(count) {}
        bool outcome(const tkFeaturePattern&) const override
        {
            count_ = tree_->referenceCount();
            return true;
        }
        tkPtrHandle<tkPredicateFunction> clone() const override
        {
            return tkPtrHandle<tkPredicateFunction>(new Watching(*this));
        }

    private:
        const tkDecisionTree* tree_;
        long& count_;
    };
    Tree inner(new tkDecisionTreeNode(Watching(shared, count), treeTest::AsIs(shared), treeTest::AsIs(shared)));
    const tk_ClassifierDecisionTree classifier = classifierOf(*inner);
    inner = Tree();
    resultFor(classifier, tkFeaturePattern());
    EXPECT_EQ(3, count);
    EXPECT_EQ(3, shared->referenceCount());
}

TEST(tk_ClassifierDecisionTree, whatAPredicateThrowsPassesAndLeavesTheResult)
{
    const tk_ClassifierDecisionTree classifier =
        classifierOf(*node(Predicate(new FailingPredicate), leaf({1}), leaf({2})));
    tkClassifierResult result = treeTest::resultOf({5});
    EXPECT_TK_THROW(classifier.run(tkFeaturePattern(), result), tkClassifierDefs::BadFeatures, L"no outcome");
    EXPECT_TRUE(result == treeTest::resultOf({5}));
}

TEST(tk_ClassifierDecisionTree, treeOfAnUnknownClassIsAProgrammingError)
{
    tkClassifierResult result = treeTest::resultOf({5});
    EXPECT_THROW(classifierOf(UnknownTree()).run(tkFeaturePattern(), result), tkAssertionFailure);
    const tk_ClassifierDecisionTree below = classifierOf(tkDecisionTreeNode(*comparison(), *leaf({1}), UnknownTree()));
    EXPECT_THROW(below.run(tkFeaturePattern(), result), tkAssertionFailure);
    EXPECT_TRUE(result == treeTest::resultOf({5}));
    EXPECT_TRUE(resultFor(below, tkFeaturePattern({2.0, 1.0})) == treeTest::resultOf({1}));
}

TEST(tk_ClassifierDecisionTree, missingSubtreeOrPredicateIsABadPointerWhenItIsReached)
{
    tkClassifierResult result = treeTest::resultOf({5});
    const tkFeaturePattern toTrue({2.0, 1.0});
    const tkFeaturePattern toFalse({1.0, 2.0});
    const tk_ClassifierDecisionTree noTrueTree = classifierOf(*node(comparison(), Tree(), leaf({0})));
    EXPECT_THROW(noTrueTree.run(toTrue, result), tkBadPointer);
    EXPECT_TRUE(resultFor(noTrueTree, toFalse) == treeTest::resultOf({0}));
    const tk_ClassifierDecisionTree noFalseTree = classifierOf(*node(comparison(), leaf({1}), Tree()));
    EXPECT_THROW(noFalseTree.run(toFalse, result), tkBadPointer);
    EXPECT_TRUE(resultFor(noFalseTree, toTrue) == treeTest::resultOf({1}));
    EXPECT_THROW(classifierOf(*node(Predicate(), leaf({1}), leaf({2}))).run(toTrue, result), tkBadPointer);
    EXPECT_TRUE(result == treeTest::resultOf({5}));
}

TEST(tk_ClassifierDecisionTree, treeDeeperThanTheStackIsRunCopiedComparedAndDestroyed)
{
    tkOnSmallStack(
        []
        {
            const Predicate predicate = comparison();
            Tree tree = leaf({1});
            const Tree side = leaf({2});
            for (long level = 0; level < 1000000; ++level)
                tree = node(predicate, tree, side);
            tk_ClassifierDecisionTree classifier = classifierOf(*tree);
            tree = Tree();
            EXPECT_TRUE(resultFor(classifier, tkFeaturePattern({2.0, 1.0})) == treeTest::resultOf({1}));
            tk_ClassifierDecisionTree copy(classifier);
            EXPECT_TRUE(copy == classifier);
            classifier.untrain();
            copy.untrain();
        });
}

TEST(tk_ClassifierDecisionTree, isRunByManyThreadsAtOnce)
{
    treeTest::Random random(8);
    const std::vector<Tree> trees = random.trees(10);
    const tk_ClassifierDecisionTree classifier = classifierOf(*trees.back());
    std::vector<tkFeaturePattern> patterns;
    for (int i = 0; i < 50; ++i)
        patterns.push_back(random.pattern());
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back(
            [&]
            {
                for (int round = 0; round < 100; ++round)
                    for (const tkFeaturePattern& pattern : patterns)
                        EXPECT_TRUE(resultFor(classifier, pattern) ==
                                    definition::classifyByTree(*trees.back(), pattern));
            });
    for (std::thread& thread : threads)
        thread.join();
}

// -------------------------------------------------------------------------------------- copies and comparison

TEST(tk_ClassifierDecisionTree, copiesAndClonesShareTheTree)
{
    tk_ClassifierDecisionTree classifier = classifierOf(golden::node());
    const tk_ClassifierDecisionTree copy(classifier);
    const tkPtrHandle<tk_Classifier> clone = classifier.clone();
    tk_ClassifierDecisionTree assigned;
    assigned = classifier;
    EXPECT_EQ(1, clone->referenceCount());
    EXPECT_EQ(copy.decisionTree(), classifier.decisionTree());
    EXPECT_EQ(assigned.decisionTree(), classifier.decisionTree());
    EXPECT_EQ(dynamic_cast<const tk_ClassifierDecisionTree&>(*clone).decisionTree(), classifier.decisionTree());

    classifier.trainManual(*leaf({3}));
    EXPECT_TRUE(*copy.decisionTree() == golden::node());
    assigned.untrain();
    EXPECT_TRUE(*copy.decisionTree() == golden::node());
    EXPECT_FALSE(tk_ClassifierDecisionTree().clone()->isTrained());
}

TEST(tk_ClassifierDecisionTree, equalOnesHaveEqualTrees)
{
    const tk_ClassifierDecisionTree classifier = classifierOf(golden::node());
    EXPECT_TRUE(classifier == classifierOf(golden::node()));
    EXPECT_FALSE(classifier != classifierOf(golden::node()));
    EXPECT_TRUE(classifier.isEquivalent(classifierOf(golden::node())));
    EXPECT_TRUE(classifier != classifierOf(golden::sharingNode()));
    EXPECT_FALSE(classifier.isEquivalent(classifierOf(golden::sharingNode())));
    EXPECT_FALSE(classifier == tk_ClassifierDecisionTree());
    EXPECT_FALSE(tk_ClassifierDecisionTree() == classifier);
    EXPECT_FALSE(classifier.isEquivalent(tk_ClassifierDecisionTree()));
    EXPECT_FALSE(classifier.isEquivalent(tk_ClassifierKNN()));
    EXPECT_FALSE(tk_ClassifierDecisionTree().isEquivalent(tk_ClassifierKNN()));
    EXPECT_FALSE(tk_ClassifierKNN().isEquivalent(tk_ClassifierDecisionTree()));
}

TEST(tk_ClassifierDecisionTree, comparingTwoUntrainedOnesIsABadPointer)
{
    const tk_ClassifierDecisionTree a;
    const tk_ClassifierDecisionTree b;
    EXPECT_THROW(static_cast<void>(a == b), tkBadPointer);
    EXPECT_THROW(static_cast<void>(a != b), tkBadPointer);
    EXPECT_THROW(static_cast<void>(a.isEquivalent(b)), tkBadPointer);
    EXPECT_THROW(static_cast<void>(a == a), tkBadPointer);
}

// ---------------------------------------------------------------------------------------------------- records

TEST(tk_ClassifierDecisionTree, recordIsItsBaseRecordAndTheTree)
{
    // Versions of the class, of tk_Classifier and of tkPersistent; no parameters; no tree.
    const std::string untrained = std::string(3 + 4 + 4, '\0');
    EXPECT_EQ(untrained, storeToBytes(tk_ClassifierDecisionTree()));
    tk_ClassifierDecisionTree loaded = classifierOf(golden::node());
    loadFromBytes(untrained, loaded);
    EXPECT_FALSE(loaded.isTrained());

    const std::string trained = storeToBytes(classifierOf(golden::node()));
    EXPECT_EQ(std::string(3 + 4, '\0') +
                  storeToBytes(tkPtrHandle<tkDecisionTreeNode>(new tkDecisionTreeNode(golden::node()))),
              trained);
    loadFromBytes(trained, loaded);
    EXPECT_TRUE(loaded == classifierOf(golden::node()));
    EXPECT_TK_THROW(loaded.trainParams(), tkClassifierDefs::BadMethod,
                    L"Classifier tool was not automatically trained.");

    for (const std::size_t level : {0, 1, 2})
    {
        std::string damaged = trained;
        damaged[level] = '\1';
        tk_ClassifierDecisionTree unchanged = classifierOf(*leaf({3}));
        EXPECT_THROW(loadFromBytes(damaged, unchanged), tkArchive::UnknownVersion) << level;
        EXPECT_TRUE(unchanged == classifierOf(*leaf({3}))) << level;
    }
}

TEST(tk_ClassifierDecisionTree, classifiersThatShareATreeComeBackSharingIt)
{
    std::vector<tkPtrHandle<tk_ClassifierDecisionTree>> stored;
    stored.emplace_back(new tk_ClassifierDecisionTree(classifierOf(golden::sharingNode())));
    stored.emplace_back(new tk_ClassifierDecisionTree(*stored[0]));
    std::vector<tkPtrHandle<tk_ClassifierDecisionTree>> loaded;
    loadFromBytes(storeToBytes(stored), loaded);
    ASSERT_EQ(2u, loaded.size());
    EXPECT_NE(loaded[0], loaded[1]);
    EXPECT_EQ(loaded[0]->decisionTree(), loaded[1]->decisionTree());
}

TEST(tk_ClassifierDecisionTree, goldenArchiveComesBackEqualAndStoresToTheSameBytes)
{
    const std::string bytes = goldenBytes("tk_ClassifierDecisionTree.v0.bin");
    tkPtrHandle<tk_Classifier> loaded;
    loadFromBytes(bytes, loaded);
    ASSERT_FALSE(loaded.isNull());
    EXPECT_TRUE(loaded->isEquivalent(golden::treeClassifier()));
    EXPECT_EQ(bytes, storeToBytes(loaded));
    tkClassifierResult result;
    loaded->run(tkFeaturePattern(std::vector<double>(300, 1.0)), result);
    EXPECT_TRUE(result == definition::classifyByTree(golden::node(), tkFeaturePattern(std::vector<double>(300, 1.0))));
}

TEST(tk_ClassifierDecisionTree, theDetailsOfATrainingGoToTheCallersObjectAndTheRestToItsDestination)
{
    RedirectingDiag destination;
    RedirectingDiag callers;
    callers.destination = &destination;
    RecordingClassifier classifier;
    classifier.trainManual(*leaf({3}), &callers, 5);
    EXPECT_EQ((std::vector<std::string>{"inputs destination 105 trained", "details caller 105 trained",
                                        "results destination 105 trained"}),
              classifier.calls);
}

TEST(tk_ClassifierDecisionTree, nodesAndLeavesOfDerivedClassesAreFollowed)
{
    class DerivedLeaf : public tkDecisionTreeLeaf
    {
    public:
        using tkDecisionTreeLeaf::tkDecisionTreeLeaf;
        tkPtrHandle<tkDecisionTree> clone() const override
        {
            return tkPtrHandle<tkDecisionTree>(new DerivedLeaf(*this));
        }
    };
    class DerivedNode : public tkDecisionTreeNode
    {
    public:
        using tkDecisionTreeNode::tkDecisionTreeNode;
        tkPtrHandle<tkDecisionTree> clone() const override
        {
            return tkPtrHandle<tkDecisionTree>(new DerivedNode(*this));
        }
    };
    const DerivedNode root(tkComparisonPredicate(0, 1), DerivedLeaf(treeTest::resultOf({7})),
                           tkDecisionTreeLeaf(treeTest::resultOf({8})));
    Classifier classifier;
    classifier.trainManual(root);
    tkClassifierResult result;
    classifier.run(tkFeaturePattern({2.0, 1.0}), result);
    EXPECT_TRUE(result == treeTest::resultOf({7}));
    classifier.run(tkFeaturePattern({1.0, 2.0}), result);
    EXPECT_TRUE(result == treeTest::resultOf({8}));
}
