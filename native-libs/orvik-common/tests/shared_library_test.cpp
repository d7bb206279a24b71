// Tests of the published shared library as a host loads it: through its exported surface only.
#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <locale>
#include <string>
#include <system_error>

#include "common/orvik_common.h"
#include "support/console_capture.h"

namespace orvik {
namespace {

// Threads of this process where the system lists them (Linux), else -1.
int CountThreads() {
    std::error_code error;
    const std::filesystem::directory_iterator tasks("/proc/self/task", error);
    return error ? -1
                 : static_cast<int>(std::distance(tasks, std::filesystem::directory_iterator()));
}

// A facet that only this program has, to recognise its own global locale.
struct HostMarker : std::locale::facet {
    static std::locale::id id;
};
std::locale::id HostMarker::id;

// Loading the library starts no thread, not even for the pool it publishes.
TEST(SharedLibraryTest, PublishedPoolExistsAfterLoadWithoutAThread) {
    EXPECT_EQ(InitOrRetryTask::initRetryThreadPool->GetName(), "initOrRetryTask");
    EXPECT_EQ(InitOrRetryTask::initRetryThreadPool->GetRunningThreadNumber(), 0u);
    EXPECT_LE(CountThreads(), 1);  // -1 where the system does not list a process's threads
}

TEST(SharedLibraryTest, PublishedLogEntrancesWorkAcrossTheLibraryBoundary) {
    static int calls = 0;
    NetworkGlobalOption::SetLoggerCallback([](int hostLevel, const char*, const char* text) {
        EXPECT_EQ(hostLevel, 3);
        EXPECT_NE(std::string(text).find("[WARN][host.cpp:9][Host::Run] hello 42"),
                  std::string::npos);
        ++calls;
    });
    Log::GetInstance().DoLog(LOG_LEVEL_WARN, "tag", "host.cpp", 9, "Host::Run", "hello %d", 42);
    EXPECT_EQ(calls, 1);
    EXPECT_GT(TimeUtils::GetTimeMills(), 1600000000000ull);
}

TEST(SharedLibraryTest, HostAndLibraryShareOneConsoleAndOneGlobalLocale) {
    {
        testing::ConsoleCapture console;
        Log::GetInstance().DoLog(LOG_LEVEL_WARN, "host.cpp", 9, "Host::Run", "to the host");
        EXPECT_NE(console.Text().find("[WARN][host.cpp:9][Host::Run] to the host\n"),
                  std::string::npos)
            << "the library's console lines reach the std::cout that the host redirected";
    }
    std::locale::global(std::locale(std::locale::classic(), new HostMarker));
    CharsetCvt::MbToU8("\xFF");
    EXPECT_FALSE(std::has_facet<HostMarker>(std::locale()))
        << "the user's locale replaced the host's global locale";
}

}  // namespace
}  // namespace orvik
