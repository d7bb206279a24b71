#include "common/file_report_engine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "support/eventually.h"
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

// Hostile texts parse back exactly, each bad UTF-8 byte as U+FFFD; a second engine appends.
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

// Holds each "gateN" record until `opened` reaches N, and drops records tagged "elsewhere".
struct GatedEngine : FileReportEngine {
    void Report(std::map<std::string, std::string> data, std::string tag) override {
        const int gate = tag.rfind("gate", 0) == 0 ? tag.back() - '0' : 0;
        EXPECT_TRUE(testing::Eventually([&] { return opened >= gate; }));
        if (tag != "elsewhere") {
            FileReportEngine::Report(std::move(data), std::move(tag));
        }
    }
    std::atomic<int> opened{0};
};

// Queued records reach the file whole and in order: those ahead of a Flush marker when it runs,
// the rest once the queue idles though the last went elsewhere; at a full disk, all that fit.
TEST(FileReportEngineTest, QueuedRecordsReachTheFileWholeAndInOrder) {
    testing::TempDirectory dir;
    auto engine = std::make_shared<GatedEngine>();
    ASSERT_TRUE(SetReportEngine(engine));
    Reporter::GetInstance().Enable(true, false, "", "runs", "", "", "", dir.Windows());
    const auto file = dir.Native() / "runs.jsonl";
    const auto queueRun = [](int gate, int from, int count, std::size_t size) {
        Reporter::GetInstance().Report({}, "gate" + std::to_string(gate));
        for (int i = from; i < from + count; ++i)
            Reporter::GetInstance().Report({{"v", std::string(size, 'v')}}, std::to_string(i));
    };
    const auto completeLines = [&] {
        std::ifstream in(file, std::ios::binary);
        return std::count(std::istreambuf_iterator<char>(in), {}, '\n');
    };
    queueRun(1, 0, 300, 250);                        // more than one write's worth
    EXPECT_FALSE(Reporter::GetInstance().Flush(1));  // its marker stays queued
    queueRun(2, 300, 300, 250);
    Reporter::GetInstance().Report({}, "elsewhere");
    engine->opened = 1;
    EXPECT_TRUE(testing::Eventually([&] { return completeLines() == 302; }));
    engine->opened = 2;
    ASSERT_TRUE(testing::Eventually([&] { return completeLines() == 603; }));
    auto lines = ReadJsonLines(file);
    for (std::size_t i = 1; i < lines.size(); ++i) {
        const std::size_t at = i < 302 ? i - 2 : i - 3;
        ASSERT_EQ(lines[i]["tag"], i == 1 ? "gate1" : i == 302 ? "gate2" : std::to_string(at));
    }

    if (!platform::LimitFileSizeForTesting(std::filesystem::file_size(file) + 1000)) {
        GTEST_SKIP() << "this system cannot limit the size of a file";
    }
    queueRun(3, 0, 20, 100);
    engine->opened = 3;
    EXPECT_TRUE(Reporter::GetInstance().Flush(0));
    platform::LimitFileSizeForTesting(0);
    lines = ReadJsonLines(file);
    ASSERT_GT(lines.size(), 604u);
    ASSERT_LT(lines.size(), 624u);
    EXPECT_EQ(engine->WriteFailures(), 624 - lines.size());
    for (std::size_t i = 604; i < lines.size(); ++i) {
        EXPECT_EQ(lines[i]["tag"], std::to_string(i - 604));
    }
}

}  // namespace
}  // namespace orvik
