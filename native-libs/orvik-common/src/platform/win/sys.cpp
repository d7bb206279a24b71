// System facts on Windows: the name, the processor architecture of the system (not of this
// process), and the version as the kernel reports it.
#include <windows.h>

#include "platform/platform.h"

namespace orvik::platform {
namespace {

using RtlGetVersionFunction = LONG(WINAPI*)(PRTL_OSVERSIONINFOW);

}  // namespace

std::string NativeSystemName() {
    return "Windows";
}

std::string NativeProcessorArchitecture() {
    SYSTEM_INFO info{};
    GetNativeSystemInfo(&info);
    switch (info.wProcessorArchitecture) {
        case PROCESSOR_ARCHITECTURE_AMD64:
            return "x64";
        case PROCESSOR_ARCHITECTURE_ARM64:
            return "arm64";
        case PROCESSOR_ARCHITECTURE_INTEL:
            return "x86";
        case PROCESSOR_ARCHITECTURE_ARM:
            return "arm";
        default:
            return std::string();
    }
}

std::optional<std::pair<unsigned, unsigned>> NativeSystemVersion() {
    // RtlGetVersion reports the true version. GetVersionExA, the fallback where ntdll lacks it,
    // reports what the program's manifest admits. Looked up at every call.
    const HMODULE ntdll = GetModuleHandleA("ntdll");
    const FARPROC entry = ntdll != nullptr ? GetProcAddress(ntdll, "RtlGetVersion") : nullptr;
    if (entry != nullptr) {
        // Through a function type without parameters, which any function pointer may be cast to.
        const auto rtlGetVersion =
            reinterpret_cast<RtlGetVersionFunction>(reinterpret_cast<void (*)()>(entry));
        RTL_OSVERSIONINFOW version{};
        version.dwOSVersionInfoSize = sizeof(version);
        if (rtlGetVersion(&version) != 0) {
            return std::nullopt;
        }
        return std::make_pair(static_cast<unsigned>(version.dwMajorVersion),
                              static_cast<unsigned>(version.dwMinorVersion));
    }
    OSVERSIONINFOA version{};
    version.dwOSVersionInfoSize = sizeof(version);
    if (GetVersionExA(&version) == 0) {
        return std::nullopt;
    }
    return std::make_pair(static_cast<unsigned>(version.dwMajorVersion),
                          static_cast<unsigned>(version.dwMinorVersion));
}

}  // namespace orvik::platform
