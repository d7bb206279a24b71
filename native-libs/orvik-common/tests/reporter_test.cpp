#include "common/reporter.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "common/latch.h"
#include "common/path.h"
#include "platform/platform.h"
#include "support/console_capture.h"
#include "support/library_log_lines.h"

namespace orvik {
namespace {

using Fields = std::map<std::string, std::string>;

// Records tags ("a b c") and every record, read after a Flush; holds every record until
// `gate` opens, throws on "1". Init records its path and fails for the name "fails".
struct RecordingEngine : ReportEngine {
    void Report(Fields data, std::string tag) override {
        gate.Wait(0);
        flushedInside = flushedInside || Reporter::GetInstance().Flush(0);  // must refuse at once
        tags += (tags.empty() ? "" : " ") + tag;
        records.emplace_back(tag, std::move(data));
        if (tag == "1") {
            throw std::runtime_error("engine failed");
        }
    }
    bool Init(std::string name, bool option, std::string, std::string, std::string,
              std::string path) override {
        initPaths.push_back(path + (option ? " (option)" : ""));
        return name != "fails";
    }

    CountDownLatch gate{1};
    bool flushedInside = false;
    std::vector<std::string> initPaths;  // Init runs on the thread that calls Enable
    std::string tags;
    std::vector<std::pair<std::string, Fields>> records;
};

void Enable(bool on, const std::string& name, const std::string& path = "r") {
    Reporter::GetInstance().Enable(on, true, "stored", name, "a", "b", "c", path);
}
std::shared_ptr<RecordingEngine> Install(const std::string& name) {
    auto engine = std::make_shared<RecordingEngine>();
    EXPECT_TRUE(SetReportEngine(engine));
    Enable(true, name);
    return engine;
}

TEST(ReporterDataTest, TextAndNumberOverloadsStoreByTheirRules) {
    ReporterData data;
    data.AddReportInfo("k", "x");
    data.AddReportInfo("k", "");  // an empty text changes nothing
    data.AddReportInfo("c", -1LL);
    EXPECT_EQ(data.GetReportData(), (Fields{{"k", "x"}, {"c", "0"}}));
}

// Dropped until an Init succeeds; then Init never reruns, logs once, gets an absolute path;
// Enable(false) and a new engine change nothing; reserved fields win; engine throws are silent.
TEST(ReporterTest, ReportsFlowStampedAndInOrderOnlyAfterTheFirstSuccessfulInitAndFlush) {
    testing::FixedLogTime time;
    testing::ConsoleCapture console;
    Enable(true, "no-engine");
    Reporter::GetInstance().Report({}, "dropped without engine");
    EXPECT_FALSE(SetReportEngine(nullptr));
    auto engine = Install("fails");
    Reporter::GetInstance().Report({}, "dropped after a failed init");
    EXPECT_TRUE(Reporter::GetInstance().Flush(1)) << "nothing was queued";
    Enable(true, "first", "logs/../r");
    Enable(true, "second");
    Enable(false, "off");
    for (const char* tag : {"held", "a", "1", "b"}) {
        Reporter::GetInstance().Report(
            {{"sdk_name", "other"}, {"sdk_nx", "m"}, {"sdk_type", "x"}, {"i", "v"}, {"zz", "z"}},
            tag);
    }
    EXPECT_FALSE(Reporter::GetInstance().Flush(50));
    engine->gate.CountDown();
    EXPECT_TRUE(Reporter::GetInstance().Flush(0));
    EXPECT_EQ(engine->tags, "held a 1 b");
    EXPECT_FALSE(engine->flushedInside);
    EXPECT_EQ(engine->records.back().second,
              (Fields{{"sdk_type", "QxRR"}, {"sdk_name", "orvik"}, {"sdk_nx", "m"}, {"i", "v"},
                      {"zz", "z"}}));
    const std::string absolute = Path("r").Absolute().Str(Path::PATH_TYPE_WINDOWS);
    EXPECT_EQ(engine->initPaths, std::vector<std::string>(2, absolute + " (option)"));
    EXPECT_EQ(testing::MaskLineNumbers(console.Text()),
              testing::LibraryLine("INFO", "src/reporter.cpp", "orvik::Reporter::Enable",
                                   "ReportEngine Init ok first"));
    EXPECT_FALSE(SetReportEngine(std::make_shared<RecordingEngine>()));
}

// While threads are refused, Report queues without throwing and Flush fails; then all arrive.
// Records are reused: every one reaches the engine whole, whatever the sizes of the ones before
// it, over bursts larger than the records kept spare and past a record longer than those kept.
TEST(ReporterTest, BurstsOfRecordsOfEverySizeArriveWhole) {
    auto engine = Install("bursts");
    std::vector<std::pair<std::string, Fields>> sent;
    for (int burst = 0; burst < 3; ++burst) {
        for (int i = 0; i < 1500; ++i) {
            Fields fields;
            for (int field = 0; field < (i + burst) % 4; ++field) {
                fields["k" + std::to_string(field)] = std::string((i * 37 + field) % 90, 'v');
            }
            if (burst == 1 && i == 700) {
                fields["long"] = std::string(100000, 'L');
            }
            const std::string tag = std::to_string(burst) + "/" + std::to_string(i);
            Reporter::GetInstance().Report(fields, tag);
            fields["sdk_name"] = "orvik";
            fields["sdk_type"] = "QxRR";
            sent.emplace_back(tag, std::move(fields));
        }
        engine->gate.CountDown();
        ASSERT_TRUE(Reporter::GetInstance().Flush(0));
    }
    EXPECT_TRUE(engine->records == sent);
}

TEST(ReporterTest, RefusedThreadsNeitherThrowNorLoseRecords) {
    auto engine = Install("refused");
    if (!platform::RefuseNewThreadsForTesting(true)) {
        GTEST_SKIP() << "this system cannot refuse threads";
    }
    Reporter& reporter = Reporter::GetInstance();
    EXPECT_NO_THROW(reporter.Report({}, "a"); reporter.Report({}, "b"));
    EXPECT_FALSE(reporter.Flush(0));
    platform::RefuseNewThreadsForTesting(false);
    engine->gate.CountDown();
    EXPECT_TRUE(reporter.Flush(0));
    EXPECT_EQ(engine->tags, "a b");
}

struct EngineThatSaysGoodbye : RecordingEngine {
    ~EngineThatSaysGoodbye() override { std::fputs("engine destroyed\n", stderr); }
};

TEST(ReporterTest, RecordsDroppedAtExitLetTheirEngineGo) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            SetReportEngine(std::make_shared<EngineThatSaysGoodbye>());
            Enable(true, "goodbye");
            // With no thread to deliver it, the record is still queued when the exit shuts the
            // pool down.
            if (platform::RefuseNewThreadsForTesting(true)) {
                Reporter::GetInstance().Report({}, "dropped");
            }
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "engine destroyed");
}

}  // namespace
}  // namespace orvik
