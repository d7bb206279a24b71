// Conditions that tests arrange on POSIX systems: a full disk, a pipe nobody reads.
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <memory>
#include <string>

#include "platform/platform.h"

namespace orvik::platform {

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
