// CharsetCvt: every check and route. Properties (common/charset_cvt.h):
//   - IsASCII, IsU8 (lenient shape check) and StartsWithBom agree with the references below.
//   - Strictly valid UTF-8 round-trips exactly through U8ToU16/U16ToU8, U8ToU32/U32ToU8 and
//     U8ToW/WToU8, and UTF-16/UTF-32/wide text without unpaired surrogates or values above
//     U+10FFFF round-trips the other way. Empty arguments give empty results.
//   - Invalid input: the wide route raises std::range_error. The UTF-16 and UTF-32 routes
//     replace each maximal invalid subsequence (an unpaired surrogate, a value above U+10FFFF,
//     the longest prefix of a UTF-8 sequence that could still have been completed, or else one
//     byte) with U+FFFD and keep everything else.
//   - MbToU8 returns text that IsU8 accepts unchanged, and valid UTF-8 for other text. U8ToMb
//     of text IsU8 rejects is ""; ASCII passes U8ToMb unchanged (the locales the library meets
//     are ASCII-compatible); text IsU8 passes but strict UTF-8 refuses makes U8ToMb raise.
//   - GetEnv gives a variable's UTF-8 value when short enough, else "".
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

#include "common/charset_cvt.h"
#include "fuzz_check.h"

using orvik::CharsetCvt;

namespace {

bool IsAsciiReference(const std::string& text) {
    for (const char c : text) {
        if (static_cast<unsigned char>(c) > 0x7F) {
            return false;
        }
    }
    return true;
}

// The header's lenient shape: C0..DF, E0..EF, F0..F7 leads with 1, 2, 3 continuation bytes;
// ED followed by A0..BF (an encoded surrogate) refused; the empty string refused.
bool IsU8Reference(const std::string& text) {
    if (text.empty()) {
        return false;
    }
    for (std::size_t i = 0; i < text.size();) {
        const unsigned char lead = static_cast<unsigned char>(text[i]);
        const std::size_t extra = lead < 0x80   ? 0
                                  : lead < 0xC0 ? 9
                                  : lead < 0xE0 ? 1
                                  : lead < 0xF0 ? 2
                                  : lead < 0xF8 ? 3
                                                : 9;
        if (extra == 9 || i + extra >= text.size()) {
            return false;
        }
        for (std::size_t k = 1; k <= extra; ++k) {
            if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80) {
                return false;
            }
        }
        if (lead == 0xED && static_cast<unsigned char>(text[i + 1]) >= 0xA0) {
            return false;
        }
        i += extra + 1;
    }
    return true;
}

// Strict UTF-8 (Unicode's table 3-7): decodes into `points`, false on any invalid sequence.
bool DecodeStrict(const std::string& text, std::u32string& points) {
    for (std::size_t i = 0; i < text.size();) {
        const unsigned char lead = static_cast<unsigned char>(text[i]);
        std::size_t extra;
        char32_t c;
        char32_t min;
        if (lead < 0x80) {
            extra = 0, c = lead, min = 0;
        } else if (lead >= 0xC2 && lead <= 0xDF) {
            extra = 1, c = lead & 0x1F, min = 0x80;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            extra = 2, c = lead & 0x0F, min = 0x800;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            extra = 3, c = lead & 0x07, min = 0x10000;
        } else {
            return false;
        }
        if (i + extra >= text.size()) {
            return false;
        }
        for (std::size_t k = 1; k <= extra; ++k) {
            const unsigned char next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0) != 0x80) {
                return false;
            }
            c = (c << 6) | (next & 0x3F);
        }
        if (c < min || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) {
            return false;
        }
        points.push_back(c);
        i += extra + 1;
    }
    return true;
}

bool IsValidPoint(char32_t c) {
    return c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF);
}

bool IsValidUtf16(const std::u16string& text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] >= 0xD800 && text[i] <= 0xDBFF && i + 1 < text.size() &&
            text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
            ++i;
        } else if (text[i] >= 0xD800 && text[i] <= 0xDFFF) {
            return false;
        }
    }
    return true;
}

bool IsValidUtf32(const std::u32string& text) {
    for (const char32_t c : text) {
        if (!IsValidPoint(c)) {
            return false;
        }
    }
    return true;
}

bool IsStrictUtf8(const std::string& text) {
    std::u32string ignored;
    return DecodeStrict(text, ignored);
}

// The length of the UTF-8 sequence `lead` starts, 0 for a byte that starts none.
std::size_t SequenceLength(unsigned char lead) {
    return lead < 0x80 ? 1 : lead < 0xC2 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF5 ? 4 : 0;
}

// What the replacing routes must decode `text` to, built from the strict decoder: a prefix of a
// sequence could still be completed exactly when padding it with 0x80 bytes decodes, since
// only the second byte's range depends on the lead.
std::u32string DecodeReplacing(const std::string& text) {
    std::u32string points;
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t length = SequenceLength(static_cast<unsigned char>(text[i]));
        std::size_t taken = 1;
        while (taken < length && i + taken < text.size()) {
            std::string padded = text.substr(i, taken + 1);
            padded.append(length - padded.size(), '\x80');
            std::u32string ignored;
            if (!DecodeStrict(padded, ignored)) {
                break;
            }
            ++taken;
        }
        if (length != 0 && taken == length) {
            DecodeStrict(text.substr(i, length), points);
        } else {
            points.push_back(0xFFFD);
        }
        i += taken;
    }
    return points;
}

std::u32string Replaced(std::u32string points) {
    for (char32_t& c : points) {
        c = IsValidPoint(c) ? c : 0xFFFD;
    }
    return points;
}

std::u32string DecodeUtf16Replacing(const std::u16string& text) {
    std::u32string points;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char32_t c = text[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
            text[i + 1] <= 0xDFFF) {
            points.push_back(0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00));
        } else {
            points.push_back(c >= 0xD800 && c <= 0xDFFF ? 0xFFFD : c);
        }
    }
    return points;
}

std::u32string DecodedUtf8(const std::string& text) {
    std::u32string points;
    FUZZ_CHECK(DecodeStrict(text, points));
    return points;
}

std::u32string DecodedUtf16(const std::u16string& text) {
    FUZZ_CHECK(IsValidUtf16(text));
    return DecodeUtf16Replacing(text);
}

// Whether `convert` raises `Error`.
template <class Error, class Convert>
bool Raises(Convert convert) {
    try {
        convert();
    } catch (const Error&) {
        return true;
    }
    return false;
}

void CheckUtf8Input(const std::string& text) {
    FUZZ_CHECK(CharsetCvt::IsASCII(text) == IsAsciiReference(text));
    const bool isU8 = CharsetCvt::IsU8(text);
    FUZZ_CHECK(isU8 == IsU8Reference(text));
    FUZZ_CHECK(CharsetCvt::StartsWithBom(text) ==
               (isU8 && text.compare(0, 3, "\xEF\xBB\xBF") == 0));

    std::u32string points;
    const bool strict = !text.empty() && DecodeStrict(text, points);
    if (text.empty()) {
        FUZZ_CHECK(CharsetCvt::U8ToU16(text).empty() && CharsetCvt::U8ToU32(text).empty() &&
                   CharsetCvt::U8ToW(text).empty());
    } else if (strict) {
        FUZZ_CHECK(isU8);
        const std::u32string u32 = CharsetCvt::U8ToU32(text);
        FUZZ_CHECK(u32 == points);
        FUZZ_CHECK(CharsetCvt::U32ToU8(u32) == text);
        FUZZ_CHECK(CharsetCvt::U16ToU8(CharsetCvt::U8ToU16(text)) == text);
        const std::wstring wide = CharsetCvt::U8ToW(text);
        FUZZ_CHECK(wide.size() == points.size());  // wchar_t holds code points here
        FUZZ_CHECK(CharsetCvt::WToU8(wide) == text);
    } else {
        FUZZ_CHECK(Raises<std::range_error>([&] { CharsetCvt::U8ToW(text); }));
        const std::u32string expected = DecodeReplacing(text);
        FUZZ_CHECK(CharsetCvt::U8ToU32(text) == expected);
        FUZZ_CHECK(DecodedUtf16(CharsetCvt::U8ToU16(text)) == expected);
    }

    // The locale routes. Text IsU8 accepts comes back from MbToU8 untouched.
    // Other text is decoded in the user's locale: the result is valid UTF-8.
    if (isU8) {
        FUZZ_CHECK(CharsetCvt::MbToU8(text) == text);
    } else if (!text.empty()) {
        try {
            FUZZ_CHECK(IsStrictUtf8(CharsetCvt::MbToU8(text)));
        } catch (const std::runtime_error&) {  // no user locale; range_error derives from it
        }
    }
    if (!isU8) {
        FUZZ_CHECK(CharsetCvt::U8ToMb(text).empty());
    } else if (IsAsciiReference(text)) {
        FUZZ_CHECK(CharsetCvt::U8ToMb(text) == text);
    } else if (!strict) {  // IsU8 passed what strict UTF-8 refuses: the UTF stage fails
        FUZZ_CHECK(Raises<std::runtime_error>([&] { CharsetCvt::U8ToMb(text); }));
    }
}

// UTF-16, UTF-32 and wide text from the same bytes, round-tripped the other way.
void CheckUnitInput(const std::uint8_t* data, std::size_t size) {
    std::u16string u16;
    for (std::size_t i = 0; i + 1 < size; i += 2) {
        u16.push_back(static_cast<char16_t>(data[i] | data[i + 1] << 8));
    }
    std::u32string u32;
    for (std::size_t i = 0; i + 2 < size; i += 3) {
        u32.push_back(
            static_cast<char32_t>(data[i] | data[i + 1] << 8 | (data[i + 2] & 0x1F) << 16));
    }
    const std::wstring wide(u32.begin(), u32.end());
    if (u16.empty() || u32.empty()) {
        return;
    }
    if (IsValidUtf16(u16)) {
        const std::string utf8 = CharsetCvt::U16ToU8(u16);
        FUZZ_CHECK(IsStrictUtf8(utf8) && CharsetCvt::U8ToU16(utf8) == u16);
    } else {
        FUZZ_CHECK(DecodedUtf8(CharsetCvt::U16ToU8(u16)) == DecodeUtf16Replacing(u16));
    }
    if (IsValidUtf32(u32)) {
        const std::string utf8 = CharsetCvt::U32ToU8(u32);
        FUZZ_CHECK(IsStrictUtf8(utf8) && CharsetCvt::U8ToU32(utf8) == u32);
        FUZZ_CHECK(CharsetCvt::WToU8(wide) == utf8 && CharsetCvt::U8ToW(utf8) == wide);
    } else {
        FUZZ_CHECK(DecodedUtf8(CharsetCvt::U32ToU8(u32)) == Replaced(u32));
        FUZZ_CHECK(Raises<std::range_error>([&] { CharsetCvt::WToU8(wide); }));
    }
}

// The variable lives in this buffer, handed to putenv once: setenv on every input would keep
// each value it replaces (glibc never frees them) and grow without bound.
char envEntry[] =
    "ORVIK_FUZZ_VALUE="
    "................................................................"
    "................................................................"
    "................................................................"
    "................................................................"
    "................................................................";
constexpr std::size_t kEnvNameLength = sizeof "ORVIK_FUZZ_VALUE=" - 1;

void CheckEnv(const std::string& text) {
    const std::string value =
        text.substr(0, std::min(text.find('\0'), sizeof envEntry - 1 - kEnvNameLength));
    std::memcpy(envEntry + kEnvNameLength, value.c_str(), value.size() + 1);
    std::u32string points;
    const std::string read = CharsetCvt::GetEnv(L"ORVIK_FUZZ_VALUE", "");
    if (DecodeStrict(value, points)) {
        const bool fits = !value.empty() && points.size() < 256 && value.size() < 255;
        FUZZ_CHECK(read == (fits ? value : std::string()));
    } else {
        FUZZ_CHECK(read.empty() || IsStrictUtf8(read));
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    QuietLibraryLog();
    putenv(envEntry);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    CheckUtf8Input(text);
    CheckUnitInput(data, size);
    CheckEnv(text);
    return 0;
}
