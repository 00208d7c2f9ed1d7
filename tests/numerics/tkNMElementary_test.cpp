#include "numerics/tkNMElementary.h"

#include "tkTest.h"

#include <cerrno>
#include <cfenv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

namespace
{
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr double tiniest = std::numeric_limits<double>::denorm_min();
constexpr double largest = std::numeric_limits<double>::max();
constexpr double smallestNormal = std::numeric_limits<double>::min();

std::uint64_t bitsOf(double x)
{
    std::uint64_t bits;
    std::memcpy(&bits, &x, sizeof bits);
    return bits;
}

double doubleOf(std::uint64_t bits)
{
    double x;
    std::memcpy(&x, &bits, sizeof x);
    return x;
}

using Ours = tkNMElementary;

/// The same double, where zeros of different sign differ and every NaN is the default one.
#define EXPECT_BITS(expected, actual) EXPECT_EQ(bitsOf(expected), bitsOf(actual)) << #actual << " is " << (actual)

/// Pairs of neighbours of which `function` brings the first above the second.
template <class Function>
long inversions(Function function, double low, double high, long count)
{
    std::mt19937_64 generator(7);
    long found = 0;
    for (long i = 0; i < count; ++i)
    {
        const double x = low + (high - low) * (static_cast<double>(generator() >> 11) * 0x1p-53);
        found += function(x) > function(std::nextafter(x, infinity)) ? 1 : 0;
    }
    return found;
}

/// The same for the neighbours around x.
template <class Function>
long inversionsAround(Function function, double x, long count)
{
    for (long i = 0; i < count / 2; ++i)
        x = std::nextafter(x, -infinity);
    long found = 0;
    double value = function(x);
    for (long i = 0; i < count; ++i)
    {
        x = std::nextafter(x, infinity);
        const double next = function(x);
        found += value > next ? 1 : 0;
        value = next;
    }
    return found;
}
} // namespace

TEST(tkNMElementary, expOfSpecialValues)
{
    EXPECT_BITS(1.0, Ours::exp(0.0));
    EXPECT_BITS(1.0, Ours::exp(-0.0));
    EXPECT_BITS(1.0, Ours::exp(tiniest));
    EXPECT_BITS(1.0, Ours::exp(-tiniest));
    EXPECT_BITS(infinity, Ours::exp(infinity));
    EXPECT_BITS(0.0, Ours::exp(-infinity));
    EXPECT_BITS(notANumber, Ours::exp(notANumber));
    EXPECT_BITS(notANumber, Ours::exp(-notANumber));
    EXPECT_BITS(infinity, Ours::exp(largest));
    EXPECT_BITS(0.0, Ours::exp(-largest));
}

TEST(tkNMElementary, expOverflowsAndUnderflowsWhereItMust)
{
    // ln of the largest double is between these two, and so is the one of half the smallest.
    const double highest = 0x1.62e42fefa39efp+9;
    EXPECT_BITS(0x1.fffffffffff2ap+1023, Ours::exp(highest));
    EXPECT_BITS(infinity, Ours::exp(std::nextafter(highest, infinity)));
    const double lowest = -0x1.74910d52d3051p+9;
    EXPECT_BITS(tiniest, Ours::exp(lowest));
    EXPECT_BITS(0.0, Ours::exp(std::nextafter(lowest, -infinity)));
    // The smallest normal number is between the results.
    EXPECT_LE(smallestNormal, Ours::exp(-0x1.6232bdd7abcd2p+9));
    EXPECT_GT(smallestNormal, Ours::exp(-0x1.6232bdd7abcd3p+9));
}

TEST(tkNMElementary, expIsMonotonicOnNeighbours)
{
    EXPECT_EQ(0, inversions(Ours::exp, -745.2, 709.8, 4000000));
    EXPECT_EQ(0, inversions(Ours::exp, -2.0, 2.0, 4000000));
    EXPECT_EQ(0, inversions(Ours::exp, -0.01, 0.01, 1000000));
    EXPECT_EQ(0, inversions(Ours::exp, -745.2, -707.0, 1000000));
    // Where the next element of the table is taken, and where the steps of the results double.
    for (int i = -1500; i < 1500; ++i)
    {
        EXPECT_EQ(0, inversionsAround(Ours::exp, (i + 0.5) * std::log(2.0) / 128.0, 200)) << i;
        EXPECT_EQ(0, inversionsAround(Ours::exp, (i / 2) * std::log(2.0), 200)) << i;
    }
    EXPECT_EQ(0, inversionsAround(Ours::exp, -708.0, 10000));
    EXPECT_EQ(0, inversionsAround(Ours::exp, 708.0, 10000));
}

TEST(tkNMElementary, logOfSpecialValues)
{
    EXPECT_BITS(0.0, Ours::log(1.0));
    EXPECT_BITS(-infinity, Ours::log(0.0));
    EXPECT_BITS(-infinity, Ours::log(-0.0));
    EXPECT_BITS(infinity, Ours::log(infinity));
    EXPECT_BITS(notANumber, Ours::log(-infinity));
    EXPECT_BITS(notANumber, Ours::log(-tiniest));
    EXPECT_BITS(notANumber, Ours::log(-1.0));
    EXPECT_BITS(notANumber, Ours::log(notANumber));
    EXPECT_BITS(notANumber, Ours::log(-notANumber));
    EXPECT_BITS(0x1.62e42fefa39efp+9, Ours::log(largest));
    EXPECT_BITS(-0x1.74385446d71c3p+9, Ours::log(tiniest));
    EXPECT_BITS(-0x1.6232bdd7abcd2p+9, Ours::log(smallestNormal));
    EXPECT_BITS(-0x1.6232bdd7abcd2p+9, Ours::log(smallestNormal - tiniest));
    EXPECT_BITS(0x1.fffffffffffffp-53, Ours::log(1.0 + 0x1p-52));
    EXPECT_BITS(-0x1p-53, Ours::log(1.0 - 0x1p-53));
    EXPECT_BITS(0x1.62e42fefa39efp-1, Ours::log(2.0));
}

TEST(tkNMElementary, logIsMonotonicOnNeighbours)
{
    EXPECT_EQ(0, inversions(Ours::log, 0.5, 2.0, 5000000));
    EXPECT_EQ(0, inversions(Ours::log, 0.99, 1.01, 2000000));
    EXPECT_EQ(0, inversions(Ours::log, 1e300, 1e308, 1500000));
    EXPECT_EQ(0, inversions(Ours::log, 0.0, smallestNormal, 1500000));
    for (int i = 0; i < 128; ++i)
    {
        for (const double octave : {0x1p-1060, 0.25, 0.5, 1.0, 0x1p1000})
            EXPECT_EQ(0, inversionsAround(Ours::log, octave * (1.0 + (i + 0.5) / 128.0), 300)) << i;
    }
    EXPECT_EQ(0, inversionsAround(Ours::log, 1.0, 10000));
    EXPECT_EQ(0, inversionsAround(Ours::log, smallestNormal, 10000));
}

TEST(tkNMElementary, powOfSpecialBases)
{
    for (const double y : {1.0, 3.0, 5.0, 0x1p53 - 1.0}) // odd
    {
        EXPECT_BITS(0.0, Ours::pow(0.0, y));
        EXPECT_BITS(-0.0, Ours::pow(-0.0, y));
        EXPECT_BITS(infinity, Ours::pow(0.0, -y));
        EXPECT_BITS(-infinity, Ours::pow(-0.0, -y));
        EXPECT_BITS(infinity, Ours::pow(infinity, y));
        EXPECT_BITS(-infinity, Ours::pow(-infinity, y));
        EXPECT_BITS(0.0, Ours::pow(infinity, -y));
        EXPECT_BITS(-0.0, Ours::pow(-infinity, -y));
        EXPECT_BITS(-1.0, Ours::pow(-1.0, y));
        EXPECT_BITS(-1.0, Ours::pow(-1.0, -y));
    }
    for (const double y : {0.5, 1.5, 2.0, 4.0, 1e-300, 0x1p53, 0x1p70, largest, infinity}) // not odd
    {
        EXPECT_BITS(0.0, Ours::pow(0.0, y));
        EXPECT_BITS(0.0, Ours::pow(-0.0, y));
        EXPECT_BITS(infinity, Ours::pow(0.0, -y));
        EXPECT_BITS(infinity, Ours::pow(-0.0, -y));
        EXPECT_BITS(infinity, Ours::pow(infinity, y));
        EXPECT_BITS(infinity, Ours::pow(-infinity, y));
        EXPECT_BITS(0.0, Ours::pow(infinity, -y));
        EXPECT_BITS(0.0, Ours::pow(-infinity, -y));
    }
    for (const double y : {2.0, 4.0, 0x1p53, 0x1p70, largest, infinity})
    {
        EXPECT_BITS(1.0, Ours::pow(-1.0, y));
        EXPECT_BITS(1.0, Ours::pow(-1.0, -y));
    }
}

TEST(tkNMElementary, powOfSpecialExponents)
{
    for (const double x : {0.0, -0.0, 1.0, -1.0, 0.3, -7.0, tiniest, largest, infinity, -infinity, notANumber})
    {
        EXPECT_BITS(1.0, Ours::pow(x, 0.0));
        EXPECT_BITS(1.0, Ours::pow(x, -0.0));
    }
    for (const double y : {0.0, 0.5, -1.0, 3.0, 1e300, infinity, -infinity, notANumber})
        EXPECT_BITS(1.0, Ours::pow(1.0, y));
    for (const double x : {0.0, 0.5, -0.5, 1.0 - 0x1p-53})
    {
        EXPECT_BITS(0.0, Ours::pow(x, infinity));
        EXPECT_BITS(infinity, Ours::pow(x, -infinity));
    }
    for (const double x : {1.0 + 0x1p-52, 2.0, -2.0, largest})
    {
        EXPECT_BITS(infinity, Ours::pow(x, infinity));
        EXPECT_BITS(0.0, Ours::pow(x, -infinity));
    }
    for (const double y : {1.0, 2.0, 3.0, 0.5, -1.0, 1.5, infinity, -infinity, notANumber})
        EXPECT_BITS(notANumber, Ours::pow(-notANumber, y));
    for (const double x : {0.0, 2.0, -2.0, infinity, -infinity})
        EXPECT_BITS(notANumber, Ours::pow(x, -notANumber));
}

TEST(tkNMElementary, powOfNegativeBases)
{
    for (const double y : {0.5, 1.5, -0.5, 1e-300, 0x1p52 - 0.5, -2.7})
        EXPECT_BITS(notANumber, Ours::pow(-2.0, y));
    EXPECT_BITS(-8.0, Ours::pow(-2.0, 3.0));
    EXPECT_BITS(-0.125, Ours::pow(-2.0, -3.0));
    EXPECT_BITS(4.0, Ours::pow(-2.0, 2.0));
    EXPECT_BITS(0.0625, Ours::pow(-2.0, -4.0));
    EXPECT_BITS(-infinity, Ours::pow(-2.0, 1025.0));
    EXPECT_BITS(-0.0, Ours::pow(-2.0, -1077.0));
    EXPECT_BITS(-tiniest, Ours::pow(-2.0, -1073.0) / 2.0);
    EXPECT_BITS(infinity, Ours::pow(-2.0, 0x1p53));
    EXPECT_BITS(-infinity, Ours::pow(-2.0, 0x1p53 - 1.0));
    EXPECT_BITS(0.0, Ours::pow(-2.0, -0x1p70));
    EXPECT_BITS(-Ours::pow(3.7, 5.0), Ours::pow(-3.7, 5.0));
    EXPECT_BITS(-Ours::pow(3.7, 3.0), Ours::pow(-3.7, 3.0));
    EXPECT_BITS(-3.7, Ours::pow(-3.7, 1.0));
    EXPECT_BITS(notANumber, Ours::pow(-3.7, 0.5));
}

TEST(tkNMElementary, powOfHugeAndTinyExponents)
{
    EXPECT_BITS(infinity, Ours::pow(1.0 + 0x1p-52, largest));
    EXPECT_BITS(0.0, Ours::pow(1.0 + 0x1p-52, -largest));
    EXPECT_BITS(0.0, Ours::pow(1.0 - 0x1p-53, largest));
    EXPECT_BITS(infinity, Ours::pow(1.0 - 0x1p-53, -largest));
    EXPECT_BITS(infinity, Ours::pow(1.0 + 0x1p-52, 0x1p65));
    EXPECT_BITS(infinity, Ours::pow(1.0 + 0x1p-52, std::nextafter(0x1p65, 0.0)));
    for (const double x : {tiniest, 0.5, largest})
    {
        for (const double y : {tiniest, 0x1p-65, std::nextafter(0x1p-65, 1.0)})
        {
            EXPECT_BITS(1.0, Ours::pow(x, y));
            EXPECT_BITS(1.0, Ours::pow(x, -y));
        }
    }
}

TEST(tkNMElementary, powOverflowsAndUnderflowsWhereItMust)
{
    EXPECT_BITS(0x1p1023, Ours::pow(2.0, 1023.0));
    EXPECT_BITS(infinity, Ours::pow(2.0, 1024.0));
    EXPECT_GT(infinity, Ours::pow(2.0, std::nextafter(1024.0, 0.0)));
    for (int k = -1074; k <= 1023; ++k)
        EXPECT_BITS(std::ldexp(1.0, k), Ours::pow(2.0, k));
    EXPECT_BITS(0.0, Ours::pow(2.0, -1075.0)); // halfway, the even one
    EXPECT_BITS(tiniest, Ours::pow(2.0, std::nextafter(-1075.0, 0.0)));
    EXPECT_BITS(0.0, Ours::pow(2.0, std::nextafter(-1075.0, -infinity)));
    EXPECT_BITS(tiniest, Ours::pow(tiniest, 1.0));
    EXPECT_BITS(0x1p537, Ours::pow(tiniest, -0.5));
    EXPECT_BITS(infinity, Ours::pow(tiniest, -1.0));
    EXPECT_BITS(0x1p-1072, Ours::pow(0x1p-536, 2.0));
}

TEST(tkNMElementary, exactPowersAreExact)
{
    for (int x = 2; x <= 50; ++x)
    {
        double power = 1.0;
        for (int y = 1; power * x <= 0x1p53; ++y)
        {
            power *= x;
            EXPECT_BITS(power, Ours::pow(x, y)) << x << " " << y;
            EXPECT_BITS(std::ldexp(power, 10 * y), Ours::pow(x * 1024.0, y)) << x << " " << y;
            EXPECT_BITS(power, Ours::pow(static_cast<double>(x) * x, y * 0.5)) << x << " " << y;
            if (power * power * power * power <= 0x1p53)
            {
                EXPECT_BITS(power, Ours::pow(power * power * power * power, 0.25)) << x << " " << y;
                EXPECT_BITS(power * power * power, Ours::pow(power * power * power * power, 0.75)) << x << " " << y;
            }
        }
    }
    EXPECT_BITS(0.125, Ours::pow(8.0, -1.0));
    EXPECT_BITS(1e22, Ours::pow(10.0, 22.0));
}

TEST(tkNMElementary, powersWithExponentsOneTwoAndOneHalfAreThoseOfTheArithmetic)
{
    std::mt19937_64 generator(3);
    for (int i = 0; i < 100000; ++i)
    {
        const double x = doubleOf(generator());
        if (x != x)
            continue;
        EXPECT_BITS(x, Ours::pow(x, 1.0));
        EXPECT_BITS(x * x, Ours::pow(x, 2.0));
        EXPECT_BITS(std::sqrt(std::fabs(x)), Ours::pow(std::fabs(x), 0.5));
    }
    EXPECT_BITS(0.0, Ours::pow(-0.0, 0.5));
    EXPECT_BITS(infinity, Ours::pow(-infinity, 0.5));
}

TEST(tkNMElementary, cubesAreRoundedToEvenInTheMiddleOfTwoDoubles)
{
    // These cubes are odd and have 54 bits, one more than a double.
    int checked = 0;
    for (std::int64_t n = 208065; n < 262144; n += 2)
    {
        const std::int64_t cube = n * n * n;
        ASSERT_EQ(1, cube >> 53);
        const std::int64_t half = cube / 2;
        EXPECT_EQ(static_cast<double>(2 * (half + half % 2)), Ours::pow(static_cast<double>(n), 3.0));
        ++checked;
    }
    EXPECT_EQ(27040, checked);
    EXPECT_BITS(0x1p-1074, Ours::pow(0x1p-358, 3.0));
    // Neighbours on both sides of the cube roots of half the smallest double, and of what rounds to infinity.
    EXPECT_BITS(0.0, Ours::pow(0x1.965fea53d6e3cp-359, 3.0));
    EXPECT_BITS(tiniest, Ours::pow(0x1.965fea53d6e3dp-359, 3.0));
    EXPECT_BITS(0x1.ffffffffffffcp+1023, Ours::pow(0x1.428a2f98d728ap+341, 3.0));
    EXPECT_BITS(infinity, Ours::pow(0x1.428a2f98d728bp+341, 3.0));
    EXPECT_BITS(0x1p1023, Ours::pow(0x1p341, 3.0));
}

TEST(tkNMElementary, neitherInvalidOperationsNorDivisionsByZeroAreRaised)
{
    std::vector<double> arguments = {0.0,      -0.0,      1.0,        -1.0,        0.5,           2.0,     3.0,
                                     infinity, -infinity, 1e300,      -1e300,      1e-300,        709.0,   710.0,
                                     -746.0,   tiniest,   -tiniest,   largest,     -3.0,          0x1p-30, 0x1p66,
                                     0x1p53,   -0x1p53,   notANumber, -notANumber, smallestNormal};
    std::mt19937_64 generator(5);
    for (int i = 0; i < 1000; ++i)
    {
        const double x = doubleOf(generator());
        if (!std::isnan(x)) // those that signal raise an exception by definition
            arguments.push_back(x);
    }
    ASSERT_EQ(0, std::feclearexcept(FE_ALL_EXCEPT));
    for (const double x : arguments)
    {
        Ours::exp(x);
        Ours::log(x);
        EXPECT_EQ(0, std::fetestexcept(FE_INVALID | FE_DIVBYZERO)) << x;
        for (const double y : arguments)
            Ours::pow(x, y);
        EXPECT_EQ(0, std::fetestexcept(FE_INVALID | FE_DIVBYZERO)) << x;
        std::feclearexcept(FE_ALL_EXCEPT);
    }
}

TEST(tkNMElementary, errnoIsLeftAlone)
{
    errno = 0;
    Ours::exp(1e4);
    Ours::exp(-1e4);
    Ours::log(0.0);
    Ours::log(-1.0);
    Ours::pow(0.0, -1.0);
    Ours::pow(-1.0, 0.5);
    Ours::pow(-2.0, 1.5);
    Ours::pow(1e300, 1e300);
    EXPECT_EQ(0, errno);
}

namespace
{
/// Doubles between a and b, in units of the last place of the larger one.
double unitsBetween(double a, double b)
{
    if (a == b)
        return 0.0;
    const double largerOne = std::fmax(std::fabs(a), std::fabs(b));
    return std::fabs(a - b) / (std::nextafter(largerOne, infinity) - largerOne);
}

double uniform(std::mt19937_64& generator, double low, double high)
{
    return low + (high - low) * (static_cast<double>(generator() >> 11) * 0x1p-53);
}
} // namespace

/// The C library's functions are off by about a unit.
TEST(tkNMElementary, agreesWithTheCLibraryToTwoUnits)
{
    std::mt19937_64 generator(11);
    for (int i = 0; i < 200000; ++i)
    {
        const double x = uniform(generator, -740.0, 709.0);
        ASSERT_LE(unitsBetween(Ours::exp(x), std::exp(x)), 2.0) << x;
        const double positive = std::ldexp(uniform(generator, 0.5, 1.0), static_cast<int>(generator() % 2000) - 1000);
        ASSERT_LE(unitsBetween(Ours::log(positive), std::log(positive)), 2.0) << positive;
        const double y = uniform(generator, -3.0, 3.0);
        const double base = std::ldexp(uniform(generator, 0.5, 1.0), static_cast<int>(generator() % 600) - 300);
        ASSERT_LE(unitsBetween(Ours::pow(base, y), std::pow(base, y)), 2.0) << base << ' ' << y;
    }
}

TEST(tkNMElementary, expAndLogUndoOneAnother)
{
    std::mt19937_64 generator(12);
    for (int i = 0; i < 100000; ++i)
    {
        const double x = uniform(generator, 1.0, 700.0);
        ASSERT_LE(unitsBetween(Ours::log(Ours::exp(x)), x), 2.0) << x;
        const double near = uniform(generator, 0.6, 1.6); // where the logarithm is small
        ASSERT_LE(unitsBetween(Ours::exp(Ours::log(near)), near), 2.0) << near;
    }
}

TEST(tkNMElementary, logOfAPowerOfTwoTimesXIsThatManyLn2More)
{
    std::mt19937_64 generator(13);
    const double ln2 = 0.69314718055994530942;
    for (int i = 0; i < 20000; ++i)
    {
        const double x = uniform(generator, 1.0, 2.0);
        const int k = static_cast<int>(generator() % 2000) - 1000;
        const double expected = Ours::log(x) + k * ln2;
        ASSERT_NEAR(Ours::log(std::ldexp(x, k)), expected, 5e-16 * (1.0 + std::fabs(k * ln2))) << x << ' ' << k;
    }
}

TEST(tkNMElementary, powersMultiply)
{
    std::mt19937_64 generator(14);
    for (int i = 0; i < 50000; ++i)
    {
        const double x = uniform(generator, 0.01, 100.0);
        const double a = uniform(generator, -8.0, 8.0);
        const double b = uniform(generator, -8.0, 8.0);
        const double product = Ours::pow(x, a) * Ours::pow(x, b);
        // The sum of the exponents is rounded: up to 2^-50 ln 100 in relative terms.
        ASSERT_NEAR(Ours::pow(x, a + b) / product, 1.0, 1e-14) << x << ' ' << a << ' ' << b;
        ASSERT_LE(unitsBetween(Ours::pow(x, -1.0), 1.0 / x), 1.0) << x;
        ASSERT_LE(unitsBetween(Ours::pow(x, 1.5), x * std::sqrt(x)), 2.0) << x;
    }
}

TEST(tkNMElementary, powIsMonotonicInBothArguments)
{
    std::mt19937_64 generator(15);
    for (const double y : {0.3, 1.5, 2.5, 7.0, -0.7})
    {
        const auto inBase = [y](double x) { return (y > 0.0 ? 1.0 : -1.0) * Ours::pow(x, y); };
        EXPECT_EQ(0, inversions(inBase, 0.001, 1000.0, 200000)) << y;
        EXPECT_EQ(0, inversionsAround(inBase, 1.0, 2000)) << y;
    }
    for (const double x : {0.3, 0.999, 1.5, 10.0})
    {
        const auto inExponent = [x](double y) { return (x > 1.0 ? 1.0 : -1.0) * Ours::pow(x, y); };
        EXPECT_EQ(0, inversions(inExponent, -30.0, 30.0, 200000)) << x;
        EXPECT_EQ(0, inversionsAround(inExponent, 1.0, 2000)) << x;
        EXPECT_EQ(0, inversionsAround(inExponent, 2.0, 2000)) << x;
    }
}

TEST(tkNMElementary, subnormalArgumentsAndResults)
{
    for (int k = 1; k <= 52; ++k)
    {
        const double x = std::ldexp(1.0, -1022 - k);
        EXPECT_LE(unitsBetween(Ours::log(x), (-1022 - k) * 0.69314718055994530942), 1.0) << k;
        EXPECT_BITS(x, Ours::pow(2.0, -1022.0 - k));
        EXPECT_BITS(std::sqrt(x), Ours::pow(x, 0.5));
        EXPECT_LE(std::fabs(Ours::exp((-1022 - k) * 0.69314718055994530942) - x), std::fmax(tiniest, 0x1p-42 * x)) << k;
    }
}
