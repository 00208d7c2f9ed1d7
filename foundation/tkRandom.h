#ifndef FOUNDATION_TKRANDOM_H
#define FOUNDATION_TKRANDOM_H

#include "foundation/tkExport.h"

#include <random>

/// Uniform random numbers. A seed gives the same sequence on every platform and with every release: the generator is
/// the 64-bit Mersenne Twister (Matsumoto and Nishimura, ACM TOMACS 8, 1998), and the step from its words to doubles is
/// our own, since the standard library's distributions differ between vendors. A `long` of 32 and one of 64 bits with
/// the same value are the same seed.
class TK_EXPORT tkRandomUniform
{
public:
    /// Starts the sequence of `seed`. Any value is a seed.
    tkRandomUniform(long seed);

    /// A number in [low, high], for finite low <= high: low + u (high - low) with u a multiple of 2^-53 in [0, 1), or
    /// low (1 - u) + high u where the difference overflows. Rounding may give high itself.
    double next(double low, double high);

private:
    std::mt19937_64 generator_;
};

/// Normally distributed random numbers, by the polar method (Marsaglia and Bray, SIAM Review 6, 1964). One seed
/// gives the same sequence on every platform.
class TK_EXPORT tkRandomGaussian
{
public:
    /// Starts the sequence of `seed`; both classes may have the same one.
    tkRandomGaussian(long seed);

    /// A deviate with this mean and standard deviation: mean + sigma z. Neither is checked. Draws 2.5 uniform numbers
    /// for two deviates on average.
    double next(double mean, double sigma);

private:
    tkRandomUniform uniform_;
    double spare_ = 0.0; // the second of a pair of standard deviates
    bool haveSpare_ = false;
};

#endif
