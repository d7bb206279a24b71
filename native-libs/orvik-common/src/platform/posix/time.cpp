// Calendar breakdown and wake-up precision on POSIX systems.
#include <time.h>

#if defined(__linux__)
#include <sys/prctl.h>
#endif

#include "platform/platform.h"

namespace orvik::platform {

bool LocalCalendarTime(std::int64_t secondsSinceEpoch, std::tm& out) {
    const time_t seconds = static_cast<time_t>(secondsSinceEpoch);
    return localtime_r(&seconds, &out) != nullptr;
}

bool UtcCalendarTime(std::int64_t secondsSinceEpoch, std::tm& out) {
    const time_t seconds = static_cast<time_t>(secondsSinceEpoch);
    return gmtime_r(&seconds, &out) != nullptr;
}

void WakeOnTimeForThisThread() {
#if defined(__linux__)
    // The timer slack of the thread: by default 50 microseconds, by which the kernel may
    // delay the end of every timed wait. One nanosecond is the least it takes.
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
#endif
}

}  // namespace orvik::platform
