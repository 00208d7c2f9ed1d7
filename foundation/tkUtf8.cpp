#include "foundation/tkUtf8.h"

#include <algorithm>
#include <cstddef>

namespace
{
using CodePoint = unsigned long;

constexpr CodePoint replacement = 0xFFFD;
constexpr CodePoint largest = 0x10FFFF;
constexpr bool utf16 = sizeof(wchar_t) == 2;

bool isSurrogate(CodePoint c)
{
    return c >= 0xD800 && c <= 0xDFFF;
}

void append(std::string& bytes, CodePoint c)
{
    const auto put = [&bytes](CodePoint byte) { bytes.push_back(static_cast<char>(static_cast<unsigned char>(byte))); };
    if (c < 0x80)
        put(c);
    else if (c < 0x800)
    {
        put(0xC0 | (c >> 6));
        put(0x80 | (c & 0x3F));
    }
    else if (c < 0x10000)
    {
        put(0xE0 | (c >> 12));
        put(0x80 | ((c >> 6) & 0x3F));
        put(0x80 | (c & 0x3F));
    }
    else
    {
        put(0xF0 | (c >> 18));
        put(0x80 | ((c >> 12) & 0x3F));
        put(0x80 | ((c >> 6) & 0x3F));
        put(0x80 | (c & 0x3F));
    }
}

void append(std::wstring& text, CodePoint c)
{
    if (utf16 && c >= 0x10000)
    {
        text.push_back(static_cast<wchar_t>(0xD800 + ((c - 0x10000) >> 10)));
        text.push_back(static_cast<wchar_t>(0xDC00 + ((c - 0x10000) & 0x3FF)));
    }
    else
        text.push_back(static_cast<wchar_t>(c));
}

/// The code unit as a number; a signed wchar_t's negative values end above the largest code point.
CodePoint unit(wchar_t w)
{
    return static_cast<CodePoint>(w) & (utf16 ? 0xFFFFUL : 0xFFFFFFFFUL);
}

/// Of how many bytes the sequence consists that begins with `lead`; 0 if none does. C0 and C1 would begin overlong
/// forms, F5 and above characters beyond the largest.
std::size_t sequenceLength(CodePoint lead)
{
    if (lead < 0x80)
        return 1;
    if (lead < 0xC2 || lead > 0xF4)
        return 0;
    return lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
}

/// The character that begins at byte `start`, and of how many bytes it consists; 0 if these are not valid.
std::size_t decodeOne(const std::string& bytes, std::size_t start, CodePoint& c)
{
    const auto byteAt = [&](std::size_t k)
    { return static_cast<CodePoint>(static_cast<unsigned char>(bytes[start + k])); };
    const CodePoint lead = byteAt(0);
    const std::size_t length = sequenceLength(lead);
    if (length == 0 || bytes.size() - start < length)
        return 0;
    c = length == 1 ? lead : lead & (0x7FUL >> length);
    for (std::size_t k = 1; k < length; ++k)
    {
        if ((byteAt(k) & 0xC0) != 0x80)
            return 0;
        c = (c << 6) | (byteAt(k) & 0x3F);
    }
    const CodePoint smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    return c < smallest[length] || c > largest || isSurrogate(c) ? 0 : length;
}
} // namespace

std::string tkUtf8::encode(const std::wstring& text, bool* lossy)
{
    std::string bytes;
    bytes.reserve(text.size());
    if (lossy)
        *lossy = false;
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        CodePoint c = unit(text[i]);
        if (utf16 && c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size())
        {
            const CodePoint low = unit(text[i + 1]);
            if (low >= 0xDC00 && low <= 0xDFFF)
            {
                c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
                ++i;
            }
        }
        if (c > largest || isSurrogate(c))
        {
            c = replacement;
            if (lossy)
                *lossy = true;
        }
        append(bytes, c);
    }
    return bytes;
}

bool tkUtf8::decode(const std::string& bytes, std::wstring& text)
{
    std::wstring decoded;
    decoded.reserve(std::count_if(bytes.begin(), bytes.end(), [](char byte) { return (byte & 0xC0) != 0x80; }));
    for (std::size_t i = 0; i < bytes.size();)
    {
        CodePoint c;
        const std::size_t length = decodeOne(bytes, i, c);
        if (length == 0)
            return false;
        append(decoded, c);
        i += length;
    }
    text.swap(decoded);
    return true;
}

std::wstring tkUtf8::readable(const std::string& bytes)
{
    std::wstring text;
    if (!decode(bytes, text))
        for (const char byte : bytes)
            append(text, static_cast<unsigned char>(byte) < 0x80 ? static_cast<unsigned char>(byte) : replacement);
    return text;
}
