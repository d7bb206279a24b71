// Facts about the system on Windows: its version as the kernel reports it.
#include <windows.h>

#include "platform/platform.h"

namespace orvik::platform {
namespace {

using RtlGetVersionFunction = LONG(WINAPI*)(PRTL_OSVERSIONINFOW);

}  // namespace

bool SystemVersion(std::uint32_t& major, std::uint32_t& minor) {
    // RtlGetVersion reports the true version; GetVersionExA, the fallback where ntdll lacks
    // it, reports what the program's manifest admits. Looked up at every call.
    const HMODULE ntdll = GetModuleHandleA("ntdll");
    const FARPROC entry = ntdll != nullptr ? GetProcAddress(ntdll, "RtlGetVersion") : nullptr;
    if (entry != nullptr) {
        // Through a function type without parameters, which the compiler lets any cast reach.
        const auto rtlGetVersion =
            reinterpret_cast<RtlGetVersionFunction>(reinterpret_cast<void (*)()>(entry));
        RTL_OSVERSIONINFOW version{};
        version.dwOSVersionInfoSize = sizeof(version);
        if (rtlGetVersion(&version) != 0) {
            return false;
        }
        major = version.dwMajorVersion;
        minor = version.dwMinorVersion;
        return true;
    }
    OSVERSIONINFOA version{};
    version.dwOSVersionInfoSize = sizeof(version);
    if (GetVersionExA(&version) == 0) {
        return false;
    }
    major = version.dwMajorVersion;
    minor = version.dwMinorVersion;
    return true;
}

}  // namespace orvik::platform
