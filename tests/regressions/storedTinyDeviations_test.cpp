// Densities of tiny deviations came back from an archive unequal.
//
// A record holds the covariance, whose division by n - 1 is undone when it is loaded: by the remainder of the division,
// which was computed with std::fma. For deviations of 1e-153 and below the remainder underflowed, and where std::fma is
// not exact, as in some C libraries, other densities came back unequal as well.
//
// Now the product is split into two doubles, and a remainder near the smallest doubles is stored in a larger unit.

#include "clss/clastool/bayes/tk_ProbabilityDensityFunction.h"
#include "numerics/tkNMExactQuotient.h"
#include "tkTest.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>

TEST(StoredTinyDeviations, comeBackEqualAtEveryScale)
{
    std::mt19937_64 generator(11);
    std::normal_distribution<double> deviate;
    for (int exponent = -1073; exponent <= 480; exponent += 3)
    {
        std::vector<tkFeaturePattern> patterns;
        for (std::size_t i = 0; i < 2 + generator() % 40; ++i)
            patterns.emplace_back(std::vector<double>{std::ldexp(deviate(generator), exponent),
                                                      std::ldexp(deviate(generator), exponent / 2)});
        tk_PDFMultivariateNormal density;
        density.updateWithData(patterns);
        const std::string bytes = storeToBytes(density);
        tk_PDFMultivariateNormal loaded;
        loadFromBytes(bytes, loaded);
        ASSERT_TRUE(loaded == density) << exponent;
        ASSERT_EQ(storeToBytes(loaded), bytes) << exponent;
    }
}

TEST(StoredTinyDeviations, everyQuotientGivesBackItsDividend)
{
    std::mt19937_64 generator(12);
    for (int i = 0; i < 2000000; ++i)
    {
        std::uint64_t bits = generator();
        if (i % 4 == 0)
            bits &= (std::uint64_t(1) << 63) | ((std::uint64_t(1) << generator() % 64) - 1); // subnormal, of few digits
        double dividend = 0.0;
        std::memcpy(&dividend, &bits, sizeof dividend);
        const double divisor = static_cast<double>(1 + (generator() >> (33 + generator() % 31)));
        if (!std::isfinite(dividend))
            continue;
        const tkNMExactQuotient quotient = tkNMExactQuotient::of(dividend, divisor);
        ASSERT_EQ(quotient.value, dividend / divisor);
        ASSERT_EQ(quotient.times(divisor), dividend) << divisor;
    }
    const double infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(tkNMExactQuotient::of(infinity, 3.0).times(3.0), infinity);
    EXPECT_EQ(tkNMExactQuotient::of(-infinity, 3.0).compensation, 0.0);
    EXPECT_TRUE(std::isnan(tkNMExactQuotient::of(std::nan(""), 3.0).times(3.0)));
}
