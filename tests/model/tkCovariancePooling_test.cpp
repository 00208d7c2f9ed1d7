#include "clss/model/tkCovariancePooling.h"

#include "tests/golden/model.h"
#include "tests/model/poolingTestData.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierTool.h"
#include "clss/model/tkAssessment.h"
#include "clss/model/tk_CovariancePool.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkRandom.h"

using namespace poolingTest;

TEST(tkCovariancePooling, choosesInEachTrainingUnlessTheAmountIsGiven)
{
    tkCovariancePooling pooling(jointParams());
    EXPECT_TRUE(pooling.isChosen());
    EXPECT_EQ(0.0, pooling.amount());
    EXPECT_TRUE(static_cast<const tkClassifierTrainParamsBayesian&>(pooling).distributionTypes() ==
                jointParams().distributionTypes());
    pooling.amount(0.25);
    EXPECT_FALSE(pooling.isChosen());
    EXPECT_EQ(0.25, pooling.amount());
    EXPECT_TRUE(pooling == tkCovariancePooling(jointParams(), 0.25));
}

TEST(tkCovariancePooling, amountIsAShare)
{
    tkCovariancePooling pooling(jointParams(), 0.5);
    for (const double amount : {-5e-324, std::nextafter(1.0, 2.0), notANumber})
    {
        EXPECT_TK_THROW(pooling.amount(amount), tkClassifierDefs::BadParams,
                        L"The amount of pooling must be >= 0.0 and <= 1.0");
        EXPECT_TK_THROW(tkCovariancePooling(jointParams(), amount), tkClassifierDefs::BadParams,
                        L"The amount of pooling must be >= 0.0 and <= 1.0");
    }
    EXPECT_TRUE(pooling == tkCovariancePooling(jointParams(), 0.5));
}

TEST(tkCovariancePooling, choiceIsTheAmountOfTheFewestErrorsThenOfTheLeastLogLoss)
{
    for (const std::size_t step : {4u, 9u, 14u})
    {
        const Data data = wine(step);
        const tk_LabelledPatterns labelled(data);
        const auto classifier = trained<tk_ClassifierBayesian>(data, jointParams());
        const tk_CovariancePool pool(classifier->categoryModels());
        const double chosen = tkCovariancePooling::choose(data, jointParams());
        const auto best = pool.judge(labelled, jointParams().categoryFrequencies(), chosen);
        bool isAmong = false;
        for (const double amount : {0.0, 0.01, 0.03, 0.1, 0.2, 0.3, 0.4, 0.5, 0.6, 0.7, 0.8, 0.9, 1.0})
        {
            isAmong = isAmong || amount == chosen;
            const auto figures = pool.judge(labelled, jointParams().categoryFrequencies(), amount);
            EXPECT_TRUE(!figures.areValid || best.errors < figures.errors ||
                        (best.errors == figures.errors && best.logLoss <= figures.logLoss))
                << step << " " << amount;
        }
        EXPECT_TRUE(isAmong);

        tkClassifierTool byChoice;
        byChoice.train(data, tkCovariancePooling(jointParams()));
        tkClassifierTool given;
        given.train(data, tkCovariancePooling(jointParams(), chosen));
        for (const auto& pattern : data.patterns())
            EXPECT_TRUE(byChoice.run(*pattern) == given.run(*pattern));
    }
}

TEST(tkCovariancePooling, amountsWithWhichACovarianceIsSingularAreNotConsidered)
{
    // Four patterns of five measurements in each category: only the pooled covariance is regular.
    tkRandomGaussian gaussian(9);
    Data data;
    for (int i = 0; i < 12; ++i)
    {
        std::vector<double> x;
        for (int j = 0; j < 5; ++j)
            x.push_back(gaussian.next(i % 3, 1.0));
        data.addData(x, i % 3);
    }
    Types types(Types::eNormal);
    for (const long label : {0L, 1L, 2L})
        types.setDependent(label, {0, 1, 2, 3, 4});
    const tkClassifierTrainParamsBayesian params(types);
    const auto classifier = trained<tk_ClassifierBayesian>(data, params);
    const tk_CovariancePool pool(classifier->categoryModels());
    const tk_LabelledPatterns labelled(data);
    EXPECT_FALSE(pool.judge(labelled, tkClassifierFrequencies(), 0.0).areValid);
    EXPECT_TRUE(pool.judge(labelled, tkClassifierFrequencies(), 0.1).areValid);
    EXPECT_LT(0.0, tkCovariancePooling::choose(data, params));

    // Measurement 0 repeated: every covariance is singular.
    Data repeated;
    for (std::size_t i = 0; i < data.patterns().size(); ++i)
    {
        std::vector<double> x = data.patterns()[i]->featureMeasurements(true);
        x[4] = x[0];
        repeated.addData(x, data.labels()[i]);
    }
    EXPECT_EQ(1.0, tkCovariancePooling::choose(repeated, params));
}

TEST(tkCovariancePooling, patternsWithGapsAndConstantMeasurementsAreNotLookedAtInTheChoice)
{
    Data data = wine(6);
    Data withGaps;
    for (std::size_t i = 0; i < data.patterns().size(); ++i)
    {
        std::vector<double> x = data.patterns()[i]->featureMeasurements(true);
        x.push_back(static_cast<double>(data.labels()[i])); // varies within no category
        withGaps.addData(x, data.labels()[i]);
    }
    Types types(Types::eNormal);
    for (const long label : {0L, 1L, 2L})
        types.setDependent(label, {0, 1, 2, 3, 4});
    tkClassifierTrainParamsBayesian params(types, jointParams().categoryFrequencies());
    EXPECT_EQ(tkCovariancePooling::choose(data, jointParams()), tkCovariancePooling::choose(withGaps, params));
    withGaps.addData(handleTo(patternWithGaps({12.0, notANumber, 2.0, 20.0, 1.0})), 1);
    withGaps.addData({12.0, 1.0, notANumber, 20.0, 1.0}, 1);
    EXPECT_EQ(tkCovariancePooling::choose(data, jointParams()), tkCovariancePooling::choose(withGaps, params));
}

TEST(tkCovariancePooling, categoryOfOneCompletePatternDoesNotDecideTheChoice)
{
    // Two categories whose correlations are opposite: pooling them would lose all that tells them apart.
    tkRandomGaussian gaussian(11);
    const auto addPattern = [&](Data& data, long label)
    {
        const double x = gaussian.next(0.0, 1.0);
        data.addData({x, (label == 0 ? x : -x) + gaussian.next(0.0, 0.3)}, label);
    };
    Data data;
    Data judged;
    for (int i = 0; i < 200; ++i)
    {
        addPattern(data, i % 2);
        addPattern(judged, i % 2);
    }
    Types types(Types::eNormal);
    for (const long label : {0L, 1L, 2L})
        types.setDependent(label, {0, 1});
    const tkClassifierTrainParamsBayesian params(types);
    const auto heldOutAccuracy = [&]
    {
        tkClassifierTool tool;
        tool.train(data, tkCovariancePooling(params));
        return tkAssessment::heldOut(judged, tool).confusion(params).accuracy().value;
    };
    EXPECT_GT(0.1, tkCovariancePooling::choose(data, params));
    EXPECT_LT(0.8, heldOutAccuracy());
    data.addData({8.0, 8.0}, 2);
    EXPECT_GT(0.1, tkCovariancePooling::choose(data, params));
    EXPECT_LT(0.8, heldOutAccuracy());
    data.addData(handleTo(patternWithGaps({8.5, notANumber})), 2);
    EXPECT_GT(0.1, tkCovariancePooling::choose(data, params));
    EXPECT_LT(0.8, heldOutAccuracy());
}

TEST(tkCovariancePooling, setOfOneCategoryAloneWithTooFewPatternsDoesNotDecideTheChoice)
{
    tkRandomGaussian gaussian(12);
    Data data;
    for (int i = 0; i < 80; ++i)
    {
        const double deviation = i % 2 ? 5.0 : 1.0;
        data.addData({gaussian.next(0.0, deviation), gaussian.next(0.0, deviation), gaussian.next(0.0, deviation)},
                     i % 2);
    }
    Types types(Types::eNormal);
    types.setDependent(2, {0, 1, 2});
    const tkClassifierTrainParamsBayesian params(types);
    const double without = tkCovariancePooling::choose(data, params);
    EXPECT_GT(0.5, without);
    // Three patterns have a singular covariance; with four it is singular as soon as one of them is left out.
    for (int n = 1; n <= 4; ++n)
    {
        data.addData({gaussian.next(30.0, 1.0), gaussian.next(30.0, 1.0), gaussian.next(30.0, 1.0)}, 2);
        EXPECT_EQ(without, tkCovariancePooling::choose(data, params)) << n;
    }
    // Measurement 1 varies by one pattern alone: without it the covariance is singular.
    types.setDependent(3, {0, 1});
    for (int i = 0; i < 9; ++i)
        data.addData({300.0 + i % 3, i == 8 ? 1.0 : 0.0, gaussian.next(30.0, 1.0)}, 3);
    EXPECT_GT(0.5, tkCovariancePooling::choose(data, tkClassifierTrainParamsBayesian(types)));
}

TEST(tkCovariancePooling, choiceTakesThePatternsThatATrainingTakes)
{
    const Data patterns = wine(6);
    UncheckedProvider data;
    data.measurements = 4;
    data.patterns = patterns.patterns();
    data.labels = patterns.labels();
    const double chosen = tkCovariancePooling::choose(patterns, jointParams());
    data.patterns.push_back(handleTo(tkFeaturePattern({1.0, 2.0})));
    data.labels.push_back(-1);
    tkClassifierTool tool;
    tool.train(data, jointParams());
    EXPECT_EQ(chosen, tkCovariancePooling::choose(data, jointParams()));
    tool.train(data, tkCovariancePooling(jointParams()));
    EXPECT_TRUE(tool.isTrained());

    data.labels.back() = -2;
    EXPECT_TK_THROW(tool.train(data, jointParams()), tkClassifierDefs::BadLabel, L"Cateogory labels must be >= 0");
    EXPECT_TK_THROW(tool.train(data, tkCovariancePooling(jointParams())), tkClassifierDefs::BadLabel,
                    L"Cateogory labels must be >= 0");
    EXPECT_TK_THROW(tkCovariancePooling::choose(data, jointParams()), tkClassifierDefs::BadLabel,
                    L"Cateogory labels must be >= 0");
}

TEST(tkCovariancePooling, choiceThrowsWhatATrainingThrows)
{
    EXPECT_TK_THROW(tkCovariancePooling::choose(Data(), jointParams()), tkClassifierDefs::InsufficientTrainData,
                    L"No valid data was provided for training.");
    const tkClassifierTrainParamsBayesian unknown(Types(static_cast<Types::DistributionType>(-1)));
    EXPECT_THROW(tkCovariancePooling::choose(wine(20), unknown), tkClassifierDefs::BadParams);
    tkClassifierTool tool;
    EXPECT_THROW(tool.train(wine(20), tkCovariancePooling(unknown)), tkClassifierDefs::BadParams);
    EXPECT_FALSE(tool.isTrained());
}

TEST(tkCovariancePooling, storedToolComesBackEqualAndGivesTheSameResults)
{
    tkClassifierTool tool;
    tool.train(wine(9), tkCovariancePooling(jointParams()));
    tkClassifierTool loaded;
    loadFromBytes(storeToBytes(tool), loaded);
    EXPECT_TRUE(loaded == tool);
    const Data all = wine(1);
    for (const auto& pattern : all.patterns())
        EXPECT_TRUE(tool.run(*pattern) == loaded.run(*pattern));
    const tkClassifierTool copy(tool);
    EXPECT_TRUE(copy == tool);
    EXPECT_EQ(storeToBytes(tool), storeToBytes(copy));
    tkClassifierTool plain;
    plain.train(wine(9), jointParams());
    EXPECT_FALSE(plain == tool);
}

TEST(tkCovariancePooling, equalityTestsClassAmountAndParameters)
{
    const tkCovariancePooling pooling(jointParams(), 0.5);
    EXPECT_TRUE(pooling == tkCovariancePooling(jointParams(), 0.5));
    EXPECT_TRUE(pooling == *pooling.clone());
    EXPECT_FALSE(pooling == tkCovariancePooling(jointParams(), 0.25));
    EXPECT_FALSE(pooling == tkCovariancePooling(jointParams({0}), 0.5));
    EXPECT_FALSE(tkCovariancePooling(jointParams()) == tkCovariancePooling(jointParams(), 0.0));
    EXPECT_FALSE(pooling == jointParams());
    EXPECT_FALSE(jointParams() == static_cast<const tkClassifierTrainParams&>(pooling));
}

TEST(tkCovariancePooling, goldenArchivesComeBackEqualAndStoreToTheSameBytes)
{
    expectGoldens("tkCovariancePooling.v0.bin", golden::covariancePooling(), "tkClassifierTool.pooled.v0.bin",
                  golden::pooledTool());
}
