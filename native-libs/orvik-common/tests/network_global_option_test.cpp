#include "common/network_global_option.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "support/console_capture.h"

namespace orvik {
namespace {

int firstCalls = 0;
void FirstCallback(int, const char*, const char*) {
    ++firstCalls;
}
void SecondCallback(int, const char*, const char*) {
    ADD_FAILURE() << "a second callback was installed";
}

// Log's threshold as its gate shows it: the most verbose level whose plain-form line reaches
// the console, or -1 when the switch is off.
int Threshold() {
    testing::ConsoleCapture console;
    for (int level = LOG_LEVEL_FATAL; level <= LOG_LEVEL_VERBOSE; ++level) {
        Log::GetInstance().DoLog(static_cast<LOG_LEVEL>(level), "f", 1, "fn", "probe");
    }
    const std::string text = console.Text();
    return static_cast<int>(std::count(text.begin(), text.end(), '\n')) - 1;
}

TEST(NetworkGlobalOptionTest, SetOrvikLogMapsEachPriorityToItsThreshold) {
    // For the priorities -1 (out of range), VERBOSE (0) ... FATAL (5), 6 (out of range).
    const int thresholds[] = {0, 3, 3, 3, 2, 1, 0, 0};
    for (int priority = -1; priority <= 6; ++priority) {
        const int threshold = thresholds[priority + 1];
        SCOPED_TRACE(priority);
        // Only the first SetOrvikLog of a process counts, so each case runs in a child process.
        EXPECT_EXIT(
            {
                NetworkGlobalOption::SetOrvikLog(true, static_cast<LogPriority>(priority));
                std::exit(Threshold() == threshold ? 0 : 1);
            },
            ::testing::ExitedWithCode(0), "");
    }
}

TEST(NetworkGlobalOptionTest, OnlyTheFirstSetOrvikLogCountsButLogsOwnSettersStillDo) {
    NetworkGlobalOption::SetOrvikLog(false, LOG_PRIORITY_FATAL);
    NetworkGlobalOption::SetOrvikLog(true, LOG_PRIORITY_INFO);
    EXPECT_EQ(Threshold(), -1);
    Log::GetInstance().SetLogEnabled(true);
    EXPECT_EQ(Threshold(), LOG_LEVEL_FATAL);
}

// A null callback leaves the slot free and the first callback keeps it; the callback and the
// switch and threshold leave each other alone.
TEST(NetworkGlobalOptionTest, FirstCallbackKeepsTheSlotAndLogOptionsAreLeftAlone) {
    Log::GetInstance().SetLevel(LOG_LEVEL_ERROR);
    NetworkGlobalOption::SetLoggerCallback(nullptr);
    NetworkGlobalOption::SetLoggerCallback(&FirstCallback);
    NetworkGlobalOption::SetLoggerCallback(&SecondCallback);
    Log::GetInstance().SetLoggerCallback(&SecondCallback);
    EXPECT_EQ(Threshold(), LOG_LEVEL_ERROR);

    NetworkGlobalOption::SetOrvikLog(false, LOG_PRIORITY_FATAL);
    Log::GetInstance().DoLog(LOG_LEVEL_VERBOSE, "t", "f", 1, "fn", "m");
    EXPECT_EQ(firstCalls, 1);
}

}  // namespace
}  // namespace orvik
