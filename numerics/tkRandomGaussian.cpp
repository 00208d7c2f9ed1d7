// The normally distributed numbers of foundation/tkRandom.h, which need a logarithm.
#include "foundation/tkRandom.h"

#include "numerics/tkNMElementary.h"

#include <cmath>

tkRandomGaussian::tkRandomGaussian(long seed) : uniform_(seed) {}

double tkRandomGaussian::next(double mean, double sigma)
{
    if (haveSpare_)
    {
        haveSpare_ = false;
        return mean + sigma * spare_;
    }

    // A point uniform in the unit disc gives two independent deviates.
    double x;
    double y;
    double square;
    do
    {
        x = uniform_.next(-1.0, 1.0);
        y = uniform_.next(-1.0, 1.0);
        square = x * x + y * y;
    } while (square >= 1.0 || square == 0.0);
    const double factor = std::sqrt(-2.0 * tkNMElementary::log(square) / square);
    spare_ = y * factor;
    haveSpare_ = true;
    return mean + sigma * (x * factor);
}
