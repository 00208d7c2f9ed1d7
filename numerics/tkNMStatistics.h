#ifndef NUMERICS_TKNMSTATISTICS_H
#define NUMERICS_TKNMSTATISTICS_H

#include "numerics/tkNMBestInstructions.h"
#include "numerics/tkNMTriangle.h"

#include <cstddef>
#include <vector>

/// Running count, means and sums of cross products of patterns, all of `dimension` measurements.
///
/// The means and sums follow Welford (Technometrics 4, 1962, 419-420). A mean that is one double would be wrong by
/// half a unit in its last place after every pattern; its compensation, the low word of a double-double, keeps what
/// the rounding leaves. Pattern by pattern gives the same bits, in whatever way they come.
struct TK_EXPORT tkNMStatistics
{
    explicit tkNMStatistics(std::size_t dimension = 0)
        : mean(dimension),
          compensation(dimension),
          crossProducts(dimension)
    {
    }

    std::size_t dimension() const { return mean.size(); }

    /// The largest magnitude of a measurement for which no sum of squares can overflow.
    static constexpr double largestMagnitude = 0x1p490;

    /// Adds one pattern x of measurements up to largestMagnitude. With the count n afterwards, for every j
    ///     before_j = (x_j - m_j) - c_j,   m_j + c_j += before_j / n,   after_j = (x_j - m_j) - c_j,
    /// and then S_ij += before_i after_j for every j <= i. Cost in proportion to dimension².
    /// *Requires* instructions <= tkNMBestInstructions(); the bits are the same with all of them.
    void add(const double* x, tkNMInstructions instructions = tkNMBestInstructions());

    bool operator==(const tkNMStatistics& other) const
    {
        return count == other.count && mean == other.mean && compensation == other.compensation &&
               crossProducts == other.crossProducts;
    }

    long count = 0;
    std::vector<double> mean;         // m: its rounded values
    std::vector<double> compensation; // c: m + c is the mean
    tkNMTriangle crossProducts;       // S
};

#endif
