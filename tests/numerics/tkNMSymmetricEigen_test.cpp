#include "numerics/tkNMSymmetricEigen.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace
{
using Values = std::vector<double>;

/// The largest element of A v - l v, and of V V' - I.
double largestError(std::size_t d, const Values& matrix, const Values& vectors, const Values& values)
{
    double largest = 0.0;
    for (std::size_t i = 0; i < d; ++i)
        for (std::size_t j = 0; j < d; ++j)
        {
            double product = 0.0;
            double inner = 0.0;
            for (std::size_t k = 0; k < d; ++k)
            {
                product += matrix[j * d + k] * vectors[i * d + k];
                inner += vectors[i * d + k] * vectors[j * d + k];
            }
            largest = std::max(largest, std::fabs(product - values[i] * vectors[i * d + j]));
            largest = std::max(largest, std::fabs(inner - (i == j ? 1.0 : 0.0)));
        }
    return largest;
}

/// The eigenvalues, ascending; checks what belongs to them.
Values eigenvaluesOf(std::size_t d, const Values& matrix, double tolerance)
{
    Values vectors(matrix);
    Values values(d);
    EXPECT_TRUE(tkNMSymmetricEigen(d, vectors.data(), values.data()));
    EXPECT_LT(largestError(d, matrix, vectors, values), tolerance) << d;
    std::sort(values.begin(), values.end());
    return values;
}

/// G G' of d rows and `rank` columns, as correlations.
Values randomCorrelation(std::size_t d, std::size_t rank, std::mt19937_64& generator)
{
    std::normal_distribution<double> deviate;
    Values g(d * rank);
    for (double& v : g)
        v = deviate(generator);
    Values matrix(d * d);
    for (std::size_t i = 0; i < d; ++i)
        for (std::size_t j = 0; j < d; ++j)
            for (std::size_t k = 0; k < rank; ++k)
                matrix[i * d + j] += g[i * rank + k] * g[j * rank + k];
    Values deviations;
    for (std::size_t i = 0; i < d; ++i)
        deviations.push_back(std::sqrt(matrix[i * d + i]));
    for (std::size_t i = 0; i < d; ++i)
        for (std::size_t j = 0; j < d; ++j)
            matrix[i * d + j] = i == j ? 1.0 : matrix[i * d + j] / (deviations[i] * deviations[j]);
    return matrix;
}
} // namespace

TEST(tkNMSymmetricEigen, findsTheEigenvectorsOfCorrelationsOfEveryRank)
{
    std::mt19937_64 generator(1);
    for (std::size_t d = 1; d <= 40; ++d)
    {
        const double tolerance = 2e-15 * static_cast<double>(d + 2); // eigenvalues are d at most
        for (const std::size_t rank : {std::size_t(1), (d + 1) / 2, d, 2 * d})
        {
            const Values values = eigenvaluesOf(d, randomCorrelation(d, rank, generator), tolerance);
            for (std::size_t i = 0; i + rank < d; ++i)
                EXPECT_NEAR(values[i], 0.0, tolerance) << d << ' ' << rank;
        }
    }
}

/// 2 on the diagonal, -1 beside it: 2 - 2 cos(pi k / (d + 1)).
TEST(tkNMSymmetricEigen, findsKnownEigenvalues)
{
    for (const std::size_t d : {1u, 2u, 3u, 10u, 65u})
    {
        Values matrix(d * d);
        for (std::size_t i = 0; i < d; ++i)
        {
            matrix[i * d + i] = 2.0;
            if (i + 1 < d)
                matrix[i * d + i + 1] = matrix[(i + 1) * d + i] = -1.0;
        }
        const Values values = eigenvaluesOf(d, matrix, 1e-13);
        for (std::size_t k = 1; k <= d; ++k)
            EXPECT_NEAR(
                values[k - 1],
                2.0 - 2.0 * std::cos(3.14159265358979323846 * static_cast<double>(k) / static_cast<double>(d + 1)),
                1e-13);
    }
}

TEST(tkNMSymmetricEigen, leavesDiagonalMatricesAsTheyAre)
{
    tkNMSymmetricEigen(0, nullptr, nullptr);
    const std::size_t d = 5;
    Values matrix(d * d);
    for (std::size_t i = 0; i < d; ++i)
        matrix[i * d + i] = static_cast<double>(7 * i % 5) - 1.0; // with a zero
    Values vectors(matrix);
    Values values(d);
    ASSERT_TRUE(tkNMSymmetricEigen(d, vectors.data(), values.data()));
    for (std::size_t i = 0; i < d; ++i)
        for (std::size_t j = 0; j < d; ++j)
        {
            EXPECT_EQ(vectors[i * d + j], i == j ? 1.0 : 0.0);
            EXPECT_EQ(values[i], matrix[i * d + i]);
        }
    Values zeros(d * d);
    ASSERT_TRUE(tkNMSymmetricEigen(d, zeros.data(), values.data()));
    EXPECT_EQ(values, Values(d));
}

TEST(tkNMSymmetricEigen, givesUpOnWhatIsNotFinite)
{
    for (const double strange : {std::nan(""), HUGE_VAL, 1e300})
        for (std::size_t position = 0; position < 4; ++position)
        {
            const std::size_t d = 6;
            Values matrix(d * d, 0.5);
            for (std::size_t i = 0; i < d; ++i)
                matrix[i * d + i] = 1.0;
            matrix[position * d + 4] = matrix[4 * d + position] = strange;
            Values values(d);
            EXPECT_FALSE(tkNMSymmetricEigen(d, matrix.data(), values.data())) << strange << ' ' << position;
        }
}

/// The identity has one eigenvalue d times, all ones have d once and 0 otherwise.
TEST(tkNMSymmetricEigen, findsRepeatedEigenvalues)
{
    for (const std::size_t d : {2u, 3u, 8u, 33u})
    {
        Values identity(d * d);
        for (std::size_t i = 0; i < d; ++i)
            identity[i * d + i] = 1.0;
        EXPECT_EQ(eigenvaluesOf(d, identity, 1e-15), Values(d, 1.0));
        const double tolerance = 2e-15 * static_cast<double>(d);
        const Values values = eigenvaluesOf(d, Values(d * d, 1.0), tolerance);
        for (std::size_t i = 0; i + 1 < d; ++i)
            EXPECT_NEAR(values[i], 0.0, tolerance);
        EXPECT_NEAR(values.back(), static_cast<double>(d), tolerance);
    }
}

/// [a b; b c] has (a + c) / 2 +- sqrt(((a - c) / 2)^2 + b^2).
TEST(tkNMSymmetricEigen, findsBothEigenvaluesOfTwoByTwo)
{
    std::mt19937_64 generator(3);
    std::normal_distribution<double> deviate;
    for (int i = 0; i < 1000; ++i)
    {
        const double a = deviate(generator), b = deviate(generator), c = deviate(generator);
        const Values values = eigenvaluesOf(2, {a, b, b, c}, 1e-14);
        const double root = std::hypot((a - c) / 2.0, b);
        EXPECT_NEAR(values[0], (a + c) / 2.0 - root, 1e-14);
        EXPECT_NEAR(values[1], (a + c) / 2.0 + root, 1e-14);
    }
}

TEST(tkNMSymmetricEigen, eigenvaluesHaveTheTraceAndTheSumOfSquaresOfTheMatrix)
{
    std::mt19937_64 generator(4);
    for (std::size_t d = 1; d <= 64; d += 7)
    {
        const Values matrix = randomCorrelation(d, d, generator);
        double squares = 0.0;
        for (const double v : matrix)
            squares += v * v;
        double sum = 0.0;
        double squaresOfValues = 0.0;
        for (const double v : eigenvaluesOf(d, matrix, 2e-15 * static_cast<double>(d + 2)))
        {
            sum += v;
            squaresOfValues += v * v;
        }
        EXPECT_NEAR(sum, static_cast<double>(d), 1e-13 * static_cast<double>(d));
        EXPECT_NEAR(squaresOfValues, squares, 1e-13 * squares);
    }
}

/// A matrix in another order of the measurements has the same eigenvalues, but for rounding.
TEST(tkNMSymmetricEigen, theOrderOfRowsMakesNoDifference)
{
    std::mt19937_64 generator(5);
    const std::size_t d = 12;
    const Values matrix = randomCorrelation(d, 2 * d, generator);
    Values turned(d * d);
    for (std::size_t i = 0; i < d; ++i)
        for (std::size_t j = 0; j < d; ++j)
            turned[i * d + j] = matrix[(d - 1 - i) * d + (d - 1 - j)];
    const Values values = eigenvaluesOf(d, matrix, 1e-13);
    const Values valuesOfTurned = eigenvaluesOf(d, turned, 1e-13);
    for (std::size_t i = 0; i < d; ++i)
        EXPECT_NEAR(values[i], valuesOfTurned[i], 1e-14);
}

/// Multiplying by a power of two changes no digit, as long as nothing underflows.
TEST(tkNMSymmetricEigen, scalesWithTheMatrix)
{
    std::mt19937_64 generator(6);
    const std::size_t d = 9;
    const Values matrix = randomCorrelation(d, 2 * d, generator);
    for (const double scale : {0x1p-20, 0x1p20})
    {
        Values scaled(matrix);
        for (double& v : scaled)
            v *= scale;
        Values vectors(matrix);
        Values values(d);
        Values valuesOfScaled(d);
        ASSERT_TRUE(tkNMSymmetricEigen(d, vectors.data(), values.data()));
        ASSERT_TRUE(tkNMSymmetricEigen(d, scaled.data(), valuesOfScaled.data()));
        for (std::size_t i = 0; i < d; ++i)
            EXPECT_NEAR(valuesOfScaled[i], values[i] * scale, 1e-14 * scale);
    }
}
