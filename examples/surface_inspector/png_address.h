#ifndef SURFACE_INSPECTOR_PNG_ADDRESS_H
#define SURFACE_INSPECTOR_PNG_ADDRESS_H

#include "picture.h"

#include <cstdint>
#include <string>
#include <vector>

namespace inspector
{

struct Colour
{
    std::uint8_t red;
    std::uint8_t green;
    std::uint8_t blue;
    std::uint8_t alpha = 255;
};

/// A colour picture, row by row from the top, transparent at first.
struct ColourPicture
{
    ColourPicture(long width, long height);

    void set(long x, long y, Colour colour);

    long width;
    long height;
    std::vector<std::uint8_t> rgba;
};

/// The picture as a "data:" address of a PNG, to stand in an HTML page.
std::string pngAddress(const Picture& picture);
std::string pngAddress(const ColourPicture& picture);

} // namespace inspector

#endif
