#ifndef NUMERICS_TKNMSINGLENORMAL_H
#define NUMERICS_TKNMSINGLENORMAL_H

#include <limits>

/// What evaluating the normal density of a single measurement x takes. With y = weight ((x - mean) - remainder) the
/// log density is logPeak - y² / 2, the latter rounded to a multiple of 2^-39 (below 2^13; beyond, to one of the
/// doubles' own larger steps).
struct tkNMSingleNormal
{
    double mean;
    double remainder;
    double weight; // NaN: not known
    double logPeak;

    /// The largest double: what a squared distance that overflows at a finite point counts.
    static constexpr double largestSquare = std::numeric_limits<double>::max();
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

#endif
