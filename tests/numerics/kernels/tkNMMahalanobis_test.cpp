#include "numerics/kernels/tkNMMahalanobis.h"

#include "instructionSets.h"
#include "tests/numerics/factorisations.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>
#include <vector>

using factorisations::anyNumber;
using factorisations::haveSameBits;

TEST(tkNMMahalanobis, everyInstructionSetHasTheBitsOfTheDefinition)
{
    std::mt19937_64 generator(5);
    for (std::size_t d = 2; d <= 140; d += d < 40 ? 1 : 7)
        for (int kind = 0; kind < 8; ++kind)
        {
            const tkNMFactorisation f = factorisations::random(d, generator, kind == 1, kind == 2, kind == 3);
            for (int query = 0; query < 4; ++query)
            {
                // At the end of its memory, so that a sanitizer sees a read beyond it; and not aligned.
                const auto memory = std::make_unique<double[]>(d + 1);
                for (std::size_t j = 0; j < d; ++j)
                    memory[1 + j] = anyNumber(generator, kind >= 4);
                if (kind == 7)
                    memory[1 + generator() % d] = HUGE_VAL;
                const double expected = f.squaredDistance(memory.get() + 1, tkNMInstructions::Definition);
                for (const tkNMInstructions set : instructionSets())
                    ASSERT_TRUE(haveSameBits(tkNMSquaredMahalanobis(f, memory.get() + 1, set), expected))
                        << d << ' ' << kind << ' ' << set;
            }
        }
}

TEST(tkNMMahalanobis, takesMoreMeasurementsThanTheStackHolds)
{
    const std::size_t d = 300;
    std::mt19937_64 generator(15);
    const tkNMFactorisation f = factorisations::random(d, generator);
    const std::vector<double> zeros(d);
    for (const tkNMInstructions set : instructionSets())
        EXPECT_EQ(tkNMSquaredMahalanobis(f, zeros.data(), set), factorisations::squaredDistance(f, zeros.data()));
}

TEST(tkNMMahalanobis, everyInstructionSetHasTheMarginalsOfTheDefinition)
{
    std::mt19937_64 generator(25);
    int finite = 0;
    for (std::size_t d = 1; d <= 140; d += d < 40 ? 1 : 7)
        for (int kind = 0; kind < 8; ++kind)
        {
            const tkNMFactorisation f = factorisations::random(d, generator, false, false, kind == 3);
            for (std::size_t share = 0; share <= 10; share += 2)
            {
                const auto v = std::make_unique<double[]>(d);
                const auto valid = std::make_unique<bool[]>(d);
                for (std::size_t j = 0; j < d; ++j)
                {
                    valid[j] = generator() % 10 >= share;
                    v[j] = valid[j] ? anyNumber(generator, kind >= 6) : std::nan(""); // which is not read
                }
                if (share == 0)
                    valid[generator() % d] = false;
                const tkNMCovarianceFactor::Marginal expected =
                    f.covariance.marginal(v.get(), valid.get(), tkNMInstructions::Definition);
                finite += std::isfinite(expected.logPeak) && std::isfinite(expected.square) ? 1 : 0;
                for (const tkNMInstructions set : instructionSets())
                {
                    const tkNMCovarianceFactor::Marginal found = f.covariance.marginal(v.get(), valid.get(), set);
                    ASSERT_TRUE(haveSameBits(found.logPeak, expected.logPeak)) << d << ' ' << kind << ' ' << set;
                    ASSERT_TRUE(haveSameBits(found.square, expected.square)) << d << ' ' << kind << ' ' << set;
                }
            }
        }
    EXPECT_GT(finite, 1500);
}

namespace
{
struct Projection
{
    double square;
    std::vector<double> squares;
};

/// The method of Gram and Schmidt of tkNMCovarianceFactor::marginal's comment, with its sums by eights.
Projection projectionOf(const tkNMCovarianceFactor& f, const std::vector<double>& v,
                        const std::vector<std::size_t>& invalid)
{
    const std::size_t d = f.w.dimension();
    const std::size_t rows = (d + 7) / 8 * 8;
    const auto product = [rows](const std::vector<double>& a, const std::vector<double>& b, std::size_t first)
    {
        double q[8] = {};
        for (std::size_t i = first / 8 * 8; i < rows; ++i)
            q[i % 8] += a[i] * b[i];
        return ((q[0] + q[4]) + (q[2] + q[6])) + ((q[1] + q[5]) + (q[3] + q[7]));
    };
    std::vector<std::vector<double>> columns;
    for (const std::size_t j : invalid)
    {
        columns.emplace_back(rows);
        for (std::size_t i = j; i < d; ++i)
            columns.back()[i] = f.w(i, j) * std::ldexp(1.0, -f.measurements[j].exponent);
    }
    std::vector<double> residual(rows);
    for (std::size_t i = 0; i < d; ++i)
        for (std::size_t j = 0; j <= i; ++j)
            residual[i] += f.w(i, j) * v[j];
    Projection projection{0.0, std::vector<double>(invalid.size())};
    for (std::size_t k = invalid.size(); k-- > 0;)
    {
        const double square = projection.squares[k] = product(columns[k], columns[k], invalid[k]);
        std::vector<std::vector<double>*> others;
        for (std::size_t other = 0; other < k; ++other)
            others.push_back(&columns[other]);
        others.push_back(&residual);
        for (std::vector<double>* const other : others)
        {
            const double factor = product(columns[k], *other, invalid[k]) / square;
            for (std::size_t i = invalid[k] / 8 * 8; i < rows; ++i)
                (*other)[i] -= factor * columns[k][i];
        }
    }
    projection.square = product(residual, residual, 0);
    return projection;
}
} // namespace

TEST(tkNMMahalanobis, everyInstructionSetHasTheProjectionsOfTheFormula)
{
    std::mt19937_64 generator(35);
    for (std::size_t d = 2; d <= 60; d += d < 20 ? 1 : 5)
        for (std::size_t share = 0; share <= 10; share += 2)
        {
            const tkNMFactorisation f = factorisations::random(d, generator);
            std::vector<std::size_t> invalid;
            std::vector<double> v((d + 7) / 8 * 8);
            for (std::size_t j = 0; j < d; ++j)
                if (generator() % 10 < share && factorisations::hasTerm(f, j))
                    invalid.push_back(j);
                else
                    v[j] = anyNumber(generator, false);
            const Projection expected = projectionOf(f.covariance, v, invalid);
            for (const tkNMInstructions set : instructionSets())
            {
                std::vector<double> squares(invalid.size() + 1, -7.0);
                const double square =
                    tkNMProject(f.covariance, v.data(), invalid.data(), invalid.size(), squares.data(), set);
                EXPECT_EQ(squares.back(), -7.0);
                squares.pop_back();
                ASSERT_TRUE(haveSameBits(square, expected.square)) << d << ' ' << share << ' ' << set;
                ASSERT_EQ(squares, expected.squares) << d << ' ' << share << ' ' << set;
            }
        }
}

/// What is left of a column that others determine is nothing, and a point in the span of the invalid ones is at 0.
TEST(tkNMMahalanobis, aPointThatTheInvalidMeasurementsExplainIsAtDistanceZero)
{
    const std::size_t d = 3;
    tkNMCovarianceFactor f;
    f.w = tkNMTriangle(d);
    f.measurements.assign(d, {tkNMCovarianceFactor::eVaries, 0});
    f.w(0, 0) = 1.0;
    f.w(1, 0) = 2.0;
    f.w(1, 1) = 1.0;
    f.w(2, 2) = 1.0;
    for (const tkNMInstructions set : instructionSets())
    {
        const std::size_t invalid[] = {0, 2};
        double squares[2];
        const double beside[8] = {0.0, 1.0};
        // Column 0 is (1, 2, 0): of W v = (0, 1, 0) it leaves 1 - 4 / 5.
        EXPECT_DOUBLE_EQ(tkNMProject(f, beside, invalid, 2, squares, set), 0.2) << set;
        EXPECT_EQ(squares[0], 5.0);
        EXPECT_EQ(squares[1], 1.0);
        const double nothing[8] = {};
        EXPECT_EQ(tkNMProject(f, nothing, invalid, 2, squares, set), 0.0) << set;
        EXPECT_EQ(tkNMProject(f, beside, invalid, 0, squares, set), 1.0) << set;
    }
}
