#include "foundation/tkRandom.h"

#include <cmath>
#include <cstdint>

tkRandomUniform::tkRandomUniform(long seed) : generator_(static_cast<std::uint64_t>(seed)) {}

double tkRandomUniform::next(double low, double high)
{
    const double unit = static_cast<double>(generator_() >> 11) * 0x1p-53;
    const double width = high - low;
    const double value = std::isfinite(width) ? low + unit * width : low * (1.0 - unit) + high * unit;
    return value > high && low <= high ? high : value;
}

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
    const double factor = std::sqrt(-2.0 * std::log(square) / square);
    spare_ = y * factor;
    haveSpare_ = true;
    return mean + sigma * (x * factor);
}
