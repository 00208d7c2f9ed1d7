#include "numerics/kernels/tkNMRiskKernel.h"

#include "numerics/kernels/tkNMLanes.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace
{
using CostOverride = tkNMDecision::CostOverride;
constexpr std::size_t group = tkNMDecision::group;

/// Without overrides, the sums of so many states are kept in registers.
constexpr std::size_t few = 64;

template <std::size_t width>
TK_ALWAYS_INLINE void divide(double* values, std::size_t count, double divisor)
{
    LanesOf<width> quotients;
    for (std::size_t i = 0; i < count; i += group)
    {
        quotients.load(values + i);
        quotients.divide(divisor);
        quotients.store(values + i);
    }
}

/// Recomputes the sums of decisions with overrides for the states of this block from their values before it, adding
/// terms in ascending j; `terms` are those of the common cost. A sum is left in the cost of its overrides, since
/// `sums` still has to serve decisions without. `override` becomes the first one of a later block.
TK_ALWAYS_INLINE void sumOverrides(const double* sums, const double* joints, const double* terms, std::size_t first,
                                   CostOverride*& override, const CostOverride* last)
{
    while (override != last && override->state < first + group)
    {
        double x[group];
        std::copy_n(terms, group, x);
        const std::size_t i = override->decision;
        if (i - first < group)
            x[i - first] = 0.0;
        CostOverride* const begin = override;
        for (; override != last && override->state < first + group && override->decision == i; ++override)
            x[override->state - first] = override->cost * joints[override->state];
        double sum = sums[i];
        for (std::size_t j = 0; j < group; ++j)
            sum += x[j];
        for (CostOverride* o = begin; o != override; ++o)
            o->cost = sum;
    }
}

/// Adds the terms of a block of states to the sums of all decisions, then replaces the sums for which a term is not
/// the common one: those of the block itself, and those with overrides. A state's own term is 0.0, like the terms that
/// fill the last block. Adding 0.0 changes no sum, since none is -0.0: they start at 0.0.
template <std::size_t width>
TK_ALWAYS_INLINE void addCosts(double* sums, const double* joints, std::size_t n, double cost, CostOverride* override,
                               const CostOverride* last)
{
    const std::size_t count = tkNMDecision::roundUp(n);
    for (std::size_t i = 0; i < count; i += group)
    {
        LanesOf<width> zeros;
        zeros.clear();
        zeros.store(sums + i);
    }
    for (std::size_t first = 0; first < count; first += group)
    {
        double terms[group];
        LanesOf<width> lanes;
        lanes.load(joints + first);
        lanes.multiply(cost);
        lanes.store(terms);
        if (n - first < group)
            std::fill(terms + (n - first), terms + group, 0.0);

        double own[group];
        lanes.load(sums + first);
        for (std::size_t j = 0; j < group; ++j)
            lanes.addExcept(terms[j], j);
        lanes.store(own);

        CostOverride* const firstOverride = override;
        sumOverrides(sums, joints, terms, first, override, last);
        for (std::size_t i = 0; i < count; i += group)
        {
            lanes.load(sums + i);
            for (std::size_t j = 0; j < group; ++j)
                lanes.add(terms[j]);
            lanes.store(sums + i);
        }
        std::copy_n(own, group, sums + first);
        for (const CostOverride* o = firstOverride; o != override; ++o)
            sums[o->decision] = o->cost;
    }
}

/// The same without overrides, for no more than `few` states.
template <std::size_t width>
TK_ALWAYS_INLINE void addFewCosts(double* sums, const double* joints, std::size_t n, double cost)
{
    const std::size_t count = tkNMDecision::roundUp(n);
    double terms[few];
    for (std::size_t i = 0; i < count; i += group)
    {
        LanesOf<width> lanes;
        lanes.load(joints + i);
        lanes.multiply(cost);
        lanes.store(terms + i);
    }
    for (std::size_t i = 0; i < count; i += group)
    {
        LanesOf<width> lanes;
        lanes.clear();
        for (std::size_t j = 0; j < i; ++j)
            lanes.add(terms[j]);
        const std::size_t end = std::min(i + group, n);
        for (std::size_t j = i; j < end; ++j)
            lanes.addExcept(terms[j], j - i);
        for (std::size_t j = end; j < n; ++j)
            lanes.add(terms[j]);
        lanes.store(sums + i);
    }
}

template <std::size_t width>
TK_ALWAYS_INLINE double decide(const double* scores, double* weights, double weightSum, double* risks, std::size_t n,
                               double cost, CostOverride* overrides, const CostOverride* last)
{
    const std::size_t count = tkNMDecision::roundUp(n);
    double* const joints = weights; // each weight is needed for its own joint score only
    for (std::size_t i = 0; i < count; i += group)
    {
        LanesOf<width> a;
        LanesOf<width> b;
        a.load(scores + i);
        b.load(weights + i);
        a.multiply(b);
        a.divide(weightSum);
        a.store(joints + i);
    }
    double sum = 0.0;
    for (std::size_t i = 0; i < n; ++i)
        sum += joints[i];
    if (sum == 0.0)
        return sum;
    if (overrides == last && n <= few)
        addFewCosts<width>(risks, joints, n, cost);
    else
        addCosts<width>(risks, joints, n, cost, overrides, last);
    divide<width>(risks, count, sum);
    divide<width>(joints, count, sum);
    return sum;
}

using Key = std::uint64_t;

/// Ascends with the risk, which is not below 0.0; that of all NaNs is the largest below 2^63.
TK_ALWAYS_INLINE Key keyOf(double risk)
{
    constexpr Key largest = ~Key{0} >> 1;
    constexpr Key infinite = Key{0x7ff} << 52;
    Key bits;
    std::memcpy(&bits, &risk, sizeof bits);
    bits &= largest;
    const Key isNaN = (infinite - bits) >> 63;
    return bits | ((0 - isNaN) & largest);
}

/// For a below 2^63 and b up to it, (a - b) >> 63 is 1 if a < b, else 0. So state j comes before state i
/// by (key_j - key_i) >> 63, or if it stands before it by (key_j - (key_i + 1)) >> 63.
template <std::size_t width>
TK_ALWAYS_INLINE void countBefore(const double* risks, std::uint64_t* ranks, std::size_t n)
{
    using Keys = typename RegisterOf<Key, width>::Type;
    static constexpr Key isLater[] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1};
    Key keys[tkNMDecision::mostRanked];
    const std::size_t count = tkNMDecision::roundUp(n);
    for (std::size_t i = 0; i < count; ++i)
        keys[i] = keyOf(risks[i]);
    for (std::size_t first = 0; first < count; first += group)
    {
        Keys own[group / width];
        Keys before[group / width] = {};
        for (std::size_t i = 0; i < group / width; ++i)
            std::memcpy(&own[i], keys + first + i * width, sizeof own[i]);
        for (std::size_t j = 0; j < first; ++j)
            for (std::size_t i = 0; i < group / width; ++i)
                before[i] += (keys[j] - (own[i] + 1)) >> 63;
        for (std::size_t j = first; j < std::min(first + group, n); ++j)
            for (std::size_t i = 0; i < group / width; ++i)
            {
                Keys later;
                std::memcpy(&later, isLater + 7 - (j - first) + i * width, sizeof later);
                before[i] += (keys[j] - (own[i] + later)) >> 63;
            }
        for (std::size_t j = first + group; j < n; ++j)
            for (std::size_t i = 0; i < group / width; ++i)
                before[i] += (keys[j] - own[i]) >> 63;
        for (std::size_t i = 0; i < group / width; ++i)
            std::memcpy(ranks + first + i * width, &before[i], sizeof before[i]);
    }
}

#if TK_HAS_X86_TARGETS
TK_TARGET_AVX2 double decideAVX2(const double* scores, double* weights, double weightSum, double* risks, std::size_t n,
                                 double cost, CostOverride* first, const CostOverride* last)
{
    return decide<4>(scores, weights, weightSum, risks, n, cost, first, last);
}
TK_TARGET_AVX2 void countBeforeAVX2(const double* risks, std::uint64_t* ranks, std::size_t n)
{
    return countBefore<4>(risks, ranks, n);
}

TK_TARGET_AVX512 double decideAVX512(const double* scores, double* weights, double weightSum, double* risks,
                                     std::size_t n, double cost, CostOverride* first, const CostOverride* last)
{
    return decide<8>(scores, weights, weightSum, risks, n, cost, first, last);
}
TK_TARGET_AVX512 void countBeforeAVX512(const double* risks, std::uint64_t* ranks, std::size_t n)
{
    return countBefore<8>(risks, ranks, n);
}
#endif
} // namespace

double tkNMRiskKernel::compute(const double* scores, double* weights, double weightSum, double* risks, std::size_t n,
                               double cost, CostOverride* overrides, std::size_t numOverrides,
                               tkNMInstructions instructions)
{
    const CostOverride* const last = overrides + numOverrides;
#if TK_HAS_X86_TARGETS
    if (instructions == tkNMInstructions::Avx512)
        return decideAVX512(scores, weights, weightSum, risks, n, cost, overrides, last);
    if (instructions == tkNMInstructions::Avx2)
        return decideAVX2(scores, weights, weightSum, risks, n, cost, overrides, last);
#else
    static_cast<void>(instructions);
#endif
    return decide<plainWidth>(scores, weights, weightSum, risks, n, cost, overrides, last);
}

void tkNMRiskKernel::rank(const double* risks, std::uint64_t* ranks, std::size_t n, tkNMInstructions instructions)
{
#if TK_HAS_X86_TARGETS
    if (instructions == tkNMInstructions::Avx512)
        return countBeforeAVX512(risks, ranks, n);
    if (instructions == tkNMInstructions::Avx2)
        return countBeforeAVX2(risks, ranks, n);
#else
    static_cast<void>(instructions);
#endif
    return countBefore<plainWidth>(risks, ranks, n);
}
