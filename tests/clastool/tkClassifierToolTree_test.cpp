#include "tests/clastool/treeTestData.h"
#include "tests/definition/trees.h"
#include "tests/golden/trees.h"
#include "tkTest.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierTool.h"
#include "clss/clastool/clastool/tkClassifierTrainParamsKNN.h"
#include "clss/clastool/clastool/tkDecisionTree.h"
#include "foundation/tkArchiveOperators.h"

#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace
{
using treeTest::asNode;
using treeTest::leaf;
using treeTest::Tree;

const wchar_t runUntrained[] = L"Classifier tool must be trained before running.";
const wchar_t retrainUntrained[] = L"Classifier tool must be trained before retraining.";
const wchar_t paramsUntrained[] = L"Classifier tool must be trained before requesting the training parameters.";
const wchar_t treeUntrained[] = L"Classifier tool must be trained before requesting the decision tree.";
const wchar_t notAutomatic[] = L"Classifier tool was not automatically trained.";
const wchar_t notFromTree[] = L"Classifier tool was not trained using a decision tree.";
const wchar_t otherTechnique[] = L"Cannot retrain with a different classification technique.";
const wchar_t notImplemented[] = L"The classification method specified by the training parameters is not implemented.";
const wchar_t laterVersion[] = L"A record has an unknown version (clss/clastool/clastool, 896)";
const wchar_t noData[] = L"No valid data was provided for training.";
const wchar_t invalidData[] = L"K-nearest neighbor classification does not support invalid measurements";

/// What a tool can be in. The two that hold an untrained classifier look alike from outside but for their record.
enum State
{
    empty,
    untrainedData,
    untrainedTree,
    trainedData,
    trainedTree,
};
const State allStates[] = {empty, untrainedData, untrainedTree, trainedData, trainedTree};
const std::string stateNames[] = {"empty", "holding an untrained nearest-neighbour classifier",
                                  "holding an untrained tree classifier", "trained from data", "trained from a tree"};

tkClassifierDataProviderMemory data(const tkFeaturePattern& pattern = tkFeaturePattern({1.0}))
{
    tkClassifierDataProviderMemory data;
    data.addData(tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern(pattern)), 4);
    return data;
}

/// Parameters of a technique that has no classifier.
class ForeignParams : public tkClassifierTrainParams
{
public:
    tkPtrHandle<tkClassifierTrainParams> clone() const override
    {
        return tkPtrHandle<tkClassifierTrainParams>(new ForeignParams(*this));
    }

protected:
    bool isSameTechnique_(const tkClassifierTrainParams& other) const override
    {
        return dynamic_cast<const ForeignParams*>(&other) != nullptr;
    }
    tk_Classifier* newClassifier_() const override { throw std::runtime_error("no classifier"); }
};

class FailingTree : public tkDecisionTree
{
public:
    std::vector<long> categoryLabels() const override { return {}; }
    tkPtrHandle<tkDecisionTree> clone() const override { throw tkClassifierDefs::BadIndex(L"no clone"); }
};

class FailingDiag : public tkDiagObject
{
protected:
    tkDiagObject* recordingDestination_(unsigned long&) override { throw tkClassifierDefs::BadLabel(L"no recording"); }
};

tkClassifierTool toolIn(State state)
{
    tkClassifierTool tool;
    if (state == untrainedData || state == trainedData)
        tool.train(data(), tkClassifierTrainParamsKNN(1));
    if (state == untrainedTree || state == trainedTree)
        tool.train(golden::node());
    return tool;
}

void enter(tkClassifierTool& tool, State state)
{
    tool = toolIn(state);
    if (state == untrainedData || state == untrainedTree)
        tool.untrain();
}

State stateOf(const tkClassifierTool& tool)
{
    const std::string record = storeToBytes(tool);
    if (record == std::string(5, '\0'))
        return empty;
    if (record.find("tk_ClassifierDecisionTree") != std::string::npos)
        return tool.isTrained() ? trainedTree : untrainedTree;
    EXPECT_NE(record.find("tk_ClassifierKNN"), std::string::npos);
    return tool.isTrained() ? trainedData : untrainedData;
}

/// What comes of an operation: the state that follows, and the error if there is one.
struct Outcome
{
    Outcome(State stateAfter) : after(stateAfter) {}
    template <class Error>
    Outcome(State stateAfter, const Error*, const wchar_t* message)
        : after(stateAfter),
          error(&typeid(Error)),
          text(message)
    {
    }

    State after;
    const std::type_info* error = nullptr;
    std::wstring text;
};

template <class Error>
Outcome fails(State after, const wchar_t* text)
{
    return Outcome(after, static_cast<const Error*>(nullptr), text);
}

struct Operation
{
    const char* name;
    std::function<void(tkClassifierTool&)> apply;
    std::vector<Outcome> outcomes; // for each of allStates
};

std::vector<Operation> operations()
{
    using Tool = tkClassifierTool;
    using NotTrained = tkClassifierDefs::NotTrained;
    using BadMethod = tkClassifierDefs::BadMethod;
    using UnknownVersion = tkArchive::UnknownVersion;
    const auto always = [](const Outcome& outcome) { return std::vector<Outcome>(5, outcome); };

    return {
        {"train from data", [](Tool& t) { t.train(data(), tkClassifierTrainParamsKNN(1)); }, always(trainedData)},
        {"train from a provider without data",
         [](Tool& t) { t.train(tkClassifierDataProviderMemory(), tkClassifierTrainParamsKNN(1)); },
         always(fails<tkClassifierDefs::InsufficientTrainData>(untrainedData, noData))},
        {"train from a provider without data, unchecked",
         [](Tool& t)
         {
             tkClassifierTrainParamsKNN params(1);
             params.throwIfNotReady(false);
             t.train(tkClassifierDataProviderMemory(), params);
         },
         always(trainedData)},
        {"train from invalid data",
         [](Tool& t) { t.train(data(tkFeaturePattern({1.0}, {0})), tkClassifierTrainParamsKNN(1)); },
         always(fails<tkClassifierDefs::BadFeatures>(untrainedData, invalidData))},
        {"train with parameters without a classifier", [](Tool& t) { t.train(data(), ForeignParams()); },
         always(fails<tkClassifierDefs::NotImplemented>(empty, notImplemented))},
        {"train from a tree", [](Tool& t) { t.train(golden::leaf()); }, always(trainedTree)},
        {"train from a tree that cannot be cloned", [](Tool& t) { t.train(FailingTree()); },
         always(fails<tkClassifierDefs::BadIndex>(untrainedTree, L"no clone"))},
        {"train from a tree without a place to record",
         [](Tool& t)
         {
             FailingDiag diag;
             t.train(golden::leaf(), &diag);
         },
         always(fails<tkClassifierDefs::BadLabel>(untrainedTree, L"no recording"))},
        {"retrain with the same technique",
         [](Tool& t) { t.retrain(tkClassifierTrainParamsKNN(3)); },
         {fails<NotTrained>(empty, retrainUntrained), fails<NotTrained>(untrainedData, retrainUntrained),
          fails<NotTrained>(untrainedTree, retrainUntrained), Outcome(trainedData),
          fails<BadMethod>(trainedTree, otherTechnique)}},
        {"retrain with another technique",
         [](Tool& t) { t.retrain(ForeignParams()); },
         {fails<NotTrained>(empty, retrainUntrained), fails<NotTrained>(untrainedData, retrainUntrained),
          fails<NotTrained>(untrainedTree, retrainUntrained), fails<BadMethod>(trainedData, otherTechnique),
          fails<BadMethod>(trainedTree, otherTechnique)}},
        {"untrain", [](Tool& t) { t.untrain(); }, {empty, untrainedData, untrainedTree, untrainedData, untrainedTree}},
        {"run",
         [](Tool& t)
         {
             tkClassifierResult result;
             t.run(tkFeaturePattern({1.0}), result);
         },
         {fails<NotTrained>(empty, runUntrained), fails<NotTrained>(untrainedData, runUntrained),
          fails<NotTrained>(untrainedTree, runUntrained), Outcome(trainedData), Outcome(trainedTree)}},
        {"trainParams",
         [](Tool& t) { t.trainParams(); },
         {fails<NotTrained>(empty, paramsUntrained), fails<NotTrained>(untrainedData, paramsUntrained),
          fails<NotTrained>(untrainedTree, paramsUntrained), Outcome(trainedData),
          fails<BadMethod>(trainedTree, notAutomatic)}},
        {"decisionTree",
         [](Tool& t) { t.decisionTree(); },
         {fails<NotTrained>(empty, treeUntrained), fails<NotTrained>(untrainedData, treeUntrained),
          fails<NotTrained>(untrainedTree, treeUntrained), fails<BadMethod>(trainedData, notFromTree),
          Outcome(trainedTree)}},
        {"assign itself", [](Tool& t) { t = *&t; }, always(empty)},
        {"assign its copy", [](Tool& t) { t = Tool(t); }, {empty, empty, empty, trainedData, trainedTree}},
        {"assign an empty tool", [](Tool& t) { t = Tool(); }, always(empty)},
        {"assign a tool that holds an untrained classifier",
         [](Tool& t)
         {
             Tool other;
             enter(other, untrainedData);
             t = other;
         },
         always(empty)},
        {"assign a tool trained from a tree", [](Tool& t) { t = golden::treeTool(); }, always(trainedTree)},
        {"load what it stores",
         [](Tool& t)
         {
             const std::string bytes = storeToBytes(t);
             loadFromBytes(bytes, t);
         },
         {empty, untrainedData, untrainedTree, trainedData, trainedTree}},
        {"load a tool trained from a tree", [](Tool& t) { loadFromBytes(storeToBytes(golden::treeTool()), t); },
         always(trainedTree)},
        {"load an empty tool", [](Tool& t) { loadFromBytes(storeToBytes(Tool()), t); }, always(empty)},
        {"load a later version",
         [](Tool& t) { loadFromBytes("\1", t); },
         {fails<UnknownVersion>(empty, laterVersion), fails<UnknownVersion>(untrainedData, laterVersion),
          fails<UnknownVersion>(untrainedTree, laterVersion), fails<UnknownVersion>(trainedData, laterVersion),
          fails<UnknownVersion>(trainedTree, laterVersion)}},
    };
}
} // namespace

TEST(tkClassifierToolStates, everyOperationInEveryStateLeadsToItsStateOrFailsWithItsError)
{
    for (const Operation& operation : operations())
        for (const State before : allStates)
        {
            const Outcome& outcome = operation.outcomes.at(before);
            const std::string what = std::string(operation.name) + " when " + stateNames[before];
            tkClassifierTool tool;
            enter(tool, before);
            ASSERT_EQ(stateNames[before], stateNames[stateOf(tool)]);
            const std::string bytesBefore = storeToBytes(tool);
            if (outcome.error)
                EXPECT_TRUE(tkThrowsExactly([&] { operation.apply(tool); }, *outcome.error, outcome.text)) << what;
            else
                EXPECT_NO_THROW(operation.apply(tool)) << what;
            EXPECT_EQ(stateNames[outcome.after], stateNames[stateOf(tool)]) << what;
            if (outcome.error && outcome.after == before)
            {
                EXPECT_EQ(bytesBefore, storeToBytes(tool)) << what;
            }
        }
}

TEST(tkClassifierToolStates, toolsAreEqualIfBothAreUntrainedOrAreTrainedAlike)
{
    for (const State a : allStates)
        for (const State b : allStates)
        {
            tkClassifierTool toolA;
            tkClassifierTool toolB;
            enter(toolA, a);
            enter(toolB, b);
            const bool expected = toolA.isTrained() ? a == b : !toolB.isTrained();
            EXPECT_EQ(expected, toolA == toolB) << stateNames[a] << ", " << stateNames[b];
            EXPECT_EQ(!expected, toolA != toolB);
        }
    tkClassifierTool other;
    other.train(golden::leaf());
    EXPECT_TRUE(other != golden::treeTool());
}

TEST(tkClassifierToolTree, runsAndHandsOutTheTree)
{
    tkDecisionTreeNode tree(golden::node());
    tkClassifierTool tool;
    tool.train(tree);
    tkClassifierResult result;
    const tkFeaturePattern pattern(std::vector<double>(300, 1.0));
    tool.run(pattern, result);
    EXPECT_TRUE(result == definition::classifyByTree(tree, pattern));

    tree.falseTree(*leaf({6}));
    EXPECT_TRUE(*tool.decisionTree() == golden::node()) << "a clone";
    EXPECT_EQ(tool.decisionTree(), tool.decisionTree()) << "shared";
    EXPECT_EQ(asNode(tool.decisionTree()).trueTree(), tree.trueTree());
    const Tree held = tool.decisionTree();
    tool.untrain();
    EXPECT_EQ(1, held->referenceCount());
    EXPECT_TRUE(*held == golden::node());
}

TEST(tkClassifierToolTree, takesItsOwnTreeOrAPartOfItAgain)
{
    tkClassifierTool tool = golden::treeTool();
    const tkDecisionTree& own = *tool.decisionTree();
    ASSERT_EQ(1, own.referenceCount()) << "held by the tool alone";
    tool.train(own);
    EXPECT_TRUE(tool == golden::treeTool());
    const tkDecisionTree& part = *asNode(tool.decisionTree()).trueTree();
    tool.train(part);
    EXPECT_TRUE(*tool.decisionTree() == golden::leaf());
}

TEST(tkClassifierToolTree, takesATreeOnTheStackAndATreeInAHandle)
{
    const tkDecisionTreeLeaf onTheStack = golden::leaf();
    tkClassifierTool tool;
    tool.train(onTheStack);
    EXPECT_EQ(0, onTheStack.referenceCount());
    const Tree held = leaf({8});
    tool.train(*held);
    EXPECT_EQ(1, held->referenceCount());
    EXPECT_TRUE(*tool.decisionTree() == *held);
}

TEST(tkClassifierToolTree, copyIsEqualSharesTheTreeAndTrainsIndependently)
{
    const tkClassifierTool tool = golden::treeTool();
    tkClassifierTool copy(tool);
    EXPECT_TRUE(copy == tool);
    EXPECT_EQ(copy.decisionTree(), tool.decisionTree());
    copy.train(golden::leaf());
    EXPECT_TRUE(tool == golden::treeTool());
    EXPECT_TRUE(copy != tool);
    copy = tool;
    copy.untrain();
    EXPECT_TRUE(tool == golden::treeTool());
}

TEST(tkClassifierToolTree, goldenArchiveComesBackEqualAndStoresToTheSameBytes)
{
    const std::string bytes = goldenBytes("tkClassifierTool.tree.v0.bin");
    tkClassifierTool loaded;
    loadFromBytes(bytes, loaded);
    EXPECT_TRUE(loaded == golden::treeTool());
    EXPECT_EQ(bytes, storeToBytes(loaded));
    EXPECT_TK_THROW(loaded.trainParams(), tkClassifierDefs::BadMethod, notAutomatic);
}

TEST(tkClassifierToolTree, oneToolIsRunByManyThreadsWhileTreesThatShareItsSubtreesGo)
{
    treeTest::Random random(9);
    const std::vector<Tree> trees = random.trees(12);
    tkClassifierTool tool;
    tool.train(*trees.back());
    std::vector<tkFeaturePattern> patterns;
    for (int i = 0; i < 20; ++i)
        patterns.push_back(random.pattern());
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t)
        threads.emplace_back(
            [&]
            {
                for (int round = 0; round < 50; ++round)
                    for (const tkFeaturePattern& pattern : patterns)
                    {
                        tkClassifierResult result;
                        tool.run(pattern, result);
                        EXPECT_TRUE(result == definition::classifyByTree(*trees.back(), pattern));
                        tkClassifierTool copy(tool);
                        const Tree other =
                            treeTest::node(treeTest::range(0.0, 1.0, {0}), copy.decisionTree(), trees[5]);
                        EXPECT_GT(other->numCategories(), -1);
                    }
            });
    for (std::thread& thread : threads)
        thread.join();
}
