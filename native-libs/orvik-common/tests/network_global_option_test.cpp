#include "common/network_global_option.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include <string>

#include "support/console_capture.h"

namespace orvik {
namespace {

using testing::ConsoleCapture;

int firstCalls = 0;
int secondCalls = 0;
void FirstCallback(int, const char*, const char*) {
    ++firstCalls;
}
void SecondCallback(int, const char*, const char*) {
    ++secondCalls;
}

// Whether a plain-form message of `level` reaches the console: the switch and the threshold.
bool ReachesConsole(LOG_LEVEL level) {
    ConsoleCapture console;
    Log::GetInstance().DoLog(level, "f", 1, "fn", "probe");
    return !console.Text().empty();
}

// The threshold that Log holds now, read through its gate.
int Threshold() {
    int threshold = -1;
    for (int level = LOG_LEVEL_FATAL; level <= LOG_LEVEL_VERBOSE; ++level) {
        if (ReachesConsole(static_cast<LOG_LEVEL>(level))) {
            threshold = level;
        }
    }
    return threshold;
}

TEST(NetworkGlobalOptionTest, SetOrvikLogMapsEachPriorityToItsThreshold) {
    const struct {
        int priority;
        int threshold;
    } cases[] = {{LOG_PRIORITY_VERBOSE, 3},
                 {LOG_PRIORITY_DEBUG, 3},
                 {LOG_PRIORITY_INFO, 3},
                 {LOG_PRIORITY_WARN, 2},
                 {LOG_PRIORITY_ERROR, 1},
                 {LOG_PRIORITY_FATAL, 0},
                 {6, 0},
                 {-1, 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.priority);
        // Only the first SetOrvikLog of a process counts, so each case runs in a child process.
        EXPECT_EXIT(
            {
                NetworkGlobalOption::SetOrvikLog(true, static_cast<LogPriority>(c.priority));
                std::exit(Threshold() == c.threshold ? 0 : 1);
            },
            ::testing::ExitedWithCode(0), "");
    }
}

TEST(NetworkGlobalOptionTest, OnlyTheFirstSetOrvikLogHasAnEffect) {
    NetworkGlobalOption::SetOrvikLog(false, LOG_PRIORITY_FATAL);
    NetworkGlobalOption::SetOrvikLog(true, LOG_PRIORITY_INFO);
    EXPECT_FALSE(ReachesConsole(LOG_LEVEL_FATAL));

    // Log's own setters are not bound by that rule.
    Log::GetInstance().SetLogEnabled(true);
    EXPECT_TRUE(ReachesConsole(LOG_LEVEL_FATAL));
    EXPECT_FALSE(ReachesConsole(LOG_LEVEL_ERROR));
}

TEST(NetworkGlobalOptionTest, NullCallbackDoesNotUseUpTheSlotAndSecondIsIgnored) {
    NetworkGlobalOption::SetLoggerCallback(nullptr);
    NetworkGlobalOption::SetLoggerCallback(&FirstCallback);
    NetworkGlobalOption::SetLoggerCallback(&SecondCallback);
    Log::GetInstance().DoLog(LOG_LEVEL_INFO, "t", "f", 1, "fn", "m");
    EXPECT_EQ(firstCalls, 1);
    EXPECT_EQ(secondCalls, 0);
}

TEST(NetworkGlobalOptionTest, CallbackGivenToLogDirectlyFirstStaysInLog) {
    Log::GetInstance().SetLoggerCallback(&FirstCallback);
    NetworkGlobalOption::SetLoggerCallback(&SecondCallback);
    Log::GetInstance().DoLog(LOG_LEVEL_INFO, "t", "f", 1, "fn", "m");
    EXPECT_EQ(firstCalls, 1);
    EXPECT_EQ(secondCalls, 0);
}

TEST(NetworkGlobalOptionTest, CallbackAndLogOptionsLeaveEachOtherAlone) {
    Log::GetInstance().SetLevel(LOG_LEVEL_ERROR);
    NetworkGlobalOption::SetLoggerCallback(&FirstCallback);
    EXPECT_EQ(Threshold(), LOG_LEVEL_ERROR);

    NetworkGlobalOption::SetOrvikLog(false, LOG_PRIORITY_FATAL);
    Log::GetInstance().DoLog(LOG_LEVEL_VERBOSE, "t", "f", 1, "fn", "m");
    EXPECT_EQ(firstCalls, 1);
}

}  // namespace
}  // namespace orvik
