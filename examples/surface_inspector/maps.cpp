#include "maps.h"

#include <algorithm>
#include <array>

namespace inspector
{

namespace
{

constexpr std::uint8_t overlayAlpha = 150;

/// Draws a line of two pixels where one part of the mosaic meets the next.
void drawSeams(ColourPicture& map, const Mosaic& mosaic)
{
    const auto isSeam = [](long position, long partSize, long size)
    { return (position + 1) % partSize < 2 && position > 0 && position + 1 < size; };
    for (long y = 0; y < map.height; ++y)
    {
        for (long x = 0; x < map.width; ++x)
        {
            if (isSeam(x, mosaic.partWidth, map.width) || isSeam(y, mosaic.partHeight, map.height))
                map.set(x, y, {255, 255, 255});
        }
    }
}

/// Every window's middle in the colour for its decision, a refusal hatched.
ColourPicture paintWindows(const Mosaic& mosaic, const WindowMap& windows,
                           const std::function<Colour(const Decision&)>& colourOf)
{
    ColourPicture map(mosaic.picture.width, mosaic.picture.height);
    constexpr long margin = (tileSize - windowStep) / 2;
    for (long row = 0; row < windows.rows; ++row)
    {
        for (long column = 0; column < windows.columns; ++column)
        {
            const Decision& decision = windows.decisions[static_cast<std::size_t>(row * windows.columns + column)];
            const bool refused = !decision.refusal.empty();
            const Colour plain = refused ? Colour{0, 0, 0} : colourOf(decision);
            for (long y = row * windowStep + margin; y < (row + 1) * windowStep + margin; ++y)
            {
                for (long x = column * windowStep + margin; x < (column + 1) * windowStep + margin; ++x)
                {
                    const std::uint8_t hatching = (x + y) / 4 % 2 == 0 ? 255 : 0;
                    map.set(x, y, refused ? Colour{hatching, hatching, hatching, overlayAlpha} : plain);
                }
            }
        }
    }
    drawSeams(map, mosaic);
    return map;
}

} // namespace

Colour surfaceColour(long label)
{
    static const std::array<Colour, maximumSurfaces> colours = {
        {{213, 94, 0}, {240, 228, 66}, {0, 114, 178}, {204, 121, 167}, {86, 180, 233}, {0, 158, 115}, {230, 159, 0}}};
    return colours[static_cast<std::size_t>(label)];
}

Colour valueColour(double value)
{
    // Viridis (S. van der Walt and N. Smith, 2015): the higher the value, the brighter, for colour-blind people, too.
    static const std::array<std::array<double, 3>, 5> anchors = {
        {{68, 1, 84}, {59, 82, 139}, {33, 145, 140}, {94, 201, 98}, {253, 231, 37}}};
    const double place = std::clamp(value, 0.0, 1.0) * (anchors.size() - 1);
    const std::size_t below = std::min(static_cast<std::size_t>(place), anchors.size() - 2);
    const double share = place - static_cast<double>(below);
    const auto mixed = [&](std::size_t channel) {
        return static_cast<std::uint8_t>((1.0 - share) * anchors[below][channel] + share * anchors[below + 1][channel]);
    };
    return {mixed(0), mixed(1), mixed(2)};
}

ColourPicture classMap(const Mosaic& mosaic, const WindowMap& windows)
{
    return paintWindows(mosaic, windows,
                        [](const Decision& decision)
                        {
                            if (decision.label < 0)
                                return Colour{0, 0, 0};
                            Colour colour = surfaceColour(decision.label);
                            colour.alpha = overlayAlpha;
                            return colour;
                        });
}

ColourPicture valueMap(const Mosaic& mosaic, const WindowMap& windows,
                       const std::function<double(const Decision&)>& value)
{
    return paintWindows(mosaic, windows, [&](const Decision& decision) { return valueColour(value(decision)); });
}

ColourPicture seams(const Mosaic& mosaic)
{
    ColourPicture map(mosaic.picture.width, mosaic.picture.height);
    drawSeams(map, mosaic);
    return map;
}

} // namespace inspector
