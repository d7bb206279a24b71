// The library frame: every object of static storage that the library builds at load, in the
// order of its construction (and the reverse order of its destruction at unload).
#include "internal/library_frame.h"

#include "internal/never_destroyed.h"
#include "platform/platform.h"

namespace orvik::detail {
namespace {

// A process-wide pool whose ThreadPool object is never destroyed. The published pointer owns
// it as any pool is owned; when the last owner lets go (at unload, or later on the pool's last
// thread) the deleter does what the destructor would do, Shutdown(SHUTDOWN_IMMEDIATE), and
// keeps the memory, so a thread or a host call that still reaches the pool while the process
// exits finds a live object that refuses new work. When the system has already stopped the
// pool's threads (see platform::ProcessIsEnding), one may have held a lock that Shutdown would
// wait for, and the pool is left to the system.
// `afterStop`, when given, runs once Shutdown has returned: no task runs then, and the tasks
// that never ran are gone.
std::shared_ptr<ThreadPool> MakeProcessPool(NeverDestroyed<ThreadPool>& storage,
                                            void (*afterStop)() = nullptr) {
    return std::shared_ptr<ThreadPool>(storage.get(), [afterStop](ThreadPool* pool) {
        if (!platform::ProcessIsEnding()) {
            pool->Shutdown(ThreadPool::SHUTDOWN_IMMEDIATE);
            if (afterStop != nullptr) {
                afterStop();
            }
        }
    });
}

}  // namespace

// 1. FileUtils' write locks: guards the table of files being written.
std::mutex fileWriteMutex;

// 2. The host level table is a constant in log.cpp.

// 3. NetworkGlobalOption's lock.
std::recursive_mutex optionMutex;

// 4. The priority table is a constant in network_global_option.cpp.

// 5. The reporter pool.
namespace {
NeverDestroyed<ThreadPool> reporterPoolObject("ov-com-report", 1, 1);
}
const std::shared_ptr<ThreadPool> reporterPool =
    MakeProcessPool(reporterPoolObject, ReleaseUndeliveredReports);

// 6, 7. The words of the bool conversions, never destroyed: a host thread may still parse a
// bool while the process exits.
namespace {
NeverDestroyed<std::string> trueTextObject("true");
NeverDestroyed<std::string> falseTextObject("false");
}  // namespace
const std::string& trueText = *trueTextObject;
const std::string& falseText = *falseTextObject;

}  // namespace orvik::detail

namespace orvik {

// 8. The pool for the stack's init-or-retry tasks.
namespace detail {
namespace {
NeverDestroyed<ThreadPool> initRetryPoolObject("initOrRetryTask", 1, 1);
}
}  // namespace detail
const std::shared_ptr<ThreadPool> InitOrRetryTask::initRetryThreadPool =
    detail::MakeProcessPool(detail::initRetryPoolObject);

}  // namespace orvik
