#include "common/network_global_option.h"

#include <mutex>

#include "internal/library_frame.h"

namespace orvik {
namespace {

// They need no construction, so they are valid from the start of load.
LoggerCallback storedCallback = nullptr;  // guarded by detail::optionMutex
bool logOptionsSet = false;               // guarded by detail::optionMutex

// The threshold that a host priority asks for: 5 - priority, and FATAL for anything unknown.
LOG_LEVEL LogLevelForPriority(LogPriority priority) {
    return priority >= LOG_PRIORITY_VERBOSE && priority <= LOG_PRIORITY_FATAL
               ? static_cast<LOG_LEVEL>(LOG_PRIORITY_FATAL - priority)
               : LOG_LEVEL_FATAL;
}

}  // namespace

void NetworkGlobalOption::SetLoggerCallback(void (*callback)(int, const char*, const char*)) {
    std::lock_guard<std::recursive_mutex> lock(detail::optionMutex);
    if (storedCallback != nullptr || callback == nullptr) {
        return;
    }
    storedCallback = callback;
    Log::GetInstance().SetLoggerCallback(callback);
}

void NetworkGlobalOption::SetOrvikLog(bool enabled, LogPriority priority) {
    std::lock_guard<std::recursive_mutex> lock(detail::optionMutex);
    if (logOptionsSet) {
        return;
    }
    logOptionsSet = true;
    Log& log = Log::GetInstance();
    log.SetLogEnabled(enabled);
    log.SetLevel(LogLevelForPriority(priority));
}

}  // namespace orvik
