#include "numerics/tkNMExactQuotient.h"

#include <cmath>

namespace
{
struct Product
{
    double high;
    double low;
};

/// a b = high + low exactly (Veltkamp's splitting and Dekker's product, Numerische Mathematik 18, 1971, 224-242); for
/// magnitudes that neither overflow nor underflow on the way. A fused multiplication and addition would do the same,
/// but is not exact in every C library.
Product exactProduct(double a, double b)
{
    const double splitter = 0x1p27 + 1.0;
    const double a1 = splitter * a;
    const double aHigh = a1 - (a1 - a);
    const double aLow = a - aHigh;
    const double b1 = splitter * b;
    const double bHigh = b1 - (b1 - b);
    const double bLow = b - bHigh;
    const double high = a * b;
    return {high, ((aHigh * bHigh - high) + aHigh * bLow + aLow * bHigh) + aLow * bLow};
}

bool isTiny(double quotient)
{
    return std::fabs(quotient) < 0x1p-940;
}

/// A power of two that brings a quotient to where products are exact.
double scaleOf(double quotient)
{
    return isTiny(quotient) ? 0x1p600 : std::fabs(quotient) > 0x1p900 ? 0x1p-200 : 1.0;
}
} // namespace

tkNMExactQuotient tkNMExactQuotient::of(double dividend, double divisor)
{
    const double value = dividend / divisor;
    if (!std::isfinite(value))
        return {value, 0.0};
    const double scale = scaleOf(value);
    const Product product = exactProduct(value * scale, divisor);
    const double compensation = ((dividend * scale - product.high) - product.low) / divisor;
    return {value, isTiny(value) ? compensation : compensation / scale};
}

double tkNMExactQuotient::times(double divisor) const
{
    if (!std::isfinite(value))
        return value * divisor;
    const double scale = scaleOf(value);
    const Product product = exactProduct(value * scale, divisor);
    const double scaled = isTiny(value) ? compensation : compensation * scale;
    return (product.high + (product.low + scaled * divisor)) / scale;
}
