#include "common/log_macros.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/console_capture.h"
#include "support/fake_clock.h"

// Log sites as a user writes them; each returns the line of its macro.
namespace app {
// clang-format off
struct Fetcher {
    static int Retry(int tries) { ORVIK_LOG_WARN("retry %d", tries); return __LINE__; }
};
template <class T>
int Wait(T) { ORVIK_LOG_ERROR("wait"); return __LINE__; }
int Sum() { int line = 0; [&line] { ORVIK_LOG_INFO("sum"); line = __LINE__; }(); return line; }
int Debug() { ORVIK_LOG_DEBUG("hidden"); return __LINE__; }
int Tagged() { ORVIK_LOG_TAGGED(orvik::LOG_LEVEL_DEBUG, "fetch", "tagged %s", "x"); return __LINE__; }
// clang-format on
}  // namespace app

namespace orvik {
namespace {

using testing::ConsoleCapture;
using testing::FakeClock;

static_assert(detail::BaseNameOffset("C:\\app\\fetch.cpp") == 7);
static_assert(detail::BaseNameOffset("src/app/fetch.cpp") == 8);
static_assert(detail::BaseNameOffset("fetch.cpp") == 0);

std::vector<std::string> calls;  // "hostLevel|tag|text" per callback call

class LogMacrosTest : public ::testing::Test {
protected:
    FakeClock clock_{FakeClock::AtMillis(FakeClock::LocalMillis(2024, 7, 22, 19, 58, 48, 7))};
};

std::string Site(int line, const std::string& function) {
    return "[log_macros_test.cpp:" + std::to_string(line) + "][" + function + "] ";
}

// Base file name, line and qualified function, as the library's own lines name theirs; the
// enclosing function for lambdas and templates.
TEST_F(LogMacrosTest, LinesNameTheBaseFileTheLineAndTheQualifiedFunction) {
    struct Case {
        int (*emit)();
        std::string level, function, message;
    };
    const Case cases[] = {
        {[] { return app::Fetcher::Retry(3); }, "WARN", "app::Fetcher::Retry", "retry 3"},
        {[] { return app::Wait(1.5); }, "ERROR", "app::Wait", "wait"},
        {app::Sum, "INFO", "app::Sum", "sum"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.function);
        ConsoleCapture console;
        const int line = c.emit();
        EXPECT_EQ(console.Text(), "OV_LOG:[" + c.level + "][2024-07-22 19:58:48.7][" + c.level +
                                      "]" + Site(line, c.function) + c.message + "\n");
    }
}

// DEBUG lies above the highest threshold: the plain form drops it, the tagged form still
// reaches the host callback.
TEST_F(LogMacrosTest, DebugIsGatedWhileTheTaggedFormReachesTheHostCallback) {
    Log::GetInstance().SetLoggerCallback([](int hostLevel, const char* tag, const char* text) {
        calls.push_back(std::to_string(hostLevel) + "|" + tag + "|" + text);
    });
    ConsoleCapture console;
    app::Debug();
    const int line = app::Tagged();
    EXPECT_EQ(console.Text(), "");
    EXPECT_EQ(calls, std::vector<std::string>{"1|fetch|[2024-07-22 19:58:48.7][DEBUG]" +
                                              Site(line, "app::Tagged") + "tagged x"});
}

}  // namespace
}  // namespace orvik
