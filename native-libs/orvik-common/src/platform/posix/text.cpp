// Conversions between UTF-8 and wide text on POSIX systems, where wide text is whatever the
// width of wchar_t makes it (UTF-32 on Linux). The library's own codec does the work, repairing
// invalid input as the Windows conversions do.
#include "platform/platform.h"
#include "unicode.h"

namespace orvik::platform {

std::wstring Utf8ToWide(std::string_view text) {
    std::wstring wide;
    detail::Utf8ToWide(text, wide, detail::Invalid::kReplace);
    return wide;
}

std::string WideToUtf8(std::wstring_view text) {
    std::string narrow;
    detail::WideToUtf8(text, narrow, detail::Invalid::kReplace);
    return narrow;
}

}  // namespace orvik::platform
