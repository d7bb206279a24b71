// Facts about the process's threads on POSIX systems.
#include <filesystem>
#include <system_error>

#include "platform/platform.h"

namespace orvik::platform {

int ProcessThreadCount() {
    // Linux lists one entry per thread under /proc/self/task; other POSIX systems may not.
    std::error_code error;
    std::filesystem::directory_iterator it("/proc/self/task", error);
    if (error) {
        return -1;
    }
    int count = 0;
    for (; it != std::filesystem::directory_iterator(); it.increment(error)) {
        if (error) {
            return -1;
        }
        ++count;
    }
    return count;
}

bool ProcessIsEnding() {
    return false;
}

}  // namespace orvik::platform
