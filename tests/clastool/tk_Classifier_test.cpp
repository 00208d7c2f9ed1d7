#include "scriptedMethod.h"
#include "tkTest.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "foundation/tkArchiveOperators.h"

namespace
{
using Log = std::vector<std::string>;

/// A classifier, its script, and arguments whose names appear in the log.
class tk_ClassifierTest : public ::testing::Test
{
protected:
    tk_ClassifierTest()
    {
        script->names = {{&data, "data"},        {&params, "params"},   {&diag, "diag"},
                         {&destination, "dest"}, {&pattern, "pattern"}, {&result, "result"}};
    }

    /// Trains with `params` and forgets the log.
    void trainSilently()
    {
        classifier.train(data, params);
        script->log.clear();
    }

    std::shared_ptr<Script> script = std::make_shared<Script>();
    ScriptedClassifier classifier{script};
    ScriptedParams params{script, 5};
    tkClassifierDataProviderMemory data;
    RedirectingDiag destination{nullptr};
    RedirectingDiag diag{&destination};
    tkFeaturePattern pattern;
    tkClassifierResult result;
};
} // namespace

TEST_F(tk_ClassifierTest, trainTakesItsStepsInOrderAndGivesTheDetailsHookTheCallersDiag)
{
    classifier.train(data, params, &diag, 7);
    EXPECT_EQ(script->takeLog(), (Log{"recordTrainInputs_ dest 107", "train_ data params", "clone",
                                      "recordTrainDetails_ diag 107", "recordTrainResults_ dest 107"}));
    EXPECT_TRUE(classifier.isTrained());
}

TEST_F(tk_ClassifierTest, trainWithoutDiagRecordsIntoNullWithTheFlagsAsGiven)
{
    classifier.train(data, params, nullptr, 7);
    EXPECT_EQ(script->takeLog(), (Log{"recordTrainInputs_ null 7", "train_ data params", "clone",
                                      "recordTrainDetails_ null 7", "recordTrainResults_ null 7"}));
    classifier.train(data, params);
    EXPECT_EQ(script->log.at(1), "recordTrainInputs_ null 0");
}

TEST_F(tk_ClassifierTest, trainOfATrainedClassifierUntrainsItFirst)
{
    trainSilently();
    script->actions["recordTrainInputs_"] = [this]
    {
        EXPECT_FALSE(classifier.isTrained());
        EXPECT_TRUE(script->log.front() == "untrain_");
    };
    classifier.train(data, params, &diag, 0);
    EXPECT_EQ(script->takeLog(), (Log{"untrain_", "recordTrainInputs_ dest 100", "train_ data params", "clone",
                                      "recordTrainDetails_ diag 100", "recordTrainResults_ dest 100"}));
}

TEST_F(tk_ClassifierTest, trainKeepsACloneOfTheParameters)
{
    classifier.train(data, params);
    params.value = 6;
    const auto kept = classifier.trainParams();
    EXPECT_EQ(dynamic_cast<const ScriptedParams&>(*kept).value, 5);
    EXPECT_NE(kept.get(), &params);
    EXPECT_EQ(kept, classifier.trainParams()) << "every call shares the one stored object";
}

TEST_F(tk_ClassifierTest, aFailingTrainPassesTheExceptionOnAndKeepsNoParameters)
{
    trainSilently();
    script->actions["train_"] = [] { throw tkClassifierDefs::BadFeatures(L"no good"); };
    EXPECT_TK_THROW(classifier.train(data, params), tkClassifierDefs::BadFeatures, L"no good");
    EXPECT_EQ(script->takeLog(), (Log{"untrain_", "recordTrainInputs_ null 0", "train_ data params"}));

    // The method had begun, and the base restores nothing: the classifier is as the method left it.
    EXPECT_TRUE(classifier.isTrained());
    EXPECT_TK_THROW(classifier.trainParams(), tkClassifierDefs::BadMethod,
                    L"Classifier tool was not automatically trained.");
}

TEST_F(tk_ClassifierTest, aFailingInputsHookKeepsTheMethodFromTraining)
{
    script->actions["recordTrainInputs_"] = [] { throw tkClassifierDefs::BadParams(L"full"); };
    EXPECT_TK_THROW(classifier.train(data, params), tkClassifierDefs::BadParams, L"full");
    EXPECT_EQ(script->takeLog(), Log{"recordTrainInputs_ null 0"});
    EXPECT_FALSE(classifier.isTrained());
}

TEST_F(tk_ClassifierTest, retrainRecordsNothingAndClonesAfterTheMethodsStep)
{
    trainSilently();
    ScriptedParams changed(script, 8);
    script->names[&changed] = "changed";
    classifier.retrain(changed, &diag, 7);
    EXPECT_EQ(script->takeLog(), (Log{"isSameTechnique_", "retrain_ changed", "clone"}));
    EXPECT_EQ(dynamic_cast<const ScriptedParams&>(*classifier.trainParams()).value, 8);
}

TEST_F(tk_ClassifierTest, aFailingRetrainKeepsTheOldParametersAndTheTraining)
{
    trainSilently();
    script->actions["retrain_"] = [] { throw tkClassifierDefs::BadParams(L"no"); };
    EXPECT_TK_THROW(classifier.retrain(ScriptedParams(script, 8)), tkClassifierDefs::BadParams, L"no");
    EXPECT_TRUE(classifier.isTrained());
    EXPECT_EQ(dynamic_cast<const ScriptedParams&>(*classifier.trainParams()).value, 5);
}

TEST_F(tk_ClassifierTest, retrainOfAnUntrainedClassifierIsRefusedBeforeTheTechniqueIsLookedAt)
{
    const ScriptedParams foreign(script, 0, "foreign");
    EXPECT_TK_THROW(classifier.retrain(foreign), tkClassifierDefs::NotTrained,
                    L"Classifier tool must be trained before retraining.");
    EXPECT_EQ(script->takeLog(), Log{});
}

TEST_F(tk_ClassifierTest, retrainWithAnotherTechniqueIsRefused)
{
    trainSilently();
    EXPECT_TK_THROW(classifier.retrain(ScriptedParams(script, 0, "foreign")), tkClassifierDefs::BadMethod,
                    L"Cannot retrain with a different classification technique.");
    EXPECT_EQ(script->takeLog(), Log{"isSameTechnique_"});
    EXPECT_EQ(dynamic_cast<const ScriptedParams&>(*classifier.trainParams()).value, 5);
}

TEST_F(tk_ClassifierTest, aClassifierTrainedByOtherMeansHasNoParametersAndCannotBeRetrained)
{
    classifier.trained = true;
    EXPECT_TK_THROW(classifier.retrain(params), tkClassifierDefs::BadMethod,
                    L"Cannot retrain with a different classification technique.");
    EXPECT_EQ(script->takeLog(), Log{}) << "there is nothing to compare the technique with";
    EXPECT_TK_THROW(classifier.trainParams(), tkClassifierDefs::BadMethod,
                    L"Classifier tool was not automatically trained.");
}

TEST_F(tk_ClassifierTest, trainParamsOfAnUntrainedClassifierAreRefused)
{
    EXPECT_TK_THROW(classifier.trainParams(), tkClassifierDefs::NotTrained,
                    L"Classifier tool must be trained before requesting the training parameters.");
}

TEST_F(tk_ClassifierTest, trainStartTakesTheMethodsStepThenClonesAndRecordsNothing)
{
    classifier.trainStartTrains = true;
    classifier.trainStart(params);
    EXPECT_EQ(script->takeLog(), (Log{"trainStart_ params", "clone"}));
    EXPECT_EQ(dynamic_cast<const ScriptedParams&>(*classifier.trainParams()).value, 5);

    classifier.trainStart(ScriptedParams(script, 9));
    EXPECT_EQ(script->takeLog(), (Log{"untrain_", "trainStart_ ?", "clone"}));
    EXPECT_EQ(dynamic_cast<const ScriptedParams&>(*classifier.trainParams()).value, 9);
}

TEST_F(tk_ClassifierTest, aFailingTrainStartKeepsNoParameters)
{
    trainSilently();
    classifier.trainStartTrains = true;
    script->actions["trainStart_"] = [] { throw tkClassifierDefs::BadParams(L"no"); };
    EXPECT_TK_THROW(classifier.trainStart(params), tkClassifierDefs::BadParams, L"no");
    EXPECT_TK_THROW(classifier.trainParams(), tkClassifierDefs::BadMethod,
                    L"Classifier tool was not automatically trained.");
}

TEST_F(tk_ClassifierTest, trainIncrementalNeedsATrainedClassifierAndRecordsNothing)
{
    EXPECT_TK_THROW(classifier.trainIncremental(pattern, 3), tkClassifierDefs::NotTrained,
                    L"Classifier tool must be trained before incremental training.");
    EXPECT_EQ(script->takeLog(), Log{});
    trainSilently();
    classifier.trainIncremental(pattern, -3, &diag, 7);
    EXPECT_EQ(script->takeLog(), Log{"trainIncremental_ pattern -3"});
}

TEST_F(tk_ClassifierTest, untrainForgetsModelAndParameters)
{
    trainSilently();
    classifier.untrain();
    EXPECT_EQ(script->takeLog(), Log{"untrain_"});
    EXPECT_FALSE(classifier.isTrained());
    classifier.trained = true;
    EXPECT_TK_THROW(classifier.trainParams(), tkClassifierDefs::BadMethod,
                    L"Classifier tool was not automatically trained.");
}

TEST_F(tk_ClassifierTest, untrainOfAnUntrainedClassifierLeavesItsParametersAlone)
{
    classifier.trainStart(params); // this method does not count as trained afterwards
    script->log.clear();
    classifier.untrain();
    EXPECT_EQ(script->takeLog(), Log{});
    classifier.trained = true;
    EXPECT_EQ(dynamic_cast<const ScriptedParams&>(*classifier.trainParams()).value, 5);
}

TEST_F(tk_ClassifierTest, runTakesItsStepsInOrderAndDoesNotCheckReadiness)
{
    trainSilently();
    classifier.run(pattern, result, &diag, 7);
    EXPECT_EQ(script->takeLog(), (Log{"recordRunInputs_ dest 107 pattern", "run_ pattern result",
                                      "recordRunDetails_ dest 107", "recordRunResults_ dest 107 pattern result 1"}));
    EXPECT_EQ(result.matchScoreFactorLog(), 7.0);

    classifier.run(pattern, result);
    EXPECT_EQ(script->takeLog(), (Log{"recordRunInputs_ null 0 pattern", "run_ pattern result",
                                      "recordRunDetails_ null 0", "recordRunResults_ null 0 pattern result 1"}));
}

TEST_F(tk_ClassifierTest, runOfAnUntrainedClassifierIsRefusedBeforeAnythingIsRecorded)
{
    EXPECT_TK_THROW(classifier.run(pattern, result, &diag, 7), tkClassifierDefs::NotTrained,
                    L"Classifier tool must be trained before running.");
    EXPECT_EQ(script->takeLog(), Log{});
    EXPECT_TRUE(result == tkClassifierResult());
}

TEST_F(tk_ClassifierTest, aFailingRunRecordsNeitherDetailsNorResults)
{
    trainSilently();
    script->actions["run_"] = [] { throw tkClassifierDefs::BadFeatures(L"no"); };
    EXPECT_TK_THROW(classifier.run(pattern, result), tkClassifierDefs::BadFeatures, L"no");
    EXPECT_EQ(script->takeLog(), (Log{"recordRunInputs_ null 0 pattern", "run_ pattern result"}));
    EXPECT_TRUE(result == tkClassifierResult());
}

TEST_F(tk_ClassifierTest, untrainedClassifiersAreEquivalentTrainedAndUntrainedAreNot)
{
    ScriptedClassifier other(script);
    EXPECT_TRUE(classifier.isEquivalent(other));
    other.trained = true;
    EXPECT_FALSE(classifier.isEquivalent(other));
    EXPECT_FALSE(other.isEquivalent(classifier));
    classifier.trained = true;
    EXPECT_TRUE(classifier.isEquivalent(other)) << "both trained by other means";
}

TEST_F(tk_ClassifierTest, equivalenceAsksTheParametersWhereBothHaveSome)
{
    ScriptedClassifier other(script);
    classifier.train(data, params);
    other.train(data, params);
    script->log.clear();
    EXPECT_TRUE(classifier.isEquivalent(other));
    EXPECT_EQ(script->takeLog(), Log{"isEqual_"});

    other.retrain(ScriptedParams(script, 6));
    EXPECT_FALSE(classifier.isEquivalent(other));

    ScriptedClassifier withoutParameters(script);
    withoutParameters.trained = true;
    EXPECT_FALSE(classifier.isEquivalent(withoutParameters));
    EXPECT_FALSE(withoutParameters.isEquivalent(classifier));
}

TEST_F(tk_ClassifierTest, copiesShareTheParameters)
{
    classifier.train(data, params);
    const ScriptedClassifier copy(classifier);
    EXPECT_EQ(copy.trainParams(), classifier.trainParams());
    ScriptedClassifier assigned(script);
    assigned = classifier;
    EXPECT_EQ(assigned.trainParams(), classifier.trainParams());
    classifier.untrain();
    EXPECT_EQ(dynamic_cast<const ScriptedParams&>(*copy.trainParams()).value, 5);
}

TEST_F(tk_ClassifierTest, recordIsTheBaseRecordThenTheParametersAsAHandle)
{
    EXPECT_EQ(storeToBytes(classifier), std::string(6, '\0')) << "two versions and a null handle";

    classifier.train(data, params);
    ScriptedClassifier loaded;
    loadFromBytes(storeToBytes(classifier), loaded);
    loaded.trained = true;
    EXPECT_NE(dynamic_cast<const ScriptedParams*>(loaded.trainParams().get()), nullptr);

    loadFromBytes(std::string(6, '\0'), loaded);
    EXPECT_TK_THROW(loaded.trainParams(), tkClassifierDefs::BadMethod,
                    L"Classifier tool was not automatically trained.");
}

TEST_F(tk_ClassifierTest, refusesAnUnknownVersionAtEachLevel)
{
    for (std::size_t level = 0; level < 2; ++level)
    {
        std::string damaged(6, '\0');
        damaged[level] = 1;
        EXPECT_THROW(loadFromBytes(damaged, classifier), tkArchive::UnknownVersion) << level;
    }
}
