// Facts about the process's threads on Windows.
#include <windows.h>
// <tlhelp32.h> needs the types of <windows.h> before it.
#include <tlhelp32.h>

#include "platform/platform.h"

namespace orvik::platform {

int ProcessThreadCount() {
    // The Toolhelp snapshot lists the threads of every process; count this process's.
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    if (snapshot == INVALID_HANDLE_VALUE) {
        return -1;
    }
    const DWORD self = GetCurrentProcessId();
    THREADENTRY32 entry{};
    entry.dwSize = sizeof(entry);
    int count = 0;
    for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
        if (entry.th32OwnerProcessID == self) {
            ++count;
        }
        entry.dwSize = sizeof(entry);
    }
    const bool listed = GetLastError() == ERROR_NO_MORE_FILES;
    CloseHandle(snapshot);
    return listed && count > 0 ? count : -1;
}

bool ProcessIsEnding() {
    // ntdll tells whether the loader is shutting the process down; looked up by name, as the
    // system's headers do not declare it.
    using ShutdownInProgress = BOOLEAN(WINAPI*)();
    static const auto inProgress = reinterpret_cast<ShutdownInProgress>(reinterpret_cast<void*>(
        GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "RtlDllShutdownInProgress")));
    return inProgress != nullptr && inProgress() != 0;
}

}  // namespace orvik::platform
