#include "png_address.h"

#include <png.h>

#include <algorithm>
#include <stdexcept>

namespace inspector
{

namespace
{

std::string base64(const std::vector<unsigned char>& bytes)
{
    static const char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3)
    {
        const std::size_t there = std::min<std::size_t>(3, bytes.size() - i);
        unsigned long group = 0;
        for (std::size_t j = 0; j < 3; ++j)
            group = group << 8 | (j < there ? bytes[i + j] : 0u);
        for (std::size_t j = 0; j < 4; ++j)
            text += j <= there ? digits[group >> (18 - 6 * j) & 63] : '=';
    }
    return text;
}

std::string address(long width, long height, png_uint_32 format, const std::vector<std::uint8_t>& samples)
{
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(width);
    image.height = static_cast<png_uint_32>(height);
    image.format = format;
    std::vector<unsigned char> bytes(PNG_IMAGE_PNG_SIZE_MAX(image));
    png_alloc_size_t size = bytes.size();
    if (!png_image_write_to_memory(&image, bytes.data(), &size, 0, samples.data(), 0, nullptr))
        throw std::runtime_error(std::string("A picture of the report cannot be packed: ") + image.message);
    bytes.resize(size);
    return "data:image/png;base64," + base64(bytes);
}

} // namespace

ColourPicture::ColourPicture(long newWidth, long newHeight)
    : width(newWidth),
      height(newHeight),
      rgba(static_cast<std::size_t>(newWidth) * static_cast<std::size_t>(newHeight) * 4)
{
}

void ColourPicture::set(long x, long y, Colour colour)
{
    const std::size_t first =
        (static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)) * 4;
    rgba[first] = colour.red;
    rgba[first + 1] = colour.green;
    rgba[first + 2] = colour.blue;
    rgba[first + 3] = colour.alpha;
}

std::string pngAddress(const Picture& picture)
{
    return address(picture.width, picture.height, PNG_FORMAT_GRAY, picture.pixels);
}

std::string pngAddress(const ColourPicture& picture)
{
    return address(picture.width, picture.height, PNG_FORMAT_RGBA, picture.rgba);
}

} // namespace inspector
