#include "picture.h"

#include "input_error.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <istream>

namespace inspector
{

namespace
{

constexpr int end = std::char_traits<char>::eof();

bool isSpace(int c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool isDigit(int c)
{
    return c >= '0' && c <= '9';
}

/// Reads the text part of a PGM file: numbers, separated by white space and by comments from '#' to the line's end.
class PgmText
{
public:
    PgmText(std::istream& stream, const std::string& name) : stream_(stream), name_(name) {}

    /// The next number, together with the one character that ends it. Throws InputError if there is none, or if it
    /// is above `maximum`; `what` is its name in the text.
    long number(const char* what, long maximum)
    {
        int c = next_();
        while (isSpace(c))
        {
            c = next_();
        }
        if (c == end)
        {
            throw InputError(name_ + ": truncated: the file ends before its " + what);
        }
        if (!isDigit(c))
        {
            throw InputError(name_ + ": not a valid PGM picture: its " + what + " is not a number");
        }
        long value = 0;
        for (; isDigit(c); c = next_())
        {
            value = value * 10 + (c - '0');
            if (value > maximum)
            {
                throw InputError(name_ + ": not a valid PGM picture: its " + what + " is above " +
                                 std::to_string(maximum));
            }
        }
        if (c != end && !isSpace(c))
        {
            throw InputError(name_ + ": not a valid PGM picture: its " + what + " is not a number");
        }
        return value;
    }

private:
    int next_()
    {
        int c = stream_.get();
        if (c == '#')
        {
            do
            {
                c = stream_.get();
            } while (c != '\n' && c != '\r' && c != end);
        }
        return c;
    }

    std::istream& stream_;
    const std::string& name_;
};

std::uint8_t scaled(long value, long maximum)
{
    return static_cast<std::uint8_t>((value * 255 + maximum / 2) / maximum);
}

} // namespace

Picture crop(const Picture& picture, long x, long y, long width, long height)
{
    Picture part;
    part.width = width;
    part.height = height;
    part.pixels.reserve(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    for (long row = y; row < y + height; ++row)
    {
        for (long column = x; column < x + width; ++column)
        {
            part.pixels.push_back(picture.at(column, row));
        }
    }
    return part;
}

void paste(Picture& picture, const Picture& part, long x, long y)
{
    for (long row = 0; row < part.height; ++row)
    {
        const auto from = part.pixels.begin() + static_cast<std::ptrdiff_t>(row) * part.width;
        std::copy(from, from + part.width,
                  picture.pixels.begin() + (static_cast<std::ptrdiff_t>(row) + y) * picture.width + x);
    }
}

Picture readPgm(std::istream& stream, const std::string& name)
{
    char mark[2] = {0, 0};
    stream.read(mark, 2);
    const bool binary = mark[1] == '5';
    const int gap = stream.peek();
    if (mark[0] != 'P' || (!binary && mark[1] != '2') || (!isSpace(gap) && gap != '#' && gap != end))
    {
        throw InputError(name + ": not a PGM picture (such a file begins with P5 or P2)");
    }

    constexpr long maximumSide = 1000000;
    PgmText text(stream, name);
    Picture picture;
    picture.width = text.number("width", maximumSide);
    picture.height = text.number("height", maximumSide);
    const long maximum = text.number("maximum grey level", 65535);
    if (picture.width == 0 || picture.height == 0 || maximum == 0)
    {
        throw InputError(name + ": not a valid PGM picture: its width, height or maximum grey level is 0");
    }

    const auto numPixels =
        static_cast<unsigned long long>(picture.width) * static_cast<unsigned long long>(picture.height);
    const auto append = [&](long value)
    {
        if (value > maximum)
        {
            throw InputError(name + ": not a valid PGM picture: a grey level is above the maximum of " +
                             std::to_string(maximum));
        }
        picture.pixels.push_back(scaled(value, maximum));
    };
    if (binary)
    {
        while (picture.pixels.size() < numPixels)
        {
            int value = stream.get();
            if (value != end && maximum > 255)
            {
                const int low = stream.get();
                value = low == end ? end : value * 256 + low;
            }
            if (value == end)
            {
                throw InputError(name + ": truncated: " + std::to_string(picture.width) + "x" +
                                 std::to_string(picture.height) + " pixels announced, " +
                                 std::to_string(picture.pixels.size()) + " of " + std::to_string(numPixels) + " found");
            }
            append(value);
        }
    }
    else
    {
        while (picture.pixels.size() < numPixels)
        {
            append(text.number("next grey level", 65535));
        }
    }
    return picture;
}

Picture readPgm(const std::string& path)
{
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    if (!file)
    {
        throw InputError(path + ": cannot be opened: " + std::strerror(errno));
    }
    return readPgm(file, path);
}

} // namespace inspector
