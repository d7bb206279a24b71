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

#include "internal/windows_path_syntax.h"
#include "platform/platform.h"

namespace orvik::platform {
namespace {

using detail::HasLongPathPrefix;
using detail::HasUncMarker;
using detail::IsSeparator;
using detail::kDriveLength;
using detail::StartsWithDrive;
using detail::StartsWithDriveRoot;
using detail::StartsWithTwoSeparators;

// The one drive there is here, "C:".
template <class Char>
bool IsTheDrive(Char letter) {
    return letter == Char('C') || letter == Char('c');
}

// The POSIX path that Windows path text (narrow: UTF-8 or plain bytes) names, or nothing when
// it names no place here: another drive, or a share. The text ends at its first NUL, as the
// system's calls read it.
std::optional<std::string> PosixPathOf(std::string_view text) {
    text = text.substr(0, text.find('\0'));
    if (HasLongPathPrefix(text)) {
        text.remove_prefix(detail::kLongPathPrefix.size());
        if (HasUncMarker(text)) {
            return std::nullopt;
        }
    }
    if (StartsWithTwoSeparators(text)) {
        return std::nullopt;  // a share, or a device namespace
    }
    if (StartsWithDrive(text)) {
        if (!IsTheDrive(text[0])) {
            return std::nullopt;
        }
        text.remove_prefix(kDriveLength);
        if (text.empty()) {
            return std::string(".");  // "C:" is the working directory of the drive
        }
    }
    // What remains is rooted ("\x": on the drive) or relative to the working directory.
    std::string posix(text);
    for (char& c : posix) {
        if (c == detail::kSeparator) {
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
        full.push_back(wchar_t(detail::kSeparator));
        full.append(component);
    }
    if ((components.empty() && driveRoot) || (!rest.empty() && IsSeparator(rest.back()))) {
        full.push_back(wchar_t(detail::kSeparator));
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

// `head` (one of the heads of windows_path_syntax.h) followed by `names`, with "\" for each "/".
std::wstring BackslashedRoot(std::string_view head, std::wstring_view names) {
    std::wstring root(head.begin(), head.end());
    for (const wchar_t c : names) {
        root.push_back(c == wchar_t(detail::kAltSeparator) ? wchar_t(detail::kSeparator) : c);
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
    const bool readAsRootOrDrive = (!native.empty() && native[0] == detail::kSeparator) ||
                                   StartsWithDrive(std::string_view(native));
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
            c = detail::kSeparator;
        }
    }
    return Utf8ToWide("C:" + buffer);
}

namespace {

// The full forms of the four kinds of path text that FullPathName tells apart; the text is not
// empty. Each resolves "." and ".." under its root, which they never climb above.

// "\\?\..." : the long forms keep their prefix. The share form "\\?\UNC\server\share\..." keeps
// "UNC\server\share" as its root, any other its first name ("\\?\C:\...").
std::wstring FullLongForm(std::wstring_view text) {
    const std::wstring_view behind = text.substr(detail::kLongPathPrefix.size());
    const bool share = HasUncMarker(behind);
    const std::size_t uncLength = detail::kUncMarker.size();
    const std::size_t rootLength =
        share ? uncLength + NamesLength(behind.substr(uncLength), 2) : NamesLength(behind, 1);
    return ResolveUnderRoot(BackslashedRoot(detail::kLongPathPrefix, behind.substr(0, rootLength)),
                            behind.substr(rootLength), !share);
}

// "\\server\share\..." (either separator): the root is the share, written with backslashes.
std::wstring FullShareForm(std::wstring_view text) {
    const std::size_t shareLength = detail::kSharePrefix.size();
    const std::size_t rootLength = shareLength + NamesLength(text.substr(shareLength), 2);
    return ResolveUnderRoot(
        BackslashedRoot(detail::kSharePrefix, text.substr(shareLength, rootLength - shareLength)),
        text.substr(rootLength), false);
}

// "X:\...": the root is the drive.
std::wstring FullDriveRootedForm(std::wstring_view text) {
    return ResolveUnderRoot(text.substr(0, kDriveLength), text.substr(kDriveLength), true);
}

// The relative forms: "x" and "C:x" against the working directory (another drive's own
// working directory is its root), "\x" against the root of the working directory. Nothing
// when the working directory is unknown.
std::optional<std::wstring> FullRelativeForm(std::wstring_view text) {
    const bool hasDrive = StartsWithDrive(text);
    const std::wstring_view rest = hasDrive ? text.substr(kDriveLength) : text;
    std::wstring base;
    if (hasDrive && !IsTheDrive(text[0])) {
        base = text.substr(0, kDriveLength);
    } else {
        std::optional<std::wstring> directory = CurrentDirectory();
        if (!directory) {
            return std::nullopt;
        }
        base = IsSeparator(text[0]) ? directory->substr(0, kDriveLength) : std::move(*directory);
    }
    if (!rest.empty()) {
        base.push_back(wchar_t(detail::kSeparator));
        base.append(rest);
    }
    return ResolveUnderRoot(std::wstring_view(base).substr(0, kDriveLength),
                            std::wstring_view(base).substr(kDriveLength), true);
}

// The full form of `text`, which is not empty, by its kind.
std::optional<std::wstring> FullFormOf(std::wstring_view text) {
    if (HasLongPathPrefix(text)) {
        return FullLongForm(text);
    }
    if (StartsWithTwoSeparators(text)) {
        return FullShareForm(text);
    }
    if (StartsWithDriveRoot(text)) {
        return FullDriveRootedForm(text);
    }
    return FullRelativeForm(text);
}

}  // namespace

std::optional<std::wstring> FullPathName(const std::wstring& path, std::size_t capacity) {
    const std::wstring_view text(path.c_str());
    if (text.empty()) {
        return std::nullopt;
    }
    std::optional<std::wstring> full = FullFormOf(text);
    // The capacity counts a terminator; a result that does not fit gives the empty text.
    if (full && full->size() + 1 > capacity) {
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
