// Conversions between UTF-8 and wide text (UTF-16) on Windows, with the system's own calls.
// Without MB_ERR_INVALID_CHARS both replace each invalid run with U+FFFD instead of failing.
#include <windows.h>

#include <limits>

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

}  // namespace orvik::platform
