#include "clss/model/tkAssessment.h"

#include "modelTestData.h"
#include "tests/golden/model.h"
#include "tkAllocations.h"

#include "clss/clastool/bayes/tkClassifierTrainParamsBayesian.h"
#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierTool.h"
#include "clss/clastool/clastool/tkClassifierTrainParamsKNN.h"
#include "clss/model/tkPatternScaler.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkAssert.h"
#include "foundation/tkRandom.h"
#include "numerics/tkNMElementary.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <numeric>
#include <stdexcept>

namespace
{
const double infinity = std::numeric_limits<double>::infinity();
const double notANumber = std::numeric_limits<double>::quiet_NaN();

using Judgement = tkJudgement;

/// The table of scikit-learn's figures: patterns with their folds, and the figures by name.
struct Reference
{
    tkClassifierDataProviderMemory data;
    std::vector<long> folds;
    std::map<std::string, std::vector<std::vector<double>>> lines;

    const std::vector<double>& only(const std::string& word) const { return lines.at(word).at(0); }
};

const Reference& reference()
{
    static const Reference table = []
    {
        Reference read;
        for (const Line& line : linesOf("assessment.csv"))
        {
            read.lines[line.word].push_back(line.numbers);
            if (line.word != "pattern")
                continue;
            read.folds.push_back(static_cast<long>(line.numbers[0]));
            read.data.addData(std::vector<double>(line.numbers.begin() + 2, line.numbers.end()),
                              static_cast<long>(line.numbers[1]));
        }
        return read;
    }();
    return table;
}

/// All measurements of each of the categories 0, 1 and 2 together.
tkClassifierTrainParamsBayesian jointParams()
{
    tkClassifierDistributionTypes types(tkClassifierDistributionTypes::eNormal);
    for (const long label : {0L, 1L, 2L})
        types.setDependent(label, {0, 1, 2, 3});
    return tkClassifierTrainParamsBayesian(types);
}

const tkAssessment& wine()
{
    static const tkAssessment assessment =
        tkAssessment::crossValidate(reference().data, jointParams(), reference().folds);
    return assessment;
}

/// The rule of the table.
tkDecisionRule costlyRule()
{
    tkClassifierFrequencies frequencies(1.0);
    frequencies.categoryFrequencyOverride(1, 2.0);
    frequencies.categoryFrequencyOverride(2, 0.5);
    tkClassifierCosts costs(1.0);
    costs.misclassificationCostOverride(0, 2, 5.0);
    costs.misclassificationCostOverride(1, 0, 2.0);
    costs.misclassificationCostOverride(2, 1, 3.0);
    return {frequencies, costs};
}

/// Patterns with these labels, whose measurement is their number.
tkClassifierDataProviderMemory numbered(const std::vector<long>& labels)
{
    tkClassifierDataProviderMemory data;
    for (std::size_t i = 0; i < labels.size(); ++i)
        data.addData({static_cast<double>(i)}, labels[i]);
    return data;
}

/// An assessment of patterns with these labels and judgements.
tkAssessment judged(const std::vector<long>& labels, const std::vector<Judgement>& judgements)
{
    return tkAssessment::heldOut(numbered(labels), [&](const tkFeaturePattern& pattern)
                                 { return judgements[static_cast<std::size_t>(pattern.featureMeasurement(0, true))]; });
}

tkClassifierResult resultOf(const std::vector<tkClassifierCategoryResult>& matchScores)
{
    return tkClassifierResult(matchScores, tkClassifierFrequencies(), tkClassifierCosts(), 0.0);
}
} // namespace

TEST(tkAssessment, newOneHasNoPatterns)
{
    const tkAssessment assessment;
    const tkDecisionRule rule;
    EXPECT_EQ(0, assessment.numPatterns());
    EXPECT_TRUE(assessment.decisions(rule).empty());
    EXPECT_EQ(0, assessment.confusion(rule).numPatterns());
    EXPECT_EQ(0.0, assessment.logLoss(rule));
    EXPECT_EQ(0.0, assessment.calibrationError(rule));
    EXPECT_TRUE(assessment.costAgainstRefusals(rule).empty());
}

TEST(tkAssessment, posteriorsOfAllFoldsAreThoseOfScikitLearn)
{
    const auto& posteriors = reference().lines.at("posterior");
    ASSERT_EQ(178, wine().numPatterns());
    for (long i = 0; i < 178; ++i)
    {
        const tkClassifierResult result = wine().result(i, jointParams());
        ASSERT_EQ(3u, result.categoryResults().size());
        for (const tkClassifierCategoryResult& category : result.categoryResults())
            EXPECT_NEAR(posteriors[static_cast<std::size_t>(i)][static_cast<std::size_t>(category.categoryLabel())],
                        category.classScore(), 1e-9)
                << i;
    }
    EXPECT_EQ(reference().data.labels(), wine().labels());
    EXPECT_EQ(std::vector<double>(178, 1.0), wine().pValues());
}

TEST(tkAssessment, confusionRecallPrecisionAndAccuracyAreThoseOfScikitLearn)
{
    const tkConfusionMatrix confusion = wine().confusion(jointParams());
    EXPECT_EQ((std::vector<long>{0, 1, 2}), confusion.categories());
    for (long truth = 0; truth < 3; ++truth)
    {
        for (long decision = 0; decision < 3; ++decision)
            EXPECT_EQ(static_cast<long>(reference().only("confusion")[static_cast<std::size_t>(3 * truth + decision)]),
                      confusion.count(truth, decision));
        EXPECT_EQ(0, confusion.count(truth, tkDecisionRule::noneOfThese));
        EXPECT_EQ(0, confusion.count(truth, tkDecisionRule::cannotTell));
        EXPECT_EQ(reference().only("recall")[static_cast<std::size_t>(truth)], confusion.recall(truth).value);
        EXPECT_EQ(reference().only("precision")[static_cast<std::size_t>(truth)], confusion.precision(truth).value);
    }
    EXPECT_EQ(reference().only("accuracy")[0], confusion.accuracy().value);
}

TEST(tkAssessment, logLossAndReliabilityAreThoseOfScikitLearn)
{
    EXPECT_NEAR(reference().only("logloss")[0], wine().logLoss(jointParams()), 1e-9);
    EXPECT_NEAR(reference().only("ece")[0], wine().calibrationError(jointParams()), 1e-9);
    const auto bins = wine().reliability(jointParams());
    ASSERT_EQ(10u, bins.size());
    std::size_t filled = 0;
    for (std::size_t b = 0; b < 10; ++b)
    {
        if (bins[b].count == 0)
            continue;
        const std::vector<double>& expected = reference().lines.at("bin").at(filled++);
        EXPECT_NEAR(expected[0], static_cast<double>(b + 1) / 10.0, 1e-15);
        EXPECT_EQ(static_cast<long>(expected[1]), bins[b].count);
        EXPECT_NEAR(expected[2], bins[b].meanScore, 1e-9);
        EXPECT_NEAR(expected[3], bins[b].shareRight, 1e-15);
    }
    EXPECT_EQ(reference().lines.at("bin").size(), filled);
}

TEST(tkAssessment, otherCostsFrequenciesAndRefusalsAreDecidedWithoutTrainingAnew)
{
    tkDecisionRule rule = costlyRule();
    rule.refusalCost(0.05);
    const std::vector<double>& expected = reference().only("decisions");
    const std::vector<long> decisions = wine().decisions(rule);
    ASSERT_EQ(expected.size(), decisions.size());
    for (std::size_t i = 0; i < decisions.size(); ++i)
        EXPECT_EQ(static_cast<long>(expected[i]), decisions[i]) << i;
    EXPECT_NEAR(reference().only("expected")[0], wine().confusion(rule).expectedCost(rule), 1e-12);
}

TEST(tkAssessment, costAgainstRefusalsIsThatOfThePlainFormulas)
{
    const auto points = wine().costAgainstRefusals(costlyRule());
    EXPECT_EQ(178u, points.size());
    for (const std::vector<double>& expected : reference().lines.at("curve"))
    {
        const auto point = std::find_if(points.begin(), points.end(),
                                        [&](const tkAssessment::RefusalPoint& each)
                                        { return std::abs(each.refusalCost - expected[0]) < 1e-9 * expected[0]; });
        ASSERT_TRUE(point != points.end()) << expected[0];
        EXPECT_NEAR(expected[1], point->refused, 1e-12);
        EXPECT_NEAR(expected[2], point->cost, 1e-12);
    }
    // What a point says is what a rule with its cost of a refusal gives.
    tkDecisionRule rule = costlyRule();
    for (const std::size_t i : {9u, 100u, 177u})
    {
        rule.refusalCost(points[i].refusalCost);
        EXPECT_NEAR(points[i].refused * points[i].refusalCost + (1.0 - points[i].refused) * points[i].cost,
                    wine().confusion(rule).expectedCost(rule), 1e-12);
    }
}

TEST(tkAssessment, figuresOfManyPatternsAreThoseOfTheirResults)
{
    tkRandomUniform uniform(41);
    tkClassifierFrequencies frequencies(0.5);
    tkClassifierCosts costs(2.0);
    for (long k = 0; k < 60; ++k)
    {
        const long first = static_cast<long>(uniform.next(0.0, 30.0));
        const long second = static_cast<long>(uniform.next(0.0, 30.0));
        frequencies.categoryFrequencyOverride(first, uniform.next(0.1, 3.0));
        if (first != second)
            costs.misclassificationCostOverride(first, second, k % 20 == 0 ? notANumber : uniform.next(0.0, 4.0));
    }
    std::vector<long> truths;
    std::vector<Judgement> judgements;
    while (truths.size() < 3000)
    {
        // 1 to 20 patterns with the same 0 to 20 categories, whose scores are often equal, seldom NaN
        const double count = uniform.next(1.0, 21.0);
        const double share = uniform.next(0.0, 1.0);
        std::vector<long> labels;
        for (long label = 0; label < 30 && labels.size() < 20; ++label)
            if (uniform.next(0.0, 1.0) < share)
                labels.push_back(label);
        for (double i = 1.0; i <= count; i += 1.0)
        {
            std::vector<tkClassifierCategoryResult> scores;
            for (const long label : labels)
                scores.emplace_back(label, uniform.next(0.0, 1.0) < 0.002 ? notANumber
                                                                          : std::ceil(uniform.next(0.0, 4.0)) / 4.0);
            truths.push_back(static_cast<long>(uniform.next(0.0, 30.0)));
            judgements.emplace_back(labels.empty() ? tkClassifierResult() : resultOf(scores));
        }
    }
    const tkAssessment assessment = judged(truths, judgements);
    const tkClassifierCosts equal(1.0);
    for (const tkClassifierCosts& someCosts : {equal, costs})
    {
        tkDecisionRule rule(frequencies, someCosts);
        rule.refusalCost(0.75);
        const std::vector<long> decisions = assessment.decisions(rule);
        double loss = 0.0;
        std::vector<double> scoreSums(10);
        for (std::size_t i = 0; i < truths.size(); ++i)
        {
            const tkClassifierResult result = assessment.result(static_cast<long>(i), rule);
            const auto& categories = result.categoryResults();
            ASSERT_EQ(categories.empty() || categories[0].expectedCost() > 0.75 ? tkDecisionRule::cannotTell
                                                                                : categories[0].categoryLabel(),
                      decisions[i])
                << i;
            double score = 0x1p-52;
            double largest = 0.0;
            for (const tkClassifierCategoryResult& category : categories)
            {
                if (category.categoryLabel() == truths[i] && category.classScore() > score)
                    score = category.classScore();
                if (category.classScore() > largest)
                    largest = category.classScore();
            }
            loss -= tkNMElementary::log(score);
            scoreSums[static_cast<std::size_t>(std::max(std::ceil(largest * 10.0), 1.0)) - 1] += largest;
        }
        EXPECT_EQ(loss / static_cast<double>(truths.size()), assessment.logLoss(rule));
        const auto bins = assessment.reliability(rule, 10);
        for (std::size_t b = 0; b < 10; ++b)
            EXPECT_NEAR(scoreSums[b], bins[b].meanScore * static_cast<double>(bins[b].count), 1e-9) << b;
    }
}

TEST(tkAssessment, errorOfTheFirstPatternThatHasOneIsThrown)
{
    std::vector<Judgement> judgements(9, resultOf({{0, 1.0}, {1, 0.5}}));
    tkAssessment assessment = judged(std::vector<long>(9, 0), judgements);
    std::string bytes = storeToBytes(assessment);
    const auto replace = [&](std::size_t pattern, double score)
    {
        const std::size_t place = bytes.size() - 8 * 2 * (judgements.size() - pattern);
        std::memcpy(&bytes[place], &score, sizeof score);
    };
    tkClassifierFrequencies frequencies(1.0);
    frequencies.categoryFrequencyOverride(1, std::numeric_limits<double>::denorm_min());
    replace(7, 1.5);
    loadFromBytes(bytes, assessment);
    EXPECT_TK_THROW(assessment.decisions(frequencies), tkClassifierDefs::BadParams,
                    L"Scores must be >= 0.0 and <= 1.0");
    replace(5, 0.0);
    loadFromBytes(bytes, assessment);
    EXPECT_TK_THROW(assessment.decisions(frequencies), tkClassifierDefs::BadParams,
                    L"At least one of the resulting classification scores must be > 0.");
    replace(2, -0.5);
    loadFromBytes(bytes, assessment);
    EXPECT_TK_THROW(assessment.logLoss(frequencies), tkClassifierDefs::BadParams, L"Scores must be >= 0.0 and <= 1.0");
}

TEST(tkAssessment, decisionsAreThoseOfTheTrainedTools)
{
    const Reference& table = reference();
    const tkClassifierTrainParamsKNN neighbours(5, costlyRule().costs());
    tkClassifierTrainParamsBayesian bayesian = jointParams();
    bayesian.misclassificationCosts(costlyRule().costs());
    bayesian.categoryFrequencies(costlyRule().frequencies());
    for (const tkClassifierTrainParams* params :
         std::initializer_list<const tkClassifierTrainParams*>{&neighbours, &bayesian})
    {
        const std::vector<long> decisions =
            tkAssessment::crossValidate(table.data, *params, table.folds).decisions(*params);
        for (long fold = 0; fold < 5; ++fold)
        {
            tkClassifierDataProviderMemory training;
            for (std::size_t i = 0; i < table.folds.size(); ++i)
                if (table.folds[i] != fold)
                    training.addData(table.data.patterns()[i], table.data.labels()[i]);
            tkClassifierTool tool;
            tool.train(training, *params);
            for (std::size_t i = 0; i < table.folds.size(); ++i)
                if (table.folds[i] == fold)
                {
                    EXPECT_EQ(tool.run(*table.data.patterns()[i]).categoryResults().front().categoryLabel(),
                              decisions[i])
                        << i;
                }
        }
    }
}

TEST(tkAssessment, trainerSeesNothingOfTheFoldThatIsJudged)
{
    const auto data = numbered({0, 0, 1, -1, 1, 0});
    std::vector<std::vector<double>> trainings;
    const tkTrainer trainer = [&](const tkClassifierDataProvider& training) -> tkJudge
    {
        auto& provider = const_cast<tkClassifierDataProvider&>(training);
        trainings.emplace_back();
        for (long i = 0; i < provider.numPatterns(); ++i)
            trainings.back().push_back(provider.featurePattern(i)->featureMeasurement(0, true));
        return [](const tkFeaturePattern&) { return resultOf({{1, 1.0}}); };
    };
    const tkAssessment assessment = tkAssessment::crossValidate(data, trainer, {7, 2, 7, 2, -1, 2});
    EXPECT_EQ((std::vector<std::vector<double>>{{0.0, 2.0, 4.0}, {1.0, 4.0, 5.0}}), trainings);
    EXPECT_EQ((std::vector<long>{0, 1, 2, 5}), assessment.indices());
    EXPECT_EQ((std::vector<long>{0, 0, 1, 0}), assessment.labels());
}

TEST(tkAssessment, scalingBelongsIntoTheTraining)
{
    const Reference& table = reference();
    const tkClassifierTrainParamsKNN params(5);
    const tkAssessment scaled = tkAssessment::crossValidate(
        table.data,
        [&](const tkClassifierDataProvider& training)
        {
            const tkPatternScaler scaler(training);
            tkClassifierTool tool;
            tool.train(scaler.apply(training), params);
            return [scaler, tool](const tkFeaturePattern& pattern) { return tool.run(scaler.apply(pattern)); };
        },
        table.folds);
    const tkAssessment raw = tkAssessment::crossValidate(table.data, params, table.folds);
    EXPECT_EQ(178, scaled.numPatterns());
    EXPECT_GT(scaled.confusion(params).accuracy().value, raw.confusion(params).accuracy().value);
}

TEST(tkAssessment, foldsAreChecked)
{
    const auto data = numbered({0, 1, 0});
    const tkClassifierTrainParamsKNN params;
    EXPECT_TK_THROW(tkAssessment::crossValidate(data, params, {0, -2}), tkClassifierDefs::BadParams,
                    L"There are 2 folds for 3 patterns.");
    EXPECT_TK_THROW(tkAssessment::crossValidate(data, params, {0, -2, -3}), tkClassifierDefs::BadParams,
                    L"The fold of pattern 1 is -2; folds are >= 0, or -1 for none.");
    UncheckedProvider unchecked;
    unchecked.patterns = {tkPtrHandle_const<tkFeaturePattern>()};
    unchecked.labels = {0};
    EXPECT_TK_THROW(tkAssessment::crossValidate(unchecked, params, {-2}), tkClassifierDefs::BadParams,
                    L"The fold of pattern 0 is -2; folds are >= 0, or -1 for none.");
    EXPECT_THROW(tkAssessment::crossValidate(unchecked, params, {0}), tkBadPointer);
    EXPECT_TK_THROW(tkAssessment::crossValidate(numbered({-1}), params, {0}), tkClassifierDefs::InsufficientTrainData,
                    L"No valid data was provided for training.");
    EXPECT_EQ(0, tkAssessment::crossValidate(data, params, {-1, -1, -1}).numPatterns());
}

TEST(tkAssessment, stratifiedFoldsDealEachCategoryEvenly)
{
    std::vector<long> labels;
    for (int i = 0; i < 103; ++i)
        labels.push_back(i % 10 == 9 ? -1 : i % 10 < 6 ? 4 : i % 10 < 8 ? 2 : 9);
    const auto data = numbered(labels);
    const std::vector<long> folds = tkAssessment::stratifiedFolds(data, 7, 3);
    ASSERT_EQ(labels.size(), folds.size());
    std::map<long, std::map<long, long>> counts; // by category, then fold
    std::map<long, long> sizes;
    for (std::size_t i = 0; i < labels.size(); ++i)
    {
        EXPECT_EQ(labels[i] == -1, folds[i] == -1);
        if (labels[i] == -1)
            continue;
        ++counts[labels[i]][folds[i]];
        ++sizes[folds[i]];
    }
    counts[-1] = sizes;
    for (const auto& [label, ofFolds] : counts)
    {
        long least = 1000;
        long most = 0;
        for (long fold = 0; fold < 7; ++fold)
        {
            const auto found = ofFolds.find(fold);
            least = std::min(least, found == ofFolds.end() ? 0 : found->second);
            most = std::max(most, found == ofFolds.end() ? 0 : found->second);
        }
        EXPECT_LE(most - least, 1) << label;
    }
    EXPECT_EQ(7u, sizes.size());
}

TEST(tkAssessment, seedChoosesTheFolds)
{
    const auto data = numbered(std::vector<long>(40, 1));
    const std::vector<long> folds = tkAssessment::stratifiedFolds(data, 5);
    EXPECT_EQ(folds, tkAssessment::stratifiedFolds(data, 5, 1));
    EXPECT_NE(folds, tkAssessment::stratifiedFolds(data, 5, 2));
    EXPECT_FALSE(std::is_sorted(folds.begin(), folds.begin() + 8));
}

TEST(tkAssessment, numberOfFoldsIsCheckedAfterTheData)
{
    EXPECT_TK_THROW(tkAssessment::stratifiedFolds(numbered({-1}), 1), tkClassifierDefs::InsufficientTrainData,
                    L"No valid data was provided for training.");
    for (const long numFolds : {1L, 0L, -5L})
        EXPECT_TK_THROW(tkAssessment::stratifiedFolds(numbered({0}), numFolds), tkClassifierDefs::BadParams,
                        L"Cross-validation needs at least 2 folds.");
    EXPECT_TK_THROW(tkAssessment::stratifiedFolds(numbered({0, 1, -1}), 3), tkClassifierDefs::BadParams,
                    L"There are more folds than patterns: 3 for 2.");
    EXPECT_EQ(2u, tkAssessment::stratifiedFolds(numbered({0, 1}), 2).size());
}

TEST(tkAssessment, leaveOneOutIsOneFoldForEachPattern)
{
    tkClassifierDataProviderMemory data;
    for (std::size_t i = 0; i < 178; i += 6)
        data.addData(reference().data.patterns()[i], i == 12 ? -1 : reference().data.labels()[i]);
    std::vector<long> folds(static_cast<std::size_t>(data.numPatterns()));
    std::iota(folds.begin(), folds.end(), 0L);
    const tkClassifierTrainParamsKNN params(3);
    const tkAssessment assessment = tkAssessment::leaveOneOut(data, params);
    EXPECT_EQ(data.numPatterns() - 1, assessment.numPatterns());
    EXPECT_TRUE(assessment == tkAssessment::crossValidate(data, params, folds));
    const tkTrainer trainer = [&](const tkClassifierDataProvider& training)
    {
        tkClassifierTool tool;
        tool.train(training, params);
        return [tool](const tkFeaturePattern& pattern) { return tool.run(pattern); };
    };
    EXPECT_TRUE(assessment == tkAssessment::leaveOneOut(data, trainer));
}

TEST(tkAssessment, leaveOneOutTellsProgressAndCanBeCancelled)
{
    const auto data = numbered({0, -1, 1, 0, 1});
    const tkClassifierTrainParamsKNN params(1);
    std::vector<std::pair<long, long>> told;
    tkAssessment::leaveOneOut(data, params, [&](long done, long total) { told.emplace_back(done, total); });
    EXPECT_EQ((std::vector<std::pair<long, long>>{{1, 4}, {2, 4}, {3, 4}, {4, 4}}), told);
    EXPECT_THROW(tkAssessment::leaveOneOut(data, params, [](long, long) { throw std::runtime_error("cancelled"); }),
                 std::runtime_error);
}

TEST(tkAssessment, leaveOneOutOfASinglePatternHasNothingToLearn)
{
    for (const tkClassifierTrainParams* params : std::initializer_list<const tkClassifierTrainParams*>{
             new tkClassifierTrainParamsKNN(1), new tkClassifierTrainParamsBayesian})
    {
        const tkPtrHandle_const<tkClassifierTrainParams> kept(params);
        EXPECT_TK_THROW(tkAssessment::leaveOneOut(numbered({0}), *params), tkClassifierDefs::InsufficientTrainData,
                        L"No valid data was provided for training.");
    }
}

TEST(tkAssessment, heldOutPatternsAreJudgedByATool)
{
    tkClassifierTool tool;
    tool.train(reference().data, jointParams());
    const tkAssessment assessment = tkAssessment::heldOut(reference().data, tool);
    for (long i = 0; i < assessment.numPatterns(); ++i)
    {
        const tkClassifierResult expected = tool.run(*reference().data.patterns()[static_cast<std::size_t>(i)]);
        EXPECT_TRUE(assessment.result(i, jointParams()) == expected) << i;
    }
}

TEST(tkAssessment, progressIsToldAfterEachPattern)
{
    std::vector<std::pair<long, long>> told;
    const auto data = numbered({0, -1, 1, 0, 1});
    tkAssessment::crossValidate(
        data,
        [](const tkClassifierDataProvider&) { return [](const tkFeaturePattern&) {
                                                  return resultOf({{0, 1.0}});
                                              }; },
        {5, 5, -1, 3, 3}, [&](long done, long total) { told.emplace_back(done, total); });
    EXPECT_EQ((std::vector<std::pair<long, long>>{{1, 3}, {2, 3}, {3, 3}}), told);
}

TEST(tkAssessment, exceptionsOfProgressTrainingAndJudgementPassOnUnchanged)
{
    const auto data = numbered({0, 0, 1, 1});
    const auto judge = [](const tkFeaturePattern& pattern)
    {
        if (pattern.featureMeasurement(0, true) == 3.0)
            throw tkClassifierDefs::BadFeatures(L"three");
        return resultOf({{0, 1.0}});
    };
    EXPECT_TK_THROW(tkAssessment::heldOut(data, judge), tkClassifierDefs::BadFeatures, L"three");
    EXPECT_THROW(tkAssessment::heldOut(data, judge, [](long, long) { throw std::runtime_error("cancelled"); }),
                 std::runtime_error);
    EXPECT_TK_THROW(tkAssessment::heldOut(data, tkClassifierTool()), tkClassifierDefs::NotTrained,
                    L"Classifier tool must be trained before running.");
    EXPECT_TK_THROW(tkAssessment::crossValidate(data, tkClassifierTrainParamsKNN(), {0, 0, 0, 0}),
                    tkClassifierDefs::InsufficientTrainData, L"No valid data was provided for training.");
}

TEST(tkAssessment, alphaComesBeforeTheRefusalsCost)
{
    const tkAssessment assessment = judged({0, 0, 0, 1}, {Judgement(resultOf({{0, 1.0}, {1, 0.25}}), 0.5),
                                                          Judgement(resultOf({{0, 1.0}, {1, 0.75}}), 0.125),
                                                          Judgement(resultOf({{0, 1.0}, {1, 1.0}}), 0.5),
                                                          Judgement(resultOf({{0, 0.25}, {1, 1.0}}), notANumber)});
    EXPECT_EQ((std::vector<long>{0, 0, 0, 1}), assessment.decisions(tkDecisionRule()));
    tkDecisionRule rule;
    rule.refusalCost(0.2);
    EXPECT_EQ((std::vector<long>{0, -2, -2, 1}), assessment.decisions(rule));
    rule.alpha(0.125);
    EXPECT_EQ((std::vector<long>{0, -2, -2, 1}), assessment.decisions(rule));
    rule.alpha(0.25);
    EXPECT_EQ((std::vector<long>{0, -1, -2, 1}), assessment.decisions(rule));
    rule.refusalCost(0.19);
    EXPECT_EQ((std::vector<long>{-2, -1, -2, -2}), assessment.decisions(rule));
}

TEST(tkAssessment, patternsWithoutCategoriesCannotBeTold)
{
    const tkAssessment assessment = judged({0, 0}, {tkClassifierResult(), resultOf({{0, 1.0}})});
    EXPECT_EQ((std::vector<long>{tkDecisionRule::cannotTell, 0}), assessment.decisions(tkDecisionRule()));
    EXPECT_TRUE(assessment.result(0, tkDecisionRule()).categoryResults().empty());
    EXPECT_DOUBLE_EQ(52.0 * std::log(2.0) / 2.0, assessment.logLoss(tkDecisionRule()));
    EXPECT_EQ(1, assessment.reliability(tkDecisionRule())[0].count);
    const auto points = assessment.costAgainstRefusals(tkDecisionRule());
    ASSERT_EQ(1u, points.size());
    EXPECT_EQ(0.5, points[0].refused);
}

TEST(tkAssessment, resultOfAPatternThatIsNotThereIsABug)
{
    EXPECT_THROW(wine().result(-1, tkDecisionRule()), tkAssertionFailure);
    EXPECT_THROW(wine().result(178, tkDecisionRule()), tkAssertionFailure);
}

TEST(tkAssessment, scoresBelowTheLeastOneCountAsIt)
{
    const tkAssessment assessment =
        judged({1, 1, 7}, {resultOf({{0, 1.0}, {1, 1e-300}}), resultOf({{0, 1.0}, {1, 1.0}}), resultOf({{0, 1.0}})});
    EXPECT_NEAR((2.0 * 36.04365338911715 + std::log(2.0)) / 3.0, assessment.logLoss(tkDecisionRule()), 1e-14);
}

TEST(tkAssessment, binsHoldTheirUpperEdge)
{
    const tkAssessment assessment =
        judged({0, 0, 1, 1}, {resultOf({{0, 0.5}, {1, 0.5}}), resultOf({{0, 0.6}, {1, 0.4}}),
                              resultOf({{0, 0.75}, {1, 0.25}}), resultOf({{0, 1.0}})});
    const auto bins = assessment.reliability(tkDecisionRule(), 4);
    ASSERT_EQ(4u, bins.size());
    EXPECT_EQ(0, bins[0].count);
    EXPECT_EQ(0.0, bins[0].meanScore);
    EXPECT_EQ(1, bins[1].count);
    EXPECT_EQ(2, bins[2].count);
    EXPECT_DOUBLE_EQ(0.675, bins[2].meanScore);
    EXPECT_EQ(0.5, bins[2].shareRight);
    EXPECT_EQ(1, bins[3].count);
    EXPECT_EQ(0.0, bins[3].shareRight);
    EXPECT_DOUBLE_EQ((0.5 + 2.0 * 0.175 + 1.0) / 4.0, assessment.calibrationError(tkDecisionRule(), 4));
    EXPECT_EQ(4, assessment.reliability(tkDecisionRule(), 1)[0].count);
    EXPECT_TK_THROW(assessment.reliability(tkDecisionRule(), 0), tkClassifierDefs::BadParams,
                    L"A reliability diagram needs at least 1 bin.");
    EXPECT_TK_THROW(assessment.calibrationError(tkDecisionRule(), -1), tkClassifierDefs::BadParams,
                    L"A reliability diagram needs at least 1 bin.");
}

TEST(tkAssessment, ofEquallyProbableCategoriesTheLowestLabelCounts)
{
    const tkAssessment assessment = judged({0, 1}, {resultOf({{1, 1.0}, {0, 1.0}}), resultOf({{1, 1.0}, {0, 1.0}})});
    EXPECT_EQ(0.5, assessment.reliability(tkDecisionRule(), 2)[0].shareRight);
    const tkAssessment right = judged({0}, {resultOf({{1, 1.0}, {0, 1.0}})});
    EXPECT_EQ(1.0, right.reliability(tkDecisionRule(), 2)[0].shareRight);
}

TEST(tkAssessment, scoresThatAreNaNCountAsZeroInTheReliability)
{
    const tkAssessment assessment =
        judged({1, 1}, {resultOf({{0, notANumber}, {1, notANumber}}), resultOf({{0, 0.25}, {1, 0.75}})});
    const auto bins = assessment.reliability(tkDecisionRule(), 10);
    EXPECT_EQ(1, bins[0].count);
    EXPECT_EQ(0.0, bins[0].meanScore);
    EXPECT_EQ(0.0, bins[0].shareRight);
    EXPECT_EQ(1, bins[7].count);
    EXPECT_EQ(0.75, bins[7].meanScore);
    EXPECT_EQ(0.125, assessment.calibrationError(tkDecisionRule(), 10));
}

TEST(tkAssessment, patternsWhoseExpectedCostIsNaNAreRefusedAtNoPoint)
{
    const tkAssessment assessment =
        judged({0, 1}, {resultOf({{0, 0.75}, {1, 0.25}}), resultOf({{0, 0.25}, {1, 0.75}})});
    tkDecisionRule rule{tkClassifierFrequencies(), tkClassifierCosts(notANumber)};
    const auto points = assessment.costAgainstRefusals(rule);
    ASSERT_EQ(1u, points.size());
    EXPECT_EQ(0.0, points[0].refusalCost);
    EXPECT_EQ(0.0, points[0].refused);
    rule.refusalCost(points[0].refusalCost);
    for (const long decision : assessment.decisions(rule))
        EXPECT_NE(tkDecisionRule::cannotTell, decision);
}

TEST(tkAssessment, frequenciesThatAreNotFiniteGiveNeitherAShareNorACost)
{
    const tkAssessment assessment =
        judged({0, 1}, {resultOf({{0, 0.75}, {1, 0.25}}), resultOf({{0, 0.25}, {1, 0.75}})});
    for (const double frequency : {infinity, notANumber})
    {
        const auto points = assessment.costAgainstRefusals({tkClassifierFrequencies(frequency), tkClassifierCosts()});
        ASSERT_EQ(1u, points.size());
        EXPECT_TRUE(std::isnan(points[0].refused));
        EXPECT_TRUE(std::isnan(points[0].cost));
    }
}

TEST(tkAssessment, patternsThatAreNoneOfTheseAreRefusedAtEveryPoint)
{
    const tkAssessment assessment =
        judged({0, 0, 0, 1}, {Judgement(resultOf({{0, 1.0}}), 0.001), resultOf({{0, 1.0}}),
                              resultOf({{0, 0.25}, {1, 0.75}}), resultOf({{0, 0.25}, {1, 0.75}})});
    tkDecisionRule rule;
    rule.alpha(0.01);
    const auto points = assessment.costAgainstRefusals(rule);
    ASSERT_EQ(2u, points.size());
    EXPECT_EQ(0.0, points[0].refusalCost);
    EXPECT_DOUBLE_EQ(5.0 / 6.0, points[0].refused);
    EXPECT_EQ(0.0, points[0].cost);
    EXPECT_EQ(0.25, points[1].refusalCost);
    EXPECT_DOUBLE_EQ(1.0 / 6.0, points[1].refused);
    EXPECT_DOUBLE_EQ(0.2, points[1].cost); // 1/6 of weight costs 1, of 5/6 decided
}

TEST(tkAssessment, decisionsThrowWhatAResultThrows)
{
    const tkAssessment assessment = judged({0}, {tkClassifierResult({{0, 0.0, 1.0}}, 0.0)});
    const wchar_t* const allZero = L"At least one of the resulting classification scores must be > 0.";
    EXPECT_TK_THROW(assessment.decisions(tkDecisionRule()), tkClassifierDefs::BadParams, allZero);
    EXPECT_TK_THROW(assessment.logLoss(tkDecisionRule()), tkClassifierDefs::BadParams, allZero);
}

TEST(tkAssessment, equalityIsThatOfAllValues)
{
    const tkClassifierResult result = resultOf({{0, 1.0}, {2, 0.5}});
    const tkAssessment assessment = judged({0, 2}, {Judgement(result, 0.5), result});
    EXPECT_TRUE(assessment == judged({0, 2}, {Judgement(result, 0.5), result}));
    for (const tkAssessment& other :
         {tkAssessment(), judged({0, 0}, {Judgement(result, 0.5), result}),
          judged({0, 2}, {Judgement(result, 0.25), result}), judged({0, 2, -1}, {result, result, result}),
          judged({0, 2}, {Judgement(resultOf({{0, 1.0}, {2, 0.25}}), 0.5), result}),
          judged({0, 2}, {Judgement(resultOf({{0, 1.0}, {1, 0.5}}), 0.5), result}),
          judged({0, 2}, {Judgement(resultOf({{0, 1.0}}), 0.5), result}),
          judged({-1, 0, 2}, {result, Judgement(result, 0.5), result}),
          judged({0, 2}, {Judgement(tkClassifierResult({{0, 1.0}, {2, 0.5}}, tkClassifierFrequencies(),
                                                       tkClassifierCosts(), 3.0),
                                    0.5),
                          result})})
    {
        EXPECT_FALSE(assessment == other);
        EXPECT_TRUE(assessment != other);
    }
}

TEST(tkAssessment, assigningWithoutMemoryChangesNothing)
{
    const tkAssessment& other = wine();
    expectUnchangedWithoutMemory(golden::assessment(), [&](tkAssessment& assessment) { assessment = other; });
    tkAssessment copy = wine();
    copy = golden::assessment();
    EXPECT_TRUE(copy == golden::assessment());
}

TEST(tkAssessment, goldenArchiveComesBackEqualAndStoresToTheSameBytes)
{
    const std::string bytes = goldenBytes("tkAssessment.v0.bin");
    tkAssessment loaded;
    loadFromBytes(bytes, loaded);
    EXPECT_TRUE(loaded == golden::assessment());
    EXPECT_EQ(bytes, storeToBytes(loaded));
    EXPECT_EQ(bytes, storeToBytes(golden::assessment()));
}

TEST(tkAssessment, failedLoadingChangesNothing)
{
    tkAssessment loaded = golden::assessment();
    EXPECT_THROW(loadFromBytes("\1", loaded), tkArchive::UnknownVersion);
    const std::string bytes = storeToBytes(judged({0}, {resultOf({{0, 1.0}})}));
    for (std::size_t length = 0; length < bytes.size(); ++length)
        EXPECT_THROW(loadFromBytes(bytes.substr(0, length), loaded), tkArchive::Errors) << length;
    EXPECT_TRUE(loaded == golden::assessment());
}

namespace
{
std::string recordOf(std::vector<long> labels, std::vector<long> ends, std::vector<long> categories,
                     std::vector<double> scores)
{
    std::ostringstream stream;
    tkArchive archive(stream);
    archive.exchangeVersion();
    std::vector<long> indices(ends.size());
    std::vector<double> zeros(ends.size());
    archive || indices || labels || zeros || zeros || ends || categories || scores;
    return stream.str();
}

void expectRefused(const std::string& bytes, const std::wstring& text)
{
    tkAssessment loaded = golden::assessment();
    EXPECT_TK_THROW(loadFromBytes(bytes, loaded), tkArchive::Errors,
                    text + L" (reading, at byte " + std::to_wstring(bytes.size()) + L")");
    EXPECT_TRUE(loaded == golden::assessment());
}
} // namespace

TEST(tkAssessment, recordWhoseVectorsDoNotFitTogetherIsRefused)
{
    expectRefused(recordOf({0}, {1}, {4}, {}),
                  L"The categories of an assessment are not as many as their match scores");
    expectRefused(recordOf({0, 0}, {1, 0}, {4}, {1.0}),
                  L"The categories of a pattern in an assessment end before they begin");
    expectRefused(recordOf({0}, {-1}, {}, {}), L"The categories of a pattern in an assessment end before they begin");
    expectRefused(recordOf({0}, {2}, {4}, {1.0}), L"The patterns of an assessment have not all of its categories");
    expectRefused(recordOf({0}, {0}, {4}, {1.0}), L"The patterns of an assessment have not all of its categories");
    const std::string noLabel = recordOf({}, {1}, {4}, {1.0});
    tkAssessment loaded;
    EXPECT_THROW(loadFromBytes(noLabel, loaded), tkArchive::Errors);
}

TEST(tkAssessment, loadedValuesAreNotCheckedAndGiveTheirErrorsWhenTheyAreUsed)
{
    tkAssessment loaded;
    loadFromBytes(recordOf({0}, {2}, {4, 4}, {1.0, 1.0}), loaded);
    EXPECT_TK_THROW(loaded.decisions(tkDecisionRule()), tkClassifierDefs::BadParams,
                    L"The category labels of the match results must be unique.");
    loadFromBytes(recordOf({-3}, {1}, {-4}, {1.0}), loaded);
    EXPECT_TK_THROW(loaded.decisions(tkDecisionRule()), tkClassifierDefs::BadLabel, L"Category labels must be >= 0");
}
