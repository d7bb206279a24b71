// Calendar breakdown on Windows, with the C runtime's 64-bit time functions.
#include <time.h>

#include "platform/platform.h"

namespace orvik::platform {

bool LocalCalendarTime(std::int64_t secondsSinceEpoch, std::tm& out) {
    const __time64_t seconds = secondsSinceEpoch;
    return _localtime64_s(&out, &seconds) == 0;
}

bool UtcCalendarTime(std::int64_t secondsSinceEpoch, std::tm& out) {
    // The runtime keeps the result in storage of the calling thread, so concurrent callers do
    // not share it; it is copied out before this thread can call again.
    const __time64_t seconds = secondsSinceEpoch;
    const std::tm* broken = _gmtime64(&seconds);
    if (broken == nullptr) {
        return false;
    }
    out = *broken;
    return true;
}

void WakeOnTimeForThisThread() {
    // Windows has no per-thread slack to lower; the precision of its waits is the system's
    // timer resolution, which is not the library's to change for the whole process.
}

}  // namespace orvik::platform
