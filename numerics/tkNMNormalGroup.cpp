#include "numerics/tkNMNormalGroup.h"

#include "foundation/tkAssert.h"
#include "numerics/tkNMLanes.h"

#include <algorithm>
#include <limits>

namespace
{
/// `eights` holds means, remainders, weights and peaks of eight places, 32 doubles, then those of the next eight.
template <class Eight>
TK_ALWAYS_INLINE bool addLogDensitiesOf(const double* eights, const double* x, std::size_t size, double& sum)
{
    constexpr double s = tkNMSingleNormal::gridShift;
    const double shifts[8] = {s, s, s, s, s, s, s, s};
    Eight shift;
    shift.load(shifts);
    Eight squares;
    squares.clear();
    double total = sum;
    for (std::size_t first = 0; first < size; first += 8, eights += 32)
    {
        const std::size_t count = std::min<std::size_t>(8, size - first);
        double rest[8] = {};
        for (std::size_t i = 0; count < 8 && i < count; ++i)
            rest[i] = x[first + i];
        Eight y;
        y.load(count < 8 ? rest : x + first);
        Eight other;
        other.load(eights);
        y.subtract(other);
        other.load(eights + 8);
        y.subtract(other);
        other.load(eights + 16);
        y.multiply(other);
        Eight square = y;
        square.multiply(y);
        squares.add(square);
        square.multiply(0.5);
        square.add(shift);
        square.subtract(shift);
        Eight value;
        value.load(eights + 24);
        value.subtract(square);
        double values[8];
        value.store(values);
        if (count < 8)
            for (std::size_t i = 0; i < count; ++i)
                total += values[i];
        else
            for (const double each : values)
                total += each;
    }
    // None of the squares, which are >= 0 or NaN, is above their sum.
    const double squareSum = ((squares[0] + squares[1]) + (squares[2] + squares[3])) +
                             ((squares[4] + squares[5]) + (squares[6] + squares[7]));
    if (!(squareSum <= tkNMSingleNormal::largestSquare))
        return false;
    sum = total;
    return true;
}

bool addLogDensitiesPlain(const double* eights, const double* x, std::size_t size, double& sum)
{
    return addLogDensitiesOf<LanesOf<plainWidth>>(eights, x, size, sum);
}

#if TK_WIDER_LEVELS
__attribute__((target("avx2"))) bool addLogDensitiesAVX2(const double* eights, const double* x, std::size_t size,
                                                         double& sum)
{
    return addLogDensitiesOf<LanesOf<4>>(eights, x, size, sum);
}

__attribute__((target("avx512f"))) bool addLogDensitiesAVX512(const double* eights, const double* x, std::size_t size,
                                                              double& sum)
{
    return addLogDensitiesOf<LanesOf<8>>(eights, x, size, sum);
}
#endif
} // namespace

tkNMNormalGroup::tkNMNormalGroup(std::size_t size) : size_(size), eights_((size + 7) / 8)
{
    for (std::size_t i = 0; i < size; ++i)
        empty(i);
}

void tkNMNormalGroup::fill(std::size_t place, const tkNMSingleNormal& density)
{
    TK_ASSERT(place < size_);
    Eight_& eight = eights_[place / 8];
    eight.means[place % 8] = density.mean;
    eight.remainders[place % 8] = density.remainder;
    eight.weights[place % 8] = density.weight;
    eight.logPeaks[place % 8] = density.logPeak;
}

void tkNMNormalGroup::empty(std::size_t place)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    fill(place, {0.0, 0.0, nan, 0.0});
}

bool tkNMNormalGroup::addLogDensities(const double* x, double& sum, tkNMTriangle::Level level) const
{
    if (size_ == 0)
        return true;
    const double* const eights = eights_.front().means;
#if TK_WIDER_LEVELS
    if (level == tkNMTriangle::eAVX512)
        return addLogDensitiesAVX512(eights, x, size_, sum);
    if (level == tkNMTriangle::eAVX2)
        return addLogDensitiesAVX2(eights, x, size_, sum);
#else
    static_cast<void>(level);
#endif
    return addLogDensitiesPlain(eights, x, size_, sum);
}
