#include "numerics/kernels/tkNMElementaryKernel.h"

#include "numerics/tkNMElementary.h"
#include "tkTest.h"

#include <algorithm>
#include <cfenv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

namespace
{
using Kernel = tkNMElementaryKernel;

/// All instruction sets of this processor.
std::vector<tkNMInstructions> instructionSets()
{
    std::vector<tkNMInstructions> sets;
    for (const tkNMInstructions set : {tkNMInstructions::Definition, tkNMInstructions::Portable, tkNMInstructions::Sse2,
                                       tkNMInstructions::Avx2, tkNMInstructions::Avx512})
    {
        if (set <= tkNMBestInstructions())
            sets.push_back(set);
    }
    return sets;
}

/// Arguments of every kind: any bits; ordinary magnitudes of both signs; positive ones near 1; special values, one in
/// a hundred.
std::vector<double> manyArguments(std::size_t count)
{
    constexpr double infinity = std::numeric_limits<double>::infinity();
    constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
    const double specials[] = {0.0,       -0.0,     1.0,       -1.0,    infinity,  -infinity, notANumber, -notANumber,
                               0x1p-1074, 0x1p1023, 0x1p-1022, -0x1p-3, 0x1p-300,  0x1p300,   708.0,      -708.0,
                               710.0,     -746.0,   -745.0,    2.0,     0x1p-1023, 709.7,     3.0,        208065.0};
    std::mt19937_64 generator(11);
    std::vector<double> arguments(count);
    for (std::size_t i = 0; i < count; ++i)
    {
        const std::uint64_t word = generator();
        const double unit = static_cast<double>(word >> 11) * 0x1p-53;
        if (i % 100 == 0)
            arguments[i] = specials[i / 100 % std::size(specials)];
        else if (i % 8 == 1)
            std::memcpy(&arguments[i], &word, sizeof word);
        else if (i % 8 == 2)
            arguments[i] = 1.0 + (unit - 0.5) * std::ldexp(1.0, -static_cast<int>(word % 50));
        else
            arguments[i] = std::ldexp(unit, static_cast<int>(word % 24) - 12) * (i % 8 == 3 ? -700.0 : 1.0);
    }
    return arguments;
}

/// The first index at which the bits of the two differ; -1 if none.
long firstDifference(const std::vector<double>& a, const std::vector<double>& b)
{
    for (std::size_t i = 0; i < a.size(); ++i)
    {
        if (std::memcmp(&a[i], &b[i], sizeof a[i]) != 0)
            return static_cast<long>(i);
    }
    return -1;
}

template <class Plain, class Fast>
void expectSameBits(const char* name, Plain plain, Fast fast)
{
    const std::vector<double> arguments = manyArguments(1000003);
    std::vector<double> expected(arguments.size());
    std::transform(arguments.begin(), arguments.end(), expected.begin(), plain);
    for (const tkNMInstructions set : instructionSets())
    {
        std::vector<double> results(arguments.size());
        fast(arguments.data(), results.data(), arguments.size(), set);
        const long different = firstDifference(expected, results);
        EXPECT_EQ(-1, different) << name << " of " << arguments[different] << " with instruction set "
                                 << static_cast<int>(set);
    }
}
} // namespace

TEST(tkNMElementaryKernel, expHasTheBitsOfThePlainFunction)
{
    expectSameBits("exp", tkNMElementary::exp, Kernel::exp);
}

TEST(tkNMElementaryKernel, logHasTheBitsOfThePlainFunction)
{
    expectSameBits("log", tkNMElementary::log, Kernel::log);
}

TEST(tkNMElementaryKernel, powHasTheBitsOfThePlainFunction)
{
    for (const double y : {1.5, 3.0, 2.0, 0.5, 1.0 / 3.0})
    {
        expectSameBits(("pow " + std::to_string(y)).c_str(), [y](double x) { return tkNMElementary::pow(x, y); },
                       [y](const double* x, double* results, std::size_t count, tkNMInstructions set)
                       { Kernel::pow(x, y, results, count, set); });
    }
}

TEST(tkNMElementaryKernel, powHasTheBitsOfThePlainFunctionForAnyExponent)
{
    const std::vector<double> arguments = manyArguments(20001);
    std::vector<double> expected(arguments.size());
    std::vector<double> results(arguments.size());
    for (const double y : manyArguments(150))
    {
        std::transform(arguments.begin(), arguments.end(), expected.begin(),
                       [y](double x) { return tkNMElementary::pow(x, y); });
        for (const tkNMInstructions set : instructionSets())
        {
            Kernel::pow(arguments.data(), y, results.data(), arguments.size(), set);
            const long different = firstDifference(expected, results);
            EXPECT_EQ(-1, different) << arguments[different] << " to the power of " << y;
        }
    }
}

TEST(tkNMElementaryKernel, neitherInvalidOperationsNorDivisionsByZeroAreRaised)
{
    // A NaN that signals raises an exception by definition.
    std::vector<double> arguments = manyArguments(100000);
    std::vector<double> exponents = manyArguments(150);
    for (std::vector<double>* list : {&arguments, &exponents})
        std::replace_if(
            list->begin(), list->end(), [](double x) { return std::isnan(x); },
            std::numeric_limits<double>::quiet_NaN());
    std::vector<double> results(arguments.size());
    for (const tkNMInstructions set : instructionSets())
    {
        ASSERT_EQ(0, std::feclearexcept(FE_ALL_EXCEPT));
        Kernel::exp(arguments.data(), results.data(), arguments.size(), set);
        EXPECT_EQ(0, std::fetestexcept(FE_INVALID | FE_DIVBYZERO)) << "exp " << static_cast<int>(set);
        Kernel::log(arguments.data(), results.data(), arguments.size(), set);
        EXPECT_EQ(0, std::fetestexcept(FE_INVALID | FE_DIVBYZERO)) << "log " << static_cast<int>(set);
        for (const double y : {1.5, 2.0, 3.0, 0.5, -1.0, 0x1p64})
            Kernel::pow(arguments.data(), y, results.data(), arguments.size(), set);
        for (const double y : exponents)
            Kernel::pow(arguments.data(), y, results.data(), 5000, set);
        EXPECT_EQ(0, std::fetestexcept(FE_INVALID | FE_DIVBYZERO)) << "pow " << static_cast<int>(set);
    }
    std::feclearexcept(FE_ALL_EXCEPT);
}

TEST(tkNMElementaryKernel, anyNumberOfArgumentsIsComputedInPlaceAndNothingBehindThem)
{
    const std::vector<double> arguments = manyArguments(140);
    for (const tkNMInstructions set : instructionSets())
    {
        for (std::size_t count = 0; count < arguments.size(); ++count)
        {
            std::vector<double> expected = arguments;
            std::transform(expected.begin(), expected.begin() + static_cast<long>(count), expected.begin(),
                           tkNMElementary::log);
            std::vector<double> results = arguments;
            Kernel::log(results.data(), results.data(), count, set);
            EXPECT_EQ(-1, firstDifference(expected, results)) << count;
        }
    }
}

/// A special value costs its own register the plain function, and no other lane its bits.
TEST(tkNMElementaryKernel, specialValuesInAnyLaneLeaveTheOthersAlone)
{
    const double specials[] = {0.0,          -0.0,      -1.0,  1.0,   std::numeric_limits<double>::infinity(),
                               std::nan(""), 0x1p-1074, 710.0, -746.0};
    const std::vector<double> usual = manyArguments(64);
    for (const tkNMInstructions set : instructionSets())
        for (const double special : specials)
            for (std::size_t place = 0; place < 24; ++place)
            {
                std::vector<double> arguments(24);
                for (std::size_t i = 0; i < arguments.size(); ++i)
                    arguments[i] = std::fabs(usual[4 + i]) < 700.0 ? std::fabs(usual[4 + i]) : 2.5;
                arguments[place] = special;
                std::vector<double> exps(24), logs(24), powers(24), results(24);
                for (std::size_t i = 0; i < 24; ++i)
                {
                    exps[i] = tkNMElementary::exp(arguments[i]);
                    logs[i] = tkNMElementary::log(arguments[i]);
                    powers[i] = tkNMElementary::pow(arguments[i], 1.7);
                }
                Kernel::exp(arguments.data(), results.data(), 24, set);
                EXPECT_EQ(-1, firstDifference(exps, results)) << special << ' ' << place;
                Kernel::log(arguments.data(), results.data(), 24, set);
                EXPECT_EQ(-1, firstDifference(logs, results)) << special << ' ' << place;
                Kernel::pow(arguments.data(), 1.7, results.data(), 24, set);
                EXPECT_EQ(-1, firstDifference(powers, results)) << special << ' ' << place;
            }
}

TEST(tkNMElementaryKernel, exponentsThatAreSpecialServeAllArguments)
{
    const std::vector<double> arguments = manyArguments(3000);
    for (const double y :
         {0.0, -0.0, 1.0, -1.0, 2.0, 3.0, 4.0, 0.5, -0.5, 0x1p65, -0x1p65, 0x1p-65, 1e300,
          std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(), std::nan("")})
    {
        std::vector<double> expected(arguments.size());
        std::transform(arguments.begin(), arguments.end(), expected.begin(),
                       [y](double x) { return tkNMElementary::pow(x, y); });
        for (const tkNMInstructions set : instructionSets())
        {
            std::vector<double> results(arguments.size());
            Kernel::pow(arguments.data(), y, results.data(), arguments.size(), set);
            EXPECT_EQ(-1, firstDifference(expected, results)) << y << ' ' << static_cast<int>(set);
        }
    }
}

TEST(tkNMElementaryKernel, argumentsAndResultsNeedNoAlignment)
{
    const std::vector<double> arguments = manyArguments(200);
    for (const tkNMInstructions set : instructionSets())
        for (std::size_t skipped = 0; skipped < 8; ++skipped)
        {
            const std::size_t count = 50 + skipped;
            std::vector<double> expected(200, -7.0), results(200, -7.0);
            std::transform(arguments.begin() + static_cast<long>(skipped),
                           arguments.begin() + static_cast<long>(skipped + count), expected.begin() + 3,
                           tkNMElementary::exp);
            Kernel::exp(arguments.data() + skipped, results.data() + 3, count, set);
            EXPECT_EQ(-1, firstDifference(expected, results)) << skipped;
            std::fill(expected.begin(), expected.end(), -7.0);
            std::fill(results.begin(), results.end(), -7.0);
            std::transform(arguments.begin() + static_cast<long>(skipped),
                           arguments.begin() + static_cast<long>(skipped + count), expected.begin() + 5,
                           [](double x) { return tkNMElementary::pow(x, 0.3); });
            Kernel::pow(arguments.data() + skipped, 0.3, results.data() + 5, count, set);
            EXPECT_EQ(-1, firstDifference(expected, results)) << skipped;
        }
}
