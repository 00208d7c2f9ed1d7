#ifndef FOUNDATION_TKUTF8_H
#define FOUNDATION_TKUTF8_H

#include "foundation/tkExport.h"

#include <string>

/// Conversion between wide strings (UTF-32 or UTF-16, as wchar_t is wide) and UTF-8. It follows RFC 3629:
/// no overlong forms, no surrogates, nothing above U+10FFFF.
class TK_EXPORT tkUtf8
{
public:
    /// UTF-8 of `text`. What is no character of Unicode becomes U+FFFD and sets `*lossy` (if given).
    static std::string encode(const std::wstring& text, bool* lossy = nullptr);

    /// Wide form of `bytes` in `text`. False, with `text` unchanged, if the bytes are not valid UTF-8.
    static bool decode(const std::string& bytes, std::wstring& text);

    /// Wide form of `bytes` for a message. Where they are not valid UTF-8, each byte beyond ASCII becomes U+FFFD.
    static std::wstring readable(const std::string& bytes);
};

#endif
