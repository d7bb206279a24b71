// Whole-file reading and writing, and small file-system helpers, for callers that hold a path
// as a narrow string.
//
// Two groups, and the difference shows in the results:
//   - CheckDirOrFileExists, ReadFile, WriteFile go through Path: the text is UTF-8, and long
//     paths and share paths work;
//   - CanRead, CanWrite, IsDirExist, IsFileExist, RemoveDir, RemoveFile and the directory step
//     of MakeDir hand the text unchanged to the C runtime: no parsing, no long-path prefix, and
//     the runtime's reading of the bytes (the process's code page on Windows).
//
// Nothing here throws of its own; a text with a NUL can make Path raise std::out_of_range
// (see common/path.h), and that reaches the caller. Only NormalizedFilePath logs.
//
// Thread-safety: no state of its own; every member may be called from any thread. WriteFile
// calls to one file are serialised against each other from the opening of the file to its
// closing; writes to different files never wait for each other (paths compared as absolute
// text, so two spellings of one file are not serialised). Check
// and use are separate steps: another thread or process may change the entry in between, and
// then the later step's failure shows.
#ifndef ORVIK_COMMON_FILE_UTILS_H
#define ORVIK_COMMON_FILE_UTILS_H

#include <string>

#include "common/export.h"

namespace orvik {

// The result of FileUtils::ReadFile and FileUtils::WriteFile.
enum FileOptRet : int {
    FILE_OPT_SUCCESS = 0,        // both: done
    FILE_OPT_NOT_FILE = 1,       // ReadFile: the path does not exist, or is no file
    FILE_OPT_NO_CONTENT = 2,     // ReadFile: the file is empty, or opening it failed
    FILE_OPT_SIZE_MISMATCH = 3,  // ReadFile: the bytes read differ from the file's size
    FILE_OPT_OPEN_FAILED = 4,    // WriteFile: opening the file for writing failed
    FILE_OPT_NO_PARENT = 5,      // WriteFile: the path's parent is no existing directory
    FILE_OPT_IS_DIRECTORY = 6,   // WriteFile: the path names a directory
};

class ORVIK_COMMON_API FileUtils {
public:
    // The entry exists and may be read (written). The kind of entry is not looked at.
    static bool CanRead(const std::string& path);
    static bool CanWrite(const std::string& path);

    // One and the same test: an entry of any kind exists. IsDirExist is true for a file, and
    // IsFileExist for a directory.
    static bool IsDirExist(const std::string& path);
    static bool IsFileExist(const std::string& path);

    // Path(path) written and parsed again, then Path::Exists. The second parse sees what the
    // first wrote: "\\srv" comes back as the relative name "srv".
    static bool CheckDirOrFileExists(const std::string& path);

    // Walks the text byte by byte and creates the directory of every prefix that ends in "\"
    // or "/" and does not exist yet (CheckDirOrFileExists); nothing behind the last separator
    // is made. False for the empty text, or at once when a directory cannot be made (those
    // made so far stay); true otherwise.
    //   "a/b/c"   makes a/ and a/b/ (c is taken for a file name)
    //   "a/b/c/"  makes all three        "abc"  makes nothing and is true
    // An existing file at a prefix counts as existing, and the walk goes on.
    static bool MakeDir(const std::string& path);

    // Remove an empty directory / a file. True on success.
    static bool RemoveDir(const std::string& path);
    static bool RemoveFile(const std::string& path);

    // Normalises nothing: always returns the empty string. A non-empty `path` is answered with
    // the warning "NormalizedFilePath _WIN32 error".
    static std::string NormalizedFilePath(const std::string& path);

    // Reads the whole file `path` into `content`, bytes unchanged (embedded NULs included).
    // `mode` holds extra std::ios_base::openmode bits (0: text mode; binary for byte-exact
    // reading where the system translates line ends); std::ios_base::in is added. The checks
    // run in this order, the first failure decides:
    //   FILE_OPT_NOT_FILE       no such entry, or it is a directory
    //   FILE_OPT_NO_CONTENT     its size is 0 (or unreadable), or it cannot be opened
    //   FILE_OPT_SIZE_MISMATCH  what was read differs in size from the file; `content` is cleared
    //   FILE_OPT_SUCCESS        `content` holds the file
    // The first two leave `content` as it was. The file may be of any size.
    static FileOptRet ReadFile(const std::string& path, std::string& content, int mode);

    // Writes `content` (embedded NULs included) to the file `path`; note the order of the
    // arguments. `mode` holds extra std::ios_base::openmode bits (0 truncates, std::ios_base::app
    // appends); std::ios_base::out is added. In order:
    //   FILE_OPT_IS_DIRECTORY  `path` names a directory
    //   FILE_OPT_NO_PARENT     the parent is no existing directory (also for a bare name such as
    //                          "file.txt": write "./file.txt"); nothing is created
    //   FILE_OPT_OPEN_FAILED   the file cannot be opened for writing
    //   FILE_OPT_SUCCESS       the file was opened; the write itself is not checked
    // Blocks while another WriteFile call is between opening and closing its file.
    static FileOptRet WriteFile(const std::string& content, const std::string& path, int mode);
};

}  // namespace orvik

#endif  // ORVIK_COMMON_FILE_UTILS_H
