// Questions about a byte string (ASCII? UTF-8? a byte order mark?) and conversions between
// the library's narrow UTF-8 text, the system's wide text (UTF-16 where wchar_t has 16 bits,
// UTF-32 where it has 32), std::u16string, std::u32string and the user's locale encoding.
//
// Lengths come from the strings, never from a terminator: an embedded NUL is an ordinary
// character. No operation writes or strips a byte order mark.
//
// Failures:
//   - the six UTF routes log "Parameter is empty!" (level INFO) for an empty argument and
//     return an empty string;
//   - the wide routes (U8ToW, WToU8) raise std::range_error("bad conversion") on input they
//     cannot convert: malformed UTF-8, overlong forms, encoded or unpaired surrogates, values
//     above U+10FFFF;
//   - the 16- and 32-bit routes never raise: they turn such input into U+FFFD, one for each
//     maximal invalid subsequence, as the Unicode standard recommends (see below);
//   - MbToU8 and U8ToMb raise std::runtime_error("bad locale name") when the user's locale
//     cannot be built, and std::range_error("bad conversion") when the UTF stage fails.
//
// Thread-safety: no state of its own; safe from any thread, with one process-wide side effect:
// MbToU8 on text that IsU8 rejects, and U8ToMb on text that IsU8 accepts, install the user's
// preferred locale on every call. That stays after the call and changes every later
// locale-dependent operation on every thread (the case folding of StringUtils among them):
//   - POSIX: std::locale("") (from LC_ALL, LC_* and LANG) becomes the global C++ locale, and
//     with it the C locale; its encoding is the locale's;
//   - Windows: the C runtime takes the user's locale (setlocale(LC_ALL, "")) and the global
//     C++ locale becomes the classic one, the only one the runtime builds there; the encoding
//     is the system's ANSI code page (1252, 932, ...). LANG and LC_* are not read. A character
//     the code page cannot represent exactly is a conversion error, never a look-alike.
#ifndef ORVIK_COMMON_CHARSET_CVT_H
#define ORVIK_COMMON_CHARSET_CVT_H

#include <string>

#include "common/export.h"

namespace orvik {

class ORVIK_COMMON_API CharsetCvt {
public:
    // No byte above 0x7F; the empty string is ASCII.
    static bool IsASCII(const std::string& text);

    // Every byte belongs to a complete sequence of UTF-8's shape. Lenient on purpose:
    // overlong forms (C0 80, E0 80 80) and four-byte forms up to F7 BF BF BF pass; encoded
    // surrogates (ED A0..BF xx) are rejected, as are stray continuation bytes, F8..FF and a
    // truncated final sequence. NUL passes. The empty string is NOT UTF-8.
    static bool IsU8(const std::string& text);
    // IsU8(text) and text begins with EF BB BF. "\xEF\xBB\xBF" => true, "\xEF\xBB\xBF\xFF"
    // => false.
    static bool StartsWithBom(const std::string& text);

    // UTF-8 <=> wide text (UTF-16 with surrogate pairs, or UTF-32, after wchar_t's width).
    static std::wstring U8ToW(const std::string& text);
    static std::string WToU8(const std::wstring& text);
    // UTF-8 <=> UTF-16, code points above U+FFFF as surrogate pairs. What is no Unicode
    // becomes U+FFFD, one per maximal invalid subsequence, instead of raising:
    //   "a\xC0\x80b"      =>  u"a\uFFFD\uFFFDb"   (C0 starts no sequence, 80 neither)
    //   "\xE4\xB8"        =>  u"\uFFFD"          (one truncated sequence)
    //   "\xED\xA0\x80"    =>  u"\uFFFD\uFFFD\uFFFD" (an encoded surrogate)
    //   u"a\xD800"        =>  "a\xEF\xBF\xBD"    (an unpaired surrogate)
    static std::u16string U8ToU16(const std::string& text);
    static std::string U16ToU8(const std::u16string& text);
    // UTF-8 <=> code points, with the same replacement; in U32ToU8 a surrogate or a value
    // above U+10FFFF becomes one U+FFFD.
    static std::u32string U8ToU32(const std::string& text);
    static std::string U32ToU8(const std::u32string& text);

    // From the user's locale encoding to UTF-8. Text that IsU8 accepts is returned unchanged,
    // without touching the locale. Otherwise installs the user's locale (see above) and
    // converts; the empty string gives "" with no log line. When the locale's decoder stops
    // early it logs "Convert error: <result>" (INFO; 1 partial, 2 error) and goes on with the
    // converted part padded with NUL characters to one character per input byte.
    static std::string MbToU8(const std::string& text);
    // From UTF-8 to the user's locale encoding. Text that IsU8 rejects, the empty string
    // included, logs "Parameter is Not a valid UTF-8 string!" (INFO) and gives "" without
    // touching the locale. Otherwise installs the user's locale and converts; when the
    // locale's encoder stops early it logs "Convert error: <result>" and the result is the
    // converted part followed by NUL bytes up to the locale's worst-case size.
    static std::string U8ToMb(const std::string& text);

    // The value of the environment variable `name` as UTF-8; `secondName` is not read. An
    // unset variable, one set to nothing, a value of more than 255 wide characters, and a
    // value whose UTF-8 form exceeds 254 bytes all give "". Never logs, never throws.
    static std::string GetEnv(const std::wstring& name, const std::string& secondName);
};

}  // namespace orvik

#endif  // ORVIK_COMMON_CHARSET_CVT_H
