#include "numerics/kernels/tkNMElementaryKernel.h"

#include "numerics/kernels/tkNMLanes.h"
#include "numerics/tkNMElementary.h"
#include "numerics/tkNMElementaryTables.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#if defined(__GNUC__)

// Each step is that of the function with the same name in tkNMElementary.cpp, with a register for each double.
namespace
{
using namespace tkNMElementaryTables;
using Bits = std::uint64_t;

constexpr Bits fraction = (Bits{1} << 52) - 1;
constexpr Bits one = Bits{1023} << 52;
constexpr Bits smallestNormal = Bits{1} << 52;
constexpr Bits infinity = Bits{2047} << 52;
constexpr Bits normalPowersBits = 0x4086200000000000; // of normalPowers

template <std::size_t width>
using DoublesOf = typename RegisterOf<double, width>::Type;
template <std::size_t width>
using BitsOf = typename RegisterOf<Bits, width>::Type;

template <class To, class From>
TK_ALWAYS_INLINE void copyBits(const From& from, To& to)
{
    static_assert(sizeof to == sizeof from);
    std::memcpy(&to, &from, sizeof to);
}

// Conditions are integers of 1 or 0, got by subtraction: compilers do not turn every comparison into instructions.

/// Whether low <= x < high for the doubles that these bits are, both positive. *Requires* low < high.
template <std::size_t width>
TK_ALWAYS_INLINE void compare(const DoublesOf<width>& x, Bits low, Bits high, BitsOf<width>& isBetween)
{
    BitsOf<width> bits;
    copyBits(x, bits);
    bits = bits - low; // from 2^63 - low on if x < 0, from 2^64 - low on if x < low
    isBetween = (~bits & (bits - (high - low))) >> 63;
}

/// Whether |x| < limit for the double that these bits are.
template <std::size_t width>
TK_ALWAYS_INLINE void compareMagnitude(const DoublesOf<width>& x, Bits limit, BitsOf<width>& isBelow)
{
    BitsOf<width> bits;
    copyBits(x, bits);
    isBelow = ((bits & (~Bits{0} >> 1)) - limit) >> 63;
}

/// x where isValid is 1, 0.0 where it is 0: arithmetic with infinity or NaN would raise floating-point exceptions.
template <std::size_t width>
TK_ALWAYS_INLINE void keepValid(const DoublesOf<width>& x, const BitsOf<width>& isValid, DoublesOf<width>& result)
{
    BitsOf<width> bits;
    copyBits(x, bits);
    bits = bits & -isValid;
    copyBits(bits, result);
}

template <std::size_t width>
TK_ALWAYS_INLINE void shorten(const DoublesOf<width>& x, int count, DoublesOf<width>& result)
{
    BitsOf<width> bits;
    copyBits(x, bits);
    bits = (bits + (Bits{1} << (count - 1))) >> count << count;
    copyBits(bits, result);
}

/// result[l] = table[indices[l]]
template <std::size_t width>
TK_ALWAYS_INLINE void lookUp(const double* table, const BitsOf<width>& i, DoublesOf<width>& result)
{
    static_assert(width == 2 || width == 4 || width == 8);
    if constexpr (width == 2)
        result = DoublesOf<width>{table[i[0]], table[i[1]]};
    else if constexpr (width == 4)
        result = DoublesOf<width>{table[i[0]], table[i[1]], table[i[2]], table[i[3]]};
    else
        result = DoublesOf<width>{table[i[0]], table[i[1]], table[i[2]], table[i[3]],
                                  table[i[4]], table[i[5]], table[i[6]], table[i[7]]};
}

template <std::size_t width>
TK_ALWAYS_INLINE void expOf(const DoublesOf<width>& x, const DoublesOf<width>& low, DoublesOf<width>& result)
{
    const DoublesOf<width> shifted = x * stepsPerUnit + integerShift;
    const DoublesOf<width> n = shifted - integerShift;
    const DoublesOf<width> r = (x - n * step[0]) - (n * step[1] - low);
    const DoublesOf<width> r2 = r * r;
    const DoublesOf<width> rise = r + r2 * ((expTerms[0] + r * expTerms[1]) + r2 * (expTerms[2] + r * expTerms[3]));
    BitsOf<width> steps;
    copyBits(shifted, steps);
    DoublesOf<width> power;
    DoublesOf<width> powerLow;
    const BitsOf<width> indices = steps % 128 * 2;
    lookUp<width>(&powers[0][0], indices, power);
    lookUp<width>(&powers[0][1], indices, powerLow);
    const DoublesOf<width> sum = power + (powerLow + power * rise);
    BitsOf<width> bits;
    copyBits(sum, bits);
    bits = bits + (steps >> 7 << 52);
    copyBits(bits, result);
}

template <std::size_t width>
struct Reduced
{
    TK_ALWAYS_INLINE explicit Reduced(const DoublesOf<width>& x)
    {
        BitsOf<width> bits;
        copyBits(x, bits);
        // An integer below 2^52 in the fraction of 2^52 is the double 2^52 + it.
        const BitsOf<width> exponents = (bits + octaveCarry) >> 52 | Bits{1023 + 52} << 52;
        DoublesOf<width> k;
        copyBits(exponents, k);
        k = k - (0x1p52 + 1023.0);
        const BitsOf<width> fractions = bits & fraction;
        const BitsOf<width> indices = ((fractions + (Bits{1} << 44)) >> 45) * 3;
        DoublesOf<width> c;
        DoublesOf<width> lnC;
        DoublesOf<width> lnCRest;
        lookUp<width>(&reciprocals[0][0], indices, c);
        lookUp<width>(&reciprocals[0][1], indices, lnC);
        lookUp<width>(&reciprocals[0][2], indices, lnCRest);
        const BitsOf<width> mantissas = fractions | one;
        DoublesOf<width> m;
        DoublesOf<width> mHigh;
        copyBits(mantissas, m);
        shorten<width>(m, 28, mHigh);
        ln = k * ln2[0] + lnC;
        lnRest = k * ln2[1] + lnCRest;
        rHigh = mHigh * c - 1.0;
        rLow = (m - mHigh) * c;
    }

    DoublesOf<width> ln;
    DoublesOf<width> lnRest;
    DoublesOf<width> rHigh;
    DoublesOf<width> rLow;
};

template <std::size_t width>
TK_ALWAYS_INLINE void product(const DoublesOf<width>& a, const DoublesOf<width>& b, DoublesOf<width>& high,
                              DoublesOf<width>& low)
{
    DoublesOf<width> aHigh;
    DoublesOf<width> bHigh;
    shorten<width>(a, 27, aHigh);
    shorten<width>(b, 27, bHigh);
    const DoublesOf<width> aLow = a - aHigh;
    const DoublesOf<width> bLow = b - bHigh;
    high = a * b;
    low = (((aHigh * bHigh - high) + aHigh * bLow) + aLow * bHigh) + aLow * bLow;
}

// A function computes the values of a register where `isValid` becomes 1; elsewhere plain() has them.

struct Exp
{
    double plain(double x) const { return tkNMElementary::exp(x); }
    template <std::size_t width>
    TK_ALWAYS_INLINE void compute(const DoublesOf<width>& x, DoublesOf<width>& result, BitsOf<width>& isValid) const
    {
        compareMagnitude<width>(x, normalPowersBits, isValid);
        DoublesOf<width> argument;
        keepValid<width>(x, isValid, argument);
        expOf<width>(argument, DoublesOf<width>{}, result);
    }
};

struct Log
{
    double plain(double x) const { return tkNMElementary::log(x); }
    template <std::size_t width>
    TK_ALWAYS_INLINE void compute(const DoublesOf<width>& x, DoublesOf<width>& result, BitsOf<width>& isValid) const
    {
        compare<width>(x, smallestNormal, infinity, isValid);
        const Reduced<width> a(x);
        const DoublesOf<width> lnHigh = a.ln + a.rHigh;
        const DoublesOf<width> sum = lnHigh + a.rLow;
        const DoublesOf<width> rest = ((lnHigh - sum) + a.rLow) + a.lnRest;
        const DoublesOf<width> r = a.rHigh + a.rLow;
        const DoublesOf<width> r2 = r * r;
        result = sum + (rest + r2 * ((lnTerms[0] + r * lnTerms[1]) +
                                     r2 * ((lnTerms[2] + r * lnTerms[3]) + r2 * (lnTerms[4] + r * lnTerms[5]))));
    }
};

struct Square
{
    double plain(double x) const { return tkNMElementary::pow(x, 2.0); }
    template <std::size_t width>
    TK_ALWAYS_INLINE void compute(const DoublesOf<width>& x, DoublesOf<width>& result, BitsOf<width>& isValid) const
    {
        compareMagnitude<width>(x, infinity + 1, isValid);
        result = x * x;
    }
};

struct Cube
{
    double plain(double x) const { return tkNMElementary::pow(x, 3.0); }
    template <std::size_t width>
    TK_ALWAYS_INLINE void compute(const DoublesOf<width>& x, DoublesOf<width>& result, BitsOf<width>& isValid) const
    {
        compare<width>(x, Bits{1023 - 300} << 52, Bits{1023 + 300} << 52, isValid);
        DoublesOf<width> base;
        keepValid<width>(x, isValid, base);
        DoublesOf<width> square;
        DoublesOf<width> squareLow;
        product<width>(base, base, square, squareLow);
        DoublesOf<width> cube;
        DoublesOf<width> cubeLow;
        product<width>(square, base, cube, cubeLow);
        const DoublesOf<width> low = cubeLow + squareLow * base;
        const DoublesOf<width> error = cube * 0x1p-103;
        result = cube + (low - error);
        const DoublesOf<width> other = cube + (low + error);
        BitsOf<width> bits;
        BitsOf<width> otherBits;
        copyBits(result, bits);
        copyBits(other, otherBits);
        const BitsOf<width> difference = bits ^ otherBits;
        isValid = isValid & ~(difference | -difference) >> 63;
    }
};

struct Pow
{
    double y;
    double yHigh;

    explicit Pow(double exponent) : y(exponent) { shorten<1>(y, 27, yHigh); }

    double plain(double x) const { return tkNMElementary::pow(x, y); }
    template <std::size_t width>
    TK_ALWAYS_INLINE void compute(const DoublesOf<width>& x, DoublesOf<width>& result, BitsOf<width>& isValid) const
    {
        const Reduced<width> a(x);
        const DoublesOf<width> halfSquare = 0.5 * a.rHigh * a.rHigh;
        const DoublesOf<width> lnHigh = a.ln + a.rHigh;
        const DoublesOf<width> difference = lnHigh - halfSquare;
        const DoublesOf<width> sum = difference + a.rLow;
        const DoublesOf<width> rest = ((lnHigh - difference) - halfSquare) + ((difference - sum) + a.rLow);
        const DoublesOf<width> r = a.rHigh + a.rLow;
        const DoublesOf<width> r2 = r * r;
        const DoublesOf<width> cubic = (lnPairTerms[0] + r * lnPairTerms[1]) +
                                       r2 * ((lnPairTerms[2] + r * lnPairTerms[3]) +
                                             r2 * ((lnPairTerms[4] + r * lnPairTerms[5]) + r2 * lnPairTerms[6]));
        const DoublesOf<width> low = rest + ((r * r2) * cubic + (a.lnRest - a.rLow * (a.rHigh + 0.5 * a.rLow)));
        DoublesOf<width> high;
        shorten<width>(sum + low, 27, high);
        const DoublesOf<width> exponent = yHigh * high;
        const DoublesOf<width> exponentLow = (y - yHigh) * high + y * ((sum - high) + low);
        BitsOf<width> isNormal;
        compare<width>(x, smallestNormal, infinity, isValid);
        compareMagnitude<width>(exponent, normalPowersBits, isNormal);
        isValid = isValid & isNormal;
        expOf<width>(exponent, exponentLow, result);
    }
};

/// No more arguments of the last register are computed one by one: filling and emptying it takes longer.
constexpr std::size_t few = 4;

/// Loads `count` arguments, and 1.0 into the other lanes. *Requires* count > few or a whole register.
template <std::size_t width>
TK_ALWAYS_INLINE void loadArguments(DoublesOf<width>& argument, const double* x, std::size_t count)
{
    argument = DoublesOf<width>{} + 1.0;
    if (count == width)
        loadRegister(argument, x);
    else if constexpr (width > few + 1)
    {
        double some[width];
        storeRegister(argument, some);
        copyFew(x, count, some);
        loadRegister(argument, some);
    }
}

/// Stores the first `count` lanes. *Requires* count > few or a whole register.
template <std::size_t width>
TK_ALWAYS_INLINE void storeResults(const DoublesOf<width>& result, double* results, std::size_t count)
{
    if (count == width)
        storeRegister(result, results);
    else if constexpr (width > few + 1)
    {
        double some[width];
        storeRegister(result, some);
        copyFew(some, count, results);
    }
}

/// The arguments of a block are kept until it is known whether plain() has to compute some, as results may be x.
template <std::size_t width, class Function>
TK_ALWAYS_INLINE void compute(const Function& function, const double* x, double* results, std::size_t count)
{
    constexpr std::size_t block = 64;
    for (std::size_t first = 0; first < count; first += block)
    {
        const std::size_t used = std::min(block, count - first);
        double arguments[block];
        Bits valid[block];
        BitsOf<width> allValid = BitsOf<width>{} + Bits{1};
        for (std::size_t i = 0; i < used; i += width)
        {
            const std::size_t rest = std::min(width, used - i);
            if (rest < width && (width <= few + 1 || rest <= few))
            {
                for (std::size_t l = i; l < used; ++l)
                {
                    results[first + l] = function.plain(x[first + l]);
                    valid[l] = 1;
                }
                break;
            }
            DoublesOf<width> argument;
            loadArguments<width>(argument, x + first + i, rest);
            DoublesOf<width> result;
            BitsOf<width> isValid;
            function.template compute<width>(argument, result, isValid);
            storeRegister(argument, arguments + i);
            storeRegister(isValid, valid + i);
            allValid = allValid & isValid;
            storeResults<width>(result, results + first + i, rest);
        }
        Bits all = allValid[0];
        for (std::size_t l = 1; l < width; ++l)
            all &= allValid[l];
        if (all != 0)
            continue;
        for (std::size_t i = 0; i < used; ++i)
        {
            if (valid[i] == 0)
                results[first + i] = function.plain(arguments[i]);
        }
    }
}

#if TK_HAS_X86_TARGETS
template <class Function>
TK_TARGET_AVX2 void computeAvx2(const Function& function, const double* x, double* results, std::size_t count)
{
    compute<4>(function, x, results, count);
}
template <class Function>
TK_TARGET_AVX512 void computeAvx512(const Function& function, const double* x, double* results, std::size_t count)
{
    compute<8>(function, x, results, count);
}
#endif

template <class Function>
void compute(const Function& function, const double* x, double* results, std::size_t count,
             tkNMInstructions instructions)
{
#if TK_HAS_X86_TARGETS
    if (instructions == tkNMInstructions::Avx512)
        return computeAvx512(function, x, results, count);
    if (instructions == tkNMInstructions::Avx2)
        return computeAvx2(function, x, results, count);
#endif
    static_cast<void>(instructions);
    compute<plainWidth>(function, x, results, count);
}
} // namespace

#endif

void tkNMElementaryKernel::exp(const double* x, double* results, std::size_t count, tkNMInstructions instructions)
{
#if defined(__GNUC__)
    if (instructions != tkNMInstructions::Definition)
        return compute(Exp{}, x, results, count, instructions);
#endif
    std::transform(x, x + count, results, tkNMElementary::exp);
}

void tkNMElementaryKernel::log(const double* x, double* results, std::size_t count, tkNMInstructions instructions)
{
#if defined(__GNUC__)
    if (instructions != tkNMInstructions::Definition)
        return compute(Log{}, x, results, count, instructions);
#endif
    std::transform(x, x + count, results, tkNMElementary::log);
}

void tkNMElementaryKernel::pow(const double* x, double y, double* results, std::size_t count,
                               tkNMInstructions instructions)
{
#if defined(__GNUC__)
    if (instructions != tkNMInstructions::Definition)
    {
        if (y == 2.0)
            return compute(Square{}, x, results, count, instructions);
        if (y == 3.0)
            return compute(Cube{}, x, results, count, instructions);
        if (y != 1.0 && y != 0.5 && std::fabs(y) > tinyExponent && std::fabs(y) < hugeExponent)
            return compute(Pow(y), x, results, count, instructions);
    }
#endif
    std::transform(x, x + count, results, [y](double argument) { return tkNMElementary::pow(argument, y); });
}
