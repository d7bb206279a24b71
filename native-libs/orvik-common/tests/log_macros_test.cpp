#include "common/log_macros.h"

#include <gtest/gtest.h>

#include <string>

#include "support/console_capture.h"
#include "support/library_log_lines.h"

// Log sites as a user writes them; each returns the line of its macro.
namespace app {
// clang-format off
struct Fetcher { static int Retry(int tries) { ORVIK_LOG_WARN("retry %d", tries); return __LINE__; } };
int Sum() { int line = 0; [&line] { ORVIK_LOG_INFO("sum"); line = __LINE__; }(); return line; }
void Debug() { ORVIK_LOG_DEBUG("hidden"); }
int Tagged() { ORVIK_LOG_TAGGED(orvik::LOG_LEVEL_DEBUG, "fetch", "tagged %s", "x"); return __LINE__; }
// clang-format on
}  // namespace app

namespace orvik {
namespace {

static_assert(detail::BaseNameOffset("C:\\app\\fetch.cpp") == 7);
static_assert(detail::BaseNameOffset("src/app/fetch.cpp") == 8);

std::string calls;  // the host callback's "hostLevel|tag|text"

std::string Site(const std::string& level, int line, const std::string& function) {
    return "[2024-07-22 19:58:48.7][" + level + "][log_macros_test.cpp:" + std::to_string(line) +
           "][" + function + "] ";
}

// Lines name the base file, the line and the qualified function (the enclosing one for lambdas).
// DEBUG lies above the highest threshold: only the tagged form reaches the host callback.
TEST(LogMacrosTest, LinesNameTheSiteAndDebugReachesOnlyTheHostCallback) {
    testing::FixedLogTime time;
    testing::ConsoleCapture console;
    Log::GetInstance().SetLoggerCallback([](int level, const char* tag, const char* text) {
        calls = std::to_string(level) + "|" + tag + "|" + text;
    });
    const int retry = app::Fetcher::Retry(3), sum = app::Sum(), tagged = app::Tagged();
    app::Debug();
    EXPECT_EQ(console.Text(), "OV_LOG:[WARN]" + Site("WARN", retry, "app::Fetcher::Retry") +
                                  "retry 3\nOV_LOG:[INFO]" + Site("INFO", sum, "app::Sum") +
                                  "sum\n");
    EXPECT_EQ(calls, "1|fetch|" + Site("DEBUG", tagged, "app::Tagged") + "tagged x");
}

}  // namespace
}  // namespace orvik
