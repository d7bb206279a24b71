// The library frame: every object of static storage that the library builds at load, in the
// order of its construction (and the reverse order of its destruction at unload).
#include "library_frame.h"

#include "platform/platform.h"

namespace orvik::detail {
namespace {

// A process-wide pool. When the process ends on Windows, the system stops the pool's threads
// wherever they are, possibly inside the C++ runtime holding one of its own locks that
// destroying the pool would wait for; the pool is then left to the system instead.
std::shared_ptr<ThreadPool> MakeProcessPool(const char* name) {
    return std::shared_ptr<ThreadPool>(new ThreadPool(name, 1, 1), [](ThreadPool* pool) {
        if (!platform::ProcessIsEnding()) {
            delete pool;
        }
    });
}

}  // namespace

// 1. FileUtils' write lock.
std::mutex fileWriteMutex;

// 2. The host level table is a constant in log.cpp.

// 3. NetworkGlobalOption's lock.
std::recursive_mutex optionMutex;

// 4. The priority table is a constant in network_global_option.cpp.

// 5. The reporter pool.
const std::shared_ptr<ThreadPool> reporterPool = MakeProcessPool("ov-com-report");

// 6, 7. The words of the bool conversions.
const std::string trueText = "true";
const std::string falseText = "false";

}  // namespace orvik::detail

namespace orvik {

// 8. The pool for the stack's init-or-retry tasks.
const std::shared_ptr<ThreadPool> InitOrRetryTask::initRetryThreadPool =
    detail::MakeProcessPool("initOrRetryTask");

}  // namespace orvik
