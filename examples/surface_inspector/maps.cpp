#include "maps.h"

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

} // namespace

Colour surfaceColour(long label)
{
    static const std::array<Colour, maximumSurfaces> colours = {
        {{213, 94, 0}, {240, 228, 66}, {0, 114, 178}, {204, 121, 167}, {86, 180, 233}, {0, 158, 115}, {230, 159, 0}}};
    return colours[static_cast<std::size_t>(label)];
}

ColourPicture classMap(const Mosaic& mosaic, const WindowMap& windows)
{
    ColourPicture map(mosaic.picture.width, mosaic.picture.height);
    constexpr long margin = (tileSize - windowStep) / 2;
    for (long row = 0; row < windows.rows; ++row)
    {
        for (long column = 0; column < windows.columns; ++column)
        {
            const long label = windows.decisions[static_cast<std::size_t>(row * windows.columns + column)].label;
            for (long y = row * windowStep + margin; y < (row + 1) * windowStep + margin; ++y)
            {
                for (long x = column * windowStep + margin; x < (column + 1) * windowStep + margin; ++x)
                {
                    const std::uint8_t hatching = (x + y) / 4 % 2 == 0 ? 255 : 0;
                    Colour colour = label < 0 ? Colour{hatching, hatching, hatching} : surfaceColour(label);
                    colour.alpha = overlayAlpha;
                    map.set(x, y, colour);
                }
            }
        }
    }
    drawSeams(map, mosaic);
    return map;
}

ColourPicture seams(const Mosaic& mosaic)
{
    ColourPicture map(mosaic.picture.width, mosaic.picture.height);
    drawSeams(map, mosaic);
    return map;
}

} // namespace inspector
