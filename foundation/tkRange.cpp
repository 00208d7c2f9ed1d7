#include "foundation/tkRange.h"

#include "foundation/tkArchive.h"

#include <limits>

namespace
{
constexpr double infinity = std::numeric_limits<double>::infinity();
}

tkRange::tkRange() noexcept : tkRange(-infinity, infinity) {}

tkRange::tkRange(double low, double high) noexcept : low_(low), high_(high) {}

bool tkRange::isWithin(double value) const noexcept
{
    return (low_ <= value && value <= high_) || *this == FullRange();
}

tkArchive& operator||(tkArchive& archive, tkRange& range)
{
    archive.exchangeVersion("tkRange");
    double low = range.low();
    double high = range.high();
    archive || low || high;
    if (archive.isLoading())
        range = tkRange(low, high);
    return archive;
}
