// The process's environment on Windows, kept by the system as wide text.
#include <windows.h>
// <windows.h> maps SetEnvironmentVariable to the system's W or A call; the name here is ours.
#undef SetEnvironmentVariable

#include <string>

#include "platform/platform.h"
#include "internal/unicode.h"

namespace orvik::platform {
namespace {

// Whether `text` is well-formed UTF-16: the system would store an unpaired surrogate in a
// value, but the same value could not be set where the environment is UTF-8.
bool IsValidWide(const std::wstring& text) {
    std::string narrow;
    return detail::WideToUtf8(text, narrow, detail::Invalid::kFail);
}

// Names go to the system as they are: it keeps names that no POSIX system could hold, such as
// the per-drive working directories ("=C:") that cmd.exe hands to its children, and it is the
// system that judges them. Only a NUL cannot pass, as the system would see a shorter name.
bool CanPassName(const std::wstring& name) {
    return name.find(L'\0') == std::wstring::npos;
}

}  // namespace

std::optional<std::wstring> EnvironmentVariable(const std::wstring& name) {
    if (!CanPassName(name)) {
        return std::nullopt;
    }
    // The call reports the size needed, terminator included, when the buffer is too small; the
    // value may grow between two calls, so it is asked again until it fits. A variable set to
    // nothing gives 0 with no error.
    std::wstring value(256, L'\0');
    for (;;) {
        SetLastError(ERROR_SUCCESS);
        const DWORD length =
            GetEnvironmentVariableW(name.c_str(), &value[0], static_cast<DWORD>(value.size()));
        if (length == 0) {
            if (GetLastError() == ERROR_ENVVAR_NOT_FOUND) {
                return std::nullopt;
            }
            return std::wstring();
        }
        if (length < value.size()) {
            value.resize(length);
            return value;
        }
        value.resize(length);
    }
}

bool SetEnvironmentVariable(const std::wstring& name, const std::optional<std::wstring>& value) {
    if (!CanPassName(name)) {
        return false;
    }
    if (!value) {
        return SetEnvironmentVariableW(name.c_str(), nullptr) != 0 ||
               GetLastError() == ERROR_ENVVAR_NOT_FOUND;
    }
    if (value->find(L'\0') != std::wstring::npos || !IsValidWide(*value)) {
        return false;
    }
    return SetEnvironmentVariableW(name.c_str(), value->c_str()) != 0;
}

}  // namespace orvik::platform
