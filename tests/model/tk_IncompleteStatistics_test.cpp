#include "clss/model/tk_IncompleteStatistics.h"

#include "tests/model/incompleteTestData.h"

using namespace incompleteTest;

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

/// The statistics after one step, from its formulas: the regression of each gap on what the row has starts from
/// independent measurements, so that a gap is filled by the mean and adds the variance.
TEST(tk_IncompleteStatistics, theFirstStepFillsGapsByTheMeans)
{
    const std::vector<std::vector<double>> rows{{1.0, 4.0}, {3.0, notANumber}, {8.0, 10.0}, {notANumber, 1.0}};
    const double mean[] = {4.0, 5.0};
    const double variance[] = {(9.0 + 1.0 + 16.0) / 3.0, (1.0 + 25.0 + 16.0) / 3.0};
    double sums[2][2] = {};
    for (const std::vector<double>& row : rows)
        for (std::size_t i = 0; i < 2; ++i)
            for (std::size_t j = 0; j < 2; ++j)
                if (!std::isnan(row[i]) && !std::isnan(row[j]))
                    sums[i][j] += (row[i] - mean[i]) * (row[j] - mean[j]);
                else if (i == j)
                    sums[i][j] += variance[i];
    const tkNMStatistics statistics = tk_incompleteStatistics(rows, noMoments(2), 1);
    EXPECT_EQ(4, statistics.count);
    for (std::size_t i = 0; i < 2; ++i)
    {
        EXPECT_NEAR(mean[i], statistics.mean[i], 1e-14);
        for (std::size_t j = 0; j <= i; ++j)
            EXPECT_NEAR(sums[i][j], statistics.crossProducts(i, j), 1e-12) << i << ' ' << j;
    }
}

TEST(tk_IncompleteStatistics, aMeasurementThatNoRowHasTakesTheMomentsOfTheOthers)
{
    const tkNMStatistics one = tk_incompleteStatistics({{2.0, notANumber}}, {{9.0, 9.0}, {-3.0, 16.0}}, 10);
    EXPECT_EQ(1, one.count);
    EXPECT_EQ(2.0, one.mean[0]);
    EXPECT_EQ(-3.0, one.mean[1]);
    EXPECT_EQ(0.0, one.crossProducts(0, 0));
    EXPECT_EQ(0.0, one.crossProducts(1, 0));
    EXPECT_EQ(0.0, one.crossProducts(1, 1)); // a count of one has no variance
    const tkNMStatistics three = tk_incompleteStatistics({{2.0, notANumber}, {4.0, notANumber}, {9.0, notANumber}},
                                                         {{9.0, 9.0}, {-3.0, 16.0}}, 10);
    EXPECT_NEAR(26.0, three.crossProducts(0, 0), 1e-13);
    EXPECT_EQ(0.0, three.crossProducts(1, 0));
    EXPECT_EQ(32.0, three.crossProducts(1, 1)); // so that the variance with divisor count - 1 is 16
}

TEST(tk_IncompleteStatistics, unitsOfPowersOfTwoChangeNothingButTheUnits)
{
    const Reference table = reference();
    const tkNMStatistics expected = tk_incompleteStatistics(table.patterns, noMoments(5), 30);
    std::vector<std::vector<double>> scaled = table.patterns;
    const int exponents[] = {40, -3, 0, 17, -60};
    for (std::vector<double>& row : scaled)
        for (std::size_t j = 0; j < 5; ++j)
            row[j] = std::ldexp(row[j], exponents[j]);
    const tkNMStatistics statistics = tk_incompleteStatistics(scaled, noMoments(5), 30);
    for (std::size_t i = 0; i < 5; ++i)
    {
        EXPECT_DOUBLE_EQ(std::ldexp(expected.mean[i], exponents[i]), statistics.mean[i]);
        for (std::size_t j = 0; j <= i; ++j)
            EXPECT_NEAR(expected.crossProducts(i, j),
                        std::ldexp(statistics.crossProducts(i, j), -exponents[i] - exponents[j]),
                        1e-12 * std::sqrt(expected.crossProducts(i, i) * expected.crossProducts(j, j)));
    }
}

/// Of each measurement alone nothing is to be learned from the others.
TEST(tk_IncompleteStatistics, rowsThatHaveOneMeasurementEachGiveIndependentOnes)
{
    const tkNMStatistics statistics = tk_incompleteStatistics(
        {{1.0, notANumber}, {3.0, notANumber}, {notANumber, 10.0}, {notANumber, 20.0}}, noMoments(2), 100);
    EXPECT_EQ(4, statistics.count);
    EXPECT_NEAR(2.0, statistics.mean[0], 1e-12);
    EXPECT_NEAR(15.0, statistics.mean[1], 1e-12);
    EXPECT_NEAR(4.0 * 1.0, statistics.crossProducts(0, 0), 1e-12);
    EXPECT_NEAR(0.0, statistics.crossProducts(1, 0), 1e-12);
    EXPECT_NEAR(4.0 * 25.0, statistics.crossProducts(1, 1), 1e-11);
}
