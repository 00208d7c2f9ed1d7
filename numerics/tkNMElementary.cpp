#include "numerics/tkNMElementary.h"

#include "numerics/tkNMElementaryTables.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

namespace
{
using Bits = std::uint64_t;
using namespace tkNMElementaryTables;

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double smallestNormal = std::numeric_limits<double>::min();

constexpr Bits fraction = (Bits{1} << 52) - 1;
constexpr Bits one = Bits{1023} << 52;

Bits bitsOf(double x)
{
    Bits bits;
    std::memcpy(&bits, &x, sizeof bits);
    return bits;
}
double doubleOf(Bits bits)
{
    double x;
    std::memcpy(&x, &bits, sizeof x);
    return x;
}

/// The number nearest to x whose fraction ends with `count` bits of 0.
double shortened(double x, int count)
{
    return doubleOf((bitsOf(x) + (Bits{1} << (count - 1))) >> count << count);
}

/// 2^k. *Requires* -1022 <= k <= 1023.
double powerOfTwo(int k)
{
    return doubleOf(static_cast<Bits>(k + 1023) << 52);
}

/// x 2^k, where that is a double or overflows. *Requires* -2044 <= k <= 2046.
double scaled(double x, int k)
{
    return x * powerOfTwo(k / 2) * powerOfTwo(k - k / 2);
}

/// A value as the sum of two doubles, the second small against the first.
struct Pair
{
    double high;
    double low;
};

/// (value.high + value.low) 2^(n div 128), the sum in [0.99, 2), with n = shifted - integerShift.
struct Power
{
    Pair value;
    double shifted;
};

/// e^(x + low) for |x| < 1,000 and |low| < 2^-15. With n the integer nearest to 128 x / ln 2,
///
///     x + low = n ln 2 / 128 + r        e^(x + low) = 2^(n div 128) 2^((n mod 128) / 128) (1 + (e^r - 1))
///
/// n step[0] and its difference from x are exact.
inline Power powerOf(double x, double low)
{
    const double shifted = x * stepsPerUnit + integerShift;
    const double n = shifted - integerShift;
    const double r = (x - n * step[0]) - (n * step[1] - low);
    const double r2 = r * r;
    const double rise = r + r2 * ((expTerms[0] + r * expTerms[1]) + r2 * (expTerms[2] + r * expTerms[3]));
    const double* power = powers[bitsOf(shifted) % 128];
    return {{power[0], power[1] + power[0] * rise}, shifted};
}

/// The double nearest to a power below 2^1025.
double rounded(const Power& power)
{
    const int steps = static_cast<int>(power.shifted - integerShift);
    const int index = steps & 127;
    int exponent = (steps - index) / 128;
    Pair value = power.value;
    if (value.high + value.low < 1.0)
    {
        value = {2.0 * value.high, 2.0 * value.low};
        --exponent;
    }
    if (exponent >= -1022)
        return scaled(value.high + value.low, exponent);
    // Rounded once, where a subnormal number ends: this is the last place of doubles from `base` to 2 base.
    if (exponent < -1076)
        return 0.0;
    const double base = powerOfTwo(-1022 - exponent);
    const double sum = base + value.high;
    const double rest = ((base - sum) + value.high) + value.low;
    return doubleOf(bitsOf(sum + rest) - bitsOf(base));
}

/// e^(x + low), overflow and underflow included.
inline double expOf(double x, double low)
{
    if (std::fabs(x) < normalPowers)
    {
        const Power power = powerOf(x, low);
        const Bits bits = bitsOf(power.value.high + power.value.low);
        return doubleOf(bits + (bitsOf(power.shifted) >> 7 << 52));
    }
    if (x > 710.0)
        return infinity;
    return x < -746.0 ? 0.0 : rounded(powerOf(x, low));
}

/// x = 2^k m with m c = 1 + rHigh + rLow, for a c that has ten bits and stands in the table; |r| < 2^-7.8. `ln` and
/// `lnRest` are k ln 2 - ln c. rHigh, a multiple of 2^-34, is exact, and so are rLow, rHigh^2 and ln + rHigh.
struct Reduced
{
    double ln;
    double lnRest;
    double rHigh;
    double rLow;
};

/// *Requires* a normal x > 0; the result is for x 2^shift. The multiple of ln 2 changes near the square root of 2, so
/// that ln is 0 on both sides of x = 1.
inline Reduced reduced(double x, int shift)
{
    const Bits bits = bitsOf(x);
    const double k = static_cast<double>(static_cast<int>((bits + octaveCarry) >> 52) - 1023 + shift);
    const double* entry = reciprocals[((bits & fraction) + (Bits{1} << 44)) >> 45];
    const double m = doubleOf((bits & fraction) | one);
    const double mHigh = shortened(m, 28);
    const double c = entry[0];
    return {k * ln2[0] + entry[1], k * ln2[1] + entry[2], mHigh * c - 1.0, (m - mHigh) * c};
}

/// *Requires* a normal x > 0; the result is for x 2^shift.
inline double logOf(double x, int shift)
{
    const Reduced a = reduced(x, shift);
    const double lnHigh = a.ln + a.rHigh;
    const double sum = lnHigh + a.rLow;
    const double rest = ((lnHigh - sum) + a.rLow) + a.lnRest;
    const double r = a.rHigh + a.rLow;
    const double r2 = r * r;
    return sum + (rest + r2 * ((lnTerms[0] + r * lnTerms[1]) +
                               r2 * ((lnTerms[2] + r * lnTerms[3]) + r2 * (lnTerms[4] + r * lnTerms[5]))));
}

/// ln(x 2^shift) as 26 bits and a rest, the sum off by less than 2^-69 of it. *Requires* a normal x > 0.
inline Pair logPairOf(double x, int shift)
{
    const Reduced a = reduced(x, shift);
    const double halfSquare = 0.5 * a.rHigh * a.rHigh;
    const double lnHigh = a.ln + a.rHigh;
    const double difference = lnHigh - halfSquare;
    const double sum = difference + a.rLow;
    const double rest = ((lnHigh - difference) - halfSquare) + ((difference - sum) + a.rLow);
    const double r = a.rHigh + a.rLow;
    const double r2 = r * r;
    const double cubic = (lnPairTerms[0] + r * lnPairTerms[1]) +
                         r2 * ((lnPairTerms[2] + r * lnPairTerms[3]) +
                               r2 * ((lnPairTerms[4] + r * lnPairTerms[5]) + r2 * lnPairTerms[6]));
    const double low = rest + ((r * r2) * cubic + (a.lnRest - a.rLow * (a.rHigh + 0.5 * a.rLow)));
    const double high = shortened(sum + low, 27);
    return {high, (sum - high) + low};
}

/// x^y for finite x > 0 and 2^-65 < |y| < 2^65. The product of 26 bits of ln x and 26 bits of y is exact.
inline double positivePow(double x, double y)
{
    const Pair ln = x < smallestNormal ? logPairOf(x * 0x1p54, -54) : logPairOf(x, 0);
    const double yHigh = shortened(y, 27);
    return expOf(yHigh * ln.high, (y - yHigh) * ln.high + y * ln.low);
}

/// a * b = high + low exactly, while nothing overflows or underflows (Dekker).
inline Pair product(double a, double b)
{
    const double aHigh = shortened(a, 27);
    const double bHigh = shortened(b, 27);
    const double aLow = a - aHigh;
    const double bLow = b - bHigh;
    const double high = a * b;
    return {high, (((aHigh * bHigh - high) + aHigh * bLow) + aLow * bHigh) + aLow * bLow};
}

struct Words
{
    Bits high;
    Bits low;
};

Words product(Bits a, Bits b)
{
    constexpr Bits half = (Bits{1} << 32) - 1;
    const Bits low = (a & half) * (b & half);
    const Bits middle = (a >> 32) * (b & half) + (low >> 32);
    const Bits other = (a & half) * (b >> 32) + (middle & half);
    return {(a >> 32) * (b >> 32) + (middle >> 32) + (other >> 32), other << 32 | (low & half)};
}

/// x^3 for finite x > 0, correctly rounded: the cube of the 53 bits as an integer.
double exactCube(double x)
{
    if (x < 0x1p-359)
        return 0.0;
    if (x > 0x1p342)
        return infinity;
    // x = m 2^(exponent - 63) with m in [2^63, 2^64). x^3 is top 2^(3 exponent - 59) and what is cut off.
    const Bits m = ((bitsOf(x) & fraction) | (fraction + 1)) << 11;
    const int exponent = static_cast<int>(bitsOf(x) >> 52) - 1023;
    const Words square = product(m, m);
    const Words upper = product(square.high, m);
    const Words lower = product(square.low, m);
    const Bits middle = upper.low + lower.high;
    const Bits high = upper.high + (middle < upper.low ? 1 : 0);
    const bool isCut = (middle | lower.low | (high & 3)) != 0;
    const Bits top = high >> 2;
    int leading = 61;
    while (top >> leading == 0)
        --leading;
    // Of the bits of `top` remain 53, or as many as a subnormal number has.
    const int cut = std::max(leading - 52, -1074 - (3 * exponent - 59));
    const Bits rest = top & ((Bits{1} << cut) - 1);
    const Bits half = Bits{1} << (cut - 1);
    const Bits kept = top >> cut;
    const bool isUp = rest > half || (rest == half && (isCut || kept % 2 != 0));
    const int scale = 3 * exponent - 59 + cut;
    return scaled(static_cast<double>(kept + (isUp ? 1 : 0)), scale);
}

/// x^3 for finite x > 0, correctly rounded: by two exact products, unless the error of their sum could matter.
double positiveCube(double x)
{
    if (x < 0x1p-300 || x > 0x1p300)
        return exactCube(x);
    const Pair square = product(x, x);
    const Pair cube = product(square.high, x);
    const double low = cube.low + square.low * x;
    const double error = cube.high * 0x1p-103;
    const double result = cube.high + (low - error);
    return result == cube.high + (low + error) ? result : exactCube(x);
}

enum class Parity
{
    eNone, // a fraction
    eEven,
    eOdd
};

/// Doubles from 2^53 on, infinity included, are even.
Parity parityOf(double y)
{
    if (std::fabs(y) >= 0x1p53)
        return Parity::eEven;
    const auto integer = static_cast<std::int64_t>(y);
    if (static_cast<double>(integer) != y)
        return Parity::eNone;
    return integer % 2 == 0 ? Parity::eEven : Parity::eOdd;
}

/// x^y for x >= 0, infinity included, and any y but 0.
double powOfMagnitude(double x, double y)
{
    if (x == 1.0)
        return 1.0;
    if (x == 0.0 || x == infinity || std::fabs(y) >= hugeExponent)
        return (x > 1.0) == (y > 0.0) ? infinity : 0.0;
    if (std::fabs(y) <= tinyExponent)
        return 1.0;
    return y == 3.0 ? positiveCube(x) : positivePow(x, y);
}

/// x^y where x or y is 0 or infinite, x is negative, or y is huge or tiny; neither is NaN.
double specialPow(double x, double y)
{
    if (x == 1.0 || y == 0.0)
        return 1.0;
    const Parity parity = parityOf(y);
    if (x < 0.0 && x > -infinity && parity == Parity::eNone)
        return notANumber;
    const double result = powOfMagnitude(std::fabs(x), y);
    return parity == Parity::eOdd && std::signbit(x) ? -result : result;
}

/// x^0.5, which is not the root where x is -0.0 or minus infinity.
double powOfHalf(double x)
{
    if (x == -infinity)
        return infinity;
    return x >= 0.0 ? std::sqrt(x + 0.0) : notANumber; // -0.0 gives 0.0
}
} // namespace

double tkNMElementary::exp(double x)
{
    return std::isnan(x) ? notANumber : expOf(x, 0.0);
}

double tkNMElementary::log(double x)
{
    // By its bits, as a comparison with NaN would raise a floating-point exception.
    if (bitsOf(x) - bitsOf(smallestNormal) < bitsOf(infinity) - bitsOf(smallestNormal))
        return logOf(x, 0);
    if (x == 0.0)
        return -infinity;
    if (std::isnan(x) || x < 0.0)
        return notANumber;
    return x == infinity ? x : logOf(x * 0x1p54, -54);
}

double tkNMElementary::pow(double x, double y)
{
    if (std::isnan(x) || std::isnan(y))
        return x == 1.0 || y == 0.0 ? 1.0 : notANumber;
    if (y == 2.0)
        return x * x;
    if (y == 1.0)
        return x;
    if (y == 0.5)
        return powOfHalf(x);
    if (x > 0.0 && x < infinity && std::fabs(y) > tinyExponent && std::fabs(y) < hugeExponent)
        return y == 3.0 ? positiveCube(x) : positivePow(x, y);
    return specialPow(x, y);
}
