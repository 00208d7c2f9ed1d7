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
