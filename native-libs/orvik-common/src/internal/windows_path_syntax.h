// The syntax of Windows path text, stated once: which characters separate names, what a drive
// is, and the heads of the long form ("\\?\x"), of a share ("\\server\share") and of a long
// share ("\\?\UNC\server\share"). Path's parser and writer, FileUtils and both file system
// layers ask these questions here, over the character type they hold (char or wchar_t).
// Everything is constexpr and allocates nothing, so the parser's hot paths pay no call.
#ifndef ORVIK_COMMON_WINDOWS_PATH_SYNTAX_H
#define ORVIK_COMMON_WINDOWS_PATH_SYNTAX_H

#include <cstddef>
#include <string_view>

namespace orvik::detail {

// The separator Windows writes, and the one it also reads as a separator.
inline constexpr char kSeparator = '\\';
inline constexpr char kAltSeparator = '/';

// The heads of the prefixed forms, as written:
//   kLongPathPrefix   "\\?\"      the long form
//   kSharePrefix      "\\"        a share, "\\server\share"
//   kUncMarker        "UNC\"      behind the long form, a share
//   kLongSharePrefix  "\\?\UNC\"  the two together
inline constexpr std::string_view kLongPathPrefix = "\\\\?\\";
inline constexpr std::string_view kSharePrefix = "\\\\";
inline constexpr std::string_view kUncMarker = "UNC\\";
inline constexpr std::string_view kLongSharePrefix = "\\\\?\\UNC\\";

// A drive is a letter and a colon, "C:".
inline constexpr char kDriveColon = ':';
inline constexpr std::size_t kDriveLength = 2;

// Whether `c` separates names: "\" or "/".
template <class Char>
constexpr bool IsSeparator(Char c) {
    return c == Char(kSeparator) || c == Char(kAltSeparator);
}

// Whether `c` may name a drive: one of the 52 ASCII letters, and no other character (a byte
// above 0x7F included).
template <class Char>
constexpr bool IsDriveLetter(Char c) {
    return (c >= Char('A') && c <= Char('Z')) || (c >= Char('a') && c <= Char('z'));
}

// Whether `text` begins with `head` (one of the heads above), compared character by character
// so that narrow and wide text share the one spelling.
template <class Char>
constexpr bool StartsWithHead(std::basic_string_view<Char> text, std::string_view head) {
    if (text.size() < head.size()) {
        return false;
    }
    for (std::size_t i = 0; i < head.size(); ++i) {
        if (text[i] != Char(head[i])) {
            return false;
        }
    }
    return true;
}

// Whether `text` begins with the long-path prefix "\\?\" (backslashes only; the long forms
// take "/" as a name character).
template <class Char>
constexpr bool HasLongPathPrefix(std::basic_string_view<Char> text) {
    return StartsWithHead(text, kLongPathPrefix);
}

// Whether `text` begins with "UNC\", which behind the long-path prefix starts a share.
template <class Char>
constexpr bool HasUncMarker(std::basic_string_view<Char> text) {
    return StartsWithHead(text, kUncMarker);
}

// Whether `text` begins with the share prefix as Path writes and reads it: two backslashes.
template <class Char>
constexpr bool HasSharePrefix(std::basic_string_view<Char> text) {
    return StartsWithHead(text, kSharePrefix);
}

// Whether `text` begins with two separators of either kind, which the system reads as a share
// or a device namespace ("//server/share" as well as "\\server\share").
template <class Char>
constexpr bool StartsWithTwoSeparators(std::basic_string_view<Char> text) {
    return text.size() >= 2 && IsSeparator(text[0]) && IsSeparator(text[1]);
}

// Whether `text` begins with a drive, "X:".
template <class Char>
constexpr bool StartsWithDrive(std::basic_string_view<Char> text) {
    return text.size() >= kDriveLength && IsDriveLetter(text[0]) && text[1] == Char(kDriveColon);
}

// Whether `text` begins with a drive and its root, "X:\" or "X:/".
template <class Char>
constexpr bool StartsWithDriveRoot(std::basic_string_view<Char> text) {
    // One length test for all three characters.
    return text.size() > kDriveLength && StartsWithDrive(text.substr(0, kDriveLength)) &&
           IsSeparator(text[kDriveLength]);
}

}  // namespace orvik::detail

#endif  // ORVIK_COMMON_WINDOWS_PATH_SYNTAX_H
