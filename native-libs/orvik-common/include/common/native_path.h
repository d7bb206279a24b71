// The bridge between Path and the path text of the system the program runs on.
//
// Path reads Windows path text everywhere, and on Linux and other POSIX systems the whole file
// system is the one drive "C:", rooted at "/". So "/tmp/out/x.bin" given to Path (or to
// FileUtils, or to Reporter) is Windows text with a leading separator, which Path drops: it
// names "tmp/out/x.bin" under the working directory. And every path the library gives back
// (Path::Str, Path::Getcwd, FileReportEngine::FilePath) is "C:\..." text that other programs
// cannot open there. These two functions translate, the same way the library's own file system
// calls do:
//
//   orvik::Path out = orvik::PathFromNative("/tmp/out/x.bin");      // C:, tmp, out, x.bin
//   orvik::FileUtils::WriteFile(data, out.Str(orvik::Path::PATH_TYPE_WINDOWS), 0);
//   std::printf("%s\n", orvik::PathToNative(orvik::Path::Getcwd()).c_str());  // "/home/me"
//
// On Windows the native text is Windows path text already, and both functions pass it through.
//
// Thread-safety: both are free of state; call them from any thread. Neither touches the file
// system, logs or throws (apart from allocation failures and Path's exception for text with a
// NUL behind which a token would begin).
#ifndef ORVIK_COMMON_NATIVE_PATH_H
#define ORVIK_COMMON_NATIVE_PATH_H

#include <string>

#include "common/export.h"
#include "common/path.h"

namespace orvik {

// The Path that names the native path `native` (UTF-8). On POSIX:
//   "/tmp/x"   =>  C:, tmp, x (anchored: Str gives "C:\tmp\x")
//   "/"        =>  C:, one empty token (Str gives "C:\")
//   "out/x"    =>  out, x (relative, to the working directory)
//   "C:x"      =>  ., C:x (a relative name that would read as a drive stays a name)
//   ""         =>  the path of the empty text
// "\" separates names, as in all of the library's path text: a POSIX name holding a backslash
// cannot be reached. On Windows: Path(native).
ORVIK_COMMON_API Path PathFromNative(const std::string& native);

// The native text (UTF-8) of `path`, as the library's file system calls read it. On POSIX:
//   "C:\tmp\x", "c:/tmp/x", a long "\\?\C:\..."   =>  "/tmp/x", ...
//   "C:\"       =>  "/"
//   "out\x"     =>  "out/x" (relative stays relative)
//   "D:\x", "\\srv\share\x"   =>  "" (unreachable: only drive C: and no share exists here)
//   a path with no tokens, or of the empty text   =>  ""
// A path parsed with PATH_TYPE_POSIX gives its POSIX text ("/a/b" => "/a/b"). On Windows:
// path.Str(Path::PATH_TYPE_WINDOWS), the long-path prefix included where the length needs it.
ORVIK_COMMON_API std::string PathToNative(const Path& path);

}  // namespace orvik

#endif  // ORVIK_COMMON_NATIVE_PATH_H
