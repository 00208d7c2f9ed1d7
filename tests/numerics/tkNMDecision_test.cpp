#include "numerics/tkNMDecision.h"

#include "tests/numerics/decisions.h"

using namespace decisions;

TEST(tkNMDecision, everyInstructionSetHasTheBitsOfTheFormula)
{
    std::mt19937_64 generator(1);
    std::normal_distribution<double> deviate;
    for (const std::size_t n : counts())
        for (int round = 0; round < 10; ++round)
        {
            const auto value = [&] { return std::ldexp(deviate(generator), static_cast<int>(generator() % 60)); };
            Values scores(n);
            Values weights(n, 0.1);
            std::generate(scores.begin(), scores.end(), value);
            if (round % 2 == 0)
                std::generate(weights.begin(), weights.end(), value);
            Overrides overrides;
            for (std::size_t k = n > 1 ? generator() % (3 * n) : 0; k > 0; --k)
            {
                const std::size_t i = generator() % n;
                const std::size_t j = generator() % n;
                if (i != j)
                    overrides.push_back({i, j, deviate(generator)});
            }
            expectPlainDecision(scores, weights, 1.0, {});
            expectPlainDecision(scores, weights, deviate(generator), overrides);
        }
}

TEST(tkNMDecision, overridesMayStandAnywhereInAGroupAndReplaceOneAnother)
{
    Values scores;
    for (int i = 0; i < 24; ++i)
        scores.push_back(1.0 / (3.0 + i));
    const Values weights(24, 0.7);
    Overrides all;
    for (std::size_t i = 0; i < scores.size(); ++i)
        for (std::size_t j = 0; j < scores.size(); ++j)
            if (i != j)
            {
                const tkNMDecision::CostOverride e{i, j, std::sqrt(2.0 + static_cast<double>(24 * i + j))};
                expectPlainDecision(scores, weights, 1.1, {e});
                expectPlainDecision(scores, weights, 1.1,
                                    {{i, j, 5.0}, e, {i, (j + 1) % 24 == i ? (j + 2) % 24 : (j + 1) % 24, 0.3}});
                all.push_back(e);
            }
    expectPlainDecision(scores, weights, 1.1, all);
}

TEST(tkNMDecision, hostileValuesAreTakenAsTheyStand)
{
    std::mt19937_64 generator(2);
    for (const std::size_t n : counts())
        for (std::size_t kinds = 2; kinds <= std::size(hostile); ++kinds)
        {
            const auto seldom = [&](double usual)
            { return generator() % n == 0 ? hostile[generator() % kinds] : usual; };
            const auto any = [&] { return hostile[generator() % kinds]; };
            Values scores(n);
            Values weights(n);
            std::generate(scores.begin(), scores.end(), any);
            std::generate(weights.begin(), weights.end(), [&] { return seldom(0.3); });
            Overrides overrides;
            for (std::size_t k = n; n > 1 && k > 0; --k)
            {
                const std::size_t i = generator() % n;
                overrides.push_back({i, (i + 1 + generator() % (n - 1)) % n, any()});
            }
            for (const double cost : hostile)
            {
                expectPlainDecision(scores, Values(n, 1.0), cost, {});
                expectPlainDecision(scores, weights, cost, {});
                expectPlainDecision(scores, weights, cost, overrides);
            }
        }
}

TEST(tkNMDecision, sumOfProductsThatIsZeroIsReturned)
{
    expectPlainDecision({}, {}, 1.0, {});
    expectPlainDecision({0.0, 0.0}, {1.0, 2.0}, 1.0, {});
    expectPlainDecision({0.5, 0.5}, {1.0, -1.0}, 1.0, {});
    expectPlainDecision({0.5, -0.5, 0.0}, {1.0, 1.0, 1.0}, 1.0, {{0, 1, 2.0}});
}

TEST(tkNMDecision, ranksAreThoseOfAStableSortWithNaNLast)
{
    std::mt19937_64 generator(3);
    const double values[] = {0.0, -0.0, 5e-324, 1e-300,   1.0,        std::nextafter(1.0, 2.0),
                             2.0, 1e17, 1e308,  infinity, notANumber, -notANumber};
    std::uniform_real_distribution<double> deviate;
    for (std::size_t n = 0; n <= tkNMDecision::mostRanked; ++n)
        for (int round = 0; round < 200; ++round)
        {
            const std::size_t kinds = 1 + generator() % std::size(values);
            Values risks(n);
            for (double& risk : risks)
                risk = round % 2 == 0 || generator() % 8 == 0 ? values[generator() % kinds] : deviate(generator);
            expectPlainRanks(risks);
        }
}

TEST(tkNMDecision, risksThatBreakTheRequirementStillGetDifferentRanks)
{
    std::mt19937_64 generator(4);
    for (const tkNMInstructions level : instructionSets())
        for (int round = 0; round < 2000; ++round)
        {
            double risks[tkNMDecision::mostRanked];
            std::generate(std::begin(risks), std::end(risks),
                          [&] { return hostile[generator() % std::size(hostile)]; });
            const std::size_t n = 1 + generator() % tkNMDecision::mostRanked;
            std::uint64_t ranks[tkNMDecision::mostRanked];
            tkNMDecision::rank(risks, ranks, n, level);
            std::sort(ranks, ranks + n);
            for (std::size_t i = 0; i < n; ++i)
                ASSERT_EQ(i, ranks[i]);
        }
}

namespace
{
struct Outcome
{
    double sum;
    Values shares;
    Values risks;
};

/// By the best instructions, with weights of 1.
Outcome decide(Values scores, double cost, double weight = 1.0)
{
    const std::size_t n = scores.size();
    Outcome outcome{0.0, Values(n, weight), Values(n)};
    for (Values* values : {&scores, &outcome.shares, &outcome.risks})
        values->resize(tkNMDecision::roundUp(n), 0.0);
    outcome.sum = tkNMDecision::compute(scores.data(), outcome.shares.data(), weight * static_cast<double>(n),
                                        outcome.risks.data(), n, cost, nullptr, 0);
    outcome.shares.resize(n);
    outcome.risks.resize(n);
    return outcome;
}
} // namespace

TEST(tkNMDecision, classScoresAddUpToOneAndRisksAreWhatTheOthersHave)
{
    std::mt19937_64 generator(6);
    std::uniform_real_distribution<double> uniform(0.0, 1.0);
    for (std::size_t n = 1; n <= 100; ++n)
    {
        Values scores(n);
        for (double& score : scores)
            score = uniform(generator);
        const Outcome outcome = decide(scores, 1.0);
        double sum = 0.0;
        for (const double share : outcome.shares)
            sum += share;
        EXPECT_NEAR(sum, 1.0, 1e-13) << n;
        for (std::size_t i = 0; i < n; ++i)
            EXPECT_NEAR(outcome.risks[i], 1.0 - outcome.shares[i], 1e-13) << n;
        const Outcome dearer = decide(scores, 4.0);
        for (std::size_t i = 0; i < n; ++i)
            EXPECT_EQ(dearer.risks[i], 4.0 * outcome.risks[i]);
    }
}

TEST(tkNMDecision, powersOfTwoInScoresAndWeightsCancel)
{
    std::mt19937_64 generator(7);
    std::uniform_real_distribution<double> uniform(0.0, 1.0);
    for (const std::size_t n : {1u, 3u, 8u, 20u, 70u})
    {
        Values scores(n);
        for (double& score : scores)
            score = uniform(generator);
        const Outcome expected = decide(scores, 1.0);
        Values scaled(scores);
        for (double& score : scaled)
            score *= 0x1p-300;
        for (const double weight : {1.0, 0x1p-200, 0x1p100})
        {
            const Outcome outcome = decide(scaled, 1.0, weight);
            EXPECT_EQ(outcome.sum, expected.sum * 0x1p-300);
            EXPECT_EQ(outcome.shares, expected.shares);
            EXPECT_EQ(outcome.risks, expected.risks);
        }
    }
}

TEST(tkNMDecision, aCertainStateHasNoRiskAndTheOthersAllOfIt)
{
    for (std::size_t n = 2; n <= 20; ++n)
        for (std::size_t certain = 0; certain < n; ++certain)
        {
            Values scores(n, 0.0);
            scores[certain] = 0.3;
            const Outcome outcome = decide(scores, 4.0);
            for (std::size_t i = 0; i < n; ++i)
            {
                EXPECT_EQ(outcome.shares[i], i == certain ? 1.0 : 0.0);
                EXPECT_EQ(outcome.risks[i], i == certain ? 0.0 : 4.0);
            }
        }
}

TEST(tkNMDecision, theOverloadsWithoutInstructionsGiveTheSameBits)
{
    std::mt19937_64 generator(8);
    std::uniform_real_distribution<double> uniform(0.0, 1.0);
    for (std::size_t n = 1; n <= tkNMDecision::mostRanked; ++n)
        for (std::size_t numOverrides = 0; numOverrides < (n > 1 ? 7u : 1u); ++numOverrides)
        {
            const std::size_t room = tkNMDecision::roundUp(n);
            Values scores(room), risks(room), expectedRisks(room);
            for (double& score : scores)
                score = uniform(generator);
            Overrides overrides;
            for (std::size_t k = 0; k < numOverrides; ++k)
                overrides.push_back({(k + 1) % n, 0, uniform(generator)});
            overrides.erase(std::remove_if(overrides.begin(), overrides.end(),
                                           [](const tkNMDecision::CostOverride& o) { return o.decision == 0; }),
                            overrides.end());
            std::stable_sort(overrides.begin(), overrides.end(),
                             [](const tkNMDecision::CostOverride& a, const tkNMDecision::CostOverride& b)
                             { return a.decision < b.decision; });
            Overrides used(overrides);
            Values shares(room, 0.25), expectedShares(room, 0.25);
            const double sum = 0.25 * static_cast<double>(n);
            const double actual = tkNMDecision::compute(scores.data(), shares.data(), sum, risks.data(), n, 0.5,
                                                        used.data(), used.size());
            const double expected =
                tkNMDecision::compute(scores.data(), expectedShares.data(), sum, expectedRisks.data(), n, 0.5,
                                      overrides.data(), overrides.size(), tkNMInstructions::Definition);
            EXPECT_EQ(actual, expected);
            for (std::size_t i = 0; i < n; ++i)
            {
                EXPECT_EQ(shares[i], expectedShares[i]) << n << ' ' << numOverrides;
                EXPECT_EQ(risks[i], expectedRisks[i]) << n << ' ' << numOverrides;
            }
            std::vector<std::uint64_t> ranks(room), expectedRanks(room);
            tkNMDecision::rank(risks.data(), ranks.data(), n);
            tkNMDecision::rank(risks.data(), expectedRanks.data(), n, tkNMInstructions::Definition);
            ranks.resize(n);
            expectedRanks.resize(n);
            EXPECT_EQ(ranks, expectedRanks);
        }
}
