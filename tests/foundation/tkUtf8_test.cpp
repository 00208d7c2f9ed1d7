#include "foundation/tkUtf8.h"

#include <gtest/gtest.h>

#include <string>

namespace
{
std::wstring fromCodePoint(unsigned long c)
{
    std::wstring text;
    if (sizeof(wchar_t) == 2 && c >= 0x10000)
    {
        text += static_cast<wchar_t>(0xD800 + ((c - 0x10000) >> 10));
        text += static_cast<wchar_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
    }
    else
        text += static_cast<wchar_t>(c);
    return text;
}

/// UTF-8 by the definition: as many bits as fit into a lead byte and its followers.
std::string definition(unsigned long c)
{
    const int followers = c < 0x80 ? 0 : c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
    const unsigned long leads[] = {0, 0xC0, 0xE0, 0xF0};
    std::string bytes(1, static_cast<char>(leads[followers] + (c >> (6 * followers))));
    for (int k = followers - 1; k >= 0; --k)
        bytes += static_cast<char>(0x80 + (c >> (6 * k)) % 64);
    return bytes;
}

bool isValid(const std::string& bytes)
{
    std::wstring text = L"before";
    const bool valid = tkUtf8::decode(bytes, text);
    EXPECT_TRUE(valid || text == L"before");
    return valid;
}
} // namespace

TEST(tkUtf8, everyCodePointRoundTrips)
{
    for (unsigned long c = 0; c <= 0x10FFFF; ++c)
    {
        if (c >= 0xD800 && c <= 0xDFFF)
            continue;
        const std::string bytes = definition(c);
        const std::wstring text = fromCodePoint(c);
        bool lossy = true;
        std::wstring decoded;
        ASSERT_EQ(bytes, tkUtf8::encode(text, &lossy)) << c;
        ASSERT_FALSE(lossy) << c;
        ASSERT_TRUE(tkUtf8::decode(bytes, decoded)) << c;
        ASSERT_EQ(text, decoded) << c;
    }
}

TEST(tkUtf8, mixedTextWithEmbeddedNulRoundTrips)
{
    const std::wstring text = std::wstring(L"A\0\u00e9\u20ac", 4) + fromCodePoint(0x1F600);
    const std::string bytes("A\0\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80", 11);
    EXPECT_EQ(bytes, tkUtf8::encode(text));
    std::wstring decoded;
    EXPECT_TRUE(tkUtf8::decode(bytes, decoded));
    EXPECT_EQ(text, decoded);
}

TEST(tkUtf8, whatIsNoCharacterBecomesTheReplacementAndIsReported)
{
    for (const unsigned long c : {0xD800UL, 0xDBFFUL, 0xDC00UL, 0xDFFFUL, 0x110000UL, 0xFFFFFFFFUL})
    {
        if (sizeof(wchar_t) == 2 && c > 0xFFFF)
            continue;
        bool lossy = false;
        EXPECT_EQ("a\xef\xbf\xbdz", tkUtf8::encode(L"a" + std::wstring(1, static_cast<wchar_t>(c)) + L"z", &lossy));
        EXPECT_TRUE(lossy);
        EXPECT_EQ("\xef\xbf\xbd", tkUtf8::encode(std::wstring(1, static_cast<wchar_t>(c))));
    }
}

TEST(tkUtf8, refusesEveryKindOfInvalidBytesAndLeavesTheTextAlone)
{
    EXPECT_TRUE(isValid(""));
    for (const char* bytes : {"\x80",
                              "\xbf",
                              "\xfe",
                              "\xff", // no lead byte
                              "\xc3",
                              "\xe2\x82",
                              "\xf0\x9f\x98",
                              "a\xe2", // cut off
                              "\xc3(",
                              "\xe2(\xac",
                              "\xe2\x82(",
                              "\xf0\x9f(a", // no follower
                              "\xc0\x80",
                              "\xc1\xbf",
                              "\xe0\x80\x80",
                              "\xe0\x9f\xbf",
                              "\xf0\x80\x80\x80",
                              "\xf0\x8f\xbf\xbf", // longer than necessary
                              "\xed\xa0\x80",
                              "\xed\xbf\xbf", // surrogates
                              "\xf4\x90\x80\x80",
                              "\xf5\x80\x80\x80"}) // above the largest
        EXPECT_FALSE(isValid(bytes)) << ::testing::PrintToString(bytes);
    EXPECT_TRUE(isValid("\xed\x9f\xbf\xee\x80\x80\xf4\x8f\xbf\xbf"));
}

TEST(tkUtf8, readableShowsInvalidBytesAsReplacements)
{
    EXPECT_EQ(L"\u00e9", tkUtf8::readable("\xc3\xa9"));
    EXPECT_EQ(L"a\xfffd\xfffd(", tkUtf8::readable("a\xc3\xc3("));
    EXPECT_EQ(L"", tkUtf8::readable(""));
}
