// Path: the Windows and POSIX parses, narrow and wide, Str/Wstr and the queries that touch no
// disk. Properties (common/path.h):
//   - Parsing throws only std::out_of_range, and only for text with a NUL.
//   - Str(PATH_TYPE_POSIX) of a Windows path, every "/" made "\", is Str(PATH_TYPE_WINDOWS)
//     (the separator decides only what stands between tokens; heads have backslashes only).
//   - NUL-free Windows text: parsing Str again gives the same tokens, except where the text
//     written is itself one of the header's special forms: no tokens (written "", which is
//     one empty token), a relative path whose first token is "UNC", or a share whose server
//     is "?" ("\\?\x" reads as the long-path prefix).
//     An anchored path of two or more tokens keeps its Str and stays anchored.
//   - NUL-free POSIX text: Str(PATH_TYPE_POSIX) parsed again as POSIX is the same text.
//   - Str(PATH_TYPE_WINDOWS) has the long-path prefix exactly when the path is anchored and its
//     text without the prefix, with a terminator, is longer than 260 bytes.
//   - Wide text is its UTF-8 form with invalid elements as U+FFFD; Wstr is Str made wide.
//   - Filename is the last token, Extension what follows its last ".", ParentPath holds one
//     token fewer and ParentPath / Filename gives the path back; Empty is Length() == 0.
//   - Absolute on a drive holds no "." or ".." token.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "common/charset_cvt.h"
#include "common/path.h"
#include "fuzz_check.h"

using orvik::CharsetCvt;
using orvik::Path;

namespace {

// Parses with `set`, or gives false when the parse raised std::out_of_range (NUL only).
template <class Text>
bool Parse(Path& path, const Text& text, Path::PathType type, bool hasNul) {
    try {
        path.Set(text, type);
        return true;
    } catch (const std::out_of_range&) {
        FUZZ_CHECK(hasNul);
        return false;
    }
}

// The UTF-8 form of UTF-32 wide text, each invalid element as U+FFFD.
std::string WideWithReplacement(const std::wstring& wide) {
    std::u32string points;
    for (const wchar_t element : wide) {
        const auto c = static_cast<char32_t>(element);
        points.push_back((c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF ? 0xFFFD : c);
    }
    return points.empty() ? std::string() : CharsetCvt::U32ToU8(points);
}

std::string FirstToken(Path path) {
    while (path.Length() > 1) {
        path = path.ParentPath();
    }
    return path.Filename();
}

void CheckQueries(const Path& path, bool windows) {
    FUZZ_CHECK(path.Empty() == (path.Length() == 0));
    const std::string name = path.Filename();
    const std::size_t dot = name.rfind('.');
    FUZZ_CHECK(path.Extension() == (dot == std::string::npos ? "" : name.substr(dot + 1)));
    const Path parent = path.ParentPath();
    FUZZ_CHECK(parent.IsAbsolute() == path.IsAbsolute());
    if (path.Length() > 0) {
        FUZZ_CHECK(parent.Length() == path.Length() - 1);
        if (windows) {
            FUZZ_CHECK((parent / Path(name)) == path);
        }
    }
    // Absolute: on a drive, "." and ".." are resolved (a share keeps its root names as given).
    const Path absolute = path.Absolute();
    std::string full = absolute.Str(Path::PATH_TYPE_POSIX);
    if (full.compare(0, 4, "\\\\?\\") == 0) {
        full.erase(0, 4);  // the long-path prefix; "UNC\" behind it marks a share
    } else if (full.compare(0, 2, "\\\\") == 0) {
        full.replace(0, 2, "UNC\\");
    }
    if (absolute.IsAbsolute() && full.compare(0, 4, "UNC\\") != 0) {
        full += "/";
        FUZZ_CHECK(full.find("/./") == std::string::npos);
        FUZZ_CHECK(full.find("/../") == std::string::npos);
    }
}

void CheckWindows(const std::string& text) {
    const bool hasNul = text.find('\0') != std::string::npos;
    Path path;
    if (!Parse(path, text, Path::PATH_TYPE_WINDOWS, hasNul)) {
        return;
    }
    const std::string str = path.Str(Path::PATH_TYPE_WINDOWS);
    std::string posix = path.Str(Path::PATH_TYPE_POSIX);
    std::replace(posix.begin(), posix.end(), '/', '\\');
    FUZZ_CHECK(posix == str);
    CheckQueries(path, true);

    // Wstr is Str made wide (checked where the strict route converts Str at all).
    const std::wstring wide = path.Wstr(Path::PATH_TYPE_WINDOWS);
    try {
        FUZZ_CHECK(wide == (str.empty() ? std::wstring() : CharsetCvt::U8ToW(str)));
    } catch (const std::range_error&) {
    }
    if (hasNul) {
        return;
    }
    const Path again(str);
    const std::string first = FirstToken(path);
    const bool relativeUnc = !path.IsAbsolute() && path.Length() > 1 && first == "UNC";
    const bool questionShare = path.IsAbsolute() && first == "?";
    // The long-path prefix heads an anchored text whose bare form (a share's with its "\\"),
    // with a terminator, exceeds 260 bytes; never a relative one.
    if (!questionShare) {
        const bool share = str.compare(0, 8, "\\\\?\\UNC\\") == 0;
        const bool prefixed = str.compare(0, 4, "\\\\?\\") == 0;
        const std::size_t bare = share ? str.size() - 6 : prefixed ? str.size() - 4 : str.size();
        FUZZ_CHECK(prefixed == (path.IsAbsolute() && bare + 1 > 260));
    }
    if (path.Length() > 0 && !relativeUnc && !questionShare) {
        FUZZ_CHECK(again == path);
        if (path.IsAbsolute() && path.Length() >= 2) {
            FUZZ_CHECK(again.IsAbsolute());
            FUZZ_CHECK(again.Str(Path::PATH_TYPE_WINDOWS) == str);
        }
    }
    // The narrow and wide entrances agree on valid UTF-8.
    if (CharsetCvt::IsU8(text) && !text.empty()) {
        try {
            Path fromWide;
            fromWide = CharsetCvt::U8ToW(text);
            FUZZ_CHECK(fromWide.Str(Path::PATH_TYPE_WINDOWS) == str);
        } catch (const std::range_error&) {
            // IsU8 is lenient (overlong forms pass); the strict route refuses them.
        }
    }
}

void CheckPosix(const std::string& text) {
    const bool hasNul = text.find('\0') != std::string::npos;
    Path path;
    if (!Parse(path, text, Path::PATH_TYPE_POSIX, hasNul)) {
        return;
    }
    CheckQueries(path, false);
    if (hasNul) {
        return;
    }
    const std::string str = path.Str(Path::PATH_TYPE_POSIX);
    FUZZ_CHECK(path.IsAbsolute() == (!text.empty() && text[0] == '/'));
    Path again;
    again.Set(str, Path::PATH_TYPE_POSIX);
    FUZZ_CHECK(again == path);
    FUZZ_CHECK(again.Str(Path::PATH_TYPE_POSIX) == str);
}

// Wide text from bytes: a byte below 0xF0 is that code point (separators stay separators),
// the others pick values the UTF-8 conversion must repair.
void CheckWide(const std::uint8_t* data, std::size_t size) {
    static const wchar_t kSpecial[16] = {static_cast<wchar_t>(0xD800),
                                         static_cast<wchar_t>(0xDBFF),
                                         static_cast<wchar_t>(0xDC00),
                                         static_cast<wchar_t>(0xDFFF),
                                         static_cast<wchar_t>(0x110000),
                                         static_cast<wchar_t>(-1),
                                         static_cast<wchar_t>(0x10FFFF),
                                         static_cast<wchar_t>(0xFFFD),
                                         static_cast<wchar_t>(0x1F600),
                                         static_cast<wchar_t>(0x7FFFFFFF),
                                         static_cast<wchar_t>(0x800),
                                         static_cast<wchar_t>(0xFEFF),
                                         L'/',
                                         L'\\',
                                         L':',
                                         L'?'};
    std::wstring wide;
    for (std::size_t i = 0; i < size; ++i) {
        wide.push_back(data[i] < 0xF0 ? static_cast<wchar_t>(data[i]) : kSpecial[data[i] - 0xF0]);
    }
    const std::string narrow = WideWithReplacement(wide);
    const bool hasNul = narrow.find('\0') != std::string::npos;
    Path fromWide;
    Path fromNarrow;
    const bool wideParsed = Parse(fromWide, wide, Path::PATH_TYPE_WINDOWS, hasNul);
    const bool narrowParsed = Parse(fromNarrow, narrow, Path::PATH_TYPE_WINDOWS, hasNul);
    FUZZ_CHECK(wideParsed == narrowParsed);
    if (wideParsed) {
        FUZZ_CHECK(fromWide.Str(Path::PATH_TYPE_WINDOWS) ==
                   fromNarrow.Str(Path::PATH_TYPE_WINDOWS));
        const std::string posix = fromNarrow.Str(Path::PATH_TYPE_POSIX);
        FUZZ_CHECK(fromWide.Wstr(Path::PATH_TYPE_POSIX) ==
                   (posix.empty() ? std::wstring() : CharsetCvt::U8ToW(posix)));
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    QuietLibraryLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    CheckWindows(text);
    CheckPosix(text);
    CheckWide(data, size);
    return 0;
}
