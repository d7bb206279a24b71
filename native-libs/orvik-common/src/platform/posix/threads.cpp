// Facts about the process's threads on POSIX systems.
#include <pthread.h>

#include <cstddef>
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

#if defined(__GLIBC__)

bool RefuseNewThreadsForTesting(bool refuse) {
    // A default stack far larger than any address space makes every thread creation without
    // attributes of its own (std::thread's) fail for want of memory.
    static const std::size_t kUnmappableStack = std::size_t{1} << 50;
    static std::size_t normalStack = 0;  // the default before the first refusal
    pthread_attr_t attributes;
    if (pthread_getattr_default_np(&attributes) != 0) {
        return false;
    }
    std::size_t current = 0;
    bool done = pthread_attr_getstacksize(&attributes, &current) == 0;
    if (done && refuse && current != kUnmappableStack) {
        normalStack = current;
    }
    if (done && (refuse || current == kUnmappableStack)) {
        done =
            pthread_attr_setstacksize(&attributes, refuse ? kUnmappableStack : normalStack) == 0 &&
            pthread_setattr_default_np(&attributes) == 0;
    }
    pthread_attr_destroy(&attributes);
    return done;
}

#else

bool RefuseNewThreadsForTesting(bool) {
    return false;
}

#endif

}  // namespace orvik::platform
