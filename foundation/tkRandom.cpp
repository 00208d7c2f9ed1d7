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
