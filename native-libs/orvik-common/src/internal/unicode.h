// Conversions between the Unicode encodings the library meets: UTF-8 narrow text, UTF-16 and
// UTF-32 strings, and the system's wide text (UTF-16 where wchar_t has 16 bits, UTF-32 where
// it has 32). Shared by the charset conversions and the platform layer.
//
// Malformed input is either refused or repaired, as the caller asks:
//   - Invalid::kFail     the call returns false and `out` is unspecified;
//   - Invalid::kReplace  each maximal invalid subsequence becomes U+FFFD and the call succeeds.
// Invalid means: bytes that start no sequence, truncated sequences, overlong forms, encoded
// surrogates (U+D800..U+DFFF), values above U+10FFFF, and unpaired UTF-16 surrogates.
//
// Thread-safety: pure functions.
#ifndef ORVIK_COMMON_UNICODE_H
#define ORVIK_COMMON_UNICODE_H

#include <string>
#include <string_view>

namespace orvik::detail {

enum class Invalid { kFail, kReplace };

// Decodes the UTF-8 sequence at in[i] into `out` and moves `i` behind it. On an invalid
// sequence it returns false and moves `i` behind the maximal invalid subsequence (at least one
// byte), so that a caller replacing it gets one U+FFFD per invalid run. Requires i < in.size().
bool DecodeUtf8(std::string_view in, std::size_t& i, char32_t& out);

bool Utf8ToUtf32(std::string_view in, std::u32string& out, Invalid invalid);
bool Utf32ToUtf8(std::u32string_view in, std::string& out, Invalid invalid);
bool Utf8ToUtf16(std::string_view in, std::u16string& out, Invalid invalid);
bool Utf16ToUtf8(std::u16string_view in, std::string& out, Invalid invalid);

// The system's wide text, whatever the width of wchar_t.
bool Utf8ToWide(std::string_view in, std::wstring& out, Invalid invalid);
bool WideToUtf8(std::wstring_view in, std::string& out, Invalid invalid);

}  // namespace orvik::detail

#endif  // ORVIK_COMMON_UNICODE_H
