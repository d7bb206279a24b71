// A host process that exits while every family is busy: threads report, timers fire, the
// shared pools and a pool of the host's run tasks, files are written and text is parsed. The
// exit must be clean each time: code 0 and no sanitizer report.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "common/file_report_engine.h"
#include "common/file_utils.h"
#include "common/log.h"
#include "common/reporter.h"
#include "common/string_utils.h"
#include "common/thread_pool.h"
#include "common/timer_manager.h"
#include "support/temp_directory.h"

namespace orvik {
namespace {

// Each exit under TSan costs several times more, and a process start under Wine far more.
#if defined(_WIN32)
constexpr int kRounds = 10;
#elif defined(__SANITIZE_THREAD__)
constexpr int kRounds = 40;
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
constexpr int kRounds = 40;
#else
constexpr int kRounds = 200;
#endif
#else
constexpr int kRounds = 200;
#endif

std::atomic<int> loggedLines{0};
std::atomic<int> tasksRun{0};
std::atomic<int> timersFired{0};
std::atomic<bool> exiting{false};

void CountLine(int, const char*, const char*) {
    ++loggedLines;
}

// Runs in the child: brings every family to life, waits until each has done some work, then
// exits from the main thread or, on odd rounds, from another thread while main still waits.
[[noreturn]] void RunBusyAndExit(const std::string& directory, int round) {
    Log::GetInstance().SetLogEnabled(false);
    Log::GetInstance().SetLoggerCallback(&CountLine);
    SetReportEngine(std::make_shared<FileReportEngine>());
    Reporter::GetInstance().Enable(true, false, "", "stress", "", "", "", directory);

    std::vector<std::shared_ptr<OvTimer>> timers;
    for (int i = 0; i < 8; ++i) {
        timers.push_back(std::make_shared<OvTimer>(1 + i % 3, i % 2 == 0));
        timers.back()->Init([] {
            ++timersFired;
            Log::GetInstance().DoLog(LOG_LEVEL_INFO, "stress", "stress", 1, "timer", "fired");
        });
        timers.back()->Start();
    }

    auto hostPool = std::make_shared<ThreadPool>("host", 2, 2);
    const std::shared_ptr<ThreadPool> pools[] = {hostPool, InitOrRetryTask::initRetryThreadPool};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t, &pools, directory] {
            for (int i = 0; !exiting || i < 2; ++i) {
                std::map<std::string, std::string> data{{"i", std::to_string(i)}};
                Reporter::GetInstance().Report(data, "stress");
                std::function<void()> task = [] { ++tasksRun; };
                pools[t % 2]->SubmitTask(task);
                if (t == 0 && i % 16 == 0) {
                    FileUtils::WriteFile(directory + "\\out" + std::to_string(i % 3), "x", 0);
                }
                std::string word = "true";
                StringUtils::StrTollBool(word, false);
                std::this_thread::yield();
            }
        });
        threads.back().detach();
    }
    for (int i = 0; i < 2000 && (tasksRun < 8 || timersFired < 8 || loggedLines < 8); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    exiting = true;
    if (round % 2 == 1) {
        std::thread([] { std::exit(0); }).detach();
        std::this_thread::sleep_for(std::chrono::seconds(30));
    }
    std::exit(0);
}

// Matches a child's error output that holds no sanitizer report.
class NoSanitizerReport : public ::testing::MatcherInterface<const std::string&> {
public:
    bool MatchAndExplain(const std::string& output,
                         ::testing::MatchResultListener*) const override {
        return output.find("Sanitizer") == std::string::npos;
    }
    void DescribeTo(std::ostream* out) const override { *out << "holds no sanitizer report"; }
};

TEST(ExitStressTest, ProcessExitsCleanlyWithEveryFamilyBusy) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // One fixed folder: a child started afresh (as on Windows) runs this test from its start,
    // and a folder made here per process would outlive every child, which exits without
    // cleaning up.
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / "orvik-exit-stress";
    const std::string directory = testing::TempDirectory::WindowsForm(folder);
    for (int round = 0; round < kRounds; ++round) {
        SCOPED_TRACE(round);
        EXPECT_EXIT(RunBusyAndExit(directory, round), ::testing::ExitedWithCode(0),
                    ::testing::Matcher<const std::string&>(new NoSanitizerReport));
        if (::testing::Test::HasFailure()) {
            break;
        }
    }
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
}

}  // namespace
}  // namespace orvik
