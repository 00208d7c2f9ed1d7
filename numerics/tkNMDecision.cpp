#include "numerics/tkNMDecision.h"

#include "numerics/kernels/tkNMInstructions.h"
#include "numerics/kernels/tkNMLanes.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace
{
using Exception = tkNMDecision::Exception;
constexpr std::size_t group = tkNMDecision::group;

/// Without exceptions, the sums of so many states are kept in registers.
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

/// The sums with exceptions for this group of states, of which these are the shared terms; true to the order of the
/// terms, each starts from what it was before the group. `exception` becomes that behind them.
TK_ALWAYS_INLINE void sumExceptions(const double* sums, const double* products, const double* terms, std::size_t first,
                                    Exception*& exception, const Exception* last)
{
    while (exception != last && exception->state < first + group)
    {
        double x[group];
        std::copy_n(terms, group, x);
        const std::size_t i = exception->decision;
        if (i - first < group)
            x[i - first] = 0.0;
        Exception* const begin = exception;
        for (; exception != last && exception->state < first + group && exception->decision == i; ++exception)
            x[exception->state - first] = exception->cost * products[exception->state];
        double sum = sums[i];
        for (std::size_t j = 0; j < group; ++j)
            sum += x[j];
        for (Exception* e = begin; e != exception; ++e)
            e->cost = sum;
    }
}

/// Adds the terms of a group of states to the sums of all decisions, and puts the sums for which a term is not the
/// shared one in their places afterwards: those of the group itself, and those with exceptions. The own term is 0.0,
/// like the terms that fill the last group; it changes no sum, since none is -0.0: they start at 0.0.
template <std::size_t width>
TK_ALWAYS_INLINE void addCosts(double* sums, const double* products, std::size_t n, double cost, Exception* exception,
                               const Exception* last)
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
        lanes.load(products + first);
        lanes.multiply(cost);
        lanes.store(terms);
        if (n - first < group)
            std::fill(terms + (n - first), terms + group, 0.0);

        double own[group];
        lanes.load(sums + first);
        for (std::size_t j = 0; j < group; ++j)
            lanes.addExcept(terms[j], j);
        lanes.store(own);

        Exception* const firstException = exception;
        sumExceptions(sums, products, terms, first, exception, last);
        for (std::size_t i = 0; i < count; i += group)
        {
            lanes.load(sums + i);
            for (std::size_t j = 0; j < group; ++j)
                lanes.add(terms[j]);
            lanes.store(sums + i);
        }
        std::copy_n(own, group, sums + first);
        for (const Exception* e = firstException; e != exception; ++e)
            sums[e->decision] = e->cost;
    }
}

/// The same without exceptions, for no more than `few` states.
template <std::size_t width>
TK_ALWAYS_INLINE void addFewCosts(double* sums, const double* products, std::size_t n, double cost)
{
    const std::size_t count = tkNMDecision::roundUp(n);
    double terms[few];
    for (std::size_t i = 0; i < count; i += group)
    {
        LanesOf<width> lanes;
        lanes.load(products + i);
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
                               double cost, Exception* exceptions, const Exception* last)
{
    const std::size_t count = tkNMDecision::roundUp(n);
    double* const products = weights; // each is needed for its own product only
    for (std::size_t i = 0; i < count; i += group)
    {
        LanesOf<width> a;
        LanesOf<width> b;
        a.load(scores + i);
        b.load(weights + i);
        a.multiply(b);
        a.divide(weightSum);
        a.store(products + i);
    }
    double sum = 0.0;
    for (std::size_t i = 0; i < n; ++i)
        sum += products[i];
    if (sum == 0.0)
        return sum;
    if (exceptions == last && n <= few)
        addFewCosts<width>(risks, products, n, cost);
    else
        addCosts<width>(risks, products, n, cost, exceptions, last);
    divide<width>(risks, count, sum);
    divide<width>(products, count, sum);
    return sum;
}

using Key = std::uint64_t;

/// Keys side by side, as many as a register of that width has doubles.
#if defined(__GNUC__)
template <std::size_t width>
struct KeysOf
{
    typedef Key Type __attribute__((vector_size(width * sizeof(Key))));
};
#else
template <std::size_t width>
struct KeysOf;
#endif
template <>
struct KeysOf<1>
{
    using Type = Key;
};

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
TK_ALWAYS_INLINE void countBefore(const double* risks, std::uint64_t* places, std::size_t n)
{
    using Keys = typename KeysOf<width>::Type;
    static constexpr Key isBehind[] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1};
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
                Keys behind;
                std::memcpy(&behind, isBehind + 7 - (j - first) + i * width, sizeof behind);
                before[i] += (keys[j] - (own[i] + behind)) >> 63;
            }
        for (std::size_t j = first + group; j < n; ++j)
            for (std::size_t i = 0; i < group / width; ++i)
                before[i] += (keys[j] - own[i]) >> 63;
        for (std::size_t i = 0; i < group / width; ++i)
            std::memcpy(places + first + i * width, &before[i], sizeof before[i]);
    }
}

#if TK_HAS_X86_TARGETS
TK_TARGET_AVX2 double decideAVX2(const double* scores, double* weights, double weightSum, double* risks, std::size_t n,
                                 double cost, Exception* first, const Exception* last)
{
    return decide<4>(scores, weights, weightSum, risks, n, cost, first, last);
}
TK_TARGET_AVX2 void countBeforeAVX2(const double* risks, std::uint64_t* places, std::size_t n)
{
    return countBefore<4>(risks, places, n);
}

TK_TARGET_AVX512 double decideAVX512(const double* scores, double* weights, double weightSum, double* risks,
                                     std::size_t n, double cost, Exception* first, const Exception* last)
{
    return decide<8>(scores, weights, weightSum, risks, n, cost, first, last);
}
TK_TARGET_AVX512 void countBeforeAVX512(const double* risks, std::uint64_t* places, std::size_t n)
{
    return countBefore<8>(risks, places, n);
}
#endif
} // namespace

double tkNMDecision::compute(const double* scores, double* weights, double weightSum, double* risks, std::size_t n,
                             double cost, Exception* exceptions, std::size_t numExceptions, tkNMInstructions level)
{
    const Exception* const last = exceptions + numExceptions;
#if TK_HAS_X86_TARGETS
    if (level == tkNMInstructions::Avx512)
        return decideAVX512(scores, weights, weightSum, risks, n, cost, exceptions, last);
    if (level == tkNMInstructions::Avx2)
        return decideAVX2(scores, weights, weightSum, risks, n, cost, exceptions, last);
#else
    static_cast<void>(level);
#endif
    return decide<plainWidth>(scores, weights, weightSum, risks, n, cost, exceptions, last);
}

void tkNMDecision::rank(const double* risks, std::uint64_t* places, std::size_t n, tkNMInstructions level)
{
#if TK_HAS_X86_TARGETS
    if (level == tkNMInstructions::Avx512)
        return countBeforeAVX512(risks, places, n);
    if (level == tkNMInstructions::Avx2)
        return countBeforeAVX2(risks, places, n);
#else
    static_cast<void>(level);
#endif
    return countBefore<plainWidth>(risks, places, n);
}
