// The library frame: every object of static storage that the library builds at load, in the
// order of its construction (and the reverse order of its destruction at unload).
#include "library_frame.h"

namespace orvik::detail {

// 1. FileUtils' write lock.
std::mutex fileWriteMutex;

// 2. The host level table is a constant in log.cpp.

// 3. NetworkGlobalOption's lock.
std::recursive_mutex optionMutex;

// 4. The priority table is a constant in network_global_option.cpp.

// 5. The reporter pool.
const std::shared_ptr<ThreadPool> reporterPool =
    std::make_shared<ThreadPool>("ov-com-report", 1, 1);

// 6, 7. The words of the bool conversions.
const std::string trueText = "true";
const std::string falseText = "false";

}  // namespace orvik::detail

namespace orvik {

// 8. The pool for the stack's init-or-retry tasks.
const std::shared_ptr<ThreadPool> InitOrRetryTask::initRetryThreadPool =
    std::make_shared<ThreadPool>("initOrRetryTask", 1, 1);

}  // namespace orvik
