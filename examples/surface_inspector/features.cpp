#include "features.h"

#include "clss/clastool/clastool/tkFeaturePattern.h"

#include <cmath>
#include <cstdlib>

namespace inspector
{

const std::array<const char*, numMeasurements> measurementNames = {"mean",      "standard deviation", "mean |dx|",
                                                                   "mean |dy|", "mean |Laplacian|",   "skewness"};

Measurements measureTile(const Picture& picture, long x, long y)
{
    constexpr double numPixels = tileSize * tileSize;
    constexpr double numSteps = tileSize * (tileSize - 1);
    constexpr double numInside = (tileSize - 2) * (tileSize - 2);

    int sum = 0;
    int sumDx = 0;
    int sumDy = 0;
    int sumLaplacian = 0;
    for (long row = y; row < y + tileSize; ++row)
    {
        for (long column = x; column < x + tileSize; ++column)
        {
            const int grey = picture.at(column, row);
            const bool hasLeft = column > x;
            const bool hasUpper = row > y;
            sum += grey;
            if (hasLeft)
                sumDx += std::abs(grey - picture.at(column - 1, row));
            if (hasUpper)
                sumDy += std::abs(grey - picture.at(column, row - 1));
            if (hasLeft && hasUpper && column + 1 < x + tileSize && row + 1 < y + tileSize)
            {
                sumLaplacian += std::abs(4 * grey - picture.at(column - 1, row) - picture.at(column + 1, row) -
                                         picture.at(column, row - 1) - picture.at(column, row + 1));
            }
        }
    }
    const double mean = sum / numPixels;

    double squares = 0.0;
    double cubes = 0.0;
    for (long row = y; row < y + tileSize; ++row)
    {
        for (long column = x; column < x + tileSize; ++column)
        {
            const double difference = picture.at(column, row) - mean;
            squares += difference * difference;
            cubes += difference * difference * difference;
        }
    }
    const double deviation = std::sqrt(squares / numPixels);

    Measurements result;
    result.values = {mean, deviation, sumDx / numSteps, sumDy / numSteps, sumLaplacian / numInside, 0.0};
    if (deviation > 0.0)
        result.values[skewness] = cubes / numPixels / (deviation * deviation * deviation);
    else
        result.invalid = {skewness};
    return result;
}

tkPtrHandle_const<tkFeaturePattern> patternOf(const Measurements& tile)
{
    return tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern(tile.values, tile.invalid));
}

Spread spreadOf(const std::vector<double>& values)
{
    const double count = static_cast<double>(values.size());
    double sum = 0.0;
    for (const double value : values)
        sum += value;
    const double mean = sum / count;
    double squares = 0.0;
    for (const double value : values)
        squares += (value - mean) * (value - mean);
    return {mean, std::sqrt(squares / count)};
}

Scaling::Scaling(const std::vector<Measurements>& tiles)
{
    for (std::size_t i = 0; i < numMeasurements; ++i)
    {
        std::vector<double> values;
        values.reserve(tiles.size());
        for (const Measurements& tile : tiles)
            values.push_back(tile.values[i]);
        const double deviation = spreadOf(values).deviation;
        deviations_[i] = deviation > 0.0 ? deviation : 1.0;
    }
}

tkPtrHandle_const<tkFeaturePattern> Scaling::pattern(const Measurements& tile) const
{
    std::vector<double> scaled(tile.values);
    for (std::size_t i = 0; i < numMeasurements; ++i)
        scaled[i] /= deviations_[i];
    return tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern(scaled, tile.invalid));
}

} // namespace inspector
