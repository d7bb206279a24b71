// Calendar breakdown on POSIX systems.
#include <time.h>

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

}  // namespace orvik::platform
