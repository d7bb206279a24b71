// Helpers for tests of threads: waiting for another thread's progress with a generous deadline
// (so that a broken library fails the test instead of hanging it), and counting log lines.
#ifndef ORVIK_COMMON_TESTS_SUPPORT_EVENTUALLY_H
#define ORVIK_COMMON_TESTS_SUPPORT_EVENTUALLY_H

#include <chrono>
#include <string>

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

inline std::chrono::nanoseconds Since(std::chrono::steady_clock::time_point start) {
    return platform::SteadyClockNow() - start;
}

inline size_t CountOf(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

}  // namespace orvik::testing

#endif  // ORVIK_COMMON_TESTS_SUPPORT_EVENTUALLY_H
