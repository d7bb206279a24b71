// Conditions that tests arrange on POSIX systems: a system that refuses new threads, a full
// disk, a pipe nobody reads. Linked into the tests' static archive only, never shipped.
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/platform.h"

namespace orvik::platform {

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

bool LimitFileSizeForTesting(std::uint64_t bytes) {
    rlimit limit{};
    if (::getrlimit(RLIMIT_FSIZE, &limit) != 0) {
        return false;
    }
    // Past the limit the system would also raise SIGXFSZ, which ends the process; ignored, the
    // write fails with EFBIG as a write to a full disk fails with ENOSPC.
    ::signal(SIGXFSZ, bytes == 0 ? SIG_DFL : SIG_IGN);
    limit.rlim_cur = bytes == 0 ? limit.rlim_max : static_cast<rlim_t>(bytes);
    return ::setrlimit(RLIMIT_FSIZE, &limit) == 0;
}

bool MakeFifoForTesting(const std::string& path) {
    return ::mkfifo(path.c_str(), 0600) == 0;
}

std::shared_ptr<void> OpenFifoReaderForTesting(const std::string& path) {
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) {
        return nullptr;
    }
    return std::shared_ptr<void>(nullptr, [descriptor](void*) { ::close(descriptor); });
}

}  // namespace orvik::platform
