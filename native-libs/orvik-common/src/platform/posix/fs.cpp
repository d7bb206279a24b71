// The file system on POSIX systems, presented as Windows presents its own: one drive "C:"
// rooted at "/", reached by Windows path text. Every call goes through PosixPathOf, the one
// place that reads that text.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <vector>

#include "platform/platform.h"

namespace orvik::platform {
namespace {

constexpr std::string_view kLongPathPrefix = "\\\\?\\";
constexpr std::string_view kLongSharePrefix = "UNC\\";
constexpr wchar_t kWideLongPathPrefix[] = L"\\\\?\\";
constexpr wchar_t kWideLongSharePrefix[] = L"UNC\\";

template <class Char>
bool IsSeparator(Char c) {
    return c == Char('\\') || c == Char('/');
}

template <class Char>
bool IsDriveLetter(Char c) {
    return (c >= Char('A') && c <= Char('Z')) || (c >= Char('a') && c <= Char('z'));
}

// Whether `text` begins with a drive, "X:".
template <class Char>
bool HasDrive(std::basic_string_view<Char> text) {
    return text.size() >= 2 && IsDriveLetter(text[0]) && text[1] == Char(':');
}

template <class Char>
bool IsTheDrive(Char letter) {
    return letter == Char('C') || letter == Char('c');
}

// The POSIX path that Windows path text (narrow: UTF-8 or plain bytes) names, or nothing when
// it names no place here: another drive, or a share. The text ends at its first NUL, as the
// system's calls read it.
std::optional<std::string> PosixPathOf(std::string_view text) {
    text = text.substr(0, text.find('\0'));
    if (text.substr(0, kLongPathPrefix.size()) == kLongPathPrefix) {
        text.remove_prefix(kLongPathPrefix.size());
        if (text.substr(0, kLongSharePrefix.size()) == kLongSharePrefix) {
            return std::nullopt;
        }
    }
    if (text.size() >= 2 && IsSeparator(text[0]) && IsSeparator(text[1])) {
        return std::nullopt;  // a share, or a device namespace
    }
    if (HasDrive(text)) {
        if (!IsTheDrive(text[0])) {
            return std::nullopt;
        }
        text.remove_prefix(2);
        if (text.empty()) {
            return std::string(".");  // "C:" is the working directory of the drive
        }
    }
    // What remains is rooted ("\x": on the drive) or relative to the working directory.
    std::string posix(text);
    for (char& c : posix) {
        if (c == '\\') {
            c = '/';
        }
    }
    return posix;
}

std::optional<std::string> PosixPathOf(const std::wstring& text) {
    return PosixPathOf(WideToUtf8(text));
}

bool StatOf(const std::optional<std::string>& posix, struct stat& status) {
    return posix && ::stat(posix->c_str(), &status) == 0;
}

// Joins `root` and the components of `rest` (split at both separators) with "\", dropping
// empty components and ".", and letting ".." remove the component before it, never the root.
std::wstring ResolveUnderRoot(std::wstring_view root, std::wstring_view rest, bool driveRoot) {
    std::vector<std::wstring_view> components;
    std::size_t begin = 0;
    while (begin <= rest.size()) {
        std::size_t end = begin;
        while (end < rest.size() && !IsSeparator(rest[end])) {
            ++end;
        }
        const std::wstring_view component = rest.substr(begin, end - begin);
        if (component == L"..") {
            if (!components.empty()) {
                components.pop_back();
            }
        } else if (!component.empty() && component != L".") {
            components.push_back(component);
        }
        begin = end + 1;
    }

    std::wstring full(root);
    for (const std::wstring_view component : components) {
        full.push_back(L'\\');
        full.append(component);
    }
    if ((components.empty() && driveRoot) || (!rest.empty() && IsSeparator(rest.back()))) {
        full.push_back(L'\\');
    }
    return full;
}

// The length of the first `count` names at the head of `text`, with the separators between
// them ("srv\share" of "srv\share\x" for two), or of as many as there are.
std::size_t NamesLength(std::wstring_view text, int count) {
    std::size_t end = 0;
    for (int name = 0; name < count; ++name) {
        if (name > 0) {
            if (end == text.size()) {
                break;
            }
            ++end;
        }
        while (end < text.size() && !IsSeparator(text[end])) {
            ++end;
        }
    }
    return end;
}

// `head` followed by `names`, with "\" for each "/".
std::wstring BackslashedRoot(std::wstring_view head, std::wstring_view names) {
    std::wstring root(head);
    for (const wchar_t c : names) {
        root.push_back(c == L'/' ? L'\\' : c);
    }
    return root;
}

}  // namespace

std::optional<std::string> NativePathText(const std::string& path) {
    return PosixPathOf(std::string_view(path));
}

std::string PathTextOfNative(const std::string& native) {
    if (!native.empty() && native[0] == '/') {
        return "C:" + native;
    }
    const bool readAsRootOrDrive =
        (!native.empty() && native[0] == '\\') || HasDrive(std::string_view(native));
    return readAsRootOrDrive ? "./" + native : native;
}

std::optional<std::uint32_t> FileAttributes(const std::wstring& path) {
    constexpr std::uint32_t kNormal = 0x80;
    struct stat status {};
    if (!StatOf(PosixPathOf(path), status)) {
        return std::nullopt;
    }
    return S_ISDIR(status.st_mode) ? kFileAttributeDirectory : kNormal;
}

std::optional<std::uint64_t> FileSize(const std::wstring& path) {
    struct stat status {};
    if (!StatOf(PosixPathOf(path), status)) {
        return std::nullopt;
    }
    return S_ISDIR(status.st_mode) ? 0 : static_cast<std::uint64_t>(status.st_size);
}

std::optional<std::wstring> CurrentDirectory() {
    std::string buffer(256, '\0');
    while (::getcwd(&buffer[0], buffer.size()) == nullptr) {
        if (errno != ERANGE) {
            return std::nullopt;
        }
        buffer.resize(buffer.size() * 2);
    }
    buffer.resize(buffer.find('\0'));
    for (char& c : buffer) {
        if (c == '/') {
            c = '\\';
        }
    }
    return Utf8ToWide("C:" + buffer);
}

std::optional<std::wstring> FullPathName(const std::wstring& path, std::size_t capacity) {
    std::wstring_view text(path.c_str());
    if (text.empty()) {
        return std::nullopt;
    }

    std::wstring full;
    const std::wstring_view longPrefix(kWideLongPathPrefix);
    const std::wstring_view longSharePrefix(kWideLongSharePrefix);
    if (text.substr(0, longPrefix.size()) == longPrefix) {
        // Long forms keep their prefix; the share form keeps "UNC\server\share" as its root.
        const std::wstring_view behind = text.substr(longPrefix.size());
        const bool share = behind.substr(0, longSharePrefix.size()) == longSharePrefix;
        const std::size_t rootLength =
            share ? longSharePrefix.size() + NamesLength(behind.substr(longSharePrefix.size()), 2)
                  : NamesLength(behind, 1);
        full = ResolveUnderRoot(BackslashedRoot(longPrefix, behind.substr(0, rootLength)),
                                behind.substr(rootLength), !share);
    } else if (text.size() >= 2 && IsSeparator(text[0]) && IsSeparator(text[1])) {
        const std::size_t rootLength = 2 + NamesLength(text.substr(2), 2);
        full = ResolveUnderRoot(BackslashedRoot(L"\\\\", text.substr(2, rootLength - 2)),
                                text.substr(rootLength), false);
    } else if (HasDrive(text) && text.size() > 2 && IsSeparator(text[2])) {
        full = ResolveUnderRoot(text.substr(0, 2), text.substr(2), true);
    } else {
        // Relative forms: "x" and "C:x" against the working directory (another drive's own
        // working directory is its root), "\x" against the root of the working directory.
        const std::wstring_view rest = HasDrive(text) ? text.substr(2) : text;
        std::wstring base;
        if (HasDrive(text) && !IsTheDrive(text[0])) {
            base = text.substr(0, 2);
        } else {
            std::optional<std::wstring> directory = CurrentDirectory();
            if (!directory) {
                return std::nullopt;
            }
            base = IsSeparator(text[0]) ? directory->substr(0, 2) : std::move(*directory);
        }
        if (!rest.empty()) {
            base.push_back(L'\\');
            base.append(rest);
        }
        full = ResolveUnderRoot(std::wstring_view(base).substr(0, 2),
                                std::wstring_view(base).substr(2), true);
    }

    if (full.size() + 1 > capacity) {
        return std::wstring();
    }
    return full;
}

bool CreateOneDirectory(const std::wstring& path) {
    return MakeDirectoryNarrow(WideToUtf8(path));
}

bool CreateDirectoryTree(const std::wstring& path) {
    const std::optional<std::string> posix = PosixPathOf(path);
    struct stat status {};
    if (!posix || StatOf(posix, status)) {
        return false;
    }
    std::error_code error;
    return std::filesystem::create_directories(*posix, error) && !error;
}

bool AccessNarrow(const std::string& path, int mode) {
    const std::optional<std::string> posix = PosixPathOf(path);
    if (!posix) {
        return false;
    }
    int posixMode = F_OK;
    if ((mode & 2) != 0) {
        posixMode |= W_OK;
    }
    if ((mode & 4) != 0) {
        posixMode |= R_OK;
    }
    return ::access(posix->c_str(), posixMode) == 0;
}

bool MakeDirectoryNarrow(const std::string& path) {
    const std::optional<std::string> posix = PosixPathOf(path);
    return posix && ::mkdir(posix->c_str(), 0777) == 0;
}

bool RemoveDirectoryNarrow(const std::string& path) {
    const std::optional<std::string> posix = PosixPathOf(path);
    return posix && ::rmdir(posix->c_str()) == 0;
}

bool RemoveFileNarrow(const std::string& path) {
    const std::optional<std::string> posix = PosixPathOf(path);
    return posix && ::unlink(posix->c_str()) == 0;
}

bool OpenFileStream(std::ifstream& stream, const std::wstring& path, std::ios_base::openmode mode) {
    if (const std::optional<std::string> posix = PosixPathOf(path)) {
        stream.open(*posix, mode);
    }
    return stream.is_open();
}

bool OpenFileStream(std::ofstream& stream, const std::wstring& path, std::ios_base::openmode mode) {
    if (const std::optional<std::string> posix = PosixPathOf(path)) {
        stream.open(*posix, mode);
    }
    return stream.is_open();
}

namespace {

class PosixAppendOnlyFile : public AppendOnlyFile {
public:
    explicit PosixAppendOnlyFile(int descriptor) : descriptor_(descriptor) {}
    ~PosixAppendOnlyFile() override { ::close(descriptor_); }
    PosixAppendOnlyFile(const PosixAppendOnlyFile&) = delete;
    PosixAppendOnlyFile& operator=(const PosixAppendOnlyFile&) = delete;

    bool Append(std::string_view bytes) override {
        // write() may take less than asked, or be interrupted; O_APPEND puts each part at the end.
        // The length to cut back to is asked for only when a part has failed: the end now, less
        // what this call has already written.
        off_t done = 0;
        while (!bytes.empty()) {
            const ssize_t written = ::write(descriptor_, bytes.data(), bytes.size());
            if (written < 0) {
                if (errno == EINTR) {
                    continue;
                }
                if (done > 0) {
                    const off_t end = ::lseek(descriptor_, 0, SEEK_END);
                    CutBackTo(end >= done ? end - done : -1);
                }
                return false;
            }
            done += static_cast<off_t>(written);
            bytes.remove_prefix(static_cast<std::size_t>(written));
        }
        return true;
    }

    bool SyncToDisk() override { return ::fsync(descriptor_) == 0; }

private:
    void CutBackTo(off_t end) {
        if (end >= 0) {
            while (::ftruncate(descriptor_, end) != 0 && errno == EINTR) {
            }
        }
    }

    const int descriptor_;
};

}  // namespace

std::unique_ptr<AppendOnlyFile> OpenAppendOnlyFile(const std::wstring& path) {
    const std::optional<std::string> posix = PosixPathOf(path);
    if (!posix) {
        return nullptr;
    }
    const int descriptor = ::open(posix->c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (descriptor < 0) {
        return nullptr;
    }
    return std::make_unique<PosixAppendOnlyFile>(descriptor);
}

}  // namespace orvik::platform
