#include "clss/model/tkTrainingReport.h"

#include "modelTestData.h"
#include "tests/golden/model.h"
#include "tkAllocations.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierTrainParamsKNN.h"
#include "foundation/tkArchiveOperators.h"

#include <functional>
#include <limits>
#include <numeric>
#include <utility>

namespace
{
const double infinity = std::numeric_limits<double>::infinity();
const double notANumber = std::numeric_limits<double>::quiet_NaN();
const double largest = std::numeric_limits<double>::max();

struct Row
{
    long label;
    std::vector<double> measurements; // NaN: invalid
};

tkClassifierDataProviderMemory dataOf(const std::vector<Row>& rows)
{
    tkClassifierDataProviderMemory data;
    for (const Row& row : rows)
        data.addData(handleTo(patternWithGaps(row.measurements)), row.label);
    return data;
}

/// Normal distributions; of the first `numDependent` measurements together in each of the categories 0 ... 2.
tkClassifierTrainParamsBayesian joint(long numDependent)
{
    std::vector<long> set(static_cast<std::size_t>(numDependent));
    std::iota(set.begin(), set.end(), 0L);
    tkClassifierDistributionTypes types(tkClassifierDistributionTypes::eNormal);
    for (const long label : {0L, 1L, 2L})
        types.setDependent(label, set);
    return tkClassifierTrainParamsBayesian(types);
}

/// A report on two categories of this measurement each.
tkTrainingReport reportOf(const std::vector<double>& first, const std::vector<double>& second)
{
    tkClassifierDataProviderMemory data;
    for (const double x : first)
        data.addData({x}, 0);
    for (const double x : second)
        data.addData({x}, 1);
    return tkTrainingReport(data, tkClassifierTrainParamsKNN(1));
}

/// A multiple of 2^-20 in [0, 1), the next one of a sequence.
double next(unsigned long& state)
{
    state = (state * 1103515245UL + 12345UL) & 0x7fffffffUL;
    return static_cast<double>(state >> 11) * 0x1p-20;
}

/// So many patterns of each category, of measurements that are about uniform about the label.
std::vector<Row> rowsAbout(long numCategories, long numPatterns, long numMeasurements)
{
    std::vector<Row> rows;
    unsigned long state = 1;
    for (long label = 0; label < numCategories; ++label)
        for (long i = 0; i < numPatterns; ++i)
        {
            rows.push_back({label, {}});
            for (long j = 0; j < numMeasurements; ++j)
                rows.back().measurements.push_back(2.0 * static_cast<double>(label) + next(state));
        }
    return rows;
}

bool contains(const std::wstring& text, const std::wstring& line)
{
    return (L"\n" + text).find(L"\n" + line + L"\n") != std::wstring::npos;
}
} // namespace

// ---- Construction ---------------------------------------------------------------------------------------------------

TEST(tkTrainingReport, newOneIsThatOfNoData)
{
    const tkTrainingReport report;
    EXPECT_TRUE(report.categories().empty());
    EXPECT_EQ(0, report.numUnlabelled());
    EXPECT_TRUE(report.measurements().empty());
    EXPECT_TRUE(report.scarceSets().empty());
    EXPECT_TRUE(report.nearDependencies().empty());
    EXPECT_TRUE(report.contradictions().empty());
    EXPECT_TRUE(report.doubtfulLabels().empty());
    EXPECT_EQ(0, report.numUnjudged());
    EXPECT_TRUE(report.outweighed().empty());
    EXPECT_TRUE(report.trainingError().empty());
    EXPECT_EQ(L"Without a label: 0 patterns.\n", report.text());
}

TEST(tkTrainingReport, checksItsDataPatternByPattern)
{
    const tkClassifierTrainParamsBayesian params;
    UncheckedProvider data;
    data.measurements = 1;
    data.patterns = {handleTo(tkFeaturePattern({1.0, 2.0})), tkPtrHandle_const<tkFeaturePattern>()};
    data.labels = {-2, 0};
    EXPECT_TK_THROW(tkTrainingReport(data, params), tkClassifierDefs::BadFeatures,
                    L"Pattern 0 has 2 measurements, the training data have 1.");
    data.measurements = 2;
    EXPECT_TK_THROW(tkTrainingReport(data, params), tkClassifierDefs::BadLabel,
                    L"Category labels must be >= 0 or unknown");
    data.labels[0] = -1;
    EXPECT_THROW(tkTrainingReport(data, params), tkBadPointer);
    data.patterns[1] = data.patterns[0];
    data.labels[1] = -1;
    EXPECT_TK_THROW(tkTrainingReport(data, params), tkClassifierDefs::InsufficientTrainData,
                    L"No valid data was provided for training.");
}

TEST(tkTrainingReport, agreesWithScikitLearnAndNumPy)
{
    std::vector<Row> four;
    std::vector<Row> five;
    for (const Line& line : linesOf("assessment.csv"))
        if (line.word == "pattern")
        {
            four.push_back({static_cast<long>(line.numbers[1]), {line.numbers.begin() + 2, line.numbers.end()}});
            five.push_back(four.back());
            std::vector<double>& x = five.back().measurements;
            x.push_back(x[0] + x[2] + 0.001 * static_cast<double>((five.size() - 1) % 3));
        }
    ASSERT_EQ(178u, five.size());
    std::map<std::string, std::vector<std::vector<double>>> expected;
    for (const Line& line : linesOf("trainingReport.csv"))
        expected[line.word].push_back(line.numbers);

    const tkTrainingReport report(dataOf(five), joint(5));
    ASSERT_EQ(5u, report.measurements().size());
    for (std::size_t j = 0; j < 5; ++j)
    {
        EXPECT_NEAR(expected.at("separation")[0][j], report.measurements()[j].separation, 1e-13) << j;
        EXPECT_NEAR(expected.at("deviation")[0][j], report.measurements()[j].deviation, 1e-13) << j;
    }
    ASSERT_EQ(3u, report.nearDependencies().size());
    for (std::size_t i = 0; i < 3; ++i)
    {
        const std::vector<double>& direction = expected.at("direction")[i];
        const tkTrainingReport::NearDependency& found = report.nearDependencies()[i];
        EXPECT_EQ(direction[0], static_cast<double>(found.label));
        EXPECT_EQ((std::vector<long>{0, 1, 2, 3, 4}), found.measurements);
        EXPECT_NEAR(direction[1], found.deviation, 1e-11);
        for (std::size_t j = 0; j < 5; ++j)
            EXPECT_NEAR(direction[2 + j], found.weights[j], 1e-9) << i << ' ' << j;
    }

    const tkTrainingReport judged(dataOf(four), joint(4));
    ASSERT_EQ(1u, expected.at("doubtful").size());
    ASSERT_EQ(1u, judged.doubtfulLabels().size());
    const std::vector<double>& doubtful = expected.at("doubtful")[0];
    EXPECT_EQ(doubtful[0], static_cast<double>(judged.doubtfulLabels()[0].pattern));
    EXPECT_EQ(doubtful[1], static_cast<double>(judged.doubtfulLabels()[0].label));
    EXPECT_EQ(doubtful[2], static_cast<double>(judged.doubtfulLabels()[0].decided));
    EXPECT_NEAR(doubtful[3], judged.doubtfulLabels()[0].score, 1e-10);
    EXPECT_EQ(0, judged.numUnjudged());
}

// ---- Patterns and measurements --------------------------------------------------------------------------------------

TEST(tkTrainingReport, countsPatternsOfEachCategory)
{
    const double gap = notANumber;
    auto data =
        dataOf({{7, {1, 2}}, {3, {1, gap}}, {-1, {5, 5}}, {7, {2, 2}}, {3, {3, 1}}, {7, {gap, gap}}, {-1, {1, 1}}});
    data.addData({infinity, 1.0}, 3);
    const tkTrainingReport report(data, tkClassifierTrainParamsKNN(1));
    ASSERT_EQ(2u, report.categories().size());
    EXPECT_EQ(3, report.categories()[0].label);
    EXPECT_EQ(3, report.categories()[0].numPatterns);
    EXPECT_EQ(1, report.categories()[0].numComplete);
    EXPECT_EQ(7, report.categories()[1].label);
    EXPECT_EQ(3, report.categories()[1].numPatterns);
    EXPECT_EQ(2, report.categories()[1].numComplete);
    EXPECT_EQ(2, report.numUnlabelled());
}

TEST(tkTrainingReport, countsInvalidAndNonFiniteMeasurements)
{
    tkClassifierDataProviderMemory data;
    data.addData({1.0, infinity, 2.0}, 0);
    data.addData({1.5, notANumber, -infinity}, 0);
    data.addData(handleTo(tkFeaturePattern({2.0, infinity, 7.0}, {0, 1})), 1);
    data.addData(handleTo(tkFeaturePattern({2.0, infinity, 7.0}, {0, 1, 2})), -1);
    const tkTrainingReport report(data, tkClassifierTrainParamsKNN(1));
    const auto& measurements = report.measurements();
    ASSERT_EQ(3u, measurements.size());
    EXPECT_EQ(1, measurements[0].numInvalid);
    EXPECT_EQ(0, measurements[0].numNonFinite);
    EXPECT_DOUBLE_EQ(std::sqrt(0.125), measurements[0].deviation);
    EXPECT_EQ(1, measurements[1].numInvalid);
    EXPECT_EQ(2, measurements[1].numNonFinite);
    EXPECT_EQ(0.0, measurements[1].deviation);
    EXPECT_EQ(0, measurements[2].numInvalid);
    EXPECT_EQ(1, measurements[2].numNonFinite);
    EXPECT_DOUBLE_EQ(std::sqrt(12.5), measurements[2].deviation);
}

TEST(tkTrainingReport, separationIsTheShareOfTheVarianceBetweenCategories)
{
    // The means are 2 and 6, so that 32 of the squares lie between, and 2 + 8 within.
    EXPECT_DOUBLE_EQ(32.0 / 42.0, reportOf({1, 2, 2, 3}, {4, 6, 6, 8}).measurements()[0].separation);
    EXPECT_EQ(1.0, reportOf({1, 1}, {2, 2}).measurements()[0].separation);
    EXPECT_EQ(0.0, reportOf({1, 3}, {0, 4}).measurements()[0].separation);
    EXPECT_NEAR(0.0, reportOf({0.1, 0.3, 0.7}, {0.7, 0.1, 0.3}).measurements()[0].separation, 1e-15);
}

TEST(tkTrainingReport, separationAndDeviationNeitherOverflowNorVanish)
{
    for (const int exponent : {-1040, -600, 600, 1018})
    {
        std::vector<double> first = {1, 2, 2, 3};
        std::vector<double> second = {4, 6, 6, 8};
        for (double& x : first)
            x = std::ldexp(x, exponent);
        for (double& x : second)
            x = std::ldexp(x, exponent);
        const tkTrainingReport::Measurement measurement = reportOf(first, second).measurements()[0];
        EXPECT_DOUBLE_EQ(32.0 / 42.0, measurement.separation) << exponent;
        EXPECT_NEAR(std::sqrt(6.0), std::ldexp(measurement.deviation, -exponent), 1e-9) << exponent;
    }
    EXPECT_EQ(largest, reportOf({-largest}, {largest}).measurements()[0].deviation);
    EXPECT_EQ(5e-324, reportOf({0.0, 0.0, 0.0, 0.0, 0.0}, {5e-324}).measurements()[0].deviation);
    // What varies little in one category is not constant because it is far away in the other.
    const tkTrainingReport::Measurement far = reportOf({1e-200, 2e-200}, {1e200, 2e200}).measurements()[0];
    EXPECT_TRUE(far.constantIn.empty());
    EXPECT_GT(far.separation, 0.0);
}

TEST(tkTrainingReport, constantMeasurementHasNoDeviationAndSeparatesNothing)
{
    for (const double x : {0.0, 7.1, -1e300})
    {
        const tkTrainingReport::Measurement constant = reportOf({x, x}, {x, x}).measurements()[0];
        EXPECT_EQ(0.0, constant.deviation);
        EXPECT_EQ(0.0, constant.separation);
        EXPECT_TRUE(constant.constantIn.empty());
    }
    const double rounded = std::nextafter(7.1, 8.0);
    EXPECT_EQ(0.0, reportOf({7.1, rounded}, {7.1, 7.1}).measurements()[0].deviation);
    EXPECT_EQ(0.0, reportOf({7.1}, {}).measurements()[0].deviation);
}

TEST(tkTrainingReport, namesTheCategoriesInWhichAMeasurementIsConstant)
{
    const tkClassifierDataProviderMemory data =
        dataOf({{5, {2.0}}, {5, {2.0}}, {1, {3.0}}, {1, {3.0}}, {2, {1.0}}, {2, {1.5}}, {9, {4.0}}});
    EXPECT_EQ((std::vector<long>{1, 5}),
              tkTrainingReport(data, tkClassifierTrainParamsKNN(1)).measurements()[0].constantIn);
}

TEST(tkTrainingReport, findsEqualPatternsOfDifferentLabels)
{
    const double gap = notANumber;
    auto data = dataOf({{0, {1, 2}},
                        {0, {3, gap}},
                        {1, {1, 2.5}},
                        {1, {3, gap}},
                        {2, {1, 2}},
                        {0, {0, 4}},
                        {0, {0, 4}},
                        {-1, {1, 2.5}},
                        {1, {-0.0, 5}},
                        {2, {0.0, 5}},
                        {0, {1, 2}}});
    data.addData({3.0, infinity}, 0);
    data.addData(handleTo(tkFeaturePattern({9.0, 2.0}, {0})), 2);
    data.addData(handleTo(tkFeaturePattern({8.0, 2.0}, {0})), 1);
    const tkTrainingReport report(data, tkClassifierTrainParamsKNN(1));
    EXPECT_EQ((std::vector<std::vector<long>>{{0, 4, 10}, {1, 3, 11}, {8, 9}, {12, 13}}), report.contradictions());
}

// ---- Dependency sets ------------------------------------------------------------------------------------------------

TEST(tkTrainingReport, namesSetsWithLessThanTenPatternsForEachMeasurement)
{
    std::vector<Row> rows = rowsAbout(3, 19, 3);
    rows.push_back({1, {2.5, 2.5, 2.5}});
    rows.push_back({2, {4.5, notANumber, 4.5}}); // skipped by the joint density, and learned by the other
    const tkTrainingReport report(dataOf(rows), joint(2));
    ASSERT_EQ(2u, report.scarceSets().size());
    EXPECT_EQ(0, report.scarceSets()[0].label);
    EXPECT_EQ((std::vector<long>{0, 1}), report.scarceSets()[0].measurements);
    EXPECT_EQ(19, report.scarceSets()[0].numPatterns);
    EXPECT_EQ(2, report.scarceSets()[1].label);
    EXPECT_EQ((std::vector<long>{0, 1}), report.scarceSets()[1].measurements);
    EXPECT_EQ(19, report.scarceSets()[1].numPatterns);
}

TEST(tkTrainingReport, singleMeasurementsNeedTenPatterns)
{
    const tkTrainingReport report(dataOf(rowsAbout(2, 9, 2)), tkClassifierTrainParamsBayesian());
    ASSERT_EQ(4u, report.scarceSets().size());
    EXPECT_EQ(1, report.scarceSets()[3].label);
    EXPECT_EQ((std::vector<long>{1}), report.scarceSets()[3].measurements);
    EXPECT_TRUE(tkTrainingReport(dataOf(rowsAbout(2, 10, 2)), tkClassifierTrainParamsBayesian()).scarceSets().empty());
}

TEST(tkTrainingReport, countsWhatLearningWithGapsAndPoolingLetADensityLearn)
{
    std::vector<Row> rows = rowsAbout(2, 25, 2);
    for (std::size_t i = 0; i < 10; ++i)
        rows[i].measurements[i % 2] = notANumber;
    const tkClassifierDataProviderMemory data = dataOf(rows);
    const tkTrainingReport skipping(data, joint(2));
    ASSERT_EQ(1u, skipping.scarceSets().size());
    EXPECT_EQ(15, skipping.scarceSets()[0].numPatterns);
    EXPECT_TRUE(tkTrainingReport(data, tkIncompleteTraining(joint(2))).scarceSets().empty());
    EXPECT_TRUE(tkTrainingReport(data, tkCovariancePooling(joint(2), 0.5)).scarceSets().empty());
}

TEST(tkTrainingReport, findsDirectionsThatHardlyVary)
{
    std::vector<Row> rows = rowsAbout(1, 40, 4);
    for (std::size_t i = 0; i < rows.size(); ++i)
    {
        std::vector<double>& x = rows[i].measurements;
        x[3] = -2.0 * x[1] + 1e-5 * x[0]; // most dependent
        x[2] = x[0] + 1e-3 * x[2];
    }
    const tkTrainingReport report(dataOf(rows), joint(4));
    ASSERT_EQ(2u, report.nearDependencies().size());
    const tkTrainingReport::NearDependency& nearest = report.nearDependencies()[0];
    EXPECT_EQ(0, nearest.label);
    EXPECT_EQ((std::vector<long>{0, 1, 2, 3}), nearest.measurements);
    EXPECT_LT(nearest.deviation, 1e-5);
    EXPECT_NEAR(std::sqrt(0.5), nearest.weights[1], 1e-3);
    EXPECT_NEAR(std::sqrt(0.5), nearest.weights[3], 1e-3);
    EXPECT_NEAR(0.0, nearest.weights[0], 1e-2);
    const tkTrainingReport::NearDependency& other = report.nearDependencies()[1];
    EXPECT_GT(other.deviation, nearest.deviation);
    EXPECT_NEAR(std::sqrt(0.5), std::abs(other.weights[0]), 1e-3);
    EXPECT_NEAR(0.0, other.weights[0] + other.weights[2], 1e-3);
    for (const tkTrainingReport::NearDependency& each : report.nearDependencies())
        EXPECT_GT(*std::max_element(each.weights.begin(), each.weights.end()),
                  -*std::min_element(each.weights.begin(), each.weights.end()) - 1e-9);
}

TEST(tkTrainingReport, directionsAreThoseAboveAConditionIndexOfThirty)
{
    // Two measurements with correlation r have the variances 1 + r and 1 - r: the index is 30 for r = 899 / 901.
    for (const double r : {899.5 / 901.0, 898.5 / 901.0})
    {
        std::vector<Row> rows;
        for (const double sign : {-1.0, 1.0})
            for (const double other : {-1.0, 1.0})
                rows.push_back({0, {sign, r * sign + std::sqrt(1.0 - r * r) * other}});
        const tkTrainingReport report(dataOf(rows), joint(2));
        ASSERT_EQ(r > 899.0 / 901.0 ? 1u : 0u, report.nearDependencies().size());
        for (const tkTrainingReport::NearDependency& each : report.nearDependencies())
            EXPECT_NEAR(std::sqrt(1.0 - r), each.deviation, 1e-12);
    }
}

TEST(tkTrainingReport, dependentMeasurementsWithTooFewPatternsAreScarceOnly)
{
    std::vector<Row> rows = rowsAbout(1, 3, 3); // any 3 patterns of 3 measurements lie in a plane
    EXPECT_TRUE(tkTrainingReport(dataOf(rows), joint(3)).nearDependencies().empty());
    EXPECT_EQ(1u, tkTrainingReport(dataOf(rows), joint(3)).scarceSets().size());
    rows = rowsAbout(1, 4, 3);
    for (Row& row : rows)
        row.measurements[2] = row.measurements[0] - row.measurements[1];
    const tkTrainingReport singular(dataOf(rows), joint(3));
    ASSERT_EQ(1u, singular.nearDependencies().size());
    EXPECT_LT(singular.nearDependencies()[0].deviation, 1e-7);
}

TEST(tkTrainingReport, constantMeasurementsTakePartInNoDirection)
{
    std::vector<Row> rows = rowsAbout(2, 10, 3);
    for (Row& row : rows)
    {
        row.measurements[2] = row.measurements[1];
        row.measurements[0] = static_cast<double>(row.label);
    }
    const tkTrainingReport report(dataOf(rows), joint(3));
    ASSERT_EQ(2u, report.nearDependencies().size());
    for (const tkTrainingReport::NearDependency& each : report.nearDependencies())
        EXPECT_EQ((std::vector<long>{1, 2}), each.measurements);
    EXPECT_TRUE(tkTrainingReport(dataOf(rows), joint(2)).nearDependencies().empty()); // one that varies
}

TEST(tkTrainingReport, knowsOfNoSetsWithoutBayesianParametersOrNormalDensities)
{
    std::vector<Row> rows = rowsAbout(2, 4, 2);
    for (Row& row : rows)
        row.measurements[1] = row.measurements[0];
    const tkTrainingReport neighbors(dataOf(rows), tkClassifierTrainParamsKNN(1));
    EXPECT_TRUE(neighbors.scarceSets().empty());
    EXPECT_TRUE(neighbors.nearDependencies().empty());
    const tkClassifierDistributionTypes binomial(tkClassifierDistributionTypes::eBinomial);
    const tkTrainingReport counted(dataOf({{0, {0.25}}, {0, {0.5}}, {0, {0.75}}}),
                                   tkClassifierTrainParamsBayesian(binomial));
    EXPECT_TRUE(counted.trainingError().empty());
    EXPECT_TRUE(counted.scarceSets().empty());
}

// ---- Leave-one-out --------------------------------------------------------------------------------------------------

TEST(tkTrainingReport, namesPatternsThatTheOthersGiveToAnotherCategoryWithCertainty)
{
    std::vector<Row> rows = rowsAbout(3, 12, 2);
    std::swap(rows[3].label, rows[20].label);
    rows.insert(rows.begin(), {-1, {0.0, 0.0}});
    for (const std::function<tkTrainingReport()>& report :
         std::vector<std::function<tkTrainingReport()>>{
             [&] { return tkTrainingReport(dataOf(rows), joint(2)); },
             [&] { return tkTrainingReport(dataOf(rows), tkClassifierTrainParamsKNN(3)); },
             [&] { return tkTrainingReport(dataOf(rows), tkCovariancePooling(joint(2), 0.25)); }})
    {
        const std::vector<tkTrainingReport::DoubtfulLabel> doubtful = report().doubtfulLabels();
        ASSERT_EQ(2u, doubtful.size());
        EXPECT_EQ(4, doubtful[0].pattern);
        EXPECT_EQ(1, doubtful[0].label);
        EXPECT_EQ(0, doubtful[0].decided);
        EXPECT_GE(doubtful[0].score, 0.99);
        EXPECT_EQ(21, doubtful[1].pattern);
        EXPECT_EQ(0, doubtful[1].label);
        EXPECT_EQ(1, doubtful[1].decided);
    }
}

TEST(tkTrainingReport, scoresFromNinetyNineHundredthsOnAreCertain)
{
    for (const long others : {98L, 99L}) // of 101 patterns, of which each has all others as its neighbours
    {
        std::vector<Row> rows;
        for (long i = 0; i < 101; ++i)
            rows.push_back({i < others ? 0L : 1L, {static_cast<double>(i)}});
        const tkTrainingReport report(dataOf(rows), tkClassifierTrainParamsKNN(100));
        EXPECT_EQ(others == 99 ? 2u : 0u, report.doubtfulLabels().size());
        for (const tkTrainingReport::DoubtfulLabel& doubt : report.doubtfulLabels())
            EXPECT_EQ(0.99, doubt.score);
    }
}

TEST(tkTrainingReport, patternsWithoutWhichATrainingFailsAreNotJudged)
{
    std::vector<Row> rows = rowsAbout(2, 5, 2);
    for (std::size_t i = 6; i < 10; ++i)
        rows[i].measurements[0] = notANumber; // only pattern 5 is left to the joint density of category 1
    const tkTrainingReport report(dataOf(rows), joint(2));
    EXPECT_EQ(1, report.numUnjudged());
    EXPECT_TRUE(report.trainingError().empty());
    EXPECT_EQ(1, tkTrainingReport(dataOf({{0, {1.0}}}), tkClassifierTrainParamsKNN(1)).numUnjudged());
}

TEST(tkTrainingReport, tellsWhyATrainingFails)
{
    std::vector<Row> rows = rowsAbout(2, 5, 2);
    for (std::size_t i = 5; i < 10; ++i)
        rows[i].measurements[1] = notANumber;
    const tkTrainingReport report(dataOf(rows), joint(2));
    EXPECT_EQ(L"No valid data has been used to train the distribution for category 1", report.trainingError());
    EXPECT_EQ(10, report.numUnjudged());
    EXPECT_EQ(5, report.measurements()[1].numInvalid);
    EXPECT_TRUE(report.scarceSets().empty());
    EXPECT_TRUE(report.doubtfulLabels().empty());

    const tkClassifierDistributionTypes poisson(tkClassifierDistributionTypes::ePoisson);
    EXPECT_EQ(L"Poisson distribution is not implemented",
              tkTrainingReport(dataOf({{0, {1.0}}}), tkClassifierTrainParamsBayesian(poisson)).trainingError());
    EXPECT_EQ(L"A measurement is too large, or the patterns are too many, for a normal distribution",
              tkTrainingReport(dataOf({{0, {1e200}}}), tkClassifierTrainParamsBayesian()).trainingError());
    const tkTrainingReport neighbors(dataOf(rows), tkClassifierTrainParamsKNN(1));
    EXPECT_EQ(L"K-nearest neighbor classification does not support invalid measurements", neighbors.trainingError());
    EXPECT_EQ(10, neighbors.numUnjudged());
}

TEST(tkTrainingReport, trainingThatNeedNotBeReadyIsJudgedWhereItCanRun)
{
    std::vector<Row> rows = rowsAbout(2, 5, 2);
    for (std::size_t i = 5; i < 10; ++i)
        rows[i].measurements[1] = notANumber;
    tkClassifierTrainParamsBayesian params = joint(2);
    params.throwIfNotReady(false);
    const tkTrainingReport report(dataOf(rows), params);
    EXPECT_TRUE(report.trainingError().empty());
    EXPECT_EQ(10, report.numUnjudged());
    ASSERT_EQ(2u, report.scarceSets().size());
    EXPECT_EQ(0, report.scarceSets()[1].numPatterns);
}

TEST(tkTrainingReport, progressIsToldOfEachPatternAndCancels)
{
    const tkClassifierDataProviderMemory data = dataOf(rowsAbout(2, 3, 1));
    std::vector<std::pair<long, long>> told;
    const tkTrainingReport report(data, tkClassifierTrainParamsKNN(1),
                                  [&](long done, long total) { told.emplace_back(done, total); });
    EXPECT_EQ((std::vector<std::pair<long, long>>{{1, 6}, {2, 6}, {3, 6}, {4, 6}, {5, 6}, {6, 6}}), told);
    EXPECT_TRUE(report == tkTrainingReport(data, tkClassifierTrainParamsKNN(1)));
    EXPECT_TK_THROW(tkTrainingReport(data, tkClassifierTrainParamsKNN(1),
                                     [](long done, long)
                                     {
                                         if (done == 3)
                                             throw tkFailure(L"cancelled");
                                     }),
                    tkFailure, L"cancelled");
}

// ---- Nearest neighbours ---------------------------------------------------------------------------------------------

TEST(tkTrainingReport, namesMeasurementsThatNeighboursHardlySee)
{
    std::vector<Row> rows;
    for (const double x : {-1.0, 1.0})
        rows.push_back({0, {1000.0 * x, 99.0 * x, 101.0 * x, 1.0, 1e-3 * x}});
    EXPECT_EQ((std::vector<long>{1, 4}), tkTrainingReport(dataOf(rows), tkClassifierTrainParamsKNN(1)).outweighed());
    EXPECT_TRUE(tkTrainingReport(dataOf(rows), tkClassifierTrainParamsBayesian()).outweighed().empty());
    const tkClassifierDataProviderMemory data = dataOf(rows);
    EXPECT_TRUE(
        tkTrainingReport(tkPatternScaler(data).apply(data), tkClassifierTrainParamsKNN(1)).outweighed().empty());
}

namespace
{
/// A metric that is no norm distance.
class FirstMeasurement : public tkPatternDistanceMetricNorm
{
public:
    double distance(const tkFeaturePattern& a, const tkFeaturePattern& b) const override
    {
        return std::abs(a.featureMeasurement(0, true) - b.featureMeasurement(0, true));
    }
    tkPtrHandle<tkPatternDistanceMetric> clone() const override
    {
        return tkPtrHandle<tkPatternDistanceMetric>(new FirstMeasurement(*this));
    }
};
} // namespace

TEST(tkTrainingReport, knowsNothingOfWhatAnotherMetricSees)
{
    tkClassifierTrainParamsKNN params(1);
    params.distanceMetric(FirstMeasurement());
    const tkTrainingReport report(dataOf({{0, {1000.0, 1.0}}, {1, {2000.0, 2.0}}}), params);
    EXPECT_TRUE(report.trainingError().empty());
    EXPECT_TRUE(report.outweighed().empty());
}

// ---- Text -----------------------------------------------------------------------------------------------------------

TEST(tkTrainingReport, textHasALineForEachPoint)
{
    EXPECT_EQ(L"Category 4: 5 patterns, 5 complete.\n"
              L"Category 9: 6 patterns, 5 complete.\n"
              L"Without a label: 1 pattern.\n"
              L"Measurement 0: 0 invalid, 0 not finite, deviation 50.8, eta squared 0.694.\n"
              L"Measurement 1: 0 invalid, 0 not finite, deviation 3.01, eta squared 0.03.\n"
              L"Measurement 2: 1 invalid, 0 not finite, deviation 0.453, eta squared 0.216, constant in category 4.\n"
              L"Category 4, measurements 0, 1: learned from 5 patterns; 20 are advised.\n"
              L"Category 4, measurement 2: learned from 5 patterns; 10 are advised.\n"
              L"Category 9, measurement 0: learned from 6 patterns; 10 are advised.\n"
              L"Category 9, measurement 1: learned from 6 patterns; 10 are advised.\n"
              L"Category 9, measurement 2: learned from 5 patterns; 10 are advised.\n"
              L"Category 4, measurements 0, 1: nearly dependent. In units of deviations, 0.707 m0 - 0.707 m1 has the "
              L"deviation 0.0125.\n"
              L"Patterns 2, 10 are equal, but not their labels.\n"
              L"Pattern 2 of category 4: a training without it says 9 with score 1.\n"
              L"Pattern 10 of category 9: a training without it says 4 with score 1.\n",
              golden::trainingReport().text());
}

TEST(tkTrainingReport, textTellsOfTrainingsThatFail)
{
    std::vector<Row> rows = rowsAbout(2, 3, 2);
    rows[3].measurements[1] = rows[4].measurements[1] = notANumber;
    EXPECT_TRUE(contains(tkTrainingReport(dataOf(rows), joint(2)).text(),
                         L"Not judged, since a training without the pattern fails, or its run: 1 pattern."));
    EXPECT_TRUE(
        contains(tkTrainingReport(dataOf(rows), joint(2)).text(),
                 L"Category 1, measurements 0, 1: learned from 1 pattern; 20 are advised, and the covariance is "
                 L"singular."));
    rows[5].measurements[0] = notANumber;
    EXPECT_TRUE(contains(tkTrainingReport(dataOf(rows), joint(2)).text(),
                         L"The training fails: No valid data has been used to train the distribution for category 1"));
}

TEST(tkTrainingReport, textLeavesOutWhatHardlyTakesPartInADirection)
{
    std::vector<Row> rows = rowsAbout(1, 40, 3);
    for (Row& row : rows)
        row.measurements[2] = row.measurements[0];
    const std::wstring text = tkTrainingReport(dataOf(rows), joint(3)).text();
    EXPECT_NE(std::wstring::npos, text.find(L"In units of deviations, 0.707 m0 - 0.707 m2 has the deviation "));
}

TEST(tkTrainingReport, textNamesWhatNeighboursHardlySee)
{
    const tkTrainingReport report(dataOf({{0, {1000.0, 1.0, 3.0}}, {0, {2000.0, 2.0, 3.0}}}),
                                  tkClassifierTrainParamsKNN(1));
    EXPECT_TRUE(
        contains(report.text(), L"Nearest neighbours hardly see measurement 1: the patterns need to be scaled."));
    EXPECT_TRUE(contains(report.text(), L"Measurement 2: 0 invalid, 0 not finite, constant."));
}

// ---- Comparison, copies, record -------------------------------------------------------------------------------------

TEST(tkTrainingReport, equalityTakesInAllFields)
{
    const tkTrainingReport report = golden::trainingReport();
    EXPECT_TRUE(report == golden::trainingReport());
    EXPECT_FALSE(report != golden::trainingReport());
    EXPECT_FALSE(report == tkTrainingReport());
    // Each byte of the record that is not part of a version or a count belongs to a field.
    const std::string bytes = storeToBytes(report);
    std::size_t compared = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i)
    {
        std::string changed = bytes;
        changed[i] = static_cast<char>(changed[i] ^ 1);
        tkTrainingReport other;
        try
        {
            loadFromBytes(changed, other);
        }
        catch (const tkArchive::Errors&)
        {
            continue;
        }
        EXPECT_TRUE(report != other) << i;
        ++compared;
    }
    EXPECT_GT(compared, bytes.size() / 2);
}

TEST(tkTrainingReport, assigningWithoutMemoryChangesNothing)
{
    const tkTrainingReport other = golden::trainingReport();
    expectUnchangedWithoutMemory(reportOf({1, 1}, {2, 3}), [&](tkTrainingReport& report) { report = other; });
    tkTrainingReport copy(other);
    copy = reportOf({1, 1}, {2, 3});
    EXPECT_TRUE(copy == reportOf({1, 1}, {2, 3}));
    EXPECT_TRUE(other == golden::trainingReport());
}

TEST(tkTrainingReport, goldenArchiveComesBackEqualAndStoresToTheSameBytes)
{
    const std::string bytes = goldenBytes("tkTrainingReport.v0.bin");
    tkTrainingReport loaded = reportOf({1, 1}, {2, 3});
    loadFromBytes(bytes, loaded);
    EXPECT_TRUE(loaded == golden::trainingReport());
    EXPECT_EQ(bytes, storeToBytes(loaded));
    EXPECT_EQ(bytes, storeToBytes(golden::trainingReport()));
}

TEST(tkTrainingReport, otherVersionIsRefusedBeforeFurtherReading)
{
    tkTrainingReport loaded = golden::trainingReport();
    EXPECT_THROW(loadFromBytes("\1", loaded), tkArchive::UnknownVersion);
    EXPECT_TRUE(loaded == golden::trainingReport());
}

TEST(tkTrainingReport, truncatedRecordChangesNothing)
{
    const std::string bytes = goldenBytes("tkTrainingReport.v0.bin");
    const tkTrainingReport before = reportOf({1, 1}, {2, 3});
    for (std::size_t length = 1; length < bytes.size(); ++length)
    {
        tkTrainingReport loaded = before;
        EXPECT_THROW(loadFromBytes(bytes.substr(0, length), loaded), tkArchive::Errors) << length;
        EXPECT_TRUE(loaded == before) << length;
    }
}

TEST(tkTrainingReport, directionWithAnotherNumberOfWeightsIsRefused)
{
    std::ostringstream stream;
    {
        tkArchive archive(stream);
        archive.exchangeVersion();
        std::vector<long> none;
        long zero = 0;
        archive || none || zero || none || none; // categories, unlabelled patterns, measurements, scarce sets
        archive.exchangeVersion();
        unsigned long one = 1;
        std::vector<long> measurements = {3, 5};
        std::vector<double> weights = {1.0};
        archive || one || zero || measurements || weights;
    }
    tkTrainingReport loaded = golden::trainingReport();
    EXPECT_TK_THROW(loadFromBytes(stream.str(), loaded), tkArchive::Errors,
                    L"A nearly dependent direction has not as many weights as measurements (reading, at byte 55)");
    EXPECT_TRUE(loaded == golden::trainingReport());
}
