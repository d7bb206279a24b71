#include "common/reporter.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "common/latch.h"
#include "common/path.h"
#include "platform/platform.h"
#include "support/console_capture.h"
#include "support/library_log_lines.h"
#include "support/temp_directory.h"

namespace orvik {
namespace {

using testing::ConsoleCapture;
using Fields = std::map<std::string, std::string>;

using Delivery = std::pair<std::string, Fields>;  // tag and fields

// Records the reports and the threads they came on, throwing on the tag "1"; Init records its
// path and option and fails `failedInits` times before it succeeds.
class RecordingEngine : public ReportEngine {
public:
    void Report(Fields data, std::string tag) override {
        if (during) {
            during(tag);
        }
        std::lock_guard<std::mutex> lock(mutex_);
        deliveries_.push_back({tag, std::move(data)});
        threads.insert(std::this_thread::get_id());
        delivered_.notify_all();
        if (tag == "1") {
            throw std::runtime_error("engine failed");
        }
    }
    bool Init(std::string, bool option, std::string, std::string, std::string,
              std::string path) override {
        initPaths.push_back(path + (option ? " (option)" : ""));
        return failedInits-- <= 0;
    }

    // The deliveries so far, once there are `count` or after a generous deadline.
    std::vector<Delivery> Await(std::size_t count) {
        std::unique_lock<std::mutex> lock(mutex_);
        delivered_.wait_for(lock, std::chrono::seconds(10),
                            [&] { return deliveries_.size() >= count; });
        return deliveries_;
    }

    int failedInits = 0;
    std::function<void(const std::string&)> during;  // runs first in Report, unlocked
    std::vector<std::string> initPaths;  // Init runs on the thread that calls Enable
    std::set<std::thread::id> threads;   // read once the reports are awaited

private:
    std::mutex mutex_;
    std::condition_variable delivered_;
    std::vector<Delivery> deliveries_;
};

std::shared_ptr<RecordingEngine> Install() {
    auto engine = std::make_shared<RecordingEngine>();
    EXPECT_TRUE(SetReportEngine(engine));
    return engine;
}
void Enable(bool enable, const std::string& name, const std::string& path = "reports") {
    Reporter::GetInstance().Enable(enable, true, "stored", name, "a", "b", "c", path);
}
void Report(const std::string& tag, Fields data = {}) {
    Reporter::GetInstance().Report(std::move(data), tag);
}

TEST(ReporterDataTest, TextAndNumberOverloadsStoreByTheirRules) {
    ReporterData data;
    data.AddReportInfo("empty", std::string());
    data.AddReportInfo("kept", "x");
    data.AddReportInfo("kept", std::string());
    data.AddReportInfo("last", "x");
    data.AddReportInfo("last", "y");
    data.AddReportInfo("zero", 0LL);
    data.AddReportInfo("negative", -1LL);
    data.AddReportInfo("replaced", "text");
    data.AddReportInfo("replaced", 7LL);
    data.AddReportInfo("", "empty key");
    EXPECT_EQ(data.GetReportData(), (Fields{{"kept", "x"},
                                            {"last", "y"},
                                            {"zero", "0"},
                                            {"negative", "0"},
                                            {"replaced", "7"},
                                            {"", "empty key"}}));
}

// Reports are dropped silently until an Init succeeds; Init then never runs again, its line is
// logged once, Enable(false) does not disable, and the engine can no longer be replaced.
TEST(ReporterTest, ReportsFlowOnlyAfterTheFirstSuccessfulInit) {
    testing::FixedLogTime time;
    ConsoleCapture console;
    Reporter::GetInstance().Enable(true, false, "s", "no-engine", "", "", "", "x");
    Report("dropped without engine");
    auto engine = Install();
    engine->failedInits = 1;
    Enable(false, "off");
    Report("dropped before enable");
    Enable(true, "fails");
    Report("dropped after a failed init");
    EXPECT_TRUE(Reporter::GetInstance().Flush(1)) << "nothing was queued";
    EXPECT_EQ(console.Text(), "");
    Enable(true, "first");
    Enable(true, "second");
    Enable(false, "off");
    Report("delivered");
    EXPECT_EQ(engine->initPaths.size(), 2u);
    EXPECT_EQ(testing::MaskLineNumbers(console.Text()),
              testing::LibraryLine("INFO", "src/reporter.cpp", "orvik::Reporter::Enable",
                                   "ReportEngine Init ok first"));
    const auto deliveries = engine->Await(1);
    ASSERT_EQ(deliveries.size(), 1u);
    EXPECT_EQ(deliveries[0].first, "delivered");
    EXPECT_FALSE(SetReportEngine(std::make_shared<RecordingEngine>()));
    EXPECT_FALSE(SetReportEngine(nullptr));
}

// The relative path reaches Init absolute; the reserved fields are stamped over the caller's;
// a throwing engine stays silent; reports arrive in order on one thread other than the caller.
TEST(ReporterTest, EngineGetsAbsolutePathAndStampedReportsInOrderOnOneOtherThread) {
    // Below the drive root: a path joined onto a bare root would begin with an empty token.
    const testing::TempDirectory temp;
    const testing::WorkingDirectory inside(temp.Native());
    auto engine = Install();
    Enable(true, "order", "logs/../reports/./today");
    EXPECT_EQ(
        engine->initPaths,
        std::vector<std::string>{
            (Path::Getcwd() / Path("reports\\today")).Str(Path::PATH_TYPE_WINDOWS) + " (option)"});
    ConsoleCapture console;
    for (int i = 0; i < 50; ++i) {
        Report(std::to_string(i), {{"sdk_name", "other"}, {"sdk_type", "x"}, {"i", "v"}});
    }
    const auto deliveries = engine->Await(50);
    ASSERT_EQ(deliveries.size(), 50u);
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(deliveries[i].first, std::to_string(i));
        EXPECT_EQ(deliveries[i].second,
                  (Fields{{"sdk_type", "QxRR"}, {"sdk_name", "orvik"}, {"i", "v"}}));
    }
    ASSERT_EQ(engine->threads.size(), 1u);
    EXPECT_NE(*engine->threads.begin(), std::this_thread::get_id());
    EXPECT_EQ(console.Text(), "") << "a throwing engine is silent";
}

// Flush waits for the engine to have every record queued before it: false while the engine
// holds the last one, true once it is through; from inside the engine it refuses at once
// instead of waiting for itself.
TEST(ReporterTest, FlushWaitsForQueuedRecordsToReachTheEngine) {
    auto engine = Install();
    Enable(true, "flush");
    CountDownLatch gate(1);
    std::atomic<int> innerFlush{-1};
    engine->during = [&](const std::string& tag) {
        if (tag == "held") {
            gate.Wait(0);
        } else if (tag == "inner") {
            innerFlush = Reporter::GetInstance().Flush(0) ? 1 : 0;
        }
    };
    Report("held");
    Report("after");
    EXPECT_FALSE(Reporter::GetInstance().Flush(50));
    gate.CountDown();
    Report("inner");
    EXPECT_TRUE(Reporter::GetInstance().Flush(0));
    const auto deliveries = engine->Await(0);
    ASSERT_EQ(deliveries.size(), 3u) << "every record before the flush has arrived";
    EXPECT_EQ(deliveries[2].first, "inner");
    EXPECT_EQ(innerFlush, 0);
}

// While the system refuses threads, Report queues without throwing and Flush says the records
// have not arrived; once threads are back, a flush delivers them, in order.
TEST(ReporterTest, RefusedThreadsNeitherThrowNorLoseRecords) {
    auto engine = Install();
    Enable(true, "refused");
    if (!platform::RefuseNewThreadsForTesting(true)) {
        GTEST_SKIP() << "this system cannot refuse threads";
    }
    EXPECT_NO_THROW(Report("a"));
    EXPECT_NO_THROW(Report("b"));
    EXPECT_FALSE(Reporter::GetInstance().Flush(0));
    platform::RefuseNewThreadsForTesting(false);
    EXPECT_TRUE(Reporter::GetInstance().Flush(0));
    const auto deliveries = engine->Await(0);
    ASSERT_EQ(deliveries.size(), 2u);
    EXPECT_EQ(deliveries[0].first + deliveries[1].first, "ab");
}

}  // namespace
}  // namespace orvik
