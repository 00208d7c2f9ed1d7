#include "clss/model/tkIncompleteTraining.h"

#include "modelTestData.h"
#include "tests/golden/model.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierTool.h"
#include "clss/model/tkAssessment.h"
#include "clss/model/tk_ClassifierIncomplete.h"
#include "clss/model/tk_IncompleteStatistics.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkRandom.h"
#include "numerics/tkNMNormal.h"

#include <limits>
#include <stdexcept>

namespace
{
using Types = tkClassifierDistributionTypes;
using Data = tkClassifierDataProviderMemory;

const double notANumber = std::numeric_limits<double>::quiet_NaN();

/// The table of NumPy's estimates: patterns with gaps, mean and covariance.
struct Reference
{
    std::vector<std::vector<double>> patterns;
    std::vector<double> mean;
    std::vector<std::vector<double>> covariance;
};

Reference reference()
{
    Reference table;
    for (const Line& line : linesOf("incompleteTraining.csv"))
        if (line.word == "pattern")
            table.patterns.push_back(line.numbers);
        else if (line.word == "mean")
            table.mean = line.numbers;
        else
            table.covariance.push_back(line.numbers);
    return table;
}

std::vector<tk_Moments> noMoments(std::size_t d)
{
    return std::vector<tk_Moments>(d, tk_Moments{0.0, 0.0});
}

/// The patterns of the table as categories 0 and, moved by the deviations, 1.
Data twoCategories()
{
    const Reference table = reference();
    Data data;
    for (std::vector<double> pattern : table.patterns)
    {
        data.addData(handleTo(patternWithGaps(pattern)), 0);
        for (std::size_t j = 0; j < pattern.size(); ++j)
            pattern[j] += std::sqrt(table.covariance[j][j]);
        data.addData(handleTo(patternWithGaps(pattern)), 1);
    }
    return data;
}

tkClassifierTrainParamsBayesian jointParams()
{
    Types types(Types::eNormal);
    for (const long label : {0L, 1L})
        types.setDependent(label, {0, 1, 2, 3, 4});
    return tkClassifierTrainParamsBayesian(types);
}

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
} // namespace

TEST(tk_IncompleteStatistics, meanAndCovarianceAreThoseOfMaximumLikelihood)
{
    const Reference table = reference();
    const tkNMStatistics statistics = tk_incompleteStatistics(table.patterns, noMoments(5), 20000);
    const double n = static_cast<double>(table.patterns.size());
    EXPECT_EQ(static_cast<long>(table.patterns.size()), statistics.count);
    for (std::size_t i = 0; i < 5; ++i)
    {
        EXPECT_NEAR(table.mean[i], statistics.mean[i], 1e-5 * std::sqrt(table.covariance[i][i]));
        for (std::size_t j = 0; j <= i; ++j)
            EXPECT_NEAR(table.covariance[i][j], statistics.crossProducts(i, j) / n,
                        1e-4 * std::sqrt(table.covariance[i][i] * table.covariance[j][j]));
    }
}

TEST(tk_IncompleteStatistics, withoutGapsTheyAreThoseOfTheData)
{
    std::vector<std::vector<double>> rows;
    tkNMStatistics expected(5);
    for (const std::vector<double>& pattern : reference().patterns)
    {
        rows.push_back(pattern);
        for (std::size_t j = 0; j < 5; ++j)
            if (std::isnan(pattern[j]))
                rows.back()[j] = static_cast<double>(j) + pattern[(j + 1) % 5];
        for (double& x : rows.back())
            if (std::isnan(x))
                x = 1.0;
        expected.add(rows.back().data());
    }
    const tkNMStatistics statistics = tk_incompleteStatistics(rows, noMoments(5), 10);
    EXPECT_EQ(expected.count, statistics.count);
    for (std::size_t i = 0; i < 5; ++i)
    {
        EXPECT_NEAR(expected.mean[i], statistics.mean[i], 1e-12 * std::sqrt(expected.crossProducts(i, i)));
        for (std::size_t j = 0; j <= i; ++j)
            EXPECT_NEAR(expected.crossProducts(i, j), statistics.crossProducts(i, j),
                        1e-12 * std::sqrt(expected.crossProducts(i, i) * expected.crossProducts(j, j)));
    }
}

TEST(tk_IncompleteStatistics, moreStepsThanTheLimitAreNotTaken)
{
    const std::vector<std::vector<double>> rows = reference().patterns;
    const tkNMStatistics one = tk_incompleteStatistics(rows, noMoments(5), 1);
    const tkNMStatistics two = tk_incompleteStatistics(rows, noMoments(5), 2);
    const tkNMStatistics many = tk_incompleteStatistics(rows, noMoments(5), 1000);
    EXPECT_FALSE(one == two);
    EXPECT_FALSE(two == many);
    EXPECT_TRUE(many == tk_incompleteStatistics(rows, noMoments(5), 100000));
}

TEST(tk_IncompleteStatistics, constantMeasurementsHaveNoVarianceAndUnknownOnesThatOfAllCategories)
{
    const tkNMStatistics statistics =
        tk_incompleteStatistics({{1.0, 7.0, notANumber}, {2.0, notANumber, notANumber}, {6.0, 7.0, notANumber}},
                                {{0.0, 0.0}, {0.0, 0.0}, {5.0, 4.0}}, 50);
    EXPECT_EQ(3, statistics.count);
    EXPECT_NEAR(3.0, statistics.mean[0], 1e-14);
    EXPECT_NEAR(14.0, statistics.crossProducts(0, 0), 1e-12);
    EXPECT_EQ(7.0, statistics.mean[1]);
    EXPECT_EQ(0.0, statistics.crossProducts(1, 1));
    EXPECT_EQ(0.0, statistics.crossProducts(1, 0));
    EXPECT_EQ(5.0, statistics.mean[2]);
    EXPECT_EQ(8.0, statistics.crossProducts(2, 2));
    EXPECT_EQ(0.0, statistics.crossProducts(2, 0));
}

TEST(tk_IncompleteStatistics, measurementsThatDetermineOneAnotherAreFilledExactly)
{
    tkRandomUniform uniform(4);
    std::vector<std::vector<double>> rows;
    for (int i = 0; i < 12; ++i)
    {
        const double x = uniform.next(-1.0, 1.0);
        rows.push_back({x, 2.0 * x, i % 4 == 0 ? notANumber : 3.0 - x});
    }
    const tkNMStatistics statistics = tk_incompleteStatistics(rows, noMoments(3), 1000);
    EXPECT_NEAR(3.0 - statistics.mean[0], statistics.mean[2], 1e-4);
    EXPECT_NEAR(-statistics.crossProducts(0, 0), statistics.crossProducts(2, 0), 1e-3);
}

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

TEST(tkIncompleteTraining, densitiesHaveTheStatisticsOfMaximumLikelihood)
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

TEST(tkIncompleteTraining, dataWithoutGapsAreLearnedAsEver)
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

TEST(tkIncompleteTraining, learnsWhereAPlainTrainingHasNothing)
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

TEST(tkIncompleteTraining, binomialMeasurementsLearnAsEver)
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

TEST(tkIncompleteTraining, dataAndMeasurementsAreChecked)
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

TEST(tkIncompleteTraining, retrainingKeepsTheLearningOfGaps)
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

TEST(tkIncompleteTraining, loadedNumberOfStepsIsCheckedInTraining)
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
