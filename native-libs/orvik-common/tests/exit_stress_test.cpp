#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "common/file_report_engine.h"
#include "common/file_utils.h"
#include "common/log.h"
#include "common/reporter.h"
#include "common/thread_pool.h"
#include "common/timer_manager.h"
#include "support/temp_directory.h"

namespace orvik {
namespace {

#ifndef __has_feature
#define __has_feature(x) 0  // a compiler without it
#endif
// Each exit under TSan costs several times more, and a process start under Wine far more.
#if defined(__SANITIZE_THREAD__) || __has_feature(thread_sanitizer)
constexpr int kRounds = 40;
#else
constexpr int kRounds = testing::kWindows ? 10 : 200;
#endif

std::atomic<int> loggedLines{0}, tasksRun{0}, timersFired{0}, exiting{0};
std::mutex timerGate, freeGate, spareGate;  // every third round main holds timerGate for good

// Every family busy; then exit from main or a thread, timers firing, blocked or just stopped.
void RunBusyAndExit(const std::string& directory, int round) {
    Log::GetInstance().SetLogEnabled(false);
    Log::GetInstance().SetLoggerCallback([](int, const char*, const char*) { ++loggedLines; });
    SetReportEngine(std::make_shared<FileReportEngine>());
    Reporter::GetInstance().Enable(true, false, "", "stress", "", "", "", directory);
    (round % 3 == 1 ? timerGate : spareGate).lock();  // the ninth callback on waits for it
    for (int i = 0; i < 8; ++i) {
        auto timer = std::make_shared<OvTimer>(1 + i % 3, i % 2 == 0);
        timer->Init([] {
            Log::GetInstance().DoLog(LOG_LEVEL_INFO, "stress", "stress", 1, "timer", "fired");
            std::lock_guard<std::mutex> pass(++timersFired > 8 ? timerGate : freeGate);
        });
        timer->Start();
    }
    const std::shared_ptr<ThreadPool> pools[] = {std::make_shared<ThreadPool>("host", 2, 2),
                                                 InitOrRetryTask::initRetryThreadPool};
    for (int t = 0; t < 4; ++t) {
        std::thread([t, &pools, directory] {
            for (int i = 0; !exiting || i < 2; ++i) {
                Reporter::GetInstance().Report({{"i", std::to_string(i)}}, "stress");
                std::function<void()> task = [] { ++tasksRun; };
                pools[t % 2]->SubmitTask(task);
                if (t == 0 && i % 16 == 0) {
                    FileUtils::WriteFile(directory + "\\out" + std::to_string(i % 3), "x", 0);
                }
                std::this_thread::yield();
            }
        }).detach();
    }
    for (int i = 0; i < 2000 && (tasksRun < 8 || timersFired < 8 || loggedLines < 8); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    exiting = true;
    if (round % 3 == 2) {
        TimerManager::GetInstance()->Stop();
    }
    const auto exitNow = [] { std::exit(0); };
    round % 2 == 1 ? std::thread(exitNow).join() : exitNow();  // from a thread while main waits
}

struct NoSanitizerReport : ::testing::MatcherInterface<const std::string&> {
    bool MatchAndExplain(const std::string& out, ::testing::MatchResultListener*) const override {
        return out.find("Sanitizer") == std::string::npos;
    }
    void DescribeTo(std::ostream* out) const override { *out << "holds no sanitizer report"; }
};

TEST(ExitStressTest, ProcessExitsCleanlyWithEveryFamilyBusy) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // One fixed folder: a child started afresh (as on Windows) runs this test from its start.
    const auto folder = std::filesystem::temp_directory_path() / "orvik-exit-stress";
    const std::string directory = testing::TempDirectory::WindowsForm(folder);
    for (int round = 0; round < kRounds && !::testing::Test::HasFailure(); ++round) {
        SCOPED_TRACE(round);
        EXPECT_EXIT(RunBusyAndExit(directory, round), ::testing::ExitedWithCode(0),
                    ::testing::Matcher<const std::string&>(new NoSanitizerReport));
    }
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
}

}  // namespace
}  // namespace orvik
