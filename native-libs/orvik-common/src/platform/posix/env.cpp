// The process's environment on POSIX systems, where names and values are bytes, taken as UTF-8.
#include <stdlib.h>  // getenv, setenv, unsetenv
#include <string>

#include "platform/platform.h"
#include "internal/unicode.h"

namespace orvik::platform {
namespace {

bool IsValidName(const std::wstring& name) {
    return !name.empty() && name.find_first_of(std::wstring(L"=\0", 2)) == std::wstring::npos;
}

}  // namespace

std::optional<std::wstring> EnvironmentVariable(const std::wstring& name) {
    std::string narrowName;
    if (!IsValidName(name) || !detail::WideToUtf8(name, narrowName, detail::Invalid::kFail)) {
        return std::nullopt;
    }
    const char* value = std::getenv(narrowName.c_str());
    if (value == nullptr) {
        return std::nullopt;
    }
    std::wstring wide;
    detail::Utf8ToWide(value, wide, detail::Invalid::kReplace);
    return wide;
}

bool SetEnvironmentVariable(const std::wstring& name, const std::optional<std::wstring>& value) {
    std::string narrowName;
    if (!IsValidName(name) || !detail::WideToUtf8(name, narrowName, detail::Invalid::kFail)) {
        return false;
    }
    if (!value) {
        return ::unsetenv(narrowName.c_str()) == 0;
    }
    std::string narrowValue;
    if (value->find(L'\0') != std::wstring::npos ||
        !detail::WideToUtf8(*value, narrowValue, detail::Invalid::kFail)) {
        return false;
    }
    return ::setenv(narrowName.c_str(), narrowValue.c_str(), 1) == 0;
}

}  // namespace orvik::platform
