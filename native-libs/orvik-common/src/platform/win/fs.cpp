// The file system on Windows, reached by wide path text through the system's own calls.
#include <windows.h>
// <shlobj.h> and the C runtime's wide and narrow file calls need <windows.h> before them.
#include <direct.h>
#include <io.h>
#include <shlobj.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string_view>
#include <utility>

#include "internal/windows_path_syntax.h"
#include "platform/platform.h"

namespace orvik::platform {
namespace {

// Windows reads "/" as "\" in every path but the long forms ("\\?\"), which it takes as they
// are. Wine alone reads a path that starts with "/" as a path of its host ("/x" as "Z:\x", not
// "C:\x"); turning the separators first gives the Windows reading there too.
template <class Char>
std::basic_string<Char> WithBackslashes(const std::basic_string<Char>& path) {
    std::basic_string<Char> turned(path);
    if (!detail::HasLongPathPrefix(std::basic_string_view<Char>(turned))) {
        std::replace(turned.begin(), turned.end(), Char(detail::kAltSeparator),
                     Char(detail::kSeparator));
    }
    return turned;
}

}  // namespace

std::optional<std::string> NativePathText(const std::string& path) {
    return path;
}

std::string PathTextOfNative(const std::string& native) {
    return native;
}

std::optional<std::uint32_t> FileAttributes(const std::wstring& path) {
    const DWORD attributes = GetFileAttributesW(WithBackslashes(path).c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(attributes);
}

std::optional<std::uint64_t> FileSize(const std::wstring& path) {
    struct _stat64 status {};
    if (_wstat64(WithBackslashes(path).c_str(), &status) != 0) {
        return std::nullopt;
    }
    return (status.st_mode & _S_IFDIR) != 0 ? 0 : static_cast<std::uint64_t>(status.st_size);
}

std::optional<std::wstring> CurrentDirectory() {
    // With no buffer the runtime allocates one of the size needed.
    const std::unique_ptr<wchar_t, decltype(&std::free)> directory(_wgetcwd(nullptr, 0),
                                                                   &std::free);
    if (!directory) {
        return std::nullopt;
    }
    return std::wstring(directory.get());
}

std::optional<std::wstring> FullPathName(const std::wstring& path, std::size_t capacity) {
    // The system's call works on text alone. It reports the size needed, terminator included,
    // when the result does not fit, and 0 when it fails (the empty text among others).
    const DWORD limit =
        static_cast<DWORD>(std::min<std::size_t>(capacity, std::numeric_limits<DWORD>::max()));
    std::wstring full(limit, L'\0');
    const DWORD length = GetFullPathNameW(WithBackslashes(path).c_str(), limit,
                                          limit > 0 ? &full[0] : nullptr, nullptr);
    if (length == 0) {
        return std::nullopt;
    }
    if (length >= limit) {
        return std::wstring();
    }
    full.resize(length);
    // A bare drive ("C:") names that drive's working directory, which comes back as is; Wine
    // adds a separator to it, which only a root may end with.
    // The system takes any character before the colon for a drive here, not letters alone.
    const bool bareDrive =
        path.size() == detail::kDriveLength && path[1] == wchar_t(detail::kDriveColon);
    if (bareDrive && full.size() > 3 && full.back() == wchar_t(detail::kSeparator)) {
        full.pop_back();
    }
    return full;
}

bool CreateOneDirectory(const std::wstring& path) {
    return CreateDirectoryW(WithBackslashes(path).c_str(), nullptr) != 0;
}

bool CreateDirectoryTree(const std::wstring& path) {
    // Fails with ERROR_ALREADY_EXISTS when the directory is there already.
    return SHCreateDirectory(nullptr, WithBackslashes(path).c_str()) == ERROR_SUCCESS;
}

bool AccessNarrow(const std::string& path, int mode) {
    return _access(WithBackslashes(path).c_str(), mode) == 0;
}

bool MakeDirectoryNarrow(const std::string& path) {
    return _mkdir(WithBackslashes(path).c_str()) == 0;
}

bool RemoveDirectoryNarrow(const std::string& path) {
    return _rmdir(WithBackslashes(path).c_str()) == 0;
}

bool RemoveFileNarrow(const std::string& path) {
    return std::remove(WithBackslashes(path).c_str()) == 0;
}

// The C++ library of this compiler opens file streams by wide name (_wfopen underneath); text
// mode translates CRLF line ends as the system does.
bool OpenFileStream(std::ifstream& stream, const std::wstring& path, std::ios_base::openmode mode) {
    stream.open(WithBackslashes(path).c_str(), mode);
    return stream.is_open();
}

bool OpenFileStream(std::ofstream& stream, const std::wstring& path, std::ios_base::openmode mode) {
    stream.open(WithBackslashes(path).c_str(), mode);
    return stream.is_open();
}

namespace {

class WindowsAppendOnlyFile : public AppendOnlyFile {
public:
    WindowsAppendOnlyFile(HANDLE file, std::wstring path) : file_(file), path_(std::move(path)) {}
    ~WindowsAppendOnlyFile() override { CloseHandle(file_); }
    WindowsAppendOnlyFile(const WindowsAppendOnlyFile&) = delete;
    WindowsAppendOnlyFile& operator=(const WindowsAppendOnlyFile&) = delete;

    bool Append(std::string_view bytes) override {
        LARGE_INTEGER end;
        const bool endKnown = GetFileSizeEx(file_, &end) != 0;
        // A handle opened with FILE_APPEND_DATA alone writes every part at the end of the file.
        // WriteFile takes a DWORD count and may take less than asked.
        while (!bytes.empty()) {
            const DWORD wanted = static_cast<DWORD>(
                std::min<std::size_t>(bytes.size(), std::numeric_limits<DWORD>::max()));
            DWORD written = 0;
            if (WriteFile(file_, bytes.data(), wanted, &written, nullptr) == 0 || written == 0) {
                if (endKnown) {
                    CutBackTo(end);
                }
                return false;
            }
            bytes.remove_prefix(written);
        }
        return true;
    }

    bool SyncToDisk() override { return FlushFileBuffers(file_) != 0; }

private:
    // The appending handle may not set the end of the file; a second handle, opened only on
    // this rare path, may, since the first shares writing.
    void CutBackTo(LARGE_INTEGER end) {
        const HANDLE cutter = CreateFileW(path_.c_str(), GENERIC_WRITE,
                                          FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                          OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (cutter == INVALID_HANDLE_VALUE) {
            return;
        }
        if (SetFilePointerEx(cutter, end, nullptr, FILE_BEGIN) != 0) {
            SetEndOfFile(cutter);
        }
        CloseHandle(cutter);
    }

    const HANDLE file_;
    const std::wstring path_;
};

}  // namespace

std::unique_ptr<AppendOnlyFile> OpenAppendOnlyFile(const std::wstring& path) {
    std::wstring native = WithBackslashes(path);
    // Reading the attributes tells the length to cut back to after a failed append.
    const HANDLE file = CreateFileW(native.c_str(), FILE_APPEND_DATA | FILE_READ_ATTRIBUTES,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return nullptr;
    }
    return std::make_unique<WindowsAppendOnlyFile>(file, std::move(native));
}

}  // namespace orvik::platform
