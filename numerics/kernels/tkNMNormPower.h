#ifndef NUMERICS_KERNELS_TKNMNORMPOWER_H
#define NUMERICS_KERNELS_TKNMNORMPOWER_H

#include "numerics/kernels/tkNMLanes.h"

#include <cmath>
#include <cstdint>

/// How |a - b|^p, whose sums rank rows by their norm distance of order p, is computed: a product, where there is one.
///
/// Keys are such sums of n terms; |a|, |b| <= 1e90 and 1 <= p <= 64. If a key exceeds upperKey(other key, n), the
/// distance of its row by the definition exceeds that of the other row; docs/numerics.md has the proof.
struct tkNMNormPower
{
    enum Kind
    {
        First,
        Second,
        Third,
        Halves, // another multiple of 1/2: within 1e-5 of the power
        Other   // no product
    };

    explicit tkNMNormPower(double p) : order(p), whole(static_cast<int>(p)), hasHalf(p != whole)
    {
        if (p == 1.0 || p == 2.0 || p == 3.0)
            kind = p == 1.0 ? First : p == 2.0 ? Second : Third;
        else
            kind = whole + (hasHalf ? 0.5 : 0.0) == p ? Halves : Other;
    }

    /// Whether sums of the terms in their order have the bits of the definition, if `Other` is computed by it.
    bool isExact() const { return kind == First || kind == Second || kind == Other; }

    double upperKey(double key, long n) const
    {
        const double roundings = (8.0 * static_cast<double>(n) + 64.0 * order + 512.0) * 0x1p-53;
        return key + key * (roundings + (kind == Halves ? 1e-5 : 0.0)) + 0x1p-960;
    }

    double order;
    int whole;
    bool hasHalf;
    Kind kind;
};

/// difference = |difference|^p in each lane, by the product of this kind. For source files only.
template <std::size_t width, tkNMNormPower::Kind kind>
TK_ALWAYS_INLINE void raiseDifference(const tkNMNormPower& power, typename RegisterOf<double, width>::Type& difference)
{
    using Register = typename RegisterOf<double, width>::Type;
    using Bits = typename RegisterOf<std::uint64_t, width>::Type;
    static_assert(kind != tkNMNormPower::Other);
    if constexpr (kind == tkNMNormPower::Second)
    {
        difference = difference * difference;
        return;
    }
    Bits bits;
    std::memcpy(&bits, &difference, sizeof bits);
    bits = bits & (~std::uint64_t{0} >> 1);
    Register t;
    std::memcpy(&t, &bits, sizeof t);
    difference = t;
    if constexpr (kind == tkNMNormPower::Third)
        difference = t * t * t;
    if constexpr (kind == tkNMNormPower::Halves)
    {
        int bit = 1;
        while (2 * bit <= power.whole)
            bit *= 2;
        for (bit /= 2; bit > 0; bit /= 2)
        {
            difference = difference * difference;
            if ((power.whole & bit) != 0)
                difference = difference * t;
        }
        if (power.hasHalf)
        {
            // 1 / sqrt(t) within 3.5 % by halving the exponent, so that 1 - t y^2 = r is within 0.07; then
            // sqrt(t) = t y (1 - r)^(-1/2) by the first four terms of the series.
            bits = 0x5fe6eb50c7b537a9 - (bits >> 1);
            Register y;
            std::memcpy(&y, &bits, sizeof y);
            const Register root = t * y;
            const Register r = 1.0 - root * y;
            difference = difference * (root + root * (((0.3125 * r + 0.375) * r + 0.5) * r));
        }
    }
}

#endif
