// The host's front door to logging: install the host's log callback, and set the switch and
// the threshold once for the process.
//
// Both operations are static, may be called from any thread, and are serialised by one
// process-wide recursive mutex, so check and store are one step. Log's own setters stay
// public and are not bound by the once-only rule here.
//
//   NetworkGlobalOption::SetLoggerCallback(&HostLog);
//   NetworkGlobalOption::SetOrvikLog(true, LOG_PRIORITY_WARN);   // threshold becomes WARN
#ifndef ORVIK_COMMON_NETWORK_GLOBAL_OPTION_H
#define ORVIK_COMMON_NETWORK_GLOBAL_OPTION_H

#include "common/export.h"
#include "common/log.h"

namespace orvik {

// The host's severity scale: higher is more severe, the reverse of LOG_LEVEL.
enum LogPriority : int {
    LOG_PRIORITY_VERBOSE = 0,
    LOG_PRIORITY_DEBUG = 1,
    LOG_PRIORITY_INFO = 2,
    LOG_PRIORITY_WARN = 3,
    LOG_PRIORITY_ERROR = 4,
    LOG_PRIORITY_FATAL = 5,
};

class ORVIK_COMMON_API NetworkGlobalOption {
public:
    NetworkGlobalOption() = delete;

    // Accepts the first non-null callback of the process and passes it to
    // Log::SetLoggerCallback; a null does not use up the slot, and a later callback is ignored.
    // If a callback reached Log directly first, Log keeps that one.
    static void SetLoggerCallback(void (*callback)(int, const char*, const char*));

    // Only the first call in the life of the process has an effect: it sets Log's switch to
    // `enabled` and its threshold to 5 - priority (stored as at most LOG_LEVEL_INFO, so VERBOSE,
    // DEBUG and INFO all give INFO). A priority outside 0..5 gives LOG_LEVEL_FATAL.
    static void SetOrvikLog(bool enabled, LogPriority priority);
};

}  // namespace orvik

#endif  // ORVIK_COMMON_NETWORK_GLOBAL_OPTION_H
