#include "common/reporter.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "common/path.h"
#include "support/console_capture.h"
#include "support/temp_directory.h"

namespace orvik {
namespace {

using testing::ConsoleCapture;
using Fields = std::map<std::string, std::string>;

// An engine that records what reaches it, and from which thread.
class RecordingEngine : public ReportEngine {
public:
    struct Delivery {
        Fields data;
        std::string tag;
        std::thread::id thread;
    };
    struct InitCall {
        std::string name;
        bool option;
        std::string path;
    };

    void Report(Fields data, std::string tag) override {
        std::lock_guard<std::mutex> lock(mutex_);
        deliveries_.push_back({std::move(data), std::move(tag), std::this_thread::get_id()});
        delivered_.notify_all();
        if (throwOnTag_ == deliveries_.back().tag) {
            throw std::runtime_error("engine failed");
        }
    }
    bool Init(std::string name, bool option, std::string, std::string, std::string,
              std::string path) override {
        std::lock_guard<std::mutex> lock(mutex_);
        initCalls_.push_back({name, option, path});
        return initResults_.empty() ? true : NextInitResult();
    }

    void QueueInitResults(std::vector<bool> results) { initResults_ = std::move(results); }
    void ThrowOnTag(std::string tag) { throwOnTag_ = std::move(tag); }

    // The first `count` deliveries, waiting for them up to a generous deadline.
    std::vector<Delivery> WaitForDeliveries(std::size_t count) {
        std::unique_lock<std::mutex> lock(mutex_);
        delivered_.wait_for(lock, std::chrono::seconds(10),
                            [&] { return deliveries_.size() >= count; });
        return deliveries_;
    }
    std::vector<InitCall> InitCalls() {
        std::lock_guard<std::mutex> lock(mutex_);
        return initCalls_;
    }

private:
    bool NextInitResult() {
        const bool result = initResults_.front();
        initResults_.erase(initResults_.begin());
        return result;
    }

    std::mutex mutex_;
    std::condition_variable delivered_;
    std::vector<Delivery> deliveries_;
    std::vector<InitCall> initCalls_;
    std::vector<bool> initResults_;
    std::string throwOnTag_;
};

void EnableWith(const std::string& name, const std::string& path = "reports") {
    Reporter::GetInstance().Enable(true, true, "stored", name, "a", "b", "c", path);
}

TEST(ReporterDataTest, TextAndNumberOverloadsStoreByTheirRules) {
    ReporterData data;
    data.AddReportInfo("empty", std::string());
    data.AddReportInfo("kept", "x");
    data.AddReportInfo("kept", std::string());
    data.AddReportInfo("last", "x");
    data.AddReportInfo("last", "y");
    data.AddReportInfo("n", 42LL);
    data.AddReportInfo("zero", 0LL);
    data.AddReportInfo("negative", -1LL);
    data.AddReportInfo("replaced", "text");
    data.AddReportInfo("replaced", 7LL);
    data.AddReportInfo("", "empty key");
    EXPECT_EQ(data.GetReportData(), (Fields{{"kept", "x"},
                                            {"last", "y"},
                                            {"n", "42"},
                                            {"zero", "0"},
                                            {"negative", "0"},
                                            {"replaced", "7"},
                                            {"", "empty key"}}));
}

TEST(ReporterTest, ReportsBeforeEnableOrWithoutEngineAreDroppedSilently) {
    auto engine = std::make_shared<RecordingEngine>();
    ConsoleCapture console;
    Reporter::GetInstance().Enable(true, false, "s", "no-engine", "", "", "", "x");
    Reporter::GetInstance().Report({{"k", "v"}}, "dropped-without-engine");
    ASSERT_TRUE(SetReportEngine(engine));
    Reporter::GetInstance().Report({{"k", "v"}}, "dropped-before-enable");
    EnableWith("rec");
    Reporter::GetInstance().Report({}, "delivered");

    const auto deliveries = engine->WaitForDeliveries(1);
    ASSERT_EQ(deliveries.size(), 1u);
    EXPECT_EQ(deliveries[0].tag, "delivered");
    EXPECT_EQ(console.Text().find("no-engine"), std::string::npos);
}

TEST(ReporterTest, InitRunsOnceAndItsLineIsWrittenOnce) {
    auto engine = std::make_shared<RecordingEngine>();
    ASSERT_TRUE(SetReportEngine(engine));
    ConsoleCapture console;
    EnableWith("first");
    EnableWith("second");
    EXPECT_EQ(engine->InitCalls().size(), 1u);
    const std::string text = console.Text();
    EXPECT_NE(text.find("[orvik::Reporter::Enable] ReportEngine Init ok first\n"),
              std::string::npos)
        << text;
    EXPECT_EQ(text.find("Init ok second"), std::string::npos);

    // Once enabled, the engine can no longer be replaced.
    EXPECT_FALSE(SetReportEngine(std::make_shared<RecordingEngine>()));
    EXPECT_FALSE(SetReportEngine(nullptr));
}

TEST(ReporterTest, FailedInitIsRetriedByTheNextEnable) {
    auto engine = std::make_shared<RecordingEngine>();
    engine->QueueInitResults({false, true});
    ASSERT_TRUE(SetReportEngine(engine));
    ConsoleCapture console;
    EnableWith("try");
    Reporter::GetInstance().Report({}, "lost");
    EXPECT_EQ(console.Text(), "");
    EnableWith("try");
    Reporter::GetInstance().Report({}, "kept");
    EXPECT_EQ(engine->InitCalls().size(), 2u);
    const auto deliveries = engine->WaitForDeliveries(1);
    ASSERT_EQ(deliveries.size(), 1u);
    EXPECT_EQ(deliveries[0].tag, "kept");
}

TEST(ReporterTest, EnableFalseNeverDisables) {
    auto engine = std::make_shared<RecordingEngine>();
    ASSERT_TRUE(SetReportEngine(engine));
    Reporter::GetInstance().Enable(false, true, "s", "off", "", "", "", "x");
    EXPECT_TRUE(engine->InitCalls().empty());
    EnableWith("on");
    Reporter::GetInstance().Enable(false, true, "s", "off", "", "", "", "x");
    Reporter::GetInstance().Report({}, "still delivered");
    EXPECT_EQ(engine->WaitForDeliveries(1).size(), 1u);
}

TEST(ReporterTest, RelativeEnginePathReachesInitAbsolute) {
    // In a directory below the root: joining a path to a root ("C:\") would give an empty token.
    const testing::TempDirectory temp;
    const testing::WorkingDirectory inside(temp.Native());
    auto engine = std::make_shared<RecordingEngine>();
    ASSERT_TRUE(SetReportEngine(engine));
    EnableWith("abs", "logs/../reports/./today");
    const auto calls = engine->InitCalls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_TRUE(calls[0].option);
    const std::string expected =
        (Path::Getcwd() / Path("reports\\today")).Str(Path::PATH_TYPE_WINDOWS);
    EXPECT_EQ(calls[0].path, expected);
    EXPECT_TRUE(Path(calls[0].path).IsAbsolute());
}

TEST(ReporterTest, ReservedFieldsAreStampedOverTheCallersValues) {
    auto engine = std::make_shared<RecordingEngine>();
    ASSERT_TRUE(SetReportEngine(engine));
    EnableWith("stamp");
    Reporter::GetInstance().Report({}, "empty");
    Reporter::GetInstance().Report({{"sdk_name", "other"}, {"sdk_type", "x"}, {"k", "v"}}, "own");
    const auto deliveries = engine->WaitForDeliveries(2);
    ASSERT_EQ(deliveries.size(), 2u);
    EXPECT_EQ(deliveries[0].data, (Fields{{"sdk_type", "QxRR"}, {"sdk_name", "orvik"}}));
    EXPECT_EQ(deliveries[1].data,
              (Fields{{"sdk_type", "QxRR"}, {"sdk_name", "orvik"}, {"k", "v"}}));
}

TEST(ReporterTest, ReportsArriveInOrderOnOneOtherThreadAndSurviveAThrowingEngine) {
    auto engine = std::make_shared<RecordingEngine>();
    engine->ThrowOnTag("1");
    ASSERT_TRUE(SetReportEngine(engine));
    EnableWith("order");
    ConsoleCapture console;
    for (int i = 0; i < 50; ++i) {
        Reporter::GetInstance().Report({{"i", std::to_string(i)}}, std::to_string(i));
    }
    const auto deliveries = engine->WaitForDeliveries(50);
    ASSERT_EQ(deliveries.size(), 50u);
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(deliveries[i].tag, std::to_string(i));
        EXPECT_EQ(deliveries[i].thread, deliveries[0].thread);
    }
    EXPECT_NE(deliveries[0].thread, std::this_thread::get_id());
    EXPECT_EQ(console.Text(), "") << "a throwing engine is silent";
}

}  // namespace
}  // namespace orvik
