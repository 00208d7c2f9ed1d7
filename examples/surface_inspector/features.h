#ifndef SURFACE_INSPECTOR_FEATURES_H
#define SURFACE_INSPECTOR_FEATURES_H

#include "picture.h"

#include "foundation/tkPtrHandle.h"

#include <array>
#include <cstddef>
#include <vector>

class tkFeaturePattern;

namespace inspector
{

/// Side of the square tiles that are measured, in pixels.
constexpr long tileSize = 32;

constexpr std::size_t numMeasurements = 6;

/// The measurements by index.
enum Measurement : long
{
    greyMean,
    standardDeviation,
    meanDx,
    meanDy,
    meanLaplacian,
    skewness
};

extern const std::array<const char*, numMeasurements> measurementNames;

/// What was measured on one tile, in grey levels (the skewness has no unit), and which of it is invalid.
struct Measurements
{
    std::vector<double> values; ///< numMeasurements of them, in the order of measurementNames
    std::vector<long> invalid;  ///< indices into `values`, ascending
};

/// Measures the tile whose upper left pixel is (x, y): mean; standard deviation s; mean |dx| and |dy| between
/// neighbours; mean |Laplacian| (four times a pixel less its four neighbours) over the pixels inside the tile;
/// skewness, the mean of ((grey level - mean) / s)^3, which is invalid where s is 0: a tile of one grey level has none.
/// *Requires* that the tile lies within the picture.
Measurements measureTile(const Picture& picture, long x, long y);

/// The measurements as they are, in the form that the classifiers read.
tkPtrHandle_const<tkFeaturePattern> patternOf(const Measurements& tile);

/// Mean and standard deviation (divided by the count) of some numbers.
struct Spread
{
    double mean;
    double deviation;
};

/// *Requires* at least one value.
Spread spreadOf(const std::vector<double>& values);

/// Brings each measurement to unit deviation, so that all of them count alike in a distance. This is the
/// application's own step: the classifier takes the numbers as they come.
class Scaling
{
public:
    /// Takes the deviations from `tiles`, of which none may have an invalid measurement.
    /// A measurement that is the same on all tiles stays as it is.
    explicit Scaling(const std::vector<Measurements>& tiles);

    /// The scaled measurements in the form that the classifiers read.
    tkPtrHandle_const<tkFeaturePattern> pattern(const Measurements& tile) const;

private:
    std::array<double, numMeasurements> deviations_ = {};
};

} // namespace inspector

#endif
