// Conversions between UTF-8 and wide text (UTF-16) on Windows, with the system's own calls.
// Without MB_ERR_INVALID_CHARS both replace each invalid run with U+FFFD instead of failing.
// The user's locale: the C runtime's, and the system's ANSI code page as its encoding.
#include <windows.h>

#include <clocale>
#include <limits>
#include <stdexcept>

#include "platform/platform.h"

namespace orvik::platform {
namespace {

// The system's calls take an int length; longer text is converted in pieces of this many
// elements. A piece boundary could split a sequence, so pieces end only where one begins.
constexpr std::size_t kPiece = static_cast<std::size_t>(std::numeric_limits<int>::max()) / 4;

std::size_t Utf8PieceEnd(std::string_view text, std::size_t begin) {
    std::size_t end = begin + kPiece;
    if (end >= text.size()) {
        return text.size();
    }
    while (end > begin && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) {
        --end;
    }
    return end > begin ? end : begin + kPiece;
}

std::size_t WidePieceEnd(std::wstring_view text, std::size_t begin) {
    std::size_t end = begin + kPiece;
    if (end >= text.size()) {
        return text.size();
    }
    if (text[end] >= 0xDC00 && text[end] <= 0xDFFF) {
        --end;  // keep a surrogate pair together
    }
    return end;
}

}  // namespace

std::wstring Utf8ToWide(std::string_view text) {
    std::wstring wide;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = Utf8PieceEnd(text, begin);
        const int length = static_cast<int>(end - begin);
        const int size = MultiByteToWideChar(CP_UTF8, 0, text.data() + begin, length, nullptr, 0);
        const std::size_t at = wide.size();
        wide.resize(at + static_cast<std::size_t>(size));
        MultiByteToWideChar(CP_UTF8, 0, text.data() + begin, length, &wide[at], size);
        begin = end;
    }
    return wide;
}

std::string WideToUtf8(std::wstring_view text) {
    std::string narrow;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = WidePieceEnd(text, begin);
        const int length = static_cast<int>(end - begin);
        const int size = WideCharToMultiByte(CP_UTF8, 0, text.data() + begin, length, nullptr, 0,
                                             nullptr, nullptr);
        const std::size_t at = narrow.size();
        narrow.resize(at + static_cast<std::size_t>(size));
        WideCharToMultiByte(CP_UTF8, 0, text.data() + begin, length, &narrow[at], size, nullptr,
                            nullptr);
        begin = end;
    }
    return narrow;
}

namespace {

// The system's ANSI code page, through MultiByteToWideChar and WideCharToMultiByte. The code
// page is read once, when the locale is installed.
class AnsiCodePageEncoding final : public UserEncoding {
public:
    AnsiCodePageEncoding() : codePage_(GetACP()) {
        CPINFO info{};
        maxLength_ = GetCPInfo(codePage_, &info) ? static_cast<int>(info.MaxCharSize) : 1;
    }

    std::codecvt_base::result Decode(std::string_view bytes, std::wstring& out) const override {
        out.clear();
        if (DecodeWhole(bytes, out)) {
            return std::codecvt_base::ok;
        }
        // Something does not decode: go one character at a time to find where it stops. A
        // character is the shortest run of bytes, up to the longest the code page has, that
        // the system accepts.
        for (std::size_t at = 0; at < bytes.size();) {
            wchar_t units[4];
            int produced = 0;
            std::size_t length = 0;
            while (produced == 0 && length < static_cast<std::size_t>(maxLength_) &&
                   at + length < bytes.size()) {
                ++length;
                produced = MultiByteToWideChar(codePage_, MB_ERR_INVALID_CHARS, bytes.data() + at,
                                               static_cast<int>(length), units, 4);
            }
            if (produced == 0) {
                return EndsInsideCharacter(bytes.substr(at)) ? std::codecvt_base::partial
                                                             : std::codecvt_base::error;
            }
            out.append(units, static_cast<std::size_t>(produced));
            at += length;
        }
        return std::codecvt_base::ok;
    }

    std::codecvt_base::result Encode(std::wstring_view wide, std::string& out) const override {
        out.clear();
        if (EncodeWhole(wide, out)) {
            return std::codecvt_base::ok;
        }
        // Something has no exact form: go one character (a surrogate pair is one) at a time.
        std::string piece;
        for (std::size_t at = 0; at < wide.size();) {
            const bool pair = wide[at] >= 0xD800 && wide[at] <= 0xDBFF && at + 1 < wide.size() &&
                              wide[at + 1] >= 0xDC00 && wide[at + 1] <= 0xDFFF;
            const std::size_t length = pair ? 2 : 1;
            if (!EncodeWhole(wide.substr(at, length), piece)) {
                return std::codecvt_base::error;
            }
            out += piece;
            at += length;
        }
        return std::codecvt_base::ok;
    }

    int MaxLength() const override { return maxLength_; }

private:
    bool IsUtf8() const { return codePage_ == CP_UTF8; }

    // The whole text in one call; false (and `out` unspecified) when any of it does not decode.
    bool DecodeWhole(std::string_view bytes, std::wstring& out) const {
        if (bytes.empty()) {
            return true;
        }
        if (bytes.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
            return false;  // longer than one call takes: the walk converts it
        }
        const int length = static_cast<int>(bytes.size());
        const int size =
            MultiByteToWideChar(codePage_, MB_ERR_INVALID_CHARS, bytes.data(), length, nullptr, 0);
        if (size == 0) {
            return false;
        }
        out.resize(static_cast<std::size_t>(size));
        return MultiByteToWideChar(codePage_, MB_ERR_INVALID_CHARS, bytes.data(), length, &out[0],
                                   size) == size;
    }

    // The whole text in one call; false when any character has no exact form in the code page.
    // Best-fit mappings ("A" for U+0100) are refused, so that text never changes silently. The
    // UTF-8 code page takes neither that flag nor the default-character report, and represents
    // every character anyway.
    bool EncodeWhole(std::wstring_view wide, std::string& out) const {
        out.clear();
        if (wide.empty()) {
            return true;
        }
        if (wide.size() > static_cast<std::size_t>(std::numeric_limits<int>::max() / 4)) {
            return false;  // longer than one call takes: the walk converts it
        }
        const DWORD flags = IsUtf8() ? 0 : WC_NO_BEST_FIT_CHARS;
        BOOL usedDefault = FALSE;
        BOOL* const report = IsUtf8() ? nullptr : &usedDefault;
        const int length = static_cast<int>(wide.size());
        const int size =
            WideCharToMultiByte(codePage_, flags, wide.data(), length, nullptr, 0, nullptr, report);
        if (size == 0 || usedDefault) {
            return false;
        }
        out.resize(static_cast<std::size_t>(size));
        return WideCharToMultiByte(codePage_, flags, wide.data(), length, &out[0], size, nullptr,
                                   report) == size &&
               !usedDefault;
    }

    // Whether `rest`, which does not decode, is the beginning of a character cut off by the
    // end of the input: shorter than the longest character, and led by a byte that opens a
    // longer one.
    bool EndsInsideCharacter(std::string_view rest) const {
        const auto lead = static_cast<unsigned char>(rest[0]);
        if (rest.size() >= static_cast<std::size_t>(maxLength_)) {
            return false;
        }
        return IsUtf8() ? lead >= 0xC2 && lead <= 0xF4 : IsDBCSLeadByteEx(codePage_, lead) != 0;
    }

    UINT codePage_;
    int maxLength_;
};

}  // namespace

std::unique_ptr<UserEncoding> InstallUserLocale() {
    // std::locale::global also sets the C runtime's locale, to "C" here; the user's locale goes
    // to the C runtime after it, so that the runtime's tolower and toupper follow the user.
    std::locale::global(std::locale::classic());
    if (std::setlocale(LC_ALL, "") == nullptr) {
        throw std::runtime_error("bad locale name");
    }
    return std::make_unique<AnsiCodePageEncoding>();
}

}  // namespace orvik::platform
