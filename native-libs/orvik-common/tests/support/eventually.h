// Helpers for tests of threads. Eventually is true as soon as `condition()` holds, false if it
// still does not after `limit` (sleeping for real): a broken library fails, never hangs, a test.
#ifndef ORVIK_COMMON_TESTS_SUPPORT_EVENTUALLY_H
#define ORVIK_COMMON_TESTS_SUPPORT_EVENTUALLY_H

#include <chrono>
#include <string>
#include <thread>

#include "platform/platform.h"

namespace orvik::testing {

template <class Condition>
bool Eventually(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    const auto deadline = platform::SteadyClockNow() + limit;
    while (!condition() && platform::SteadyClockNow() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return condition();
}

inline size_t CountOf(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

}  // namespace orvik::testing

#endif  // ORVIK_COMMON_TESTS_SUPPORT_EVENTUALLY_H
