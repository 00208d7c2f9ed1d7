#include "clss/model/tkCovariancePooling.h"

#include "modelTestData.h"
#include "tests/golden/model.h"
#include "tkAllocations.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierTool.h"
#include "clss/model/tkAssessment.h"
#include "clss/model/tk_ClassifierPooled.h"
#include "clss/model/tk_CovariancePool.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkRandom.h"
#include "numerics/tkNMNormal.h"

#include <cstdint>
#include <cstring>
#include <limits>

namespace
{
using Types = tkClassifierDistributionTypes;
using Data = tkClassifierDataProviderMemory;

const double notANumber = std::numeric_limits<double>::quiet_NaN();

/// Every `step`-th pattern of wine, its first measurements.
Data wine(std::size_t step)
{
    Data data;
    std::size_t i = 0;
    for (const Line& line : linesOf("assessment.csv"))
        if (line.word == "pattern" && i++ % step == 0)
            data.addData(std::vector<double>(line.numbers.begin() + 2, line.numbers.end()),
                         static_cast<long>(line.numbers[1]));
    return data;
}

tkClassifierTrainParamsBayesian jointParams(const std::vector<long>& labels = {0, 1, 2})
{
    Types types(Types::eNormal);
    for (const long label : labels)
        types.setDependent(label, {0, 1, 2, 3});
    tkClassifierFrequencies frequencies(1.0);
    frequencies.categoryFrequencyOverride(1, 2.0);
    return tkClassifierTrainParamsBayesian(types, frequencies);
}

/// The classifier of a training.
template <class Classifier>
std::unique_ptr<Classifier> trained(const Data& data, const tkClassifierTrainParams& params)
{
    auto classifier = std::make_unique<Classifier>();
    classifier->train(data, params);
    return classifier;
}

const tkNMNormal& normalOf(const tk_ClassifierBayesian& classifier, std::size_t model, std::size_t set)
{
    const auto& bayesian = dynamic_cast<const tk_CategoryModelBayesian&>(*classifier.categoryModels()[model]);
    return dynamic_cast<const tk_PDFMultivariateNormal&>(*bayesian.densities()[set]).normal();
}

double scoreOf(const tkClassifierResult& result, long label)
{
    for (const tkClassifierCategoryResult& category : result.categoryResults())
        if (category.categoryLabel() == label)
            return category.classScore();
    return -1.0;
}

double relative(double expected, double value)
{
    return std::abs(value - expected) / (std::abs(expected) + 1e-300);
}
} // namespace

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

TEST(tkCovariancePooling, mixesEachCovarianceWithThatWithinTheCategories)
{
    const Data data = wine(7);
    const auto plain = trained<tk_ClassifierBayesian>(data, jointParams());
    for (const double amount : {0.25, 1.0})
    {
        const auto pooled = trained<tk_ClassifierPooled>(data, tkCovariancePooling(jointParams(), amount));
        double degrees = 0.0;
        for (std::size_t m = 0; m < 3; ++m)
            degrees += static_cast<double>(normalOf(*plain, m, 0).count()) - 1.0;
        for (long i = 0; i < 4; ++i)
            for (long j = 0; j < 4; ++j)
            {
                double within = 0.0;
                for (std::size_t m = 0; m < 3; ++m)
                    within += normalOf(*plain, m, 0).covariance()(i, j) *
                              (static_cast<double>(normalOf(*plain, m, 0).count()) - 1.0) / degrees;
                for (std::size_t m = 0; m < 3; ++m)
                    EXPECT_LT(relative((1.0 - amount) * normalOf(*plain, m, 0).covariance()(i, j) + amount * within,
                                       normalOf(*pooled, m, 0).covariance()(i, j)),
                              1e-12);
            }
        for (std::size_t m = 0; m < 3; ++m)
        {
            EXPECT_EQ(static_cast<long>(degrees) + 1, normalOf(*pooled, m, 0).count());
            EXPECT_TRUE(normalOf(*plain, m, 0).mean() == normalOf(*pooled, m, 0).mean());
        }
    }
}

TEST(tkCovariancePooling, amountOfNothingIsAPlainTraining)
{
    const Data data = wine(3);
    tkClassifierTool plain;
    plain.train(data, jointParams());
    tkClassifierTool pooled;
    pooled.train(data, tkCovariancePooling(jointParams(), 0.0));
    for (std::size_t i = 0; i < data.patterns().size(); ++i)
        EXPECT_TRUE(plain.run(*data.patterns()[i]) == pooled.run(*data.patterns()[i])) << i;
}

TEST(tkCovariancePooling, dependencySetsAreSharedInWhateverOrderTheyAre)
{
    const Data data = wine(5);
    Types ordered(Types::eNormal);
    Types mixed(Types::eNormal);
    for (const long label : {0L, 1L, 2L})
    {
        ordered.setDependent(label, {0, 1, 2});
        mixed.setDependent(label, label == 1 ? std::vector<long>{2, 0, 1} : std::vector<long>{0, 1, 2});
    }
    tkClassifierTool a;
    a.train(data, tkCovariancePooling(tkClassifierTrainParamsBayesian(ordered), 0.5));
    tkClassifierTool b;
    b.train(data, tkCovariancePooling(tkClassifierTrainParamsBayesian(mixed), 0.5));
    for (const auto& pattern : data.patterns())
    {
        const tkClassifierResult result = a.run(*pattern);
        const tkClassifierResult other = b.run(*pattern);
        for (const long label : {0L, 1L, 2L})
            EXPECT_NEAR(scoreOf(result, label), scoreOf(other, label), 1e-10);
    }
}

TEST(tkCovariancePooling, setOfOneCategoryAloneIsLeftAsItIs)
{
    const Data data = wine(5);
    const auto params = jointParams({0}); // 1 and 2 have independent measurements
    const auto plain = trained<tk_ClassifierBayesian>(data, params);
    const auto pooled = trained<tk_ClassifierPooled>(data, tkCovariancePooling(params, 0.5));
    EXPECT_TRUE(normalOf(*plain, 0, 0) == normalOf(*pooled, 0, 0));
    for (std::size_t set = 0; set < 4; ++set)
    {
        EXPECT_TRUE(normalOf(*plain, 1, set) != normalOf(*pooled, 1, set));
        EXPECT_TRUE(normalOf(*pooled, 1, set).covariance() != normalOf(*pooled, 2, set).covariance());
    }
}

TEST(tkCovariancePooling, categoriesOfOnePatternTakeThePooledCovariance)
{
    Data data = wine(5);
    data.addData({13.0, 2.0, 2.3, 19.0}, 5);
    const auto params = jointParams({0, 1, 2, 5});
    const auto pooled = trained<tk_ClassifierPooled>(data, tkCovariancePooling(params, 1.0));
    for (long i = 0; i < 4; ++i)
        for (long j = 0; j < 4; ++j)
            EXPECT_EQ(normalOf(*pooled, 0, 0).covariance()(i, j), normalOf(*pooled, 3, 0).covariance()(i, j));

    Data singles;
    singles.addData({1.0, 2.0, 3.0, 4.0}, 0);
    singles.addData({2.0, 2.5, 1.0, 0.0}, 1);
    EXPECT_EQ(1,
              normalOf(*trained<tk_ClassifierPooled>(singles, tkCovariancePooling(jointParams(), 1.0)), 0, 0).count());
    EXPECT_EQ(1.0, tkCovariancePooling::choose(singles, jointParams()));
}

TEST(tkCovariancePooling, binomialDensitiesAreLeftAsTheyAre)
{
    const tkClassifierTrainParamsBayesian params = paramsWithABinomial();
    const Data data = dataWithABinomial();
    const auto plain = trained<tk_ClassifierBayesian>(data, params);
    const auto pooled = trained<tk_ClassifierPooled>(data, tkCovariancePooling(params, 0.5));
    for (std::size_t m = 0; m < 2; ++m)
    {
        const auto& before = dynamic_cast<const tk_CategoryModelBayesian&>(*plain->categoryModels()[m]);
        const auto& after = dynamic_cast<const tk_CategoryModelBayesian&>(*pooled->categoryModels()[m]);
        EXPECT_TRUE(before.densities()[1]->isEquivalent(*after.densities()[1]));
        EXPECT_FALSE(before.densities()[0]->isEquivalent(*after.densities()[0]));
    }
}

TEST(tkCovariancePooling, leaveOneOutOfTheChoiceIsThatOfTrainingsWithoutThePattern)
{
    for (const auto& params : {jointParams(), jointParams({0, 2}), jointParams({1})})
    {
        const Data data = wine(6);
        const tk_LabelledPatterns labelled(data);
        const auto classifier = trained<tk_ClassifierBayesian>(data, params);
        const tk_CovariancePool pool(classifier->categoryModels());
        for (const double amount : {0.0, 0.1, 0.7, 1.0})
        {
            const tk_CovariancePool::Figures figures = pool.judge(labelled, params.categoryFrequencies(), amount);
            ASSERT_TRUE(figures.areValid);
            const tkAssessment assessment = tkAssessment::leaveOneOut(data, tkCovariancePooling(params, amount));
            const tkRate accuracy = assessment.confusion(params).accuracy();
            EXPECT_EQ(accuracy.total - accuracy.hits, figures.errors) << amount;
            EXPECT_NEAR(assessment.logLoss(params) * static_cast<double>(accuracy.total), figures.logLoss, 1e-7)
                << amount;
        }
    }
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

TEST(tkCovariancePooling, loadedAmountThatIsNoShareGivesItsErrorInTheTraining)
{
    for (const double amount : {5.0, -0.25, std::numeric_limits<double>::infinity(), notANumber})
    {
        std::string bytes = storeToBytes(tkPtrHandle<tkCovariancePooling>(new tkCovariancePooling(jointParams(), 0.5)));
        std::uint64_t bits = 0;
        std::memcpy(&bits, &amount, sizeof bits);
        for (std::size_t i = 0; i < 8; ++i) // the amount is the last that is stored, little-endian
            bytes[bytes.size() - 8 + i] = static_cast<char>(bits >> (8 * i) & 0xff);
        tkPtrHandle<tkCovariancePooling> loaded;
        loadFromBytes(bytes, loaded);
        ASSERT_TRUE(loaded);
        ASSERT_FALSE(loaded->amount() >= 0.0 && loaded->amount() <= 1.0);
        tkClassifierTool tool;
        EXPECT_TK_THROW(tool.train(wine(9), *loaded), tkClassifierDefs::BadParams,
                        L"The amount of pooling must be >= 0.0 and <= 1.0");
        EXPECT_FALSE(tool.isTrained());
    }
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

TEST(tkCovariancePooling, retrainingKeepsThePooling)
{
    tkClassifierTool tool;
    tool.train(wine(3), tkCovariancePooling(jointParams(), 0.5));
    const wchar_t* const another = L"Cannot retrain a Bayesian classifier with another pooling of covariances.";
    EXPECT_TK_THROW(tool.retrain(jointParams()), tkClassifierDefs::BadParams, another);
    EXPECT_TK_THROW(tool.retrain(tkCovariancePooling(jointParams(), 0.25)), tkClassifierDefs::BadParams, another);
    EXPECT_TK_THROW(tool.retrain(tkCovariancePooling(jointParams())), tkClassifierDefs::BadParams, another);
    tkCovariancePooling params(jointParams(), 0.5);
    params.misclassificationCosts(tkClassifierCosts(3.0));
    tool.retrain(params);
    EXPECT_TRUE(params == *tool.trainParams());

    tkClassifierTool plain;
    plain.train(wine(3), jointParams());
    EXPECT_TK_THROW(plain.retrain(tkCovariancePooling(jointParams(), 0.5)), tkClassifierDefs::BadMethod,
                    L"Cannot retrain with a different classification technique.");
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
