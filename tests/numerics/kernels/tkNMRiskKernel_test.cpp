#include "numerics/kernels/tkNMRiskKernel.h"

#include "tests/numerics/decisions.h"

#include <memory>

using namespace decisions;

namespace
{
constexpr std::size_t group = tkNMDecision::group;

/// Values at the end of their memory, so that a sanitizer sees what is done beyond it; not aligned.
class AtEnd
{
public:
    AtEnd(const Values& values, std::size_t room, double filling)
        : memory_(std::make_unique<double[]>(room + 1)),
          size_(values.size())
    {
        std::fill_n(memory_.get(), room + 1, filling);
        std::copy(values.begin(), values.end(), data());
    }

    double* data() { return memory_.get() + 1; }
    Values values() { return Values(data(), data() + size_); }

private:
    std::unique_ptr<double[]> memory_;
    std::size_t size_;
};

/// Whether the kernel gives the bits of the definition by every instruction set, whatever fills the last group.
void expectDefinition(const Values& scores, const Values& weights, double cost, Overrides overrides)
{
    std::stable_sort(
        overrides.begin(), overrides.end(),
        [](const tkNMDecision::CostOverride& a, const tkNMDecision::CostOverride& b)
        { return std::make_pair(a.state / group, a.decision) < std::make_pair(b.state / group, b.decision); });
    const std::size_t n = scores.size();
    const std::size_t room = tkNMDecision::roundUp(n);
    double weightSum = 0.0;
    for (const double weight : weights)
        weightSum += weight;
    const auto compute = [&](double filling, tkNMInstructions set, Values& shares, Values& risks)
    {
        AtEnd m(scores, room, filling);
        AtEnd w(weights, room, filling);
        AtEnd r(Values(n), room, filling);
        Overrides used = overrides;
        const double sum =
            set == tkNMInstructions::Definition
                ? tkNMDecision::compute(m.data(), w.data(), weightSum, r.data(), n, cost, used.data(), used.size(), set)
                : tkNMRiskKernel::compute(m.data(), w.data(), weightSum, r.data(), n, cost, used.data(), used.size(),
                                          set);
        EXPECT_TRUE(haveSameBits(m.values(), scores)); // they are only read
        shares = w.values();
        risks = r.values();
        return sum;
    };
    Values shares, risks, expectedShares, expectedRisks;
    const double expected = compute(0.0, tkNMInstructions::Definition, expectedShares, expectedRisks);
    for (const tkNMInstructions set : kernelSets())
        for (const double filling : {0.0, notANumber, -infinity})
        {
            const double sum = compute(filling, set, shares, risks);
            ASSERT_TRUE(haveSameBits(sum, expected)) << n << ' ' << set;
            if (sum == 0.0)
                continue;
            ASSERT_TRUE(haveSameBits(shares, expectedShares)) << n << ' ' << set;
            ASSERT_TRUE(haveSameBits(risks, expectedRisks)) << n << ' ' << set;
        }
}

Values randomValues(std::size_t n, std::mt19937_64& generator)
{
    std::normal_distribution<double> deviate;
    Values values(n);
    for (double& value : values)
        value = std::ldexp(deviate(generator), static_cast<int>(generator() % 60));
    return values;
}
} // namespace

TEST(tkNMRiskKernel, everyInstructionSetHasTheBitsOfTheDefinition)
{
    std::mt19937_64 generator(51);
    std::normal_distribution<double> deviate;
    for (const std::size_t n : counts())
        for (int round = 0; round < 4; ++round)
        {
            const Values scores = randomValues(n, generator);
            const Values weights = randomValues(n, generator);
            expectDefinition(scores, weights, round == 0 ? 1.0 : deviate(generator), {});
            Overrides overrides;
            for (std::size_t k = n > 1 ? 1 + generator() % (2 * n) : 0; k > 0; --k)
            {
                const std::size_t i = generator() % n;
                overrides.push_back({i, (i + 1 + generator() % (n - 1)) % n, deviate(generator)});
            }
            expectDefinition(scores, weights, deviate(generator), overrides);
        }
}

TEST(tkNMRiskKernel, everyPairOfStatesMayBeOverridden)
{
    std::mt19937_64 generator(52);
    for (const std::size_t n : {2u, 7u, 8u, 9u, 17u, 63u, 64u, 65u, 72u})
    {
        const Values scores = randomValues(n, generator);
        const Values weights = randomValues(n, generator);
        Overrides all;
        for (std::size_t i = 0; i < n; ++i)
            for (std::size_t j = 0; j < n; ++j)
                if (i != j)
                {
                    all.push_back({i, j, std::sqrt(2.0 + static_cast<double>(n * i + j))});
                    if (n <= 17)
                        expectDefinition(scores, weights, 0.7, {all.back()});
                }
        expectDefinition(scores, weights, 0.7, all);
        // Of several for one pair the last counts.
        Overrides twice(all);
        for (tkNMDecision::CostOverride& override : twice)
            override.cost = 1e6;
        twice.insert(twice.end(), all.begin(), all.end());
        expectDefinition(scores, weights, 0.7, twice);
    }
}

TEST(tkNMRiskKernel, allDecisionsMayOverrideOneState)
{
    std::mt19937_64 generator(53);
    const std::size_t n = 41;
    const Values scores = randomValues(n, generator);
    for (std::size_t state = 0; state < n; ++state)
    {
        Overrides overrides;
        for (std::size_t i = 0; i < n; ++i)
            if (i != state)
                overrides.push_back({i, state, 0.1 * static_cast<double>(i)});
        expectDefinition(scores, Values(n, 0.3), 1.0, overrides);
    }
}

TEST(tkNMRiskKernel, valuesThatAreNotFiniteStayInTheirPlaces)
{
    std::mt19937_64 generator(54);
    for (const std::size_t n : {1u, 2u, 8u, 9u, 30u, 64u, 65u})
        for (int round = 0; round < 60; ++round)
        {
            Values scores = randomValues(n, generator);
            Values weights = randomValues(n, generator);
            scores[generator() % n] = hostile[generator() % std::size(hostile)];
            weights[generator() % n] = hostile[generator() % std::size(hostile)];
            Overrides overrides;
            if (n > 1 && round % 2 == 0)
                overrides.push_back({n - 1, generator() % (n - 1), hostile[generator() % std::size(hostile)]});
            expectDefinition(scores, weights, hostile[generator() % std::size(hostile)], overrides);
            expectDefinition(scores, weights, 1.0, overrides);
        }
}

TEST(tkNMRiskKernel, aSumOfZeroIsReturned)
{
    for (const tkNMInstructions set : kernelSets())
    {
        double scores[group] = {0.5, -0.5};
        double weights[group] = {1.0, 1.0};
        double risks[group];
        EXPECT_EQ(tkNMRiskKernel::compute(scores, weights, 2.0, risks, 2, 1.0, nullptr, 0, set), 0.0);
        EXPECT_EQ(tkNMRiskKernel::compute(scores, weights, 2.0, risks, 0, 1.0, nullptr, 0, set), 0.0);
    }
}

TEST(tkNMRiskKernel, everyInstructionSetHasTheRanksOfTheDefinition)
{
    std::mt19937_64 generator(55);
    const double values[] = {0.0,   -0.0,     5e-324, 0.25,       0.25,       std::nextafter(0.25, 1.0),
                             1e308, infinity, 3.0,    notANumber, -notANumber};
    std::uniform_real_distribution<double> deviate;
    for (std::size_t n = 0; n <= tkNMDecision::mostRanked; ++n)
        for (int round = 0; round < 100; ++round)
        {
            Values risks(n);
            for (double& risk : risks)
                risk = generator() % 3 == 0 ? deviate(generator) : values[generator() % std::size(values)];
            std::vector<std::uint64_t> expected(n);
            tkNMDecision::rank(risks.data(), expected.data(), n, tkNMInstructions::Definition);
            for (const double filling : {0.0, notANumber, -1.0})
                for (const tkNMInstructions set : kernelSets())
                {
                    AtEnd given(risks, tkNMDecision::roundUp(n), filling);
                    std::vector<std::uint64_t> ranks(tkNMDecision::roundUp(n) + 1, 77);
                    tkNMRiskKernel::rank(given.data(), ranks.data(), n, set);
                    EXPECT_EQ(ranks.back(), 77u);
                    ranks.resize(n);
                    ASSERT_EQ(ranks, expected) << set << ": " << ::testing::PrintToString(risks);
                }
        }
}
