#ifndef TESTS_NUMERICS_DECISIONS_H
#define TESTS_NUMERICS_DECISIONS_H

#include "numerics/tkNMDecision.h"

#include "instructionSets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>
#include <map>
#include <random>
#include <utility>
#include <vector>

/// Decisions of minimum risk and ranks by the formulas of tkNMDecision's comment, written out.
namespace decisions
{
using Overrides = std::vector<tkNMDecision::CostOverride>;
using Values = std::vector<double>;

const double infinity = std::numeric_limits<double>::infinity();
const double notANumber = std::numeric_limits<double>::quiet_NaN();

struct Decision
{
    double weights = 0.0;
    double products = 0.0;
    Values shares;
    Values risks;
};

/// The product rounded on its own, also where the compiler may fuse it with an addition.
inline double product(double a, double b)
{
    const volatile double rounded = a * b;
    return rounded;
}

/// The definition: each sum on its own; of several overrides for one i and j the last counts.
inline Decision plainDecision(const Values& scores, const Values& weights, double cost, const Overrides& overrides)
{
    std::map<std::pair<std::size_t, std::size_t>, double> other;
    for (const tkNMDecision::CostOverride& e : overrides)
        other[{e.decision, e.state}] = e.cost;
    Decision decision;
    const std::size_t n = scores.size();
    for (const double weight : weights)
        decision.weights += weight;
    Values products;
    for (std::size_t i = 0; i < n; ++i)
        products.push_back(product(scores[i], weights[i]) / decision.weights);
    for (const double q : products)
        decision.products += q;
    if (decision.products == 0.0)
        return decision;
    for (std::size_t i = 0; i < n; ++i)
    {
        double sum = 0.0;
        for (std::size_t j = 0; j < n; ++j)
        {
            if (j == i)
                continue;
            const auto found = other.find({i, j});
            sum += product(found != other.end() ? found->second : cost, products[j]);
        }
        decision.shares.push_back(products[i] / decision.products);
        decision.risks.push_back(sum / decision.products);
    }
    return decision;
}

inline bool haveSameBits(double a, double b)
{
    return (std::isnan(a) && std::isnan(b)) || std::memcmp(&a, &b, sizeof a) == 0;
}

inline bool haveSameBits(const Values& a, const Values& b)
{
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](double x, double y) { return haveSameBits(x, y); });
}

/// Whether every instruction set gives the values of the definition, and writes nothing behind them.
inline void expectPlainDecision(Values scores, Values weights, double cost, Overrides overrides)
{
    constexpr std::size_t group = tkNMDecision::group;
    const Decision expected = plainDecision(scores, weights, cost, overrides);
    std::stable_sort(
        overrides.begin(), overrides.end(),
        [](const tkNMDecision::CostOverride& a, const tkNMDecision::CostOverride& b)
        { return std::make_pair(a.state / group, a.decision) < std::make_pair(b.state / group, b.decision); });
    const std::size_t n = scores.size();
    const std::size_t room = tkNMDecision::roundUp(n);
    scores.resize(room, notANumber);
    weights.resize(room, 3.0);
    weights.push_back(7.0);
    for (const tkNMInstructions level : instructionSets())
    {
        Values shares = weights;
        Values risks(room + 1, 7.0);
        Overrides used = overrides;
        const double products = tkNMDecision::compute(scores.data(), shares.data(), expected.weights, risks.data(), n,
                                                      cost, used.data(), used.size(), level);
        EXPECT_TRUE(haveSameBits(expected.products, products)) << n << " states by " << level;
        EXPECT_EQ(7.0, shares.back());
        EXPECT_EQ(7.0, risks.back());
        if (products == 0.0)
            continue;
        shares.resize(n);
        risks.resize(n);
        EXPECT_TRUE(haveSameBits(expected.shares, shares)) << n << " states by " << level;
        EXPECT_TRUE(haveSameBits(expected.risks, risks)) << n << " states by " << level;
    }
}

/// Whether every instruction set gives the ranks of a stable sort, NaN last, and writes nothing behind them.
inline void expectPlainRanks(Values risks)
{
    const std::size_t n = risks.size();
    std::vector<std::size_t> order;
    for (std::size_t i = 0; i < n; ++i)
        order.push_back(i);
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b)
                     { return risks[a] < risks[b] || (std::isnan(risks[b]) && !std::isnan(risks[a])); });
    std::vector<std::uint64_t> expected(n);
    for (std::size_t rank = 0; rank < n; ++rank)
        expected[order[rank]] = rank;
    const std::size_t room = tkNMDecision::roundUp(n);
    for (const double filling : {0.0, -1.0, notANumber})
        for (const tkNMInstructions level : instructionSets())
        {
            Values given = risks;
            given.resize(room, filling);
            std::vector<std::uint64_t> ranks(room + 1, 77);
            tkNMDecision::rank(given.data(), ranks.data(), n, level);
            EXPECT_EQ(77u, ranks.back());
            ranks.resize(n);
            EXPECT_EQ(expected, ranks) << "by " << level << ": " << ::testing::PrintToString(risks);
        }
}

const double hostile[] = {0.0, -0.0, 1.0, -1.0, 5e-324, -5e-324, 1e308, -1e308, infinity, -infinity, notANumber};

/// Every number of states up to 70, and some beyond.
inline std::vector<std::size_t> counts()
{
    std::vector<std::size_t> counts = {127, 128, 129, 200};
    for (std::size_t n = 0; n <= 70; ++n)
        counts.push_back(n);
    return counts;
}
} // namespace decisions

#endif
