#include "clss/model/tk_ClassifierIncomplete.h"

#include "tests/golden/model.h"
#include "tests/model/incompleteTestData.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/model/tkIncompleteTraining.h"
#include "foundation/tkArchiveOperators.h"

using namespace incompleteTest;

TEST(tk_ClassifierIncomplete, densitiesHaveTheStatisticsOfMaximumLikelihood)
{
    const Reference table = reference();
    const double n = static_cast<double>(table.patterns.size());
    const auto classifier =
        trained<tk_ClassifierIncomplete>(twoCategories(), tkIncompleteTraining(jointParams(), 5000));
    for (std::size_t m = 0; m < 2; ++m)
    {
        const tkNMNormal& normal = normalOf(*classifier, m, 0);
        EXPECT_EQ(static_cast<long>(n), normal.count());
        for (std::size_t i = 0; i < 5; ++i)
        {
            const double deviation = std::sqrt(table.covariance[i][i]);
            EXPECT_NEAR(table.mean[i] + (m == 1 ? deviation : 0.0), normal.mean(static_cast<long>(i)),
                        1e-5 * deviation);
            EXPECT_NEAR(table.covariance[i][i], normal.variance(static_cast<long>(i)) * (n - 1.0) / n,
                        1e-4 * deviation * deviation);
        }
    }
}

TEST(tk_ClassifierIncomplete, dataWithoutGapsAreLearnedAsEver)
{
    Data data;
    for (const Line& line : linesOf("assessment.csv"))
        if (line.word == "pattern")
            data.addData(std::vector<double>(line.numbers.begin() + 2, line.numbers.end()),
                         static_cast<long>(line.numbers[1]));
    Types types(Types::eNormal);
    types.setDependent(0, {0, 2});
    const tkClassifierTrainParamsBayesian params(types);
    tkClassifierTool plain;
    plain.train(data, params);
    tkClassifierTool incomplete;
    incomplete.train(data, tkIncompleteTraining(params));
    for (const auto& pattern : data.patterns())
        EXPECT_TRUE(plain.run(*pattern) == incomplete.run(*pattern));
}

TEST(tk_ClassifierIncomplete, learnsWhereAPlainTrainingHasNothing)
{
    Data data;
    for (int i = 0; i < 8; ++i)
        for (const long label : {0L, 1L})
        {
            const double x = static_cast<double>(i % 4) + 3.0 * static_cast<double>(label);
            data.addData(handleTo(patternWithGaps({i % 2 ? x : notANumber, i % 2 ? notANumber : x + 0.5})), label);
        }
    Types types(Types::eNormal);
    for (const long label : {0L, 1L})
        types.setDependent(label, {0, 1});
    const tkClassifierTrainParamsBayesian params(types);
    tkClassifierTool tool;
    EXPECT_THROW(tool.train(data, params), tkClassifierDefs::InsufficientTrainData);
    tool.train(data, tkIncompleteTraining(params));
    EXPECT_EQ(0, tool.run(tkFeaturePattern({1.0, 1.5})).categoryResults().front().categoryLabel());
    EXPECT_EQ(1, tool.run(tkFeaturePattern({0.0, 6.0}, {0})).categoryResults().front().categoryLabel());
}

TEST(tk_ClassifierIncomplete, binomialMeasurementsLearnAsEver)
{
    const tkClassifierTrainParamsBayesian params = paramsWithABinomial();
    tkRandomUniform uniform(6);
    Data data;
    for (int i = 0; i < 30; ++i)
        data.addData(handleTo(patternWithGaps({i % 5 ? uniform.next(-1.0, 1.0) : notANumber,
                                               i % 7 ? std::floor(uniform.next(i % 2 ? 1.0 : 3.0, 8.0)) : notANumber})),
                     i % 2);
    tkClassifierTool plain;
    plain.train(data, params);
    tkClassifierTool incomplete;
    incomplete.train(data, tkIncompleteTraining(params));
    for (const auto& pattern : data.patterns())
        EXPECT_TRUE(plain.run(*pattern) == incomplete.run(*pattern));
}

TEST(tk_ClassifierIncomplete, dataAndMeasurementsAreChecked)
{
    tkClassifierTool tool;
    EXPECT_TK_THROW(tool.train(Data(), tkIncompleteTraining()), tkClassifierDefs::InsufficientTrainData,
                    L"No valid data was provided for training.");
    Data data;
    data.addData(handleTo(tkFeaturePattern({0x1p491, 0.0}, {1})), 0);
    data.addData({1.0, 2.0}, 0);
    Types types(Types::eNormal);
    types.setDependent(0, {0, 1});
    EXPECT_TK_THROW(tool.train(data, tkIncompleteTraining(tkClassifierTrainParamsBayesian(types))), tkFailure,
                    L"A measurement is too large for a normal distribution");
    EXPECT_FALSE(tool.isTrained());
}

TEST(tk_ClassifierIncomplete, retrainingKeepsTheLearningOfGaps)
{
    tkClassifierTool tool;
    tool.train(twoCategories(), tkIncompleteTraining(jointParams(), 7));
    const wchar_t* const another = L"Cannot retrain a Bayesian classifier with another learning of gaps.";
    EXPECT_TK_THROW(tool.retrain(jointParams()), tkClassifierDefs::BadParams, another);
    EXPECT_TK_THROW(tool.retrain(tkIncompleteTraining(jointParams(), 8)), tkClassifierDefs::BadParams, another);
    tkIncompleteTraining params(jointParams(), 7);
    params.misclassificationCosts(tkClassifierCosts(3.0));
    tool.retrain(params);
    EXPECT_TRUE(params == *tool.trainParams());
    tkClassifierTool plain;
    plain.train(twoCategories(), jointParams());
    EXPECT_TK_THROW(plain.retrain(params), tkClassifierDefs::BadMethod,
                    L"Cannot retrain with a different classification technique.");
}

TEST(tk_ClassifierIncomplete, loadedNumberOfStepsIsCheckedInTraining)
{
    std::string bytes = goldenBytes("tkIncompleteTraining.v0.bin");
    bytes.replace(bytes.size() - 4, 4, 4, '\0');
    tkPtrHandle<tkIncompleteTraining> params;
    loadFromBytes(bytes, params);
    ASSERT_TRUE(params);
    tkClassifierTool tool;
    EXPECT_TK_THROW(tool.train(twoCategories(), *params), tkClassifierDefs::BadParams,
                    L"The number of steps must be >= 1");
}

TEST(tk_ClassifierIncomplete, densitiesCountThePatternsThatHaveAMeasurementOfTheirSet)
{
    Data data;
    for (int i = 0; i < 12; ++i)
        data.addData(handleTo(patternWithGaps({i % 3 == 0 ? notANumber : static_cast<double>(i),
                                               i % 2 == 0 ? notANumber : static_cast<double>(i * i), 1.0 * (i % 4)})),
                     0);
    Types types(Types::eNormal);
    types.setDependent(0, {0, 1});
    const auto classifier =
        trained<tk_ClassifierIncomplete>(data, tkIncompleteTraining(tkClassifierTrainParamsBayesian(types)));
    EXPECT_EQ(10, normalOf(*classifier, 0, 0).count()); // patterns 0 and 6 have neither
    EXPECT_EQ(12, normalOf(*classifier, 0, 1).count());
}

TEST(tk_ClassifierIncomplete, aMeasurementThatItsCategoryLacksHasTheMomentsOfAllCategories)
{
    Data data;
    for (int i = 0; i < 9; ++i)
    {
        data.addData(handleTo(patternWithGaps({static_cast<double>(i % 4), notANumber})), 0);
        data.addData({static_cast<double>(i % 5), static_cast<double>(10 + i)}, 1);
    }
    Types types(Types::eNormal);
    for (const long label : {0L, 1L})
        types.setDependent(label, {0, 1});
    const auto classifier =
        trained<tk_ClassifierIncomplete>(data, tkIncompleteTraining(tkClassifierTrainParamsBayesian(types)));
    const tkNMNormal& normal = normalOf(*classifier, 0, 0);
    EXPECT_NEAR(14.0, normal.mean(1), 1e-12);
    EXPECT_NEAR(60.0 / 8.0, normal.variance(1), 1e-12); // of 10, ..., 18
    EXPECT_EQ(0.0, normal.covariance()(0, 1));
}

TEST(tk_ClassifierIncomplete, clonesAreOfItsClassAndEqual)
{
    const auto classifier = trained<tk_ClassifierIncomplete>(twoCategories(), tkIncompleteTraining(jointParams()));
    const tkPtrHandle<tk_Classifier> clone = classifier->clone();
    EXPECT_NE(nullptr, dynamic_cast<const tk_ClassifierIncomplete*>(clone.get()));
    EXPECT_TRUE(clone->isEquivalent(*classifier));
    EXPECT_FALSE(clone->isEquivalent(*trained<tk_ClassifierBayesian>(twoCategories(), jointParams())));
}
