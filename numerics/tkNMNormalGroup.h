#ifndef NUMERICS_TKNMNORMALGROUP_H
#define NUMERICS_TKNMNORMALGROUP_H

#include "foundation/tkRepBase.h"
#include "numerics/tkNMTriangle.h"

#include <cstddef>
#include <vector>

/// What evaluating the normal density of a single measurement x takes. With y = weight ((x - mean) - remainder) the
/// log density is logPeak - y² / 2, the latter rounded to a multiple of 2^-39 (below 2^13; beyond, to one of the
/// doubles' own larger steps).
struct tkNMSingleNormal
{
    double mean;
    double remainder;
    double weight; // NaN: not known
    double logPeak;

    /// No squared distance counts more, so that sums over many densities remain finite.
    static constexpr double largestSquare = 1e300;
    /// Above it, doubles have steps of 2^-39.
    static constexpr double gridShift = 0x1p13;
    static double roundedToGrid(double v) { return (v + gridShift) - gridShift; } // for v >= 0

    /// False, and no result, for y² beyond largestSquare or NaN.
    bool logDensity(double x, double& result) const
    {
        const double y = weight * ((x - mean) - remainder);
        const double square = y * y;
        if (!(square <= largestSquare))
            return false;
        result = logPeak - roundedToGrid(0.5 * square);
        return true;
    }
};

/// Normal densities of single measurements side by side, so that eight at a time are evaluated, by the operations of
/// one alone.
///
/// Each place mirrors one distribution, a tkNMNormal that empties it as soon as it changes: the group knows no place
/// that is out of date, and never has to look. Several threads may evaluate; filling and emptying a place excludes
/// every other use, as changing the distribution does.
class TK_EXPORT tkNMNormalGroup : public tkRepBase
{
public:
    /// Empty places.
    explicit tkNMNormalGroup(std::size_t size);

    std::size_t size() const { return size_; }

    /// *Requires* place < size().
    void fill(std::size_t place, const tkNMSingleNormal& density);
    void empty(std::size_t place);

    /// sum = ((sum + f_0) + f_1) + ... with the log density f_i of place i at x[i]. False, and no change, if a place
    /// is empty or the squared distances y_i² add up to more than tkNMSingleNormal::largestSquare or to NaN; what
    /// is to be done is then decided one by one. *Requires* level <= tkNMTriangle::bestLevel().
    bool addLogDensities(const double* x, double& sum) const
    {
        return addLogDensities(x, sum, tkNMTriangle::bestLevel());
    }
    bool addLogDensities(const double* x, double& sum, tkNMTriangle::Level level) const;

private:
    /// Eight densities, one in each lane; with a weight of 0.0 behind the last.
    struct alignas(64) Eight_
    {
        double means[8] = {};
        double remainders[8] = {};
        double weights[8] = {};
        double logPeaks[8] = {};
    };

    std::size_t size_;
    std::vector<Eight_> eights_;
};

#endif
