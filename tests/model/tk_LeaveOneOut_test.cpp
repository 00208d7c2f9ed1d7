#include "clss/model/tk_LeaveOneOut.h"

#include "modelTestData.h"

#include "clss/clastool/bayes/tkClassifierTrainParamsBayesian.h"
#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierTool.h"
#include "clss/clastool/clastool/tkClassifierTrainParamsKNN.h"
#include "clss/model/tkAssessment.h"
#include "foundation/tkRandom.h"

#include <limits>

namespace
{
using Types = tkClassifierDistributionTypes;
using Data = tkClassifierDataProviderMemory;

const double notANumber = std::numeric_limits<double>::quiet_NaN();

/// What the tool says after a training without pattern i.
tkClassifierResult anew(const Data& data, const tkClassifierTrainParams& params, std::size_t i)
{
    Data training;
    for (std::size_t p = 0; p < data.patterns().size(); ++p)
        if (p != i)
            training.addData(data.patterns()[p], data.labels()[p]);
    tkClassifierTool tool;
    tool.train(training, params);
    return tool.run(*data.patterns()[i]);
}

double scoreOf(const tkClassifierResult& result, long label)
{
    for (const tkClassifierCategoryResult& category : result.categoryResults())
        if (category.categoryLabel() == label)
            return category.classScore();
    return 0.0;
}

/// Both NaN, or near.
void expectNear(double expected, double value, double tolerance, std::size_t i)
{
    EXPECT_EQ(std::isnan(expected), std::isnan(value)) << i;
    if (!std::isnan(expected))
    {
        EXPECT_NEAR(expected, value, tolerance) << i;
    }
}

/// Compares class scores and fit, and that the same categories are there.
void expectNear(const tkClassifierResult& expected, const tkClassifierResult& result, double tolerance, std::size_t i)
{
    ASSERT_EQ(expected.categoryResults().size(), result.categoryResults().size()) << i;
    for (const tkClassifierCategoryResult& category : expected.categoryResults())
        expectNear(category.classScore(), scoreOf(result, category.categoryLabel()), tolerance, i);
    expectNear(expected.matchScoreFactorLog(), result.matchScoreFactorLog(),
               tolerance * (1.0 + std::abs(expected.matchScoreFactorLog())), i);
}

/// Of how many patterns the judgement differs from that of a training without them, be it in its last bit.
std::size_t numJudgedTheShortWay(const Data& data, const tkClassifierTrainParams& params)
{
    const tk_LabelledPatterns labelled(data);
    const tk_LeftOutJudge judge = tk_leaveOneOut(labelled, params);
    std::size_t count = 0;
    for (std::size_t i = 0; i < labelled.patterns.size(); ++i)
        count += anew(data, params, i) != judge(i) ? 1 : 0;
    return count;
}

void compareAll(const Data& data, const tkClassifierTrainParams& params, double tolerance)
{
    const tk_LabelledPatterns labelled(data);
    const tk_LeftOutJudge judge = tk_leaveOneOut(labelled, params);
    ASSERT_TRUE(judge);
    for (std::size_t i = 0; i < labelled.patterns.size(); ++i)
        expectNear(anew(data, params, i), judge(i), tolerance, i);
}

/// The first measurements of wine.
Data wine()
{
    Data data;
    for (const Line& line : linesOf("assessment.csv"))
        if (line.word == "pattern")
            data.addData(std::vector<double>(line.numbers.begin() + 2, line.numbers.end()),
                         static_cast<long>(line.numbers[1]));
    return data;
}

tkClassifierTrainParamsBayesian paramsOf(const std::vector<std::vector<long>>& sets)
{
    Types types(Types::eNormal);
    for (const long label : {0L, 1L, 2L})
        for (const std::vector<long>& set : sets)
            types.setDependent(label, set);
    tkClassifierFrequencies frequencies(1.0);
    frequencies.categoryFrequencyOverride(1, 3.0);
    tkClassifierCosts costs(1.0);
    costs.misclassificationCostOverride(2, 0, 5.0);
    return tkClassifierTrainParamsBayesian(types, frequencies, costs);
}
} // namespace

TEST(tk_LeaveOneOut, bayesianScoresAreThoseOfATrainingWithoutThePattern)
{
    compareAll(wine(), paramsOf({{0, 1, 2, 3}}), 1e-10);
    compareAll(wine(), paramsOf({{3, 0}, {1, 2}}), 1e-10);
    compareAll(wine(), paramsOf({}), 1e-10);
}

TEST(tk_LeaveOneOut, mostPatternsOfAWellConditionedCategoryAreNotTrainedAnew)
{
    // By another way the last bits differ.
    EXPECT_LT(89u, numJudgedTheShortWay(wine(), paramsOf({{0, 1, 2, 3}})));
    EXPECT_LT(89u, numJudgedTheShortWay(wine(), paramsOf({{3, 0}, {1, 2}})));
    EXPECT_LT(89u, numJudgedTheShortWay(wine(), paramsOf({})));
}

TEST(tk_LeaveOneOut, measurementThatIsTheSameEverywhereIsNoReasonToTrainAnew)
{
    Data data;
    const Data plain = wine();
    for (std::size_t i = 0; i < plain.patterns().size(); ++i)
    {
        std::vector<double> x = plain.patterns()[i]->featureMeasurements(true);
        x.insert(x.begin() + 1, 7.0);
        data.addData(x, plain.labels()[i]);
    }
    for (const auto& params : {paramsOf({{0, 1, 2, 3, 4}}), paramsOf({})})
    {
        compareAll(data, params, 1e-10);
        EXPECT_LT(89u, numJudgedTheShortWay(data, params));
    }
}

TEST(tk_LeaveOneOut, categoriesInWhichAMeasurementVariesByRoundingAloneAreTrainedAnew)
{
    Data data;
    const Data plain = wine();
    for (std::size_t i = 0; i < plain.patterns().size(); ++i)
    {
        std::vector<double> x = plain.patterns()[i]->featureMeasurements(true);
        x.push_back(i == 0 ? std::nextafter(7.0, 8.0) : 7.0);
        data.addData(x, plain.labels()[i]);
    }
    const auto params = paramsOf({{0, 1, 2, 3, 4}});
    const tk_LabelledPatterns labelled(data);
    const tk_LeftOutJudge judge = tk_leaveOneOut(labelled, params);
    for (std::size_t i = 0; i < labelled.patterns.size(); ++i)
    {
        const bool isShort = anew(data, params, i) != judge(i);
        EXPECT_FALSE(isShort && labelled.labels[i] == labelled.labels[0]) << i;
    }
}

TEST(tk_LeaveOneOut, patternsAtALargeDistanceAreTrainedAnew)
{
    tkRandomGaussian gaussian(13);
    Data data;
    data.addData({12.0, 0.0}, 0); // at a squared distance of about 90
    for (int i = 0; i < 400; ++i)
        data.addData({gaussian.next(i % 2 ? 5.0 : 0.0, 1.0), gaussian.next(0.0, 1.0)}, i % 2);
    const auto params = paramsOf({{0, 1}});
    const tk_LabelledPatterns labelled(data);
    const tk_LeftOutJudge judge = tk_leaveOneOut(labelled, params);
    EXPECT_TRUE(anew(data, params, 0) == judge(0));
    std::size_t numShort = 0;
    for (std::size_t i = 1; i < 40; ++i)
        numShort += anew(data, params, i) != judge(i) ? 1 : 0;
    EXPECT_LT(20u, numShort);
}

TEST(tk_LeaveOneOut, patternsThatATrainingSkipsChangeNothing)
{
    Data data = wine();
    data.addData(handleTo(patternWithGaps({13.0, notANumber, 2.3, 19.0})), 1);
    data.addData({notANumber, 2.0, 2.3, 19.0}, 2);
    compareAll(data, paramsOf({{0, 1}}), 1e-10);
}

TEST(tk_LeaveOneOut, patternsFarFromTheirCategoryAreJudgedAsWell)
{
    Data data = wine();
    data.addData({130.0, 2.0, 2.3, 19.0}, 1); // makes up most of a variance
    data.addData({14.0, 1.0, 2.5, -400.0}, 2);
    compareAll(data, paramsOf({{0, 1, 2, 3}}), 1e-10);
}

TEST(tk_LeaveOneOut, repairedCovariancesAreTrainedAnew)
{
    Data constant = wine();
    for (const double x : {1.0, 2.0, 4.0, 3.0, 7.0, 5.5, 9.0, 8.0})
        constant.addData({x, 7.0, x * x, 2.0 - x}, 0);
    Data few;
    Data single = wine();
    single.addData({13.0, 2.0, 2.3, 19.0}, 5);
    Data constantCategory = wine();
    for (const double x : {1.0, 2.0, 4.0, 3.0, 7.0, 5.5, 9.0, 8.0})
        constantCategory.addData({x, 7.0, x * x, std::sqrt(x)}, 8);
    for (std::size_t i = 0; i < 178; i += 17)
        few.addData(wine().patterns()[i], wine().labels()[i]);
    for (const Data& data : {constant, few, single, constantCategory})
    {
        const auto params = paramsOf({{0, 1, 2, 3}});
        const tk_LabelledPatterns labelled(data);
        const tk_LeftOutJudge judge = tk_leaveOneOut(labelled, params);
        for (std::size_t i = 0; i < labelled.patterns.size(); i += 7)
            expectNear(anew(data, params, i), judge(i), 1e-10, i);
    }
}

TEST(tk_LeaveOneOut, nearlySingularCovariancesAreTrainedAnew)
{
    tkRandomUniform uniform(5);
    for (const double noise : {0.3, 0.1, 0.03, 0.01, 1e-3, 1e-6})
    {
        Data data;
        for (int i = 0; i < 12; ++i)
        {
            const double x = uniform.next(-1.0, 1.0);
            data.addData({x, x + uniform.next(-noise, noise)}, i % 2);
        }
        compareAll(data, paramsOf({{0, 1}}), 1e-10);
    }
}

TEST(tk_LeaveOneOut, scoresAgreeUpToTheLimitOfTheConditionAndOfTheDistance)
{
    // The least eigenvalue of the correlation matrices is about `part` 2^-12. The first patterns lie far out along its
    // direction, between the categories.
    for (const double part : {0.25, 1.1})
    {
        tkRandomGaussian gaussian(100);
        const double deviation = std::sqrt(2.0 * part * 0x1p-12);
        Data data;
        const auto addPattern = [&](double place, long label)
        {
            const double x = gaussian.next(0.0, 1.0);
            data.addData({x, x + place * deviation}, label);
        };
        for (int i = 0; i < 12; ++i)
            addPattern(6.0 + 0.15 * i, 0);
        for (int i = 0; i < 1500; ++i)
        {
            addPattern(gaussian.next(0.0, 1.0), 0);
            addPattern(gaussian.next(14.0, 1.0), 1);
        }
        const auto params = paramsOf({{0, 1}});
        const tk_LabelledPatterns labelled(data);
        const tk_LeftOutJudge judge = tk_leaveOneOut(labelled, params);
        std::size_t numShort = 0;
        for (std::size_t i = 0; i < 12; ++i)
        {
            const tkClassifierResult expected = anew(data, params, i);
            expectNear(expected, judge(i), 1e-10, i);
            numShort += expected != judge(i) ? 1 : 0;
        }
        EXPECT_EQ(part > 1.0, numShort > 0) << part;
    }
}

TEST(tk_LeaveOneOut, binomialMeasurementsAreTrainedAnew)
{
    const tkClassifierTrainParamsBayesian params = paramsWithABinomial();
    const Data data = dataWithABinomial();
    compareAll(data, params, 0.0);
}

TEST(tk_LeaveOneOut, nearestNeighborsGiveTheSameBits)
{
    const Data data = wine();
    for (const long k : {1L, 2L, 7L, 176L, 177L, 178L, std::numeric_limits<long>::max()})
    {
        const tkClassifierTrainParamsKNN params(k);
        const tk_LabelledPatterns labelled(data);
        const tk_LeftOutJudge judge = tk_leaveOneOut(labelled, params);
        ASSERT_TRUE(judge);
        for (std::size_t i = 0; i < 178; ++i)
            EXPECT_TRUE(anew(data, params, i) == judge(i)) << k << " " << i;
    }
}

TEST(tk_LeaveOneOut, nearestNeighborsGiveTheSameBitsAmongTiesAndDuplicates)
{
    tkRandomUniform uniform(7);
    tkClassifierCosts costs(1.0);
    costs.misclassificationCostOverride(0, 2, 3.0);
    for (int repetition = 0; repetition < 20; ++repetition)
    {
        Data data;
        for (int i = 0; i < 40; ++i)
            data.addData({std::floor(uniform.next(0.0, 3.0)), std::floor(uniform.next(0.0, 2.0))},
                         static_cast<long>(uniform.next(0.0, 2.99)));
        for (const double order : {1.0, 2.0, 3.5})
            for (const long k : {1L, 3L, 5L, 12L, 38L, 39L})
            {
                const tkClassifierTrainParamsKNN params(k, tkPatternDistanceMetricNorm(order), costs);
                const tk_LabelledPatterns labelled(data);
                const tk_LeftOutJudge judge = tk_leaveOneOut(labelled, params);
                ASSERT_TRUE(judge);
                for (std::size_t i = 0; i < 40; ++i)
                    EXPECT_TRUE(anew(data, params, i) == judge(i)) << k << " " << i;
            }
    }
}

TEST(tk_LeaveOneOut, thereIsNoShortWayForOtherMethodsAndData)
{
    class OtherParams : public tkClassifierTrainParamsKNN
    {
    };
    class OtherBayesianParams : public tkClassifierTrainParamsBayesian
    {
    };
    Data data;
    data.addData({1.0}, 0);
    EXPECT_FALSE(tk_leaveOneOut(tk_LabelledPatterns(data), tkClassifierTrainParamsKNN()));
    EXPECT_FALSE(tk_leaveOneOut(tk_LabelledPatterns(data), tkClassifierTrainParamsBayesian()));
    data.addData({2.0}, 0);
    EXPECT_TRUE(tk_leaveOneOut(tk_LabelledPatterns(data), tkClassifierTrainParamsKNN()));
    EXPECT_TRUE(tk_leaveOneOut(tk_LabelledPatterns(data), tkClassifierTrainParamsBayesian()));
    EXPECT_FALSE(tk_leaveOneOut(tk_LabelledPatterns(data), OtherParams()));
    EXPECT_FALSE(tk_leaveOneOut(tk_LabelledPatterns(data), OtherBayesianParams()));
    data.addData({notANumber}, 0);
    EXPECT_FALSE(tk_leaveOneOut(tk_LabelledPatterns(data), tkClassifierTrainParamsKNN()));
    Data withGap;
    withGap.addData({1.0}, 0);
    withGap.addData(handleTo(tkFeaturePattern({1.0}, {0})), 0);
    EXPECT_FALSE(tk_leaveOneOut(tk_LabelledPatterns(withGap), tkClassifierTrainParamsKNN()));
}
