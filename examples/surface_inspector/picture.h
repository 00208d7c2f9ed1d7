#ifndef SURFACE_INSPECTOR_PICTURE_H
#define SURFACE_INSPECTOR_PICTURE_H

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace inspector
{

/// A grey-level picture: width * height pixels of 8 bits, row by row from the top.
struct Picture
{
    long width = 0;
    long height = 0;
    std::vector<std::uint8_t> pixels;

    std::uint8_t at(long x, long y) const
    {
        return pixels[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)];
    }
};

/// The part of `picture` whose upper left pixel is (x, y). *Requires* that it lies within the picture.
Picture crop(const Picture& picture, long x, long y, long width, long height);

/// Copies `part` into `picture` with its upper left pixel at (x, y). *Requires* that it lies within the picture.
void paste(Picture& picture, const Picture& part, long x, long y);

/// Reads a PGM picture, binary (P5) or plain (P2). One whose maximum is not 255 is scaled to it; of a file with
/// several pictures the first is taken. Memory grows with what has been read, never with what a header announces.
/// Throws InputError with a text that begins with `name` if the stream holds no such picture or not all of it.
Picture readPgm(std::istream& stream, const std::string& name);

/// As above, from a file. Throws InputError, too, if the file cannot be opened.
Picture readPgm(const std::string& path);

} // namespace inspector

#endif
