#include "common/file_report_engine.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "common/latch.h"
#include "common/path.h"
#include "support/temp_directory.h"

namespace orvik {
namespace {

using Fields = std::map<std::string, std::string>;
using testing::TempDirectory;
namespace fs = std::filesystem;

std::vector<nlohmann::json> ReadJsonLines(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::vector<nlohmann::json> lines;
    for (std::string line; std::getline(in, line);) {
        lines.push_back(nlohmann::json::parse(line));  // throws on a line that is not JSON
    }
    return lines;
}

TEST(FileReportEngineTest, InitMakesTheDirectoryAndWritesTheMetadataLine) {
    TempDirectory dir;
    FileReportEngine engine;
    ASSERT_TRUE(engine.Init("client", false, "1.0", "beta", "", dir.Windows("a/b/c")));
    EXPECT_EQ(engine.FilePath(),
              Path(dir.Windows("a/b/c/client.jsonl")).Str(Path::PATH_TYPE_WINDOWS));
    engine.Report({{"event", "login"}}, "session");

    const auto lines = ReadJsonLines(dir.Native() / "a/b/c/client.jsonl");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0]["engine"], "client");
    EXPECT_EQ(lines[0]["texts"], nlohmann::json::array({"1.0", "beta", ""}));
    EXPECT_EQ(lines[0]["opened"].get<std::string>().size(), 17u);
    EXPECT_EQ(lines[1]["tag"], "session");
    EXPECT_EQ(lines[1]["fields"], nlohmann::json({{"event", "login"}}));
    EXPECT_EQ(engine.WriteFailures(), 0u);

    // An existing directory is fine, and a second engine appends to the same file.
    FileReportEngine again;
    ASSERT_TRUE(again.Init("client", true, "", "", "", dir.Windows("a/b/c")));
    again.Report({}, "second");
    EXPECT_EQ(ReadJsonLines(dir.Native() / "a/b/c/client.jsonl").size(), 4u);
}

TEST(FileReportEngineTest, HostileTextsComeOutAsParsableJson) {
    TempDirectory dir;
    FileReportEngine engine;
    ASSERT_TRUE(engine.Init("hostile", true, "quote\"", "back\\slash", "line\nend", dir.Windows()));

    const std::string withNul("a\0b", 3);
    const struct {
        std::string sent;
        std::string parsed;
    } cases[] = {
        {"plain", "plain"},
        {"\"quoted\" \\ back", "\"quoted\" \\ back"},
        {"tab\tcr\rlf\nbell\x07"
         "del\x7F",
         "tab\tcr\rlf\nbell\x07"
         "del\x7F"},
        {withNul, withNul},
        {"Gr\xC3\xBC\xC3\x9F"
         "e \xE4\xB8\x96 \xF0\x9F\x8C\x8D",
         "Gr\xC3\xBC\xC3\x9F"
         "e \xE4\xB8\x96 \xF0\x9F\x8C\x8D"},
        {"bad\xFF", "bad\xEF\xBF\xBD"},
        {"cut\xE4\xB8", "cut\xEF\xBF\xBD"},
        {"surrogate\xED\xA0\x80!", "surrogate\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD!"},
    };
    Fields fields;
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        fields["k" + std::to_string(i) + cases[i].sent] = cases[i].sent;
    }
    engine.Report(fields, "tag\"\x01");

    const auto lines = ReadJsonLines(dir.Native() / "hostile.jsonl");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0]["texts"], nlohmann::json::array({"quote\"", "back\\slash", "line\nend"}));
    EXPECT_EQ(lines[1]["tag"], "tag\"\x01");
    const auto& parsed = lines[1]["fields"];
    ASSERT_EQ(parsed.size(), std::size(cases));
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(parsed["k" + std::to_string(i) + cases[i].parsed], cases[i].parsed);
    }
}

TEST(FileReportEngineTest, FailuresAreReportedByInitAndCountedByReport) {
    TempDirectory dir;
    std::ofstream(dir.Native() / "plain-file") << "x";
    FileReportEngine engine;
    EXPECT_FALSE(engine.Init("x", false, "", "", "", dir.Windows("plain-file/below")));
    EXPECT_FALSE(engine.Init("x", false, "", "", "", "D:\\elsewhere"));
    EXPECT_EQ(engine.FilePath(), "");

    engine.Report({{"k", "v"}}, "before init");
    EXPECT_EQ(engine.WriteFailures(), 1u);

    ASSERT_TRUE(engine.Init("x", false, "", "", "", dir.Windows()));
    engine.Report({{"k", "v"}}, "after init");
    EXPECT_EQ(engine.WriteFailures(), 1u);
}

// A file engine that counts its records down, so a test can wait for their delivery.
class CountingFileEngine : public FileReportEngine {
public:
    explicit CountingFileEngine(unsigned int expected) : delivered(expected) {}
    void Report(Fields data, std::string tag) override {
        FileReportEngine::Report(std::move(data), std::move(tag));
        delivered.CountDown();
    }
    CountDownLatch delivered;
};

TEST(FileReportEngineTest, ReporterDeliversThroughTheFileEngine) {
    TempDirectory dir;
    auto engine = std::make_shared<CountingFileEngine>(20);
    ASSERT_TRUE(SetReportEngine(engine));
    Reporter::GetInstance().Enable(true, false, "", "app", "1", "2", "3", dir.Windows("out"));
    for (int i = 0; i < 20; ++i) {
        Reporter::GetInstance().Report({{"i", std::to_string(i)}}, "tick");
    }
    engine->delivered.Wait(10000);
    ASSERT_EQ(engine->delivered.GetCount(), 0u);

    const auto lines = ReadJsonLines(dir.Native() / "out" / "app.jsonl");
    ASSERT_EQ(lines.size(), 21u);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(lines[i + 1]["tag"], "tick");
        EXPECT_EQ(lines[i + 1]["fields"]["i"], std::to_string(i));
        EXPECT_EQ(lines[i + 1]["fields"]["sdk_name"], "orvik");
    }
}

}  // namespace
}  // namespace orvik
