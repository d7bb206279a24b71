#include "common/network_global_option.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "support/console_capture.h"

namespace orvik {
namespace {

using Option = NetworkGlobalOption;

// Log's threshold as its gate shows it: the number of console lines of FATAL..VERBOSE, less one.
int Threshold() {
    testing::ConsoleCapture console;
    for (int level = LOG_LEVEL_FATAL; level <= LOG_LEVEL_VERBOSE; ++level) {
        Log::GetInstance().DoLog(static_cast<LOG_LEVEL>(level), "f", 1, "fn", "probe");
    }
    const std::string text = console.Text();
    return static_cast<int>(std::count(text.begin(), text.end(), '\n')) - 1;
}

// Each priority in a child process; a second SetOrvikLog, or a second callback, changes nothing.
TEST(NetworkGlobalOptionTest, OnlyTheFirstSettingsCount) {
    const int thresholds[] = {0, 3, 3, 3, 2, 1, 0, 0};  // priorities -1 (out of range) to 6
    for (int priority = -1; priority <= 6; ++priority) {
        EXPECT_EXIT(Option::SetOrvikLog(true, static_cast<LogPriority>(priority));
                    Option::SetOrvikLog(false, LOG_PRIORITY_INFO);
                    std::exit(Threshold() + 1),
                    ::testing::ExitedWithCode(thresholds[priority + 1] + 1), "")
            << priority;
    }
    static int calls = 0;
    Option::SetLoggerCallback(nullptr);
    Option::SetLoggerCallback([](int, const char*, const char*) { ++calls; });
    Option::SetLoggerCallback([](int, const char*, const char*) { calls += 100; });
    Option::SetOrvikLog(false, LOG_PRIORITY_FATAL);
    EXPECT_EQ(Threshold(), -1);
    Log::GetInstance().DoLog(LOG_LEVEL_VERBOSE, "t", "f", 1, "fn", "m");
    EXPECT_EQ(calls, 1);
}

}  // namespace
}  // namespace orvik
