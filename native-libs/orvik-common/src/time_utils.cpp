#include "common/time_utils.h"

#include <chrono>
#include <cstdio>
#include <ctime>

#include "platform/platform.h"

namespace orvik {
namespace {

template <class Unit, class TimePoint>
unsigned long long Since(TimePoint now) {
    return static_cast<unsigned long long>(
        std::chrono::duration_cast<Unit>(now.time_since_epoch()).count());
}

}  // namespace

unsigned long long TimeUtils::GetEpochTimeSeconds() {
    return Since<std::chrono::seconds>(platform::SteadyClockNow());
}

unsigned long long TimeUtils::GetEpochTimeMills() {
    return Since<std::chrono::milliseconds>(platform::SteadyClockNow());
}

unsigned long long TimeUtils::GetEpochTimeMicro() {
    return Since<std::chrono::microseconds>(platform::SteadyClockNow());
}

unsigned long long TimeUtils::GetTimeSeconds() {
    return Since<std::chrono::seconds>(platform::WallClockNow());
}

unsigned long long TimeUtils::GetTimeMills() {
    return Since<std::chrono::milliseconds>(platform::WallClockNow());
}

unsigned long long TimeUtils::GetTimeMicro() {
    return Since<std::chrono::microseconds>(platform::WallClockNow());
}

std::string TimeUtils::GetUtcFormatTime() {
    const auto sinceEpoch = platform::WallClockNow().time_since_epoch();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(sinceEpoch);
    const auto millis =
        std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch - seconds).count();

    std::tm calendar{};
    if (!platform::UtcCalendarTime(seconds.count(), calendar)) {
        return std::string();
    }
    // strftime and snprintf write the same digits as put_time and a zero-filled width of 3,
    // without building a stream on every call.
    char text[32] = {};
    const std::size_t length = std::strftime(text, sizeof text, "%Y%m%d%H%M%S", &calendar);
    std::snprintf(text + length, sizeof text - length, "%03d", static_cast<int>(millis));
    return std::string(text);
}

}  // namespace orvik
