#include "numerics/kernels/tkNMMarginalLanes.h"

#include "instructionSets.h"
#include "tests/numerics/factorisations.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>

using factorisations::anyNumber;

namespace
{
using Lanes = std::vector<tkNMCovarianceFactor>; // one distribution in each lane

/// What the struct's comment says of the memory that it computes from, for `width` distributions.
template <std::size_t width>
struct Laid
{
    std::vector<double> terms;
    std::vector<double> columns;
    std::vector<std::size_t> invalid;

    Laid(const Lanes& lanes, const double* v, const bool* valid)
    {
        using Marginal = tkNMMarginalLanes<width>;
        const std::size_t size = lanes.front().w.dimension();
        terms.assign(width * Marginal::numTerms(size), -77.0);
        for (std::size_t l = 0; l < width; ++l)
        {
            std::size_t next = l;
            Marginal::putTerms(lanes[l],
                               [&](double term)
                               {
                                   terms.at(next) = term;
                                   next += width;
                               });
            EXPECT_EQ(next, terms.size() + l);
        }
        const std::size_t rows = (size + 7) / 8 * 8;
        for (std::size_t j = 0; j < size; ++j)
            if (!valid[j])
            {
                invalid.push_back(j);
                EXPECT_EQ(Marginal::blocksOf(j, size), (rows - j / 8 * 8) / 8);
                for (std::size_t i = j / 8 * 8; i < rows; ++i)
                    for (std::size_t l = 0; l < width; ++l)
                    {
                        const double divisor = *(Marginal::divisorOf(terms.data(), j) + l);
                        EXPECT_EQ(divisor, std::ldexp(1.0, -lanes[l].measurements[j].exponent));
                        columns.push_back(i >= j && i < size ? lanes[l].w(i, j) * divisor : 0.0);
                    }
            }
        for (std::size_t i = 0; i < rows; ++i)
            for (std::size_t l = 0; l < width; ++l)
            {
                double sum = 0.0;
                for (std::size_t j = 0; j < size && i < size && j <= i; ++j)
                    sum += lanes[l].w(i, j) * (valid[j] ? v[j] : 0.0);
                columns.push_back(sum);
            }
    }
};

/// Compares the marginals in all lanes with those of the definition, where these are finite; returns how many are.
template <std::size_t width>
int compareLanes(const Lanes& lanes, const double* v, const bool* valid, tkNMInstructions set)
{
    using Marginal = tkNMMarginalLanes<width>;
    const std::size_t size = lanes.front().w.dimension();
    Laid<width> laid(lanes, v, valid);
    std::vector<double> squares((width * laid.invalid.size() + 7) / 8 * 8);
    typename Marginal::Register logPeak;
    typename Marginal::Register square;
    Marginal::compute(laid.terms.data(), valid, size, laid.invalid.data(), laid.invalid.size(), laid.columns.data(),
                      squares.data(), set, logPeak, square);
    double logPeaks[width];
    double squaresOfLanes[width];
    storeRegister(logPeak, logPeaks);
    storeRegister(square, squaresOfLanes);
    int finite = 0;
    for (std::size_t l = 0; l < width; ++l)
    {
        const tkNMCovarianceFactor::Marginal expected = lanes[l].marginal(v, valid, tkNMInstructions::Definition);
        if (!std::isfinite(expected.logPeak) || !std::isfinite(expected.square))
            continue;
        ++finite;
        EXPECT_EQ(logPeaks[l], expected.logPeak) << size << " measurements, lane " << l << ' ' << set;
        EXPECT_EQ(squaresOfLanes[l], expected.square) << size << " measurements, lane " << l << ' ' << set;
    }
    return finite;
}

template <std::size_t width>
void expectDefinition(unsigned seed)
{
    std::mt19937_64 generator(seed);
    int finite = 0;
    int compared = 0;
    for (std::size_t size = 2; size <= 50; size += size < 20 ? 1 : 5)
        for (int round = 0; round < 12; ++round)
        {
            Lanes lanes;
            for (std::size_t l = 0; l < width; ++l)
                lanes.push_back(factorisations::random(size, generator).covariance);
            const auto v = std::make_unique<double[]>(size);
            const auto valid = std::make_unique<bool[]>(size);
            const std::size_t share = 1 + generator() % 9;
            for (std::size_t j = 0; j < size; ++j)
            {
                valid[j] = generator() % 10 >= share;
                v[j] = anyNumber(generator, false);
            }
            valid[generator() % size] = true;
            std::size_t other = generator() % size;
            if (std::count(valid.get(), valid.get() + size, true) == 1)
                while (valid[other])
                    other = (other + 1) % size;
            valid[other] = false;
            if (std::count(valid.get(), valid.get() + size, true) == 0)
                valid[(other + 1) % size] = true;
            for (const tkNMInstructions set : kernelSets())
            {
                finite += compareLanes<width>(lanes, v.get(), valid.get(), set);
                compared += static_cast<int>(width);
            }
        }
    EXPECT_GT(finite, compared * 9 / 10);
}
} // namespace

TEST(tkNMMarginalLanes, haveTheMarginalsOfTheDefinitionInEveryWidth)
{
    expectDefinition<1>(61);
#if defined(__GNUC__)
    expectDefinition<2>(62); // wider ones than the target has are spilled, with the same results
    expectDefinition<4>(63);
    expectDefinition<8>(64);
#endif
}

TEST(tkNMMarginalLanes, oneInvalidMeasurementAtATimeAndAllButOne)
{
    std::mt19937_64 generator(65);
    constexpr std::size_t width = plainWidth;
    for (const std::size_t size : {2u, 8u, 9u, 16u, 17u, 33u})
    {
        Lanes lanes;
        for (std::size_t l = 0; l < width; ++l)
            lanes.push_back(factorisations::random(size, generator).covariance);
        std::vector<double> v(size);
        for (double& each : v)
            each = anyNumber(generator, false);
        const auto valid = std::make_unique<bool[]>(size);
        for (const bool areMostValid : {true, false})
            for (std::size_t j = 0; j < size; ++j)
            {
                std::fill_n(valid.get(), size, areMostValid);
                valid[j] = !areMostValid;
                for (const tkNMInstructions set : kernelSets())
                    EXPECT_EQ(compareLanes<width>(lanes, v.data(), valid.get(), set), static_cast<int>(width));
            }
    }
}

TEST(tkNMMarginalLanes, lanesDoNotAffectOneAnother)
{
#if defined(__GNUC__)
    std::mt19937_64 generator(66);
    const std::size_t size = 11;
    Lanes lanes;
    for (std::size_t l = 0; l < 4; ++l)
        lanes.push_back(factorisations::random(size, generator).covariance);
    const std::vector<double> v(size, 0.75);
    const auto valid = std::make_unique<bool[]>(size);
    for (std::size_t j = 0; j < size; ++j)
        valid[j] = j % 3 != 1;
    for (std::size_t odd = 0; odd < 4; ++odd)
    {
        Lanes changed(lanes);
        changed[odd].w(3, 1) = std::numeric_limits<double>::quiet_NaN();
        changed[odd].lnDeterminant = HUGE_VAL;
        for (const tkNMInstructions set : kernelSets())
            EXPECT_EQ(compareLanes<4>(changed, v.data(), valid.get(), set), 3); // the others
    }
#endif
}

TEST(tkNMMarginalLanes, aLaneWithoutTermsIsZero)
{
    constexpr std::size_t width = plainWidth;
    std::mt19937_64 generator(67);
    const std::size_t size = 5;
    Lanes lanes;
    for (std::size_t l = 0; l < width; ++l)
        lanes.push_back(factorisations::random(size, generator).covariance);
    tkNMCovarianceFactor& none = lanes.back();
    for (std::size_t i = 0; i < size; ++i)
    {
        none.measurements[i] = {tkNMCovarianceFactor::eSameEverywhere, 0};
        for (std::size_t j = 0; j <= i; ++j)
            none.w(i, j) = 0.0;
    }
    const double v[] = {1.0, -2.0, 3.0, 1e300, 0.0};
    const bool valid[] = {true, false, true, false, true};
    for (const tkNMInstructions set : kernelSets())
        EXPECT_EQ(compareLanes<width>(lanes, v, valid, set), static_cast<int>(width));
}
