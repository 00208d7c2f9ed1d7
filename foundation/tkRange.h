#ifndef FOUNDATION_TKRANGE_H
#define FOUNDATION_TKRANGE_H

#include "foundation/tkExport.h"

#include <limits>

class tkArchive;

/// A range of numbers with closed ends.
///
/// It accepts the values v with low <= v <= high. The full range, from minus to plus infinity, is the
/// only one that accepts NaN too. A range whose ends are crossed (low > high) or of which one is NaN
/// accepts nothing.
class TK_EXPORT tkRange
{
public:
    /// The full range.
    tkRange() noexcept = default;
    tkRange(double low, double high) noexcept : low_(low), high_(high) {}

    /// The range that accepts every value, NaN included.
    static tkRange FullRange() noexcept { return tkRange(); }

    /// The ends, both within the range; low() > high() if they are crossed.
    double low() const noexcept { return low_; }
    double high() const noexcept { return high_; }

    /// Whether the range accepts the value.
    bool isWithin(double value) const noexcept { return (low_ <= value && value <= high_) || *this == FullRange(); }

    /// Equality of the ends; a NaN end equals nothing.
    bool operator==(const tkRange& other) const noexcept { return low_ == other.low_ && high_ == other.high_; }
    bool operator!=(const tkRange& other) const noexcept { return !(*this == other); }

private:
    double low_ = -std::numeric_limits<double>::infinity();
    double high_ = std::numeric_limits<double>::infinity();
};

/// The record of a range: version byte, low end, high end. Loading checks neither and changes nothing
/// if it throws; an unknown version throws tkArchive::UnknownVersion("tkRange", 0).
TK_EXPORT tkArchive& operator||(tkArchive& archive, tkRange& range);

#endif
