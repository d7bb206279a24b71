#include "common/charset_cvt.h"

#include <algorithm>
#include <locale>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "internal/internal_log.h"
#include "platform/platform.h"
#include "internal/unicode.h"

namespace orvik {
namespace {

// GetEnv's limits: the value must fit a buffer of 256 wide elements, and its UTF-8 form an
// area of 255 bytes, each with its terminator.
constexpr size_t kEnvValueElements = 256;
constexpr size_t kEnvUtf8Bytes = 255;

// Judges the sequence whose lead byte is text[index] and moves index to its last byte. Only
// the shape is checked: overlong forms pass, as do four-byte forms beyond U+10FFFF; the one
// rule on a second byte keeps out the encoded UTF-16 surrogates (ED A0..ED BF).
bool CheckU8Sequence(const std::string& text, size_t& index) {
    const auto byteAt = [&text](size_t at) { return static_cast<unsigned char>(text[at]); };
    const unsigned char lead = byteAt(index);
    size_t continuationBytes;
    if (lead <= 0x7F) {
        return true;
    } else if ((lead & 0xE0) == 0xC0) {
        continuationBytes = 1;
    } else if (lead == 0xED && index + 1 < text.size() && (byteAt(index + 1) & 0xA0) == 0xA0) {
        return false;
    } else if ((lead & 0xF0) == 0xE0) {
        continuationBytes = 2;
    } else if ((lead & 0xF8) == 0xF0) {
        continuationBytes = 3;
    } else {
        return false;
    }
    for (; continuationBytes > 0; --continuationBytes) {
        ++index;
        if (index >= text.size() || (byteAt(index) & 0xC0) != 0x80) {
            return false;
        }
    }
    return true;
}

[[noreturn]] void ThrowBadConversion() {
    throw std::range_error("bad conversion");
}

// One of the six UTF routes: an empty argument is reported through `logEmpty` and gives an
// empty result. What cannot be converted either raises std::range_error (kFail) or becomes
// U+FFFD (kReplace).
template <class Out, class In, class Codec, class LogEmpty>
Out ConvertUtf(const In& text, Codec codec, detail::Invalid invalid, LogEmpty logEmpty) {
    Out out;
    if (text.empty()) {
        logEmpty();
    } else if (!codec(text, out, invalid)) {
        ThrowBadConversion();
    }
    return out;
}

// The wide stage of MbToU8 and U8ToMb: strict, so that what cannot be converted raises.
std::string WideToUtf8OrThrow(std::wstring_view wide) {
    std::string utf8;
    if (!detail::WideToUtf8(wide, utf8, detail::Invalid::kFail)) {
        ThrowBadConversion();
    }
    return utf8;
}

}  // namespace

// The log site of an empty argument to a UTF route. Expanded inside each route, so that the
// line names the route's own function.
#define ORVIK_LOG_EMPTY_PARAMETER [] { ORVIK_LOG(LOG_LEVEL_INFO, "Parameter is empty!"); }

bool CharsetCvt::IsASCII(const std::string& text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) <= 0x7F; });
}

bool CharsetCvt::IsU8(const std::string& text) {
    if (text.empty()) {
        return false;
    }
    for (size_t index = 0; index < text.size(); ++index) {
        if (!CheckU8Sequence(text, index)) {
            return false;
        }
    }
    return true;
}

bool CharsetCvt::StartsWithBom(const std::string& text) {
    return IsU8(text) && text.compare(0, 3, "\xEF\xBB\xBF") == 0;
}

std::wstring CharsetCvt::U8ToW(const std::string& text) {
    return ConvertUtf<std::wstring>(text, detail::Utf8ToWide, detail::Invalid::kFail,
                                    ORVIK_LOG_EMPTY_PARAMETER);
}

std::string CharsetCvt::WToU8(const std::wstring& text) {
    return ConvertUtf<std::string>(text, detail::WideToUtf8, detail::Invalid::kFail,
                                   ORVIK_LOG_EMPTY_PARAMETER);
}

std::u16string CharsetCvt::U8ToU16(const std::string& text) {
    return ConvertUtf<std::u16string>(text, detail::Utf8ToUtf16, detail::Invalid::kReplace,
                                      ORVIK_LOG_EMPTY_PARAMETER);
}

std::string CharsetCvt::U16ToU8(const std::u16string& text) {
    return ConvertUtf<std::string>(text, detail::Utf16ToUtf8, detail::Invalid::kReplace,
                                   ORVIK_LOG_EMPTY_PARAMETER);
}

std::u32string CharsetCvt::U8ToU32(const std::string& text) {
    return ConvertUtf<std::u32string>(text, detail::Utf8ToUtf32, detail::Invalid::kReplace,
                                      ORVIK_LOG_EMPTY_PARAMETER);
}

std::string CharsetCvt::U32ToU8(const std::u32string& text) {
    return ConvertUtf<std::string>(text, detail::Utf32ToUtf8, detail::Invalid::kReplace,
                                   ORVIK_LOG_EMPTY_PARAMETER);
}

std::string CharsetCvt::MbToU8(const std::string& text) {
    if (IsU8(text)) {
        return text;
    }
    const std::unique_ptr<platform::UserEncoding> encoding = platform::InstallUserLocale();
    std::wstring wide;
    const std::codecvt_base::result result = encoding->Decode(text, wide);
    if (result != std::codecvt_base::ok) {
        // Goes on with a buffer of one wide character per input byte: the converted part,
        // then NUL characters.
        ORVIK_LOG(LOG_LEVEL_INFO, "Convert error: %d", static_cast<int>(result));
        wide.resize(std::max(wide.size(), text.size()), L'\0');
    }
    return WideToUtf8OrThrow(wide);
}

std::string CharsetCvt::U8ToMb(const std::string& text) {
    if (!IsU8(text)) {
        ORVIK_LOG(LOG_LEVEL_INFO, "Parameter is Not a valid UTF-8 string!");
        return std::string();
    }
    const std::unique_ptr<platform::UserEncoding> encoding = platform::InstallUserLocale();
    std::wstring wide;
    if (!detail::Utf8ToWide(text, wide, detail::Invalid::kFail)) {
        ThrowBadConversion();
    }
    std::string narrow;
    const std::codecvt_base::result result = encoding->Encode(wide, narrow);
    if (result != std::codecvt_base::ok) {
        // The converted part, then NUL bytes up to the encoding's worst case for the text.
        ORVIK_LOG(LOG_LEVEL_INFO, "Convert error: %d", static_cast<int>(result));
        narrow.resize(
            std::max(narrow.size(), static_cast<size_t>(encoding->MaxLength()) * wide.size()),
            '\0');
    }
    return narrow;
}

std::string CharsetCvt::GetEnv(const std::wstring& name, const std::string& /*secondName*/) {
    try {
        // The name ends at its first NUL, as a terminated string does.
        const std::optional<std::wstring> value =
            platform::EnvironmentVariable(std::wstring(name.c_str()));
        if (!value || value->size() >= kEnvValueElements) {
            return std::string();
        }
        std::string utf8;
        detail::WideToUtf8(std::wstring_view(value->c_str()), utf8, detail::Invalid::kReplace);
        if (utf8.size() >= kEnvUtf8Bytes) {
            return std::string();
        }
        return utf8;
    } catch (const std::bad_alloc&) {
        return std::string();  // GetEnv never throws: out of memory reads as unset
    }
}

}  // namespace orvik
