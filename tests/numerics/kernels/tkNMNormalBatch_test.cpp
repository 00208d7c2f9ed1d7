#include "numerics/kernels/tkNMNormalBatch.h"

#include "foundation/tkAssert.h"
#include "instructionSets.h"
#include "numerics/tkNMNormal.h"
#include "tests/numerics/factorisations.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>

using factorisations::anyNumber;
using factorisations::haveSameBits;

namespace
{
using Sets = std::vector<tkNMNormalBatch::Set>;
using Densities = std::vector<tkNMNormalBatch::Density>;
using Categories = std::vector<tkNMNormalBatch::Category>;

/// What the definition gives for one category.
struct Expected
{
    double sum = 0.0;
    double squares = 0.0;
    bool isTermless = false; // a measurement that is not finite has no term
};

Expected expectedOf(const Densities& densities, const double* x, double start = 0.0)
{
    Expected expected;
    expected.sum = start;
    for (const tkNMNormalBatch::Density& density : densities)
    {
        const double* const point = x + density.first;
        expected.squares += density.factorisation->squaredDistance(point, tkNMInstructions::Definition);
        expected.sum += density.factorisation->logDensity(point, tkNMInstructions::Definition);
        const tkNMFactorisation& f = *density.factorisation;
        for (std::size_t j = 0; j < f.dimension(); ++j)
            if (!factorisations::hasTerm(f, j) && !std::isfinite((point[j] - f.mean[j]) - f.compensation[j]))
                expected.isTermless = true;
    }
    return expected;
}

Categories alike(std::size_t count, const Densities& densities)
{
    Categories categories;
    for (std::size_t c = 0; c < count; ++c)
        categories.push_back({c, densities});
    return categories;
}

const std::vector<Sets> shapes{
    {},
    {{0, 1}},
    {{0, 1}, {1, 1}, {2, 1}, {7, 1}},
    {{3, 2}, {0, 3}},
    {{0, 4}, {6, 1}, {4, 2}},
    {{1, 5}, {0, 7}},
    {{0, 8}},
    {{2, 13}, {0, 1}},
    {{0, 16}, {16, 6}},
    {{1, 31}},
    {{0, 47}},
};
} // namespace

TEST(tkNMNormalBatch, everyInstructionSetHasTheSumsOfTheDefinition)
{
    std::mt19937_64 generator(16);
    const std::size_t reach = 48;
    int sums = 0;
    int refused = 0;
    for (int round = 0; round < 500; ++round)
    {
        const bool isHostile = round % 3 == 2;
        Categories categories(generator() % 24);
        std::vector<std::unique_ptr<tkNMFactorisation>> factorised;
        const std::size_t sparse = 1 + generator() % 3;
        for (std::size_t c = 0; c < categories.size(); ++c)
        {
            categories[c].number = (categories.size() - 1 - c) * sparse;
            for (const auto& set : shapes[(static_cast<std::size_t>(round) + generator() % 3) % shapes.size()])
            {
                const bool isStrange = isHostile && generator() % 4 == 0;
                factorised.push_back(std::make_unique<tkNMFactorisation>(
                    factorisations::random(set.size, generator, isStrange, isStrange, isStrange)));
                categories[c].densities.push_back({set.first, factorised.back().get()});
            }
        }
        // At the end of its memory, so that a sanitizer sees a read beyond it; and not aligned.
        const auto x = std::make_unique<double[]>(reach + 1);
        for (std::size_t j = 0; j <= reach; ++j)
            x[j] = anyNumber(generator, isHostile && round % 2 == 0);
        for (const tkNMInstructions set : instructionSets())
        {
            const tkNMNormalBatch batch(categories, set);
            ASSERT_LE(batch.reach(), reach);
            const double start = round % 2 == 0 ? 0.0 : -0.1 * round;
            std::vector<double> logs(categories.size() * sparse, start);
            const double* const point = x.get() + 1 + reach - batch.reach();
            batch.addLogDensities(point, logs.data());
            for (const tkNMNormalBatch::Category& category : categories)
            {
                const Expected expected = expectedOf(category.densities, point, start);
                const bool isFar = !(expected.squares <= std::numeric_limits<double>::max());
                (isFar ? refused : sums) += 1;
                if (!expected.isTermless || !std::isnan(logs[category.number]))
                {
                    ASSERT_TRUE(haveSameBits(isFar ? std::nan("") : expected.sum, logs[category.number]))
                        << round << ' ' << category.number << ' ' << set;
                }
                for (std::size_t between = 1; between < sparse; ++between)
                    ASSERT_EQ(logs[category.number + between], start);
            }
        }
    }
    EXPECT_GT(sums, 2000 * static_cast<int>(instructionSets().size()));
    EXPECT_GT(refused, 50 * static_cast<int>(instructionSets().size()));
}

TEST(tkNMNormalBatch, everyInstructionSetHasTheMarginalsOfTheDefinition)
{
    std::mt19937_64 generator(19);
    const std::size_t reach = 48;
    int sums = 0;
    int hostileSums = 0;
    for (int round = 0; round < 600; ++round)
    {
        const bool isHostile = round % 3 == 2;
        Categories categories(generator() % 24);
        std::vector<std::unique_ptr<tkNMFactorisation>> factorised;
        for (std::size_t c = 0; c < categories.size(); ++c)
        {
            categories[c].number = c;
            for (const auto& set : shapes[(static_cast<std::size_t>(round) + generator() % 2) % shapes.size()])
            {
                const bool isStrange = isHostile && generator() % 8 == 0;
                factorised.push_back(std::make_unique<tkNMFactorisation>(
                    factorisations::random(set.size, generator, isStrange, isStrange, isStrange)));
                categories[c].densities.push_back({set.first, factorised.back().get()});
            }
        }
        // From one invalid measurement to all of them. Invalid values are not read.
        const auto x = std::make_unique<double[]>(reach);
        const auto valid = std::make_unique<bool[]>(reach);
        const std::size_t share = 1 + generator() % 10;
        for (std::size_t j = 0; j < reach; ++j)
        {
            valid[j] = generator() % 10 >= share;
            x[j] = valid[j] ? anyNumber(generator, isHostile && round % 2 == 0) : std::nan("");
        }
        for (const tkNMInstructions set : instructionSets())
        {
            const tkNMNormalBatch batch(categories, set);
            const double start = round % 2 == 0 ? 0.0 : -0.1 * round;
            std::vector<double> logs(categories.size(), start);
            const double* const point = x.get() + reach - batch.reach();
            const bool* const flags = valid.get() + reach - batch.reach();
            batch.addLogMarginals(point, flags, logs.data());
            for (const tkNMNormalBatch::Category& category : categories)
            {
                double expected = start;
                for (const tkNMNormalBatch::Density& density : category.densities)
                    expected += density.factorisation->logMarginal(point + density.first, flags + density.first,
                                                                   tkNMInstructions::Definition);
                const double log = logs[category.number];
                if (isHostile && !std::isfinite(log))
                    continue;
                (isHostile ? hostileSums : sums) += 1;
                ASSERT_TRUE(haveSameBits(expected, log))
                    << round << ' ' << category.number << ' ' << set << ' ' << std::hexfloat << expected << ' ' << log;
            }
        }
    }
    EXPECT_GT(sums, 4000 * static_cast<int>(instructionSets().size()));
    EXPECT_GT(hostileSums, 3000);
}

TEST(tkNMNormalBatch, marginalsOfTrainedDistributionsAreComputedInLanes)
{
    std::mt19937_64 generator(20);
    std::normal_distribution<double> deviate;
    for (const std::size_t d : {2u, 6u, 16u, 33u})
    {
        std::vector<tkNMFactorisation> factorised(9);
        for (tkNMFactorisation& f : factorised)
        {
            const double unit = std::ldexp(1.0, static_cast<int>(generator() % 400) - 200);
            tkNMNormal normal;
            for (std::size_t i = 0; i < 3 * d; ++i)
            {
                std::vector<double> row(d, 3.0); // measurement 1 does not vary
                for (std::size_t j = 0; j < d; ++j)
                    if (j != 1)
                        row[j] = unit * (deviate(generator) + (j > 0 ? row[0] / unit : 0.0));
                ASSERT_EQ(tkNMNormal::eOk, normal.add(row.data(), static_cast<long>(d)));
            }
            f = normal.factorisation();
        }
        Categories categories;
        for (std::size_t c = 0; c < factorised.size(); ++c)
            categories.push_back({c, {{0, &factorised[c]}}});
        std::vector<double> x(d, 1.0);
        const auto valid = std::make_unique<bool[]>(d);
        for (const tkNMInstructions set : instructionSets())
        {
            const tkNMNormalBatch batch(categories, set);
            for (int round = 0; round < 50; ++round)
            {
                for (std::size_t j = 0; j < d; ++j)
                    valid[j] = generator() % 3 != 0;
                std::vector<double> logs(factorised.size(), 0.0);
                batch.addLogMarginals(x.data(), valid.get(), logs.data());
                for (std::size_t c = 0; c < factorised.size(); ++c)
                {
                    const double expected =
                        factorised[c].logMarginal(x.data(), valid.get(), tkNMInstructions::Definition);
                    ASSERT_TRUE(haveSameBits(0.0 + expected, logs[c])) << d << ' ' << c << ' ' << set;
                }
            }
        }
    }
}

TEST(tkNMNormalBatch, sumsThatAreTooLargeForLanesAreNotComputed)
{
    std::mt19937_64 generator(17);
    tkNMFactorisation one = factorisations::random(1, generator);
    tkNMFactorisation two = factorisations::random(2, generator);
    one.covariance.measurements.assign(1, {tkNMCovarianceFactor::eVaries, 0});
    two.covariance.measurements.assign(2, {tkNMCovarianceFactor::eVaries, 0});
    const Categories categories = alike(8, {{0, &one}, {1, &two}});
    const tkNMNormalBatch batch(categories);
    for (const double far : {1e200, -1e200, HUGE_VAL, std::nan("")})
        for (std::size_t j = 0; j < 3; ++j)
        {
            double x[] = {1.0, 2.0, 3.0};
            double logs[8] = {};
            batch.addLogDensities(x, logs);
            EXPECT_EQ(logs[7], expectedOf(categories[7].densities, x).sum);
            x[j] = far;
            batch.addLogDensities(x, logs);
            for (const double log : logs)
                EXPECT_TRUE(std::isnan(log));
        }
}

TEST(tkNMNormalBatch, keepsNothingOfTheFactorisationsThatItCopied)
{
    std::mt19937_64 generator(18);
    const std::vector<double> x(40, 0.25);
    for (const std::size_t d : {1u, 3u, 40u})
        for (const std::size_t count : {1u, 2u, 9u}) // in lanes and one by one
        {
            tkNMFactorisation f = factorisations::random(d, generator);
            const Categories categories = alike(count, {{0, &f}});
            const tkNMNormalBatch batch(categories);
            const double expected = expectedOf(categories[0].densities, x.data()).sum;
            f = factorisations::random(d, generator);
            std::vector<double> logs(count);
            batch.addLogDensities(x.data(), logs.data());
            for (const double log : logs)
                EXPECT_EQ(log, expected);
        }
}

TEST(tkNMNormalBatch, aCategoryWithoutDensitiesKeepsItsSum)
{
    const tkNMNormalBatch none((Categories()));
    EXPECT_EQ(none.reach(), 0u);
    const tkNMNormalBatch empty(alike(2, {}));
    double logs[] = {1.0, -0.0};
    empty.addLogDensities(nullptr, logs);
    EXPECT_EQ(logs[0], 1.0);
    EXPECT_TRUE(haveSameBits(logs[1], -0.0));
    const tkNMFactorisation nothing;
    EXPECT_THROW(tkNMNormalBatch(alike(1, {{0, &nothing}})), tkAssertionFailure);
}
