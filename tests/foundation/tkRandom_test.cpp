#include "foundation/tkRandom.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

TEST(tkRandomUniform, isTheMersenneTwisterScaledByItsTopBits)
{
    // The standard fixes the 10000th word of the default seed, which checks the generator itself.
    std::mt19937_64 standard;
    standard.discard(9999);
    EXPECT_EQ(9981545732273789042u, standard());

    tkRandomUniform uniform(5489);
    for (int i = 0; i < 9999; ++i)
        uniform.next(0.0, 1.0);
    EXPECT_EQ(std::ldexp(static_cast<double>(9981545732273789042u >> 11), -53), uniform.next(0.0, 1.0));
}

// The two expected sequences are those of tests/reference/random.py.
TEST(tkRandomUniform, sequenceOfSeedOneIsFixed)
{
    tkRandomUniform uniform(1);
    for (const double expected :
         {-0x1.dba42a0449798p-2, -0x1.d146dafdce708p-2, 0x1.9c168f3bd7320p-1, -0x1.d4f13fd436520p-1,
          0x1.9d47572ecfc60p-2, 0x1.529d85a57326dp+1, 0x1.c419b1ac8ade8p-1, -0x1.6793d8372075cp-1})
        EXPECT_EQ(expected, uniform.next(-1.0, 3.0));
}

TEST(tkRandomUniform, differentSeedsAlsoNegativeOnesGiveDifferentSequences)
{
    tkRandomUniform a(1), b(2), c(-1), again(1);
    const double first = a.next(0, 1);
    EXPECT_NE(first, b.next(0, 1));
    EXPECT_NE(first, c.next(0, 1));
    EXPECT_EQ(first, again.next(0, 1));
}

TEST(tkRandomUniform, staysInItsRangeAndCoversItEvenly)
{
    tkRandomUniform uniform(3);
    const int n = 100000;
    double sum = 0.0, squares = 0.0;
    for (int i = 0; i < n; ++i)
    {
        const double x = uniform.next(2.0, 5.0);
        ASSERT_GE(x, 2.0);
        ASSERT_LE(x, 5.0);
        sum += x;
        squares += (x - 3.5) * (x - 3.5);
    }
    EXPECT_NEAR(3.5, sum / n, 5 * std::sqrt(0.75 / n));
    EXPECT_NEAR(0.75, squares / n, 5 * std::sqrt(0.45 / n)); // fourth central moment 81/80, less 0.75 squared
    EXPECT_EQ(4.0, uniform.next(4.0, 4.0));
}

TEST(tkRandomGaussian, sequenceOfSeedOneIsFixed)
{
    tkRandomGaussian gaussian(1);
    for (const double expected :
         {-0x1.42c3b2b722171p-5, -0x1.8c1da014dda09p-2, -0x1.fdd85e535a47ap-3, 0x1.5fa75918ca312p-1,
          -0x1.bfaac17196978p-5, -0x1.971d689089fdbp-1, 0x1.003e6b2410a3cp+0, 0x1.f01d3e119ca68p+0})
        EXPECT_EQ(expected, gaussian.next(0.0, 1.0));
}

TEST(tkRandomGaussian, meanAndDeviationScaleTheSameDeviates)
{
    tkRandomGaussian standard(4), scaled(4);
    for (int i = 0; i < 100; ++i)
    {
        const double deviate = standard.next(0.0, 1.0);
        EXPECT_EQ(10.0 + 3.0 * deviate, scaled.next(10.0, 3.0));
    }
    EXPECT_EQ(7.0, scaled.next(7.0, 0.0));
}

TEST(tkRandomGaussian, momentsOfManyDeviatesAreThoseOfTheNormalDistribution)
{
    tkRandomGaussian gaussian(1);
    const int n = 100000;
    double m1 = 0, m2 = 0, m3 = 0, m4 = 0;
    int beyondTwo = 0;
    for (int i = 0; i < n; ++i)
    {
        const double x = gaussian.next(0.0, 1.0);
        m1 += x / n;
        m2 += x * x / n;
        m3 += x * x * x / n;
        m4 += x * x * x * x / n;
        beyondTwo += std::fabs(x) > 2.0;
    }
    // Five standard errors each: the variances of x, x^2, x^3, x^4 are 1, 2, 15, 96.
    EXPECT_NEAR(0.0, m1, 5 * std::sqrt(1.0 / n));
    EXPECT_NEAR(1.0, m2, 5 * std::sqrt(2.0 / n));
    EXPECT_NEAR(0.0, m3, 5 * std::sqrt(15.0 / n));
    EXPECT_NEAR(3.0, m4, 5 * std::sqrt(96.0 / n));
    EXPECT_NEAR(0.0455003, static_cast<double>(beyondTwo) / n, 5 * std::sqrt(0.0455 * 0.9545 / n));
}
