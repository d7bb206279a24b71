// A file system path as a value: parsed once into tokens, written anew on every request.
//
// Path keeps no text. Parsing splits the text into tokens and two flags (anchored, network
// share); Str and Wstr write the text form from them. The Windows long-path prefix "\\?\" is
// stripped on the way in, never stored, and put back on the way out when the path is long
// enough to need it, so any form a caller holds can go in, and what Str or Wstr gives can go
// straight to the file system.
//
// Parsing and writing are text logic, the same on every system: Windows path syntax is data
// here. They never resolve "." or "..", change case, reject characters, limit length or touch
// the file system. Narrow text is UTF-8; the wide entrances convert.
//
// Parsed with PATH_TYPE_WINDOWS (what every constructor uses), then written with
// Str(PATH_TYPE_WINDOWS):
//   ""                =>  one empty token                  =>  ""
//   "a//b\\c/"        =>  a, b, c                          =>  "a\b\c"
//   "/a"              =>  a (relative: the root is lost)   =>  "a"
//   "C:"   "C:x"      =>  C:   C:x (relative)              =>  "C:"   "C:x"
//   "C:\"             =>  C:, one empty token (anchored)   =>  "C:\"
//   "C:/x/y/"         =>  C:, x, y (anchored)              =>  "C:\x\y"
//   "\\srv\share\f"   =>  srv, share, f (share)            =>  "\\srv\share\f"
//   "\\srv"           =>  srv (relative)                   =>  "srv"
//   "UNC\srv\share"   =>  srv, share (share)               =>  "\\srv\share"
//   "\\?\C:\a"        =>  C:, a (anchored)                 =>  "C:\a"
//   "//srv/share"     =>  srv, share (relative)            =>  "srv\share"
// An anchored path whose text (without prefix, with one byte for a terminator) is longer than
// 260 bytes is written with "\\?\" (drive) or "\\?\UNC\" (share) at its head; a relative
// path never is. Bytes, not characters, count.
//
// Parsed with PATH_TYPE_POSIX, only "/" separates and a leading "/" anchors:
//   "/a/b/"  =>  a, b (anchored)  =>  "/a/b"          "a\b"  =>  the one token "a\b"
//
// Text with a NUL: bytes behind the first NUL reach no token, and a token that would begin
// behind the NUL raises std::out_of_range ("invalid string position") from Set and the
// constructors. No other member throws, apart from allocation failures.
//
// The queries (Absolute, Exists, IsFile, IsDirectory, FileSize, Getcwd, MakeDir, MakeDirs)
// hand the system the text of Wstr(PATH_TYPE_WINDOWS), whatever the path's type. They report
// failure as false, 0 or a default Path, and never log. Relative paths reach the system as
// relative text, so they follow the process's working directory at the moment of the call.
//
// Thread-safety: a value type with no shared state. Concurrent const calls on one object are
// safe; Set and the assignments need the caller's exclusion.
#ifndef ORVIK_COMMON_PATH_H
#define ORVIK_COMMON_PATH_H

#include <cstddef>
#include <string>
#include <vector>

#include "common/export.h"

namespace orvik {

class ORVIK_COMMON_API Path {
public:
    enum PathType : int {
        // "/" and "\" separate; drive, share and long-path forms are recognised; "\" is the
        // separator on output.
        PATH_TYPE_WINDOWS = 0,
        // Only "/" separates; "\" is an ordinary character.
        PATH_TYPE_POSIX = 1,
    };

    // No tokens, not anchored, no share, PATH_TYPE_WINDOWS.
    Path();
    Path(const Path& other);
    // Takes the tokens over; `other` keeps its type and flags and has no tokens.
    Path(Path&& other) noexcept;
    // Parse `text` (UTF-8, or wide) with PATH_TYPE_WINDOWS.
    Path(const std::string& text);
    Path(const std::wstring& text);
    // The text up to its first NUL; `text` must not be null.
    Path(const char* text);
    Path(const wchar_t* text);
    ~Path();

    Path& operator=(const Path& other);
    // As the move constructor; on self-assignment the tokens stay.
    Path& operator=(Path&& other) noexcept;
    // Set(text, PATH_TYPE_WINDOWS).
    Path& operator=(const std::wstring& text);

    // Replaces the tokens with those of `text`, parsed as `pathType` says (see above). The
    // POSIX parse leaves the share flag as it was; Str does not read it for that type.
    void Set(const std::string& text, PathType pathType);
    // Converts `text` to UTF-8 (invalid sequences become U+FFFD), then as above.
    void Set(const std::wstring& text, PathType pathType);

    // The text form. The type the path was parsed with decides the head ("/" for an anchored
    // POSIX path; "", "\\", "\\?\" or "\\?\UNC\" for an anchored Windows one); `separator`
    // decides only what stands between tokens: "/" for PATH_TYPE_POSIX, "\" otherwise.
    //   Windows "C:\x\y" written with PATH_TYPE_POSIX  =>  "C:/x/y"
    //   POSIX "/a/b" written with PATH_TYPE_WINDOWS    =>  "/a\b"
    std::string Str(PathType separator) const;
    // Str converted from UTF-8 to wide text.
    std::wstring Wstr(PathType separator) const;

    // True when there are no tokens: Path() and Path("/"), but not Path("").
    bool Empty() const;
    // The number of tokens, not of characters.
    std::size_t Length() const;

    // Anchored: a drive, share or POSIX root.
    bool IsAbsolute() const;

    // The full form, resolved against the working directory, with "." and ".." taken out, by
    // text alone (the disk is not asked whether it exists). Parsed anew, so the result is a
    // PATH_TYPE_WINDOWS path. A default Path when the system fails (an empty path, for
    // example); Path("") when the full form would not fit 32767 wide elements.
    //   "a\b" in C:\work  =>  "C:\work\a\b"        "C:\x\..\y"  =>  "C:\y"
    Path Absolute() const;

    // All tokens but the last, as a PATH_TYPE_WINDOWS path with this path's flags. No tokens:
    // ".." for a relative path, still none for an anchored one.
    //   Path()  =>  ".."     "a"  =>  (no tokens)     "C:\x"  =>  "C:"     "\\srv\share"  =>
    //   "\\srv"
    Path ParentPath() const;

    // The last token as it is (even ".." or an empty token); empty without tokens.
    std::string Filename() const;
    // What follows the last "." of Filename; empty if there is none.
    //   "a.tar.gz"  =>  "gz"     ".profile"  =>  "profile"     "a."  =>  ""     ".."  =>  ""
    std::string Extension() const;

    // Whether the system reports an entry, a directory, or an entry that is no directory.
    // False when there is no such entry or it cannot be reached. One system call each.
    bool Exists() const;
    bool IsFile() const;
    bool IsDirectory() const;

    // The file's size in bytes; 0 when it cannot be read (a missing path and an empty file
    // look the same).
    std::size_t FileSize() const;

    // The working directory; a default Path if the system cannot tell it.
    static Path Getcwd();

    // Compare the tokens alone, byte for byte: type and flags take no part, so "a\b" equals
    // "\\a\b".
    bool operator==(const Path& other) const;
    bool operator!=(const Path& other) const;

    // This path with `other`'s tokens appended. If `other` is anchored or of another type,
    // this path unchanged.
    //   "C:\a" / "b"  =>  "C:\a\b"     "a" / "C:\b"  =>  "a"     "a" / ""  =>  "a\"
    Path operator/(const Path& other) const;

protected:
    // Splits `text` at any of `delimiters`. Runs of delimiters collapse, leading and trailing
    // ones give nothing, a text of delimiters alone gives no tokens, and the empty text gives
    // one empty token. See above for a NUL in the text.
    static std::vector<std::string> Tokenize(const std::string& text,
                                             const std::string& delimiters);

private:
    // Capacity, in wide elements, of what Absolute and Getcwd ask the system for.
    static const std::size_t MAX_PATH_WINDOWS;
    // An anchored Windows path whose length is above this gets the long-path prefix.
    static const std::size_t maxPathWindowsLegacy;
    // The two leading backslashes of a share path, which stand in no token.
    static const std::size_t winSmbPathOffset;

    PathType type;
    std::vector<std::string> path;  // UTF-8; a drive is the first token, with its colon
    bool absolute;
    bool smb;  // a share path; set only by the Windows parse, and only with `absolute`
};

// Creates the one directory named by path.Absolute(). False if it exists already, its parent
// is missing, or the system refuses.
ORVIK_COMMON_API bool MakeDir(const Path& path);

// Creates the directory named by path.Absolute() with every missing level above it. False if
// it exists already or the system refuses.
ORVIK_COMMON_API bool MakeDirs(const Path& path);

}  // namespace orvik

#endif  // ORVIK_COMMON_PATH_H
