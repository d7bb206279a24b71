// Static helpers on std::string taken as a sequence of bytes: comparison and case, split, join
// and extraction, number and bool parsing with a caller's default, and JSON object text.
// Nothing here knows about UTF-8.
//
// Case-insensitive work folds one byte at a time with std::tolower / std::toupper, which follow
// the process's current C locale. In the locale a process starts with, only the 26 ASCII
// letters change; once CharsetCvt::MbToU8 or CharsetCvt::U8ToMb has installed the user's
// locale, its tables apply to bytes from 0x80 up.
//
// Thread-safety: no state of its own; every member may run on any thread at once. Only Trim
// writes, to the caller's string; Join needs `items` unchanged during the call.
#ifndef ORVIK_COMMON_STRING_UTILS_H
#define ORVIK_COMMON_STRING_UTILS_H

#include <cstddef>
#include <initializer_list>
#include <string>
#include <vector>

#include "common/export.h"

namespace orvik {

class ORVIK_COMMON_API StringUtils {
public:
    // ---- Comparison and case --------------------------------------------------------------
    //
    // The exact forms and the case-insensitive forms differ at the empty string:
    //   Contains(x, "")              => true      ContainedIgnoreCase(x, "")   => false
    //   StartsWith(x, "")            => true      StartsWithIgnoreCase(x, "")  => false
    //   EndsWith(x, "")              => true      ContainedIgnoreCase("", x)   => false

    // Same length and same bytes; two empty strings are equal.
    static bool Equals(const std::string& first, const std::string& second);
    // Same length and every byte pair equal after tolower on both.
    static bool EqualsIgnoreCase(const std::string& first, const std::string& second);
    // `second` occurs in `first`, bytes compared exactly.
    static bool Contains(const std::string& first, const std::string& second);
    // `second` occurs in `first` after tolower on every byte of both; false if either is empty.
    static bool ContainedIgnoreCase(const std::string& first, const std::string& second);
    // `first` begins with `second`, bytes compared exactly.
    static bool StartsWith(const std::string& first, const std::string& second);
    // `first` begins with `second` after tolower on both; false if either is empty.
    static bool StartsWithIgnoreCase(const std::string& first, const std::string& second);
    // `first` ends with `second`, bytes compared exactly.
    static bool EndsWith(const std::string& first, const std::string& second);

    // A copy with tolower / toupper applied to every byte; the length never changes.
    static std::string ToLowerCase(const std::string& text);
    static std::string ToUpperCase(const std::string& text);

    // Removes leading, then trailing blanks (0x20 only; tabs, line ends and every other byte
    // stay). "  a b\t " => "a b\t".
    static void Trim(std::string& text);

    // ---- Split, join and extraction -------------------------------------------------------
    //
    // `sep` is a whole string, compared exactly. With "," as the separator:
    //
    //   text     SplitString       SplitAllByString    SplitFirstByString
    //   ""       (no elements)     ""                  ""
    //   "a"      "a"               "a"                 "a"
    //   "a,b,c"  "a" "b" "c"       "a" "b" "c"         "a" "b,c"
    //   "a,,b"   "a" "" "b"        "a" "" "b"          "a" ",b"
    //   ",a"     "" "a"            "" "a"              "" "a"
    //   "a,"     "a" ""            "a"                 "a" ""
    //   ","      "" ""             ""                  "" ""
    //
    // Occurrences are taken from left to right and do not overlap.

    // Splits `text` followed by one more `sep`, so a trailing empty field stays; a piece of
    // `text`'s end that only overlaps that added separator is dropped ("a-" by "--" => "a").
    // An empty separator: an empty `text` gives no elements, any other gives one element,
    // `text` itself.
    static std::vector<std::string> SplitString(const std::string& text, const std::string& sep);
    // Every field, but the one empty field at the very end is dropped. A text without `sep`,
    // the empty text included, gives one element, `text`. An empty separator gives one
    // element, `text`.
    static std::vector<std::string> SplitAllByString(const std::string& text,
                                                     const std::string& sep);
    // Splits at the first occurrence only: exactly two elements (either may be empty), or one,
    // `text`, when `sep` does not occur. An empty separator is found at position 0:
    // "abc" by "" => "" "abc".
    static std::vector<std::string> SplitFirstByString(const std::string& text,
                                                       const std::string& sep);
    // The elements in order with `sep` between each two. {} => "", {"a"} => "a",
    // {"a", "", "b"} by "," => "a,,b". `items` is not changed.
    static std::string Join(std::vector<std::string>& items, const std::string& sep);
    // The runs of decimal digits of `text` in order, leading zeros kept; signs and points end
    // a run. "x1.20-003" => "1" "20" "003". No digits => no elements.
    static std::vector<std::string> FetchConsecutiveNumbers(std::string text);
    // The SHA-256 digest of `length` bytes at `data` as 64 characters: each byte in lower-case
    // hexadecimal, width 2, padded with a BLANK, not a zero (0x0a => " a"). Empty if the
    // digest cannot be computed.
    static std::string GetHashText(const void* data, const size_t& length);
    // A copy of `text` in which every byte that occurs in `chars` becomes `replacement`.
    // ("a b-c", " -", '_') => "a_b_c". An empty `chars` changes nothing.
    static std::string SpaceToUnderscore(std::string text, const std::string& chars,
                                         const char& replacement);
    // The bytes up to the terminator; null gives the empty string.
    static std::string CharToString(const char* text);

    // ---- Number and bool conversion -------------------------------------------------------
    //
    // The StrToll family never throws and never changes `text`. An empty text returns the
    // default silently. Otherwise the text is read as a signed 64-bit decimal integer: leading
    // white space skipped, an optional sign, then digits as far as they go; whatever follows
    // is ignored. No digits, or a number beyond 64 bits, returns the default and writes one
    // warning line, "<Name> invalid" or "<Name> out_of_range" (<Name> being the operation's
    // name). "  42abc" => 42, "+5" => 5, "abc" => default and "StrTollInt invalid".

    // Every byte is a digit 0-9; the empty string passes. "-12", "1.5" => false.
    static bool CheckNumber(const std::string& text);
    // `text` is "true" or "false", ignoring case. "" , "1", "yes" => false.
    static bool CheckBool(const std::string& text);
    // The low 32 bits of the 64-bit number, as a signed value; no range check at 32 bits.
    // "4294967297" => 1, "9223372036854775807" => -1, "9223372036854775808" => default.
    static int StrTollInt(std::string& text, int defaultValue);
    // As StrTollInt: the low 32 bits, whatever the width of long on the platform.
    static long StrTollLong(std::string& text, long defaultValue);
    // The integer, converted to the nearest float / double: fractions and exponents are not
    // read. "3.99" => 3, "1e3" => 1, ".5" => default and "StrTollDouble invalid".
    static float StrTollFloat(std::string& text, float defaultValue);
    static double StrTollDouble(std::string& text, double defaultValue);
    // "true" / "false" in any case give true / false. Any other non-empty text returns the
    // default and writes the warning "StrTollBool unknown exception".
    static bool StrTollBool(std::string& text, bool defaultValue);

    // ---- JSON text --------------------------------------------------------------------------

    // A new object text: the key/value `pairs` first (taken two at a time, values quoted, a
    // last unpaired element dropped), then the content of `body` if `body` is an object text
    // ("{...}"); a body of any other form is ignored. Nothing is escaped or parsed.
    //   ("", {})                   => {}
    //   ("{\"x\":1}", {"a", "b"})  => {"a":"b","x":1}
    //   ("plain", {"a", "b"})      => {"a":"b"}
    static std::string AppendJsonString(const std::string& body,
                                        std::initializer_list<std::string> pairs);
};

}  // namespace orvik

#endif  // ORVIK_COMMON_STRING_UTILS_H
