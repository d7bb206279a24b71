#include "common/file_report_engine.h"

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "platform/platform.h"
#include "support/temp_directory.h"

namespace orvik {
namespace {

using nlohmann::json;
using namespace std::string_literals;

std::vector<json> ReadJsonLines(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::vector<json> lines;
    for (std::string line; std::getline(in, line);)
        lines.push_back(json::parse(line));  // throws on a line that is not JSON
    return lines;
}

// Every line parses back to exactly the texts given, hostile ones included; invalid UTF-8
// comes back with U+FFFD in place of each bad byte. A second engine appends to the same file.
TEST(FileReportEngineTest, LinesParseBackAndFailuresAreCountedWithoutFragments) {
    testing::TempDirectory dir;
    FileReportEngine engine, again, failing;
    ASSERT_TRUE(engine.Init("c", false, "quote\"", "back\\slash", "end\n", dir.Windows("a/b")));
    const auto file = (dir.Native() / "a/b/c.jsonl").make_preferred();
    EXPECT_EQ(engine.NativeFilePath(), file.string());
    EXPECT_EQ(engine.FilePath(), dir.Windows() + "\\a\\b\\c.jsonl");
    const std::string fffd = "\xEF\xBF\xBD";
    const auto kept = "\"q\" \\ \t\r\n\x07\x1F\x7F\0b \xC3\xBC\xE4\xB8\x96\xF0\x9F\x8C\x8D"s;
    engine.Report({{kept, "bad\xFF"}, {"cut\xE4\xB8", "s\xED\xA0\x80!"}}, "tag\"\x01");
    ASSERT_TRUE(again.Init("c", true, "", "", "", dir.Windows("a/b")));
    again.Report({}, "second");
    auto lines = ReadJsonLines(file);
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0]["texts"], json::array({"quote\"", "back\\slash", "end\n"}));
    EXPECT_EQ(lines[1]["tag"], "tag\"\x01");
    EXPECT_EQ(lines[1]["fields"],
              (json{{kept, "bad" + fffd}, {"cut" + fffd, "s" + fffd + fffd + fffd + "!"}}));

    // Init fails where it cannot make the directory; Report counts failures, leaving no fragment.
    std::ofstream(dir.Native() / "plain-file") << "x";
    EXPECT_FALSE(failing.Init("x", false, "", "", "", dir.Windows("plain-file/below")));
    EXPECT_EQ(failing.FilePath() + failing.NativeFilePath(), "");
    failing.Report({{"k", "v"}}, "before init");
    EXPECT_EQ(failing.WriteFailures(), 1u);
    const auto size = std::filesystem::file_size(file);
    if (!platform::LimitFileSizeForTesting(size + 16)) {
        GTEST_SKIP() << "this system cannot limit the size of a file";
    }
    engine.Report({{"k", std::string(64, 'x')}}, "t");
    platform::LimitFileSizeForTesting(0);
    EXPECT_EQ(engine.WriteFailures(), 1u);
    EXPECT_EQ(std::filesystem::file_size(file), size);
    engine.Report({{"k", "after"}}, "t");
    lines = ReadJsonLines(file);
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[4]["fields"]["k"], "after");
}

// Records that queue up behind slow ones reach the file in one run, whole and in order: by the
// time a Flush returns, even with records queued behind it, and without a Flush once the queue
// has gone idle, even when the last record went to another engine.
class GatedEngine : public ReportEngine {
public:
    void Report(std::map<std::string, std::string> data, std::string tag) override {
        const int gate = tag == "gate1" ? 1 : tag == "gate2" ? 2 : 0;
        while (opened < gate) {
            platform::SleepFor(std::chrono::milliseconds(1));
        }
        if (tag != "elsewhere") {
            file.Report(std::move(data), std::move(tag));
        }
    }
    bool Init(std::string name, bool option, std::string a, std::string b, std::string c,
              std::string path) override {
        return file.Init(name, option, a, b, c, path);
    }
    FileReportEngine file;
    std::atomic<int> opened{0};
};

TEST(FileReportEngineTest, QueuedRecordsReachTheFileWholeAndInOrder) {
    TempDirectory dir;
    auto engine = std::make_shared<GatedEngine>();
    ASSERT_TRUE(SetReportEngine(engine));
    Reporter::GetInstance().Enable(true, false, "", "burst", "", "", "", dir.Windows());
    const auto file = dir.Native() / "burst.jsonl";
    const auto completeLines = [&] {
        std::ifstream in(file, std::ios::binary);
        std::size_t count = 0;
        for (char c; in.get(c);) {
            count += c == '\n';
        }
        return count;
    };
    // Each run is a gate and 300 records with long values, more than one write's worth.
    const auto queueRun = [](const std::string& gate, int from) {
        Reporter::GetInstance().Report({}, gate);
        for (int i = from; i < from + 300; ++i) {
            Reporter::GetInstance().Report({{"v", std::string(250, 'v')}}, std::to_string(i));
        }
    };
    const auto expectRun = [](const std::vector<json>& lines, std::size_t at,
                              const std::string& gate, int from) {
        ASSERT_GE(lines.size(), at + 301);
        EXPECT_EQ(lines[at]["tag"], gate);
        for (int i = 0; i < 300; ++i) {
            ASSERT_EQ(lines[at + 1 + i]["tag"], std::to_string(from + i));
        }
    };
    queueRun("gate1", 0);
    std::atomic<bool> flushed{false};
    std::thread flusher([&] { flushed = Reporter::GetInstance().Flush(0); });
    platform::SleepFor(std::chrono::milliseconds(100));  // the flush queues first, mostly
    queueRun("gate2", 300);
    Reporter::GetInstance().Report({}, "elsewhere");
    engine->opened = 1;
    const auto deadline = platform::SteadyClockNow() + std::chrono::seconds(20);
    while (!flushed && platform::SteadyClockNow() < deadline) {
        platform::SleepFor(std::chrono::milliseconds(1));
    }
    if (flushed) {  // gate2 holds the records behind the flush back
        const auto lines = ReadJsonLines(file);
        EXPECT_EQ(lines.size(), 302u);
        expectRun(lines, 1, "gate1", 0);
    }
    engine->opened = 2;
    flusher.join();
    EXPECT_TRUE(flushed);
    while (completeLines() < 603 && platform::SteadyClockNow() < deadline) {
        platform::SleepFor(std::chrono::milliseconds(10));
    }
    const auto lines = ReadJsonLines(file);
    ASSERT_EQ(lines.size(), 603u);
    expectRun(lines, 1, "gate1", 0);
    expectRun(lines, 302, "gate2", 300);
    EXPECT_EQ(engine->file.WriteFailures(), 0u);
}

// A run that meets a full disk loses only the lines that do not fit: each gets a try of its
// own, none is cut, and every loss is counted.
TEST(FileReportEngineTest, QueuedRunThatMeetsAFullDiskKeepsTheLinesThatFit) {
    TempDirectory dir;
    auto engine = std::make_shared<GatedEngine>();
    ASSERT_TRUE(SetReportEngine(engine));
    Reporter::GetInstance().Enable(true, false, "", "full", "", "", "", dir.Windows());
    const auto file = dir.Native() / "full.jsonl";
    Reporter::GetInstance().Report({}, "gate1");
    for (int i = 0; i < 20; ++i) {
        Reporter::GetInstance().Report({{"v", std::string(100, 'v')}}, std::to_string(i));
    }
    if (!platform::LimitFileSizeForTesting(std::filesystem::file_size(file) + 1000)) {
        engine->opened = 1;
        GTEST_SKIP() << "this system cannot limit the size of a file";
    }
    engine->opened = 1;
    EXPECT_TRUE(Reporter::GetInstance().Flush(0));
    platform::LimitFileSizeForTesting(0);
    const auto lines = ReadJsonLines(file);
    ASSERT_GT(lines.size(), 2u);
    ASSERT_LT(lines.size(), 22u);
    EXPECT_EQ(engine->file.WriteFailures(), 22 - lines.size());
    EXPECT_EQ(lines[1]["tag"], "gate1");
    for (std::size_t i = 2; i < lines.size(); ++i) {
        EXPECT_EQ(lines[i]["tag"], std::to_string(i - 2));
    }
}

}  // namespace
}  // namespace orvik
