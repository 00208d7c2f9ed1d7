// Errors against MPFR, a library of correctly rounded functions of any precision. CLASTOOL_ARGUMENTS in the environment
// is how many arguments each function gets; docs/numerics.md has what 10^7 and more of them showed.
#include "numerics/tkNMElementary.h"

#include "tkTest.h"

#include <mpfr.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <limits>
#include <random>

namespace
{
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double largest = std::numeric_limits<double>::max();

long argumentCount()
{
    const char* count = std::getenv("CLASTOOL_ARGUMENTS");
    return count ? std::atol(count) : 200000;
}

/// A number of `bits` of precision.
class Number
{
public:
    explicit Number(int bits) { mpfr_init2(value, bits); }
    Number(const Number&) = delete;
    Number& operator=(const Number&) = delete;
    ~Number() { mpfr_clear(value); }

    mpfr_t value;
};

/// Reproducible arguments.
class Arguments
{
public:
    explicit Arguments(std::uint64_t seed) : generator_(seed) {}

    double uniform(double low, double high)
    {
        return low + (high - low) * (static_cast<double>(generator_() >> 11) * 0x1p-53);
    }
    /// From 0 to the largest double, each exponent as often as any other.
    double anyPositive()
    {
        const std::uint64_t bits = generator_() % 0x7ff0000000000000;
        double x;
        std::memcpy(&x, &bits, sizeof x);
        return x;
    }
    double nearOne() { return 1.0 + uniform(-1.0, 1.0) * std::exp2(-uniform(7.0, 53.0)); }
    /// Up to some 50 units in the last place beside the middle between two elements of the tables.
    double endOfInterval(double elements)
    {
        return (std::floor(uniform(0.0, elements)) + 0.5) / 128.0 * (1.0 + uniform(-1e-14, 1e-14));
    }

private:
    std::mt19937_64 generator_;
};

/// The largest error found, in units in the last place of the exact value.
class LargestError
{
public:
    LargestError(double limit, const char* name) : limit_(limit), name_(name), distance_(120) {}

    /// `exact` is the value for these arguments, rounded to 120 bits.
    void add(double computed, const Number& exact, double x, double y = 0.0)
    {
        double error;
        if (std::isinf(computed))
        {
            // Rounding brings it to infinity if it is beyond the largest double by half a unit, about.
            mpfr_set_d(distance_.value, largest, MPFR_RNDN);
            mpfr_nextabove(distance_.value);
            error = mpfr_cmpabs(exact.value, distance_.value) > 0 ? 0.0 : infinity;
        }
        else
        {
            const long exponent = mpfr_zero_p(exact.value) ? -1074 : mpfr_get_exp(exact.value) - 53;
            mpfr_sub_d(distance_.value, exact.value, computed, MPFR_RNDN);
            mpfr_mul_2si(distance_.value, distance_.value, -std::max(exponent, -1074L), MPFR_RNDN);
            error = std::fabs(mpfr_get_d(distance_.value, MPFR_RNDN));
        }
        ++count_;
        if (!(error <= largest_))
        {
            largest_ = error;
            x_ = x;
            y_ = y;
        }
    }

    void check() const
    {
        std::cout << name_ << ": " << largest_ << " units in the last place at " << std::hexfloat << x_ << ", " << y_
                  << std::defaultfloat << " of " << count_ << " arguments\n";
        EXPECT_GT(count_, 0);
        EXPECT_GT(largest_, 0.25) << "this finds no errors";
        EXPECT_LT(largest_, limit_) << name_;
    }

private:
    double limit_;
    const char* name_;
    Number distance_;
    double largest_ = 0.0;
    double x_ = 0.0;
    double y_ = 0.0;
    long count_ = 0;
};

class ExpErrors
{
public:
    void add(double x)
    {
        mpfr_set_d(argument_.value, x, MPFR_RNDN);
        mpfr_exp(exact_.value, argument_.value, MPFR_RNDN);
        largest.add(tkNMElementary::exp(x), exact_, x);
    }
    LargestError largest{0.51, "exp"};

private:
    Number argument_{53};
    Number exact_{120};
};

class LogErrors
{
public:
    void add(double x)
    {
        mpfr_set_d(argument_.value, x, MPFR_RNDN);
        mpfr_log(exact_.value, argument_.value, MPFR_RNDN);
        largest.add(tkNMElementary::log(x), exact_, x);
    }
    LargestError largest{0.51, "log"};

private:
    Number argument_{53};
    Number exact_{120};
};

class PowErrors
{
public:
    void add(double x, double y)
    {
        mpfr_set_d(x_.value, x, MPFR_RNDN);
        mpfr_set_d(y_.value, y, MPFR_RNDN);
        mpfr_pow(exact_.value, x_.value, y_.value, MPFR_RNDN);
        largest.add(tkNMElementary::pow(x, y), exact_, x, y);
    }
    LargestError largest{0.52, "pow"};

private:
    Number x_{53};
    Number y_{53};
    Number exact_{120};
};
} // namespace

TEST(tkNMElementaryErrors, expIsOffByLessThan051UnitsInTheLastPlace)
{
    ExpErrors errors;
    Arguments arguments(1);
    for (long i = 0; i < argumentCount(); ++i)
    {
        if (i % 4 == 0)
            errors.add(arguments.uniform(-745.2, 709.8));
        else if (i % 4 == 1)
            errors.add(arguments.uniform(-2.0, 2.0));
        else if (i % 4 == 2)
            errors.add(arguments.uniform(-745.2, -707.0)); // subnormal, but for a few
        else
            errors.add(std::log(2.0) * (i % 8 == 3 ? 1.0 : -1.0) * arguments.endOfInterval(i % 16 < 8 ? 1000 : 100000));
    }
    errors.largest.check();
}

TEST(tkNMElementaryErrors, logIsOffByLessThan051UnitsInTheLastPlace)
{
    LogErrors errors;
    Arguments arguments(2);
    for (long i = 0; i < argumentCount(); ++i)
    {
        if (i % 6 == 0)
            errors.add(arguments.anyPositive());
        else if (i % 6 == 1)
            errors.add(arguments.uniform(0.5, 2.0));
        else if (i % 6 == 2)
            errors.add(arguments.uniform(1.0 - 0x1p-6, 1.0 + 0x1p-6));
        else if (i % 6 == 3)
            errors.add(arguments.nearOne());
        else if (i % 6 == 4)
            errors.add(std::max(arguments.uniform(0.0, 0x1p-1022), 0x1p-1074));
        else
            errors.add((i % 12 == 5 ? 1.0 : 0.5) * (1.0 + arguments.endOfInterval(128)));
    }
    errors.largest.check();
}

TEST(tkNMElementaryErrors, powIsOffByLessThan052UnitsInTheLastPlace)
{
    PowErrors errors;
    Arguments arguments(3);
    for (long i = 0; i < argumentCount(); ++i)
    {
        double x;
        if (i % 5 == 0)
            x = arguments.anyPositive();
        else if (i % 5 == 1)
            x = arguments.uniform(0.0, 10.0);
        else if (i % 5 == 2)
            x = arguments.uniform(1.0 - 0x1p-6, 1.0 + 0x1p-6);
        else if (i % 5 == 3)
            x = arguments.nearOne();
        else
            x = (i % 2 == 0 ? 1.0 : 0.5) * (1.0 + arguments.endOfInterval(128));
        if (x == 0.0 || x == 1.0)
            continue;
        const double ln = std::log(x);
        double y;
        if (i % 4 == 0)
            y = arguments.uniform(-745.0, 709.7) / ln;
        else if (i % 4 == 1)
            y = arguments.uniform(600.0, 709.7) / ln;
        else if (i % 4 == 2)
            y = arguments.uniform(-745.0, -708.0) / ln; // subnormal
        else if (i % 8 == 3)
            y = arguments.uniform(-10.0, 10.0);
        else
        {
            constexpr double orders[] = {1.5, 4.0, 7.5, 1.0 / 3.0, 1.0 / 1.5, 0.25};
            y = orders[(i / 8) % 6];
        }
        errors.add(x, y);
    }
    errors.largest.check();
}

TEST(tkNMElementaryErrors, cubesAreCorrectlyRounded)
{
    Arguments arguments(4);
    Number exact(200);
    long different = 0;
    for (long i = 0; i < argumentCount(); ++i)
    {
        double x;
        if (i % 3 == 0)
            x = std::exp2(arguments.uniform(-360.0, 342.0));
        else if (i % 3 == 1)
            x = std::exp2(arguments.uniform(-359.0, -340.0)); // subnormal
        else                                                  // few bits
            x = std::ldexp(std::floor(arguments.uniform(0.0, 0x1p22)),
                           static_cast<int>(arguments.uniform(-380.0, 320.0)));
        if (i % 2 == 0)
            x = -x;
        mpfr_set_d(exact.value, x, MPFR_RNDN);
        mpfr_pow_ui(exact.value, exact.value, 3, MPFR_RNDN); // 159 bits
        different += mpfr_get_d(exact.value, MPFR_RNDN) == tkNMElementary::pow(x, 3.0) ? 0 : 1;
    }
    EXPECT_EQ(0, different);
}
