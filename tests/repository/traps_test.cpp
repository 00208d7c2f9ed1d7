// What docs/traps.md says, trap by trap.
#include "clss/clastool/bayes/tkClassifierTrainParamsBayesian.h"
#include "clss/clastool/clastool/tkClassifierDataProvider.h"
#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierResult.h"
#include "clss/clastool/clastool/tkClassifierTool.h"
#include "clss/clastool/clastool/tkClassifierTrainParamsKNN.h"
#include "clss/clastool/clastool/tkFeaturePattern.h"
#include "clss/model/tkPatternScaler.h"
#include "tkTest.h"

#include <cmath>
#include <limits>

namespace
{
using Pattern = tkPtrHandle_const<tkFeaturePattern>;
using Types = tkClassifierDistributionTypes;

const double notANumber = std::numeric_limits<double>::quiet_NaN();

void add(tkClassifierDataProviderMemory& provider, const tkFeaturePattern& pattern, long label)
{
    provider.addData(Pattern(new tkFeaturePattern(pattern)), label);
}

/// Two categories of two measurements: 0 around (0, 10) and 1 around (8, 30), four times as many patterns of 0.
tkClassifierDataProviderMemory twoCategories()
{
    tkClassifierDataProviderMemory provider;
    for (int repetition = 0; repetition < 4; ++repetition)
    {
        for (const double x : {-1.0, 1.0})
        {
            add(provider, {{x, 10.0 + x}}, 0);
            add(provider, {{x, 10.0 - x}}, 0);
        }
    }
    for (const double x : {-1.0, 1.0})
    {
        add(provider, {{8.0 + x, 30.0 + x}}, 1);
        add(provider, {{8.0 + x, 30.0 - x}}, 1);
    }
    return provider;
}

tkClassifierTool bayesian(const tkClassifierFrequencies& frequencies = tkClassifierFrequencies())
{
    tkClassifierTool tool;
    tool.train(twoCategories(), tkClassifierTrainParamsBayesian(Types(Types::eNormal), frequencies));
    return tool;
}

tkClassifierTool neighbours(long k)
{
    tkClassifierTool tool;
    tool.train(twoCategories(), tkClassifierTrainParamsKNN(k));
    return tool;
}

tkClassifierResult resultOf(const tkClassifierTool& tool, const tkFeaturePattern& pattern)
{
    tkClassifierResult result;
    tool.run(pattern, result);
    return result;
}

double scoreOf(const tkClassifierResult& result, long label)
{
    for (const tkClassifierCategoryResult& category : result.categoryResults())
    {
        if (category.categoryLabel() == label)
            return category.classScore();
    }
    return -1.0;
}
} // namespace

TEST(traps, aNaNMeasurementIsValidUnlessItIsMarked)
{
    EXPECT_EQ(0, tkFeaturePattern({notANumber, 10.0}).numInvalid());
    // Neighbours: every distance is NaN, and what was stored last passes for the nearest.
    EXPECT_EQ(1, resultOf(neighbours(1), {{notANumber, 10.0}}).categoryResults().front().categoryLabel());
    // Bayesian: no score means anything.
    const tkClassifierResult meaningless = resultOf(bayesian(), {{notANumber, 30.0}});
    EXPECT_EQ(2u, meaningless.categoryResults().size());
    for (const tkClassifierCategoryResult& category : meaningless.categoryResults())
        EXPECT_TRUE(std::isnan(category.classScore())) << category.classScore();
    // Marked, it is an error of the one and left out by the other.
    tkClassifierResult result;
    EXPECT_TK_THROW(neighbours(1).run(tkFeaturePattern({notANumber, 30.0}, {0}), result), tkClassifierDefs::BadFeatures,
                    L"K-nearest neighbor classification does not support invalid measurements");
    EXPECT_LT(0.99, scoreOf(resultOf(bayesian(), {{notANumber, 30.0}, {0}}), 1));
}

TEST(traps, bayesianClassifiersTakeShorterAndLongerPatterns)
{
    const tkClassifierTool tool = bayesian();
    EXPECT_TRUE(resultOf(tool, {{3.0}}) == resultOf(tool, {{3.0, 0.0}, {1}}));
    EXPECT_TRUE(resultOf(tool, {{3.0, 20.0, 77.0}}) == resultOf(tool, {{3.0, 20.0}}));
    const tkClassifierResult nothing = resultOf(tool, {});
    EXPECT_EQ(0.5, scoreOf(nothing, 0));
    EXPECT_EQ(0.5, scoreOf(nothing, 1));
}

TEST(traps, nearestNeighboursTakeTheMeasurementsAsTheyAre)
{
    // Measurement 0 tells the categories apart; measurement 1 says nothing, in units a thousand times as small.
    tkClassifierDataProviderMemory training;
    for (const double y : {1000.0, 2000.0, 3000.0})
    {
        training.addData({1.0, y}, 0);
        training.addData({2.0, y + 500.0}, 1);
    }
    const tkFeaturePattern query({1.0, 2490.0});
    tkClassifierTool tool;
    tool.train(training, tkClassifierTrainParamsKNN(1));
    EXPECT_EQ(1, tool.run(query).categoryResults().front().categoryLabel());
    const tkPatternScaler scaler(training);
    tool.train(scaler.apply(training), tkClassifierTrainParamsKNN(1));
    EXPECT_EQ(0, tool.run(scaler.apply(query)).categoryResults().front().categoryLabel());
}

TEST(traps, aResultOfNeighboursListsOnlyTheirCategories)
{
    const tkClassifierResult result = resultOf(neighbours(3), {{0.0, 10.0}});
    ASSERT_EQ(1u, result.categoryResults().size());
    EXPECT_EQ(0, result.categoryResults().front().categoryLabel());
    EXPECT_EQ(2u, resultOf(neighbours(20), {{0.0, 10.0}}).categoryResults().size());
}

TEST(traps, frequenciesAreEqualHoweverManyPatternsWereTrained)
{
    // Nothing speaks for one of the two but how frequent they are: four times as many patterns of 0 were trained.
    const tkFeaturePattern nothing;
    EXPECT_EQ(0.5, scoreOf(resultOf(bayesian(), nothing), 0));
    tkClassifierFrequencies frequencies;
    frequencies.categoryFrequencyOverride(0, 4.0);
    EXPECT_EQ(0.8, scoreOf(resultOf(bayesian(frequencies), nothing), 0));
}

TEST(traps, aLoadedNearestNeighbourToolRunsWithDefaultsUntilItIsRetrained)
{
    const tkClassifierTool tool = neighbours(20);
    const tkFeaturePattern pattern({8.0, 30.0});
    tkClassifierTool loaded;
    loadFromBytes(storeToBytes(tool), loaded);
    EXPECT_EQ(0.2, scoreOf(resultOf(tool, pattern), 1));
    EXPECT_EQ(1.0, scoreOf(resultOf(loaded, pattern), 1));
    loaded.retrain(*loaded.trainParams());
    EXPECT_EQ(0.2, scoreOf(resultOf(loaded, pattern), 1));
}
