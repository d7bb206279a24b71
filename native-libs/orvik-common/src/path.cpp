#include "common/path.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "internal/windows_path_syntax.h"
#include "platform/platform.h"

namespace orvik {

const std::size_t Path::MAX_PATH_WINDOWS = 32767;
const std::size_t Path::maxPathWindowsLegacy = 260;
const std::size_t Path::winSmbPathOffset = 2;

namespace {

// Finders of the next delimiter at or after a position, npos when there is none. Paths have few
// delimiters and long runs without one, so the fixed sets search with memchr and remember
// what they found.
class CharFinder {
public:
    CharFinder(std::string_view text, char c) : text_(text), c_(c) {}
    std::size_t Next(std::size_t from) const {
        if (from >= text_.size()) {
            return std::string_view::npos;
        }
        const void* found = std::memchr(text_.data() + from, c_, text_.size() - from);
        return found == nullptr
                   ? std::string_view::npos
                   : static_cast<std::size_t>(static_cast<const char*>(found) - text_.data());
    }

private:
    std::string_view text_;
    char c_;
};

class EitherCharFinder {
public:
    EitherCharFinder(std::string_view text, char a, char b)
        : a_(text, a), b_(text, b), nextA_(a_.Next(0)), nextB_(b_.Next(0)) {}
    std::size_t Next(std::size_t from) {
        if (nextA_ < from) {
            nextA_ = a_.Next(from);
        }
        if (nextB_ < from) {
            nextB_ = b_.Next(from);
        }
        return std::min(nextA_, nextB_);
    }

private:
    CharFinder a_;
    CharFinder b_;
    std::size_t nextA_;
    std::size_t nextB_;
};

class SetFinder {
public:
    SetFinder(std::string_view text, std::string_view delimiters) : text_(text) {
        for (const char c : delimiters) {
            isDelimiter_[static_cast<unsigned char>(c)] = true;
        }
    }
    std::size_t Next(std::size_t from) const {
        for (std::size_t pos = from; pos < text_.size(); ++pos) {
            if (isDelimiter_[static_cast<unsigned char>(text_[pos])]) {
                return pos;
            }
        }
        return std::string_view::npos;
    }

private:
    std::string_view text_;
    bool isDelimiter_[256] = {};
};

// The length of `text` before its first NUL: what a copy of the text up to its terminator
// would hold.
std::size_t TerminatedLength(std::string_view text) {
    return std::min(text.find('\0'), text.size());
}

// Collects the bounds of tokens of `text` and makes their strings in batches of up to kBatch,
// so that the list of a typical path is sized once, without a second pass to count. A
// `drive`, when given, goes first, into the same sized list. Tokens are cut from the part of
// the text before its first NUL.
class TokenBatch {
public:
    TokenBatch(std::string_view text, std::vector<std::string>& tokens,
               std::optional<std::string_view> drive)
        : text_(text), terminated_(TerminatedLength(text)), tokens_(tokens), drive_(drive) {}

    void Add(std::size_t begin, std::size_t end) {
        if (pending_ == kBatch) {
            Flush();
        }
        begins_[pending_] = begin;
        ends_[pending_] = end;
        ++pending_;
    }

    // Appends the drive, when still held, and the pending tokens to the list.
    void Flush() {
        ReserveFor(pending_ + (drive_ ? 1 : 0));
        if (drive_) {
            tokens_.emplace_back(*drive_);
            drive_.reset();
        }
        for (std::size_t i = 0; i < pending_; ++i) {
            tokens_.emplace_back(CutAtTerminator(begins_[i], ends_[i]));
        }
        pending_ = 0;
    }

private:
    static constexpr std::size_t kBatch = 32;

    // Grows the list at least twofold when `more` entries would not fit.
    void ReserveFor(std::size_t more) {
        const std::size_t needed = tokens_.size() + more;
        if (needed > tokens_.capacity()) {
            tokens_.reserve(std::max(needed, tokens_.capacity() * 2));
        }
    }

    // The token [begin, end) as far as it lies before the terminator; a token that starts
    // behind it throws, as std::string::substr would.
    std::string_view CutAtTerminator(std::size_t begin, std::size_t end) const {
        if (begin > terminated_) {
            throw std::out_of_range("invalid string position");
        }
        return text_.substr(begin, std::min(end, terminated_) - begin);
    }

    std::string_view text_;
    std::size_t terminated_;
    std::vector<std::string>& tokens_;
    std::optional<std::string_view> drive_;
    std::size_t begins_[kBatch];
    std::size_t ends_[kBatch];
    std::size_t pending_ = 0;
};

// Calls `take(begin, end)` for each token of `text`, from delimiter to delimiter as `finder`
// finds them. The empty text gives one empty token; a run of delimiters and a trailing
// delimiter give nothing.
template <class Finder, class Take>
void ForEachTokenBounds(std::string_view text, Finder& finder, Take take) {
    std::size_t last = 0;
    std::size_t pos = finder.Next(0);
    for (;;) {
        if (pos > last) {
            // Up to the delimiter, or to the end when there is none (npos is above every
            // position).
            take(last, std::min(pos, text.size()));
        }
        if (pos == std::string_view::npos) {
            break;
        }
        last = pos + 1;
        if (last == text.size()) {
            break;  // nothing after a trailing delimiter
        }
        pos = finder.Next(last);
    }
}

// Appends the tokens of `text` to `tokens`, after `drive` when one is given; see
// Path::Tokenize. The delimiter search covers the whole text, but tokens are cut from the part
// before the first NUL, as a copy of the text up to its terminator would give them.
template <class Finder>
void AppendTokens(std::string_view text, Finder finder, std::vector<std::string>& tokens,
                  std::optional<std::string_view> drive = std::nullopt) {
    TokenBatch batch(text, tokens, drive);
    ForEachTokenBounds(text, finder,
                       [&batch](std::size_t begin, std::size_t end) { batch.Add(begin, end); });
    batch.Flush();
}

}  // namespace

Path::Path() : type(PATH_TYPE_WINDOWS), absolute(false), smb(false) {}

Path::Path(const Path& other) = default;

Path::Path(Path&& other) noexcept
    : type(other.type), path(std::move(other.path)), absolute(other.absolute), smb(other.smb) {
    other.path.clear();
}

Path::Path(const std::string& text) : Path() {
    Set(text, PATH_TYPE_WINDOWS);
}

Path::Path(const std::wstring& text) : Path() {
    Set(text, PATH_TYPE_WINDOWS);
}

Path::Path(const char* text) : Path(std::string(text)) {}

Path::Path(const wchar_t* text) : Path(std::wstring(text)) {}

Path::~Path() = default;

Path& Path::operator=(const Path& other) = default;

Path& Path::operator=(Path&& other) noexcept {
    if (this != &other) {
        type = other.type;
        path = std::move(other.path);
        other.path.clear();
        absolute = other.absolute;
        smb = other.smb;
    }
    return *this;
}

Path& Path::operator=(const std::wstring& text) {
    Set(text, PATH_TYPE_WINDOWS);
    return *this;
}

std::vector<std::string> Path::Tokenize(const std::string& text, const std::string& delimiters) {
    std::vector<std::string> tokens;
    AppendTokens(text, SetFinder(text, delimiters), tokens);
    return tokens;
}

void Path::Set(const std::string& text, PathType pathType) {
    // Parsed aside and taken over only once nothing can throw any more, so that a text that
    // raises leaves the path as it was.
    std::vector<std::string> tokens;
    std::string_view rest(text);

    if (pathType == PATH_TYPE_POSIX) {
        const bool leadingSlash = !rest.empty() && rest.front() == '/';
        AppendTokens(rest, CharFinder(rest, '/'), tokens);
        type = pathType;
        absolute = leadingSlash;
        path.swap(tokens);
        return;
    }

    std::optional<std::string_view> drive;
    bool isAbsolute = false;
    bool isShare = false;
    // The long-path prefix goes first; "UNC\" behind it, or even without it, starts a share.
    if (detail::HasLongPathPrefix(rest)) {
        rest.remove_prefix(detail::kLongPathPrefix.size());
    }
    if (detail::HasSharePrefix(rest)) {
        rest.remove_prefix(detail::kSharePrefix.size());
        // Two backslashes before a single name are no share: the name stays, relative.
        isAbsolute = std::any_of(rest.begin(), rest.end(), detail::IsSeparator<char>);
        isShare = isAbsolute;
    } else if (detail::HasUncMarker(rest)) {
        rest.remove_prefix(detail::kUncMarker.size());
        isAbsolute = true;
        isShare = true;
    } else if (detail::StartsWithDriveRoot(rest)) {
        drive = rest.substr(0, detail::kDriveLength);
        rest.remove_prefix(detail::kDriveLength + 1);
        isAbsolute = true;
    }
    AppendTokens(rest, EitherCharFinder(rest, detail::kAltSeparator, detail::kSeparator), tokens,
                 drive);
    type = pathType;
    absolute = isAbsolute;
    smb = isShare;
    path.swap(tokens);
}

void Path::Set(const std::wstring& text, PathType pathType) {
    Set(platform::WideToUtf8(text), pathType);
}

std::string Path::Str(PathType separator) const {
    std::size_t length = 0;  // bytes of the tokens, one separator or terminator each
    for (const std::string& token : path) {
        length += token.size() + 1;
    }

    std::string_view head;
    if (absolute) {
        if (type == PATH_TYPE_POSIX) {
            head = "/";
        } else {
            const bool isLong = length + (smb ? winSmbPathOffset : 0) > maxPathWindowsLegacy;
            if (isLong) {
                head = smb ? detail::kLongSharePrefix : detail::kLongPathPrefix;
            } else {
                head = smb ? detail::kSharePrefix : "";
            }
        }
    }

    const char between = separator == PATH_TYPE_POSIX ? '/' : detail::kSeparator;
    // The size is known exactly: head, tokens, and one separator fewer than tokens.
    std::string text(head.size() + length - (path.empty() ? 0 : 1), '\0');
    char* out = &text[0];
    out = std::copy(head.begin(), head.end(), out);
    for (std::size_t i = 0; i < path.size(); ++i) {
        if (i > 0) {
            *out++ = between;
        }
        out = std::copy(path[i].begin(), path[i].end(), out);
    }
    return text;
}

std::wstring Path::Wstr(PathType separator) const {
    return platform::Utf8ToWide(Str(separator));
}

bool Path::Empty() const {
    return path.empty();
}

std::size_t Path::Length() const {
    return path.size();
}

bool Path::IsAbsolute() const {
    return absolute;
}

Path Path::Absolute() const {
    const std::optional<std::wstring> full =
        platform::FullPathName(Wstr(PATH_TYPE_WINDOWS), MAX_PATH_WINDOWS);
    if (!full) {
        return Path();
    }
    return Path(*full);
}

Path Path::ParentPath() const {
    Path parent;
    parent.absolute = absolute;
    parent.smb = smb;
    if (path.empty()) {
        if (!absolute) {
            parent.path.emplace_back("..");
        }
    } else {
        parent.path.assign(path.begin(), path.end() - 1);
    }
    return parent;
}

std::string Path::Filename() const {
    return path.empty() ? std::string() : path.back();
}

std::string Path::Extension() const {
    if (path.empty()) {
        return std::string();
    }
    const std::string& name = path.back();
    const std::size_t dot = name.rfind('.');
    return dot == std::string::npos ? std::string() : name.substr(dot + 1);
}

bool Path::Exists() const {
    return platform::FileAttributes(Wstr(PATH_TYPE_WINDOWS)).has_value();
}

bool Path::IsFile() const {
    const auto attributes = platform::FileAttributes(Wstr(PATH_TYPE_WINDOWS));
    return attributes && (*attributes & platform::kFileAttributeDirectory) == 0;
}

bool Path::IsDirectory() const {
    const auto attributes = platform::FileAttributes(Wstr(PATH_TYPE_WINDOWS));
    return attributes && (*attributes & platform::kFileAttributeDirectory) != 0;
}

std::size_t Path::FileSize() const {
    return static_cast<std::size_t>(platform::FileSize(Wstr(PATH_TYPE_WINDOWS)).value_or(0));
}

Path Path::Getcwd() {
    const std::optional<std::wstring> directory = platform::CurrentDirectory();
    if (!directory) {
        return Path();
    }
    return Path(directory->c_str());
}

bool Path::operator==(const Path& other) const {
    return path == other.path;
}

bool Path::operator!=(const Path& other) const {
    return !(*this == other);
}

Path Path::operator/(const Path& other) const {
    Path joined(*this);
    if (other.absolute || other.type != type) {
        return joined;
    }
    joined.path.insert(joined.path.end(), other.path.begin(), other.path.end());
    return joined;
}

bool MakeDir(const Path& path) {
    return platform::CreateOneDirectory(path.Absolute().Wstr(Path::PATH_TYPE_WINDOWS));
}

bool MakeDirs(const Path& path) {
    return platform::CreateDirectoryTree(path.Absolute().Wstr(Path::PATH_TYPE_WINDOWS));
}

}  // namespace orvik
