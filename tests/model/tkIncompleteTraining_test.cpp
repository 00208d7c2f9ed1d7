#include "clss/model/tkIncompleteTraining.h"

#include "tests/golden/model.h"
#include "tests/model/incompleteTestData.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierTool.h"
#include "clss/model/tkAssessment.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkRandom.h"

#include <stdexcept>

using namespace incompleteTest;

TEST(tkIncompleteTraining, stepsAreCounted)
{
    EXPECT_EQ(10, tkIncompleteTraining().maxSteps());
    tkIncompleteTraining params(jointParams(), 5);
    for (const long steps : {0L, -1L})
    {
        EXPECT_TK_THROW(params.maxSteps(steps), tkClassifierDefs::BadParams, L"The number of steps must be >= 1");
        EXPECT_TK_THROW(tkIncompleteTraining(jointParams(), steps), tkClassifierDefs::BadParams,
                        L"The number of steps must be >= 1");
    }
    EXPECT_TRUE(params == tkIncompleteTraining(jointParams(), 5));
    params.maxSteps(1);
    EXPECT_EQ(1, params.maxSteps());
}

TEST(tkIncompleteTraining, wherePatternsAreFewSomeStepsClassifyBetterThanMany)
{
    constexpr long numMeasurements = 12;
    tkRandomGaussian gaussian(8);
    tkRandomUniform uniform(9);
    const auto data = [&](long count, double missing)
    {
        Data drawn;
        for (long i = 0; i < count; ++i)
        {
            std::vector<double> x;
            std::vector<long> invalid;
            const double common = gaussian.next(0.0, 0.5);
            for (long j = 0; j < numMeasurements; ++j)
            {
                x.push_back((i % 2 == j % 2 ? 0.5 : -0.5) + common + gaussian.next(0.0, 1.0));
                if (uniform.next(0.0, 1.0) < missing)
                    invalid.push_back(j);
            }
            drawn.addData(tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern(x, invalid)), i % 2);
        }
        return drawn;
    };
    Types types(Types::eNormal);
    for (const long label : {0L, 1L})
        types.setDependent(label, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11});
    const tkClassifierTrainParamsBayesian params(types);
    const Data training = data(80, 0.3);
    const Data judged = data(1000, 0.0);
    const auto accuracy = [&](const tkIncompleteTraining& incomplete)
    {
        tkClassifierTool tool;
        tool.train(training, incomplete);
        return tkAssessment::heldOut(judged, tool).confusion(params).accuracy().value;
    };
    EXPECT_GT(accuracy(tkIncompleteTraining(params)), accuracy(tkIncompleteTraining(params, 1000)) + 0.02);
}

TEST(tkIncompleteTraining, progressIsToldAfterEachDensityAndCancels)
{
    tkIncompleteTraining params(jointParams());
    std::vector<std::pair<long, long>> told;
    params.progress([&](long done, long total) { told.emplace_back(done, total); });
    tkClassifierTool tool;
    tool.train(twoCategories(), params);
    EXPECT_EQ((std::vector<std::pair<long, long>>{{1, 2}, {2, 2}}), told);
    params.progress([](long, long) { throw std::runtime_error("cancelled"); });
    EXPECT_THROW(tool.train(twoCategories(), params), std::runtime_error);
    EXPECT_FALSE(tool.isTrained());
}

TEST(tkIncompleteTraining, storedToolComesBackEqualAndGivesTheSameResults)
{
    tkClassifierTool tool;
    tool.train(twoCategories(), tkIncompleteTraining(jointParams()));
    tkClassifierTool loaded;
    loadFromBytes(storeToBytes(tool), loaded);
    EXPECT_TRUE(loaded == tool);
    const Data data = twoCategories();
    for (const auto& pattern : data.patterns())
        EXPECT_TRUE(tool.run(*pattern) == loaded.run(*pattern));
    const tkClassifierTool copy(tool);
    EXPECT_TRUE(copy == tool);
}

TEST(tkIncompleteTraining, equalityTestsClassStepsAndParameters)
{
    const tkIncompleteTraining params(jointParams(), 9);
    tkIncompleteTraining other(jointParams(), 9);
    other.progress([](long, long) {});
    EXPECT_TRUE(params == other);
    EXPECT_TRUE(params == *params.clone());
    EXPECT_FALSE(params == tkIncompleteTraining(jointParams(), 10));
    EXPECT_FALSE(params == tkIncompleteTraining(tkClassifierTrainParamsBayesian(), 9));
    EXPECT_FALSE(params == jointParams());
}

TEST(tkIncompleteTraining, goldenArchiveComesBackEqualAndStoresToTheSameBytes)
{
    expectGoldens("tkIncompleteTraining.v0.bin", golden::incompleteTraining(), "tkClassifierTool.incomplete.v0.bin",
                  golden::incompleteTool());
}
