#include "numerics/tkNMDecision.h"

#include "numerics/kernels/tkNMInstructions.h"
#include "numerics/kernels/tkNMRiskKernel.h"

#include <cmath>

namespace
{
using CostOverride = tkNMDecision::CostOverride;

double costOf(std::size_t i, std::size_t j, double cost, const CostOverride* overrides, std::size_t numOverrides)
{
    for (const CostOverride* o = overrides + numOverrides; o != overrides; --o)
        if (o[-1].decision == i && o[-1].state == j)
            return o[-1].cost;
    return cost;
}

double computeByDefinition(const double* scores, double* weights, double weightSum, double* risks, std::size_t n,
                           double cost, const CostOverride* overrides, std::size_t numOverrides)
{
    double* const joints = weights; // each weight is needed for its own joint score only
    double sum = 0.0;
    for (std::size_t i = 0; i < n; ++i)
    {
        joints[i] = scores[i] * weights[i] / weightSum;
        sum += joints[i];
    }
    if (sum == 0.0)
        return sum;
    for (std::size_t i = 0; i < n; ++i)
    {
        double risk = 0.0;
        for (std::size_t j = 0; j < n; ++j)
            if (j != i)
                risk += costOf(i, j, cost, overrides, numOverrides) * joints[j];
        risks[i] = risk / sum;
    }
    for (std::size_t i = 0; i < n; ++i)
        joints[i] = joints[i] / sum; // now the class score
    return sum;
}

void rankByDefinition(const double* risks, std::uint64_t* ranks, std::size_t n)
{
    const auto isSmaller = [](double a, double b) { return a < b || (std::isnan(b) && !std::isnan(a)); };
    for (std::size_t i = 0; i < n; ++i)
    {
        ranks[i] = 0;
        for (std::size_t j = 0; j < n; ++j)
            ranks[i] += isSmaller(risks[j], risks[i]) || (j < i && !isSmaller(risks[i], risks[j]));
    }
}

/// The kernel takes longer for so few states and overrides.
constexpr std::size_t few = 4;
} // namespace

double tkNMDecision::compute(const double* scores, double* weights, double weightSum, double* risks, std::size_t n,
                             double cost, CostOverride* overrides, std::size_t numOverrides)
{
    const tkNMInstructions instructions =
        n <= few && numOverrides <= few ? tkNMInstructions::Definition : tkNMBestInstructions();
    return compute(scores, weights, weightSum, risks, n, cost, overrides, numOverrides, instructions);
}

double tkNMDecision::compute(const double* scores, double* weights, double weightSum, double* risks, std::size_t n,
                             double cost, CostOverride* overrides, std::size_t numOverrides,
                             tkNMInstructions instructions)
{
    if (instructions == tkNMInstructions::Definition)
        return computeByDefinition(scores, weights, weightSum, risks, n, cost, overrides, numOverrides);
    return tkNMRiskKernel::compute(scores, weights, weightSum, risks, n, cost, overrides, numOverrides, instructions);
}

void tkNMDecision::rank(const double* risks, std::uint64_t* ranks, std::size_t n)
{
    rank(risks, ranks, n, n <= few ? tkNMInstructions::Definition : tkNMBestInstructions());
}

void tkNMDecision::rank(const double* risks, std::uint64_t* ranks, std::size_t n, tkNMInstructions instructions)
{
    if (instructions == tkNMInstructions::Definition)
        return rankByDefinition(risks, ranks, n);
    tkNMRiskKernel::rank(risks, ranks, n, instructions);
}
