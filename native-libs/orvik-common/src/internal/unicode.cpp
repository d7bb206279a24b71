#include "internal/unicode.h"

namespace orvik::detail {
namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr char32_t kMaxCodePoint = 0x10FFFF;

bool IsSurrogate(char32_t c) {
    return c >= 0xD800 && c <= 0xDFFF;
}

}  // namespace

bool DecodeUtf8(std::string_view in, std::size_t& i, char32_t& out) {
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(in[at]); };
    const unsigned char lead = byte(i);
    if (lead < 0x80) {
        out = lead;
        ++i;
        return true;
    }
    std::size_t length;
    char32_t value;
    unsigned char low = 0x80;   // the range of the second byte, which rules out overlongs,
    unsigned char high = 0xBF;  // surrogates and values above U+10FFFF
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        value = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        value = lead & 0x0F;
        if (lead == 0xE0)
            low = 0xA0;
        if (lead == 0xED)
            high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        value = lead & 0x07;
        if (lead == 0xF0)
            low = 0x90;
        if (lead == 0xF4)
            high = 0x8F;
    } else {
        ++i;
        return false;
    }
    std::size_t at = i + 1;
    for (std::size_t n = 1; n < length; ++n, ++at) {
        if (at >= in.size()) {
            i = at;
            return false;
        }
        const unsigned char c = byte(at);
        const unsigned char min = n == 1 ? low : 0x80;
        const unsigned char max = n == 1 ? high : 0xBF;
        if (c < min || c > max) {
            i = at;
            return false;
        }
        value = (value << 6) | (c & 0x3F);
    }
    i = at;
    out = value;
    return true;
}

namespace {

void EncodeUtf8(char32_t c, std::string& out) {
    if (c < 0x80) {
        out.push_back(static_cast<char>(c));
    } else if (c < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (c >> 6)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (c >> 12)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (c >> 18)));
        out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
}

// Appends `c` as one UTF-16 unit or a surrogate pair, to a string of any 16-bit element.
template <class String>
void EncodeUtf16(char32_t c, String& out) {
    using Unit = typename String::value_type;
    if (c < 0x10000) {
        out.push_back(static_cast<Unit>(c));
    } else {
        c -= 0x10000;
        out.push_back(static_cast<Unit>(0xD800 | (c >> 10)));
        out.push_back(static_cast<Unit>(0xDC00 | (c & 0x3FF)));
    }
}

// Walks UTF-8 and hands each code point (or U+FFFD) to `emit`.
template <class Emit>
bool ForEachUtf8CodePoint(std::string_view in, Invalid invalid, Emit emit) {
    std::size_t i = 0;
    while (i < in.size()) {
        char32_t c;
        if (!DecodeUtf8(in, i, c)) {
            if (invalid == Invalid::kFail) {
                return false;
            }
            c = kReplacement;
        }
        emit(c);
    }
    return true;
}

// Walks UTF-16 and hands each code point (or U+FFFD for an unpaired surrogate) to `emit`.
template <class Char, class Emit>
bool ForEachUtf16CodePoint(std::basic_string_view<Char> in, Invalid invalid, Emit emit) {
    for (std::size_t i = 0; i < in.size(); ++i) {
        char32_t c = static_cast<char16_t>(in[i]);
        if (IsSurrogate(c)) {
            const bool paired = c <= 0xDBFF && i + 1 < in.size() &&
                                static_cast<char16_t>(in[i + 1]) >= 0xDC00 &&
                                static_cast<char16_t>(in[i + 1]) <= 0xDFFF;
            if (paired) {
                c = 0x10000 + ((c - 0xD800) << 10) + (static_cast<char16_t>(in[++i]) - 0xDC00);
            } else if (invalid == Invalid::kFail) {
                return false;
            } else {
                c = kReplacement;
            }
        }
        emit(c);
    }
    return true;
}

// Walks UTF-32 and hands each code point (or U+FFFD for a surrogate or a value out of range).
template <class Char, class Emit>
bool ForEachUtf32CodePoint(std::basic_string_view<Char> in, Invalid invalid, Emit emit) {
    for (const Char element : in) {
        char32_t c = static_cast<char32_t>(element);
        if (IsSurrogate(c) || c > kMaxCodePoint) {
            if (invalid == Invalid::kFail) {
                return false;
            }
            c = kReplacement;
        }
        emit(c);
    }
    return true;
}

}  // namespace

bool Utf8ToUtf32(std::string_view in, std::u32string& out, Invalid invalid) {
    out.clear();
    out.reserve(in.size());
    return ForEachUtf8CodePoint(in, invalid, [&](char32_t c) { out.push_back(c); });
}

bool Utf32ToUtf8(std::u32string_view in, std::string& out, Invalid invalid) {
    out.clear();
    out.reserve(in.size());
    return ForEachUtf32CodePoint(in, invalid, [&](char32_t c) { EncodeUtf8(c, out); });
}

bool Utf8ToUtf16(std::string_view in, std::u16string& out, Invalid invalid) {
    out.clear();
    out.reserve(in.size());
    return ForEachUtf8CodePoint(in, invalid, [&](char32_t c) { EncodeUtf16(c, out); });
}

bool Utf16ToUtf8(std::u16string_view in, std::string& out, Invalid invalid) {
    out.clear();
    out.reserve(in.size());
    return ForEachUtf16CodePoint(in, invalid, [&](char32_t c) { EncodeUtf8(c, out); });
}

bool Utf8ToWide(std::string_view in, std::wstring& out, Invalid invalid) {
    out.clear();
    out.reserve(in.size());
    if constexpr (sizeof(wchar_t) == 2) {
        return ForEachUtf8CodePoint(in, invalid, [&](char32_t c) { EncodeUtf16(c, out); });
    } else {
        return ForEachUtf8CodePoint(in, invalid,
                                    [&](char32_t c) { out.push_back(static_cast<wchar_t>(c)); });
    }
}

bool WideToUtf8(std::wstring_view in, std::string& out, Invalid invalid) {
    out.clear();
    out.reserve(in.size());
    if constexpr (sizeof(wchar_t) == 2) {
        return ForEachUtf16CodePoint(in, invalid, [&](char32_t c) { EncodeUtf8(c, out); });
    } else {
        return ForEachUtf32CodePoint(in, invalid, [&](char32_t c) { EncodeUtf8(c, out); });
    }
}

}  // namespace orvik::detail
