#include "scriptedMethod.h"
#include "tests/golden/nearestNeighbors.h"
#include "tkTest.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierTool.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkAssert.h"

#include <stdexcept>

namespace
{
using Log = std::vector<std::string>;

const wchar_t notImplemented[] = L"The classification method specified by the training parameters is not implemented.";
const wchar_t trainBeforeRetraining[] = L"Classifier tool must be trained before retraining.";
const wchar_t trainBeforeRunning[] = L"Classifier tool must be trained before running.";
const wchar_t trainBeforeParams[] = L"Classifier tool must be trained before requesting the training parameters.";

/// What a tool holds, as far as its record tells: an empty one writes a null handle.
bool holdsClassifier(const tkClassifierTool& tool)
{
    return storeToBytes(tool) != std::string(5, '\0');
}

/// An error with more to it than its text, to see that it arrives as it was thrown.
class NumberedError : public tkClassifierDefs::InsufficientTrainData
{
public:
    explicit NumberedError(int number) : InsufficientTrainData(L"numbered"), number(number) {}
    int number;
};

/// Parameters whose factory breaks its promise.
class NullParams : public ScriptedParams
{
public:
    using ScriptedParams::ScriptedParams;

protected:
    tk_Classifier* newClassifier_() const override { return nullptr; }
};

class tkClassifierToolTest : public ::testing::Test
{
protected:
    tkClassifierToolTest()
    {
        script->names = {{&data, "data"},        {&params, "params"},   {&diag, "diag"},
                         {&destination, "dest"}, {&pattern, "pattern"}, {&result, "result"}};
    }

    /// Trains with `params` and forgets the log.
    void trainSilently()
    {
        tool.train(data, params);
        script->log.clear();
    }

    std::shared_ptr<Script> script = std::make_shared<Script>();
    ScriptedParams params{script, 5};
    tkClassifierDataProviderMemory data;
    RedirectingDiag destination{nullptr};
    RedirectingDiag diag{&destination};
    tkFeaturePattern pattern;
    tkClassifierResult result;
    tkClassifierTool tool;
};
} // namespace

// What becomes of the tool when a step of its classifier fails, in every state. What becomes of it otherwise is a
// matter of tkClassifierToolTree_test.cpp.
namespace
{
enum State
{
    empty,
    holdingUntrained,
    trainedAutomatically,
    numStates
};
const char* const stateNames[] = {"empty", "holding an untrained classifier", "trained automatically"};

State stateOf(const tkClassifierTool& tool)
{
    if (tool.isTrained())
        return trainedAutomatically;
    return holdsClassifier(tool) ? holdingUntrained : empty;
}

/// Brings an empty tool into a state.
void bring(tkClassifierTool& tool, State state, const ScriptedParams& params)
{
    if (state != empty)
        tool.train(tkClassifierDataProviderMemory(), params);
    if (state == holdingUntrained)
        tool.untrain();
}

struct Outcome
{
    State next;
    const std::type_info* error = nullptr; // null: no exception
    std::wstring text = {};
};

template <class Error>
Outcome fails(State next, const wchar_t* text)
{
    return {next, &typeid(Error), text};
}

struct Operation
{
    const char* name;
    std::function<void(tkClassifierTool&, Script&, const ScriptedParams&)> perform;
    Outcome outcomes[numStates]; // from each state
};

const tkClassifierDataProviderMemory noData;

std::function<void()> throwing(const wchar_t* text)
{
    return [text] { throw tkClassifierDefs::BadFeatures(text); };
}

std::vector<Operation> operations()
{
    using Tool = tkClassifierTool;
    using Params = ScriptedParams;
    using NotTrained = tkClassifierDefs::NotTrained;
    using BadFeatures = tkClassifierDefs::BadFeatures;
    const Outcome failed = fails<BadFeatures>(holdingUntrained, L"failed");
    const Outcome emptyCannotRetrain = fails<NotTrained>(empty, trainBeforeRetraining);
    const Outcome untrainedCannotRetrain = fails<NotTrained>(holdingUntrained, trainBeforeRetraining);

    return {
        {"train that fails",
         [](Tool& tool, Script& script, const Params& p)
         {
             script.actions["train_"] = throwing(L"failed");
             tool.train(noData, p);
         },
         {failed, failed, failed}},
        {"train that is not ready",
         [](Tool& tool, Script& script, const Params& p)
         {
             script.actions["checkRunnable_"] = throwing(L"failed");
             tool.train(noData, p);
         },
         {failed, failed, failed}},
        {"train that is not ready and need not be",
         [](Tool& tool, Script& script, const Params& p)
         {
             script.actions["checkRunnable_"] = throwing(L"failed");
             Params patient(p);
             patient.throwIfNotReady(false);
             tool.train(noData, patient);
         },
         {{trainedAutomatically}, {trainedAutomatically}, {trainedAutomatically}}},
        {"retrain that fails",
         [](Tool& tool, Script& script, const Params& p)
         {
             script.actions["retrain_"] = throwing(L"failed");
             tool.retrain(p);
         },
         {emptyCannotRetrain, untrainedCannotRetrain, fails<BadFeatures>(trainedAutomatically, L"failed")}},
        {"retrain that is not ready",
         [](Tool& tool, Script& script, const Params& p)
         {
             script.actions["checkRunnable_"] = throwing(L"failed");
             tool.retrain(p);
         },
         {emptyCannotRetrain, untrainedCannotRetrain, failed}},
        {"retrain that is not ready and need not be",
         [](Tool& tool, Script& script, const Params& p)
         {
             script.actions["checkRunnable_"] = throwing(L"failed");
             Params patient(p);
             patient.throwIfNotReady(false);
             tool.retrain(patient);
         },
         {emptyCannotRetrain, untrainedCannotRetrain, {trainedAutomatically}}},
    };
}
} // namespace

TEST(tkClassifierTool, everyFailingStepInEveryStateHasItsOutcomeAndNextState)
{
    for (const Operation& operation : operations())
        for (int from = empty; from < numStates; ++from)
        {
            SCOPED_TRACE(std::string(operation.name) + " of a tool that is " + stateNames[from]);
            const auto script = std::make_shared<Script>();
            const ScriptedParams params(script);
            tkClassifierTool tool;
            bring(tool, static_cast<State>(from), params);
            ASSERT_EQ(stateOf(tool), from);

            const auto perform = [&] { operation.perform(tool, *script, params); };
            const Outcome& outcome = operation.outcomes[from];
            if (outcome.error)
                EXPECT_TRUE(tkThrowsExactly(perform, *outcome.error, outcome.text));
            else
                EXPECT_NO_THROW(perform());
            EXPECT_EQ(stateNames[stateOf(tool)], std::string(stateNames[outcome.next]));
        }
}

TEST_F(tkClassifierToolTest, trainPassesItsArgumentsOnThenChecksReadiness)
{
    tool.train(data, params, &diag, 7);
    EXPECT_EQ(script->takeLog(),
              (Log{"newClassifier_", "recordTrainInputs_ dest 107", "train_ data params", "clone",
                   "recordTrainDetails_ diag 107", "recordTrainResults_ dest 107", "checkRunnable_"}));
    tool.train(data, params);
    EXPECT_EQ(script->takeLog(),
              (Log{"untrain_", "newClassifier_", "recordTrainInputs_ null 0", "train_ data params", "clone",
                   "recordTrainDetails_ null 0", "recordTrainResults_ null 0", "checkRunnable_"}));
}

TEST_F(tkClassifierToolTest, trainDoesNotCheckReadinessWhereTheParametersSaySo)
{
    params.throwIfNotReady(false);
    tool.train(data, params);
    EXPECT_EQ(script->log.back(), "recordTrainResults_ null 0");
    tool.retrain(params);
    EXPECT_EQ(script->log.back(), "clone");
}

TEST_F(tkClassifierToolTest, retrainPassesOnToTheClassifierThenChecksReadinessByTheNewParameters)
{
    params.throwIfNotReady(false);
    trainSilently();
    const ScriptedParams impatient(script, 6);
    script->names[&impatient] = "impatient";
    tool.retrain(impatient, &diag, 7);
    EXPECT_EQ(script->takeLog(), (Log{"isSameTechnique_", "retrain_ impatient", "clone", "checkRunnable_"}));
    EXPECT_EQ(dynamic_cast<const ScriptedParams&>(*tool.trainParams()).value, 6);
}

TEST_F(tkClassifierToolTest, runPassesItsArgumentsOnAndDoesNotCheckReadiness)
{
    trainSilently();
    tool.run(pattern, result, &diag, 7);
    EXPECT_EQ(script->takeLog(), (Log{"recordRunInputs_ dest 107 pattern", "run_ pattern result",
                                      "recordRunDetails_ dest 107", "recordRunResults_ dest 107 pattern result 1"}));
    tool.run(pattern, result);
    EXPECT_EQ(script->log.front(), "recordRunInputs_ null 0 pattern");
}

TEST_F(tkClassifierToolTest, runWithoutAPlaceForTheResultReturnsIt)
{
    trainSilently();
    const tkClassifierResult returned = tool.run(pattern, &diag, 7);
    ASSERT_EQ(script->log.size(), 4u);
    EXPECT_EQ(script->log.front(), "recordRunInputs_ dest 107 pattern");
    tool.run(pattern, result);
    EXPECT_FALSE(result.categoryResults().empty());
    EXPECT_TRUE(returned == result);
    tool.untrain();
    EXPECT_TK_THROW(tool.run(pattern), tkClassifierDefs::NotTrained, trainBeforeRunning);
}

TEST_F(tkClassifierToolTest, anyFailureOfTheFactoryBecomesNotImplemented)
{
    const std::function<void()> failures[] = {
        [] { throw tkClassifierDefs::BadParams(L"own"); },
        [] { throw std::runtime_error("standard"); },
        [] { throw std::bad_alloc(); },
        [] { throw tkAssertionFailure("assertion", "file", 1); },
        [] { throw 42; },
        [] { throw "text"; },
    };
    for (const auto& failure : failures)
    {
        tkClassifierTool fresh;
        script->actions.clear();
        fresh.train(data, params);
        script->actions["newClassifier_"] = failure;
        EXPECT_TK_THROW(fresh.train(data, params), tkClassifierDefs::NotImplemented, notImplemented);
        EXPECT_FALSE(holdsClassifier(fresh));
        EXPECT_TK_THROW(fresh.run(pattern, result), tkClassifierDefs::NotTrained, trainBeforeRunning);
    }
}

TEST_F(tkClassifierToolTest, aFactoryThatReturnsNullIsABugAndNotAnotherError)
{
    EXPECT_THROW(tool.train(data, NullParams(script)), tkAssertionFailure);
    EXPECT_FALSE(tool.isTrained());
    trainSilently();
    EXPECT_THROW(tool.train(data, NullParams(script)), tkAssertionFailure);
    EXPECT_FALSE(tool.isTrained());
    tool.train(data, params);
    EXPECT_TRUE(tool.isTrained());
}

TEST_F(tkClassifierToolTest, aFailingTrainingPassesAnyExceptionOnAndLeavesTheToolUntrained)
{
    // By the time it fails, the method counts itself as trained already.
    script->actions["train_"] = [] { throw std::runtime_error("disk"); };
    EXPECT_THROW(tool.train(data, params), std::runtime_error);
    EXPECT_EQ(script->takeLog(),
              (Log{"newClassifier_", "recordTrainInputs_ null 0", "train_ data params", "untrain_"}));
    EXPECT_FALSE(tool.isTrained());
    EXPECT_TRUE(holdsClassifier(tool));

    script->actions["train_"] = [] { throw 42; };
    EXPECT_THROW(tool.train(data, params), int);
    EXPECT_FALSE(tool.isTrained());

    script->actions["train_"] = [] { throw NumberedError(3); };
    try
    {
        tool.train(data, params);
        FAIL();
    }
    catch (const NumberedError& error)
    {
        EXPECT_EQ(error.number, 3);
    }
}

TEST_F(tkClassifierToolTest, aFailingResultsHookOfATrainingLeavesTheToolUntrained)
{
    script->actions["recordTrainResults_"] = [] { throw std::runtime_error("disk"); };
    EXPECT_THROW(tool.train(data, params), std::runtime_error);
    EXPECT_FALSE(tool.isTrained());
}

TEST_F(tkClassifierToolTest, anErrorOfTheReadinessCheckUntrainsAndArrivesUnchanged)
{
    script->actions["checkRunnable_"] = [] { throw NumberedError(4); };
    for (const bool again : {false, true})
    {
        if (again)
        {
            script->actions.clear();
            trainSilently();
            script->actions["checkRunnable_"] = [] { throw NumberedError(4); };
        }
        try
        {
            again ? tool.retrain(params) : tool.train(data, params);
            FAIL();
        }
        catch (const NumberedError& error)
        {
            EXPECT_EQ(error.number, 4);
        }
        EXPECT_EQ(script->takeLog().back(), "untrain_");
        EXPECT_FALSE(tool.isTrained());
        EXPECT_TRUE(holdsClassifier(tool));
    }
}

TEST_F(tkClassifierToolTest, otherExceptionsOfTheReadinessCheckPassWithoutUntraining)
{
    script->actions["checkRunnable_"] = [] { throw std::runtime_error("other"); };
    EXPECT_THROW(tool.train(data, params), std::runtime_error);
    EXPECT_TRUE(tool.isTrained());
    EXPECT_THROW(tool.retrain(ScriptedParams(script, 6)), std::runtime_error);
    EXPECT_TRUE(tool.isTrained());
    EXPECT_EQ(dynamic_cast<const ScriptedParams&>(*tool.trainParams()).value, 6);

    script->actions["checkRunnable_"] = [] { throw tkArchive::Errors(L"a tkException, but none of the classifiers'"); };
    EXPECT_THROW(tool.train(data, params), tkArchive::Errors);
    EXPECT_TRUE(tool.isTrained());
}

TEST_F(tkClassifierToolTest, canBeTrainedWithItsOwnParameters)
{
    trainSilently();
    {
        const tkClassifierTrainParams& own = *tool.trainParams();
        ASSERT_EQ(own.referenceCount(), 1) << "the tool alone holds them";
        tool.train(data, own);
    }
    EXPECT_EQ(dynamic_cast<const ScriptedParams&>(*tool.trainParams()).value, 5);
    {
        const tkClassifierTrainParams& own = *tool.trainParams();
        ASSERT_EQ(own.referenceCount(), 1) << "the tool alone holds them";
        tool.retrain(own);
    }
    EXPECT_EQ(dynamic_cast<const ScriptedParams&>(*tool.trainParams()).value, 5);
}

TEST_F(tkClassifierToolTest, trainParamsShareTheStoredParameters)
{
    trainSilently();
    EXPECT_EQ(tool.trainParams(), tool.trainParams());
}

TEST_F(tkClassifierToolTest, aCopyOfATrainedToolIsEqualAndHasItsOwnClassifier)
{
    trainSilently();
    tkClassifierTool copy(tool);
    EXPECT_EQ(script->takeLog(), Log{"classifier clone"});
    EXPECT_TRUE(copy == tool);

    copy.retrain(ScriptedParams(script, 6));
    EXPECT_TRUE(copy != tool);
    EXPECT_EQ(dynamic_cast<const ScriptedParams&>(*tool.trainParams()).value, 5);
    copy.untrain();
    EXPECT_TRUE(tool.isTrained());
}

TEST_F(tkClassifierToolTest, aCopyOfAnUntrainedToolIsEmptyAndNothingIsCloned)
{
    trainSilently();
    tool.untrain();
    script->log.clear();
    const tkClassifierTool copy(tool);
    EXPECT_EQ(script->takeLog(), Log{});
    EXPECT_FALSE(holdsClassifier(copy));
    EXPECT_TRUE(holdsClassifier(tool));
}

TEST_F(tkClassifierToolTest, assignmentReleasesTheClassifierBeforeItClones)
{
    trainSilently();
    tkClassifierTool other;
    other.train(data, ScriptedParams(script, 6));
    script->log.clear();
    script->actions["classifier clone"] = [] { throw std::runtime_error("full"); };
    EXPECT_THROW(tool = other, std::runtime_error);
    EXPECT_FALSE(holdsClassifier(tool));
    EXPECT_TRUE(other.isTrained());
    EXPECT_EQ(script->takeLog(), Log{"classifier clone"}) << "the old classifier is released, not untrained";
}

TEST_F(tkClassifierToolTest, assigningAToolToItselfLeavesItEmpty)
{
    trainSilently();
    const tkClassifierTool& self = tool;
    tkClassifierTool& returned = (tool = self);
    EXPECT_EQ(&returned, &tool);
    EXPECT_FALSE(tool.isTrained());
    EXPECT_FALSE(holdsClassifier(tool));
    EXPECT_EQ(script->takeLog(), Log{});
    tool.train(data, params);
    EXPECT_TRUE(tool.isTrained());
}

TEST_F(tkClassifierToolTest, destructionUntrainsATrainedClassifierOnly)
{
    {
        tkClassifierTool trained;
        trained.train(data, params);
        script->log.clear();
    }
    EXPECT_EQ(script->takeLog(), Log{"untrain_"});
    {
        tkClassifierTool untrained;
        untrained.train(data, params);
        untrained.untrain();
        script->log.clear();
    }
    EXPECT_EQ(script->takeLog(), Log{});
    {
        const tkClassifierTool neverTrained;
    }
    EXPECT_EQ(script->takeLog(), Log{});
}

TEST_F(tkClassifierToolTest, destructionSurvivesAMethodThatCannotUntrain)
{
    {
        tkClassifierTool doomed;
        doomed.train(data, params);
        script->actions["untrain_"] = [] { throw std::runtime_error("no"); };
        script->log.clear();
    }
    EXPECT_EQ(script->takeLog(), Log{"untrain_"});
    EXPECT_EQ(script.use_count(), 2) << "the classifier and its parameters are released";
}

TEST_F(tkClassifierToolTest, equalityRegardsTheTrainedStateThenTheClassifiers)
{
    tkClassifierTool other;
    EXPECT_TRUE(tool == other);
    trainSilently();
    EXPECT_FALSE(tool == other);
    EXPECT_FALSE(other == tool);
    EXPECT_TRUE(tool != other);

    other.train(data, ScriptedParams(script, 5));
    EXPECT_TRUE(tool == other);
    other.train(data, ScriptedParams(script, 6));
    EXPECT_FALSE(tool == other);

    tool.untrain();
    EXPECT_TRUE(tool == tkClassifierTool()) << "holding an untrained classifier or none makes no difference";
}

TEST_F(tkClassifierToolTest, recordIsAVersionByteThenTheClassifierAsAHandle)
{
    EXPECT_EQ(storeToBytes(tkClassifierTool()), std::string(5, '\0'));
    trainSilently();
    const std::string bytes = storeToBytes(tool);
    EXPECT_EQ(bytes.substr(0, 13), std::string("\0\x01\0\0\0\x01\0\0\0\x12\0\0\0", 13));
    EXPECT_EQ(bytes.substr(13, 18), "ScriptedClassifier");
}

TEST_F(tkClassifierToolTest, refusesAnUnknownVersionAndStaysAsItWas)
{
    trainSilently();
    try
    {
        loadFromBytes(std::string("\x01\0\0\0\0", 5), tool);
        FAIL();
    }
    catch (const tkArchive::UnknownVersion& error)
    {
        EXPECT_EQ(error.where(), "clss/clastool/clastool");
        EXPECT_EQ(error.number(), 896);
    }
    EXPECT_TRUE(tool.isTrained());
}

TEST_F(tkClassifierToolTest, loadingReleasesTheCurrentClassifierFirst)
{
    trainSilently();
    EXPECT_THROW(loadFromBytes(std::string("\0\x07", 2), tool), tkArchive::Errors);
    EXPECT_FALSE(holdsClassifier(tool));
}

TEST_F(tkClassifierToolTest, aStoredObjectThatIsNoClassifierLeavesTheToolEmpty)
{
    trainSilently();
    const tkPtrHandle<tkFeaturePattern> stray(new tkFeaturePattern({1.0}));
    loadFromBytes(std::string(1, '\0') + storeToBytes(stray), tool);
    EXPECT_FALSE(holdsClassifier(tool));
    EXPECT_TK_THROW(tool.trainParams(), tkClassifierDefs::NotTrained, trainBeforeParams);
}

TEST(tkClassifierTool, goldenArchivesComeBackEqualAndStoreToTheSameBytes)
{
    const std::string trained = goldenBytes("tkClassifierTool.KNN.v0.bin");
    tkClassifierTool tool;
    loadFromBytes(trained, tool);
    EXPECT_TRUE(tool == golden::toolKNN());
    EXPECT_EQ(storeToBytes(tool), trained);
    tool.retrain(*tool.trainParams());
    tkClassifierResult expected, result;
    golden::toolKNN().run(tkFeaturePattern({2.0, 2.5}), expected);
    tool.run(tkFeaturePattern({2.0, 2.5}), result);
    EXPECT_TRUE(result == expected);

    const std::string empty = goldenBytes("tkClassifierTool.empty.v0.bin");
    loadFromBytes(empty, tool);
    EXPECT_FALSE(tool.isTrained());
    EXPECT_EQ(storeToBytes(tool), empty);
}
