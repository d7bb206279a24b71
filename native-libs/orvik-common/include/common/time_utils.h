// Clock readings. Two families, whose names run against what one would guess:
//   - GetEpochTime*  read the steady clock: never steps back, origin unspecified (not 1970);
//   - GetTime*       read the wall clock: time since 1970-01-01 00:00:00 UTC. It follows every
//                    change of the system's time, so two readings can go backwards.
// Conversions truncate toward zero. Everything in this library that computes with time
// (timers, the speed limiter) uses GetTimeMills.
//
// Thread-safety: stateless; every member may be called from any thread without a lock.
#ifndef ORVIK_COMMON_TIME_UTILS_H
#define ORVIK_COMMON_TIME_UTILS_H

#include <string>

#include "common/export.h"

namespace orvik {

class ORVIK_COMMON_API TimeUtils {
public:
    // Steady clock, in seconds, milliseconds and microseconds.
    static unsigned long long GetEpochTimeSeconds();
    static unsigned long long GetEpochTimeMills();
    static unsigned long long GetEpochTimeMicro();

    // Wall clock since 1970, in seconds, milliseconds and microseconds.
    static unsigned long long GetTimeSeconds();
    static unsigned long long GetTimeMills();
    static unsigned long long GetTimeMicro();

    // The wall clock in UTC as 17 digits, "YYYYMMDDhhmmssmmm" (milliseconds zero-padded), from
    // one reading. For 2024-07-22 19:58:48.007 UTC: "20240722195848007".
    static std::string GetUtcFormatTime();
};

}  // namespace orvik

#endif  // ORVIK_COMMON_TIME_UTILS_H
