// Waiting for another thread's progress in tests: polls a condition with a generous deadline,
// so that a broken library fails the test instead of hanging it.
#ifndef ORVIK_COMMON_TESTS_SUPPORT_EVENTUALLY_H
#define ORVIK_COMMON_TESTS_SUPPORT_EVENTUALLY_H

#include <chrono>

#include "platform/platform.h"

namespace orvik::testing {

// True as soon as `condition()` holds; false if it still does not after `limit`.
template <class Condition>
bool Eventually(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(5)) {
    const auto deadline = platform::SteadyClockNow() + limit;
    while (!condition()) {
        if (platform::SteadyClockNow() > deadline) {
            return false;
        }
        platform::SleepFor(std::chrono::milliseconds(1));
    }
    return true;
}

// Time passed on the steady clock since `start`.
inline std::chrono::nanoseconds Since(std::chrono::steady_clock::time_point start) {
    return platform::SteadyClockNow() - start;
}

}  // namespace orvik::testing

#endif  // ORVIK_COMMON_TESTS_SUPPORT_EVENTUALLY_H
