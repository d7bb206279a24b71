#include "common/file_report_engine.h"

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "common/path.h"
#include "platform/platform.h"
#include "support/temp_directory.h"

namespace orvik {
namespace {

using nlohmann::json;
using testing::TempDirectory;

std::vector<json> ReadJsonLines(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::vector<json> lines;
    for (std::string line; std::getline(in, line);) {
        lines.push_back(json::parse(line));  // throws on a line that is not JSON
    }
    return lines;
}

// Every line parses back to exactly the texts given, hostile ones included; invalid UTF-8
// comes back with U+FFFD in place of each bad byte.
TEST(FileReportEngineTest, LinesParseBackToTheHostileTextsGiven) {
    TempDirectory dir;
    FileReportEngine engine;
    ASSERT_TRUE(
        engine.Init("client", false, "quote\"", "back\\slash", "line\nend", dir.Windows("a/b/c")));
    EXPECT_EQ(engine.FilePath(),
              Path(dir.Windows("a/b/c/client.jsonl")).Str(Path::PATH_TYPE_WINDOWS));
    EXPECT_EQ(engine.NativeFilePath(),
              (dir.Native() / "a/b/c/client.jsonl").make_preferred().string());
    const std::string fffd = "\xEF\xBF\xBD";
    const std::pair<std::string, std::string> cases[] = {
        {"\"quoted\" \\ back", "\"quoted\" \\ back"},
        {"tab\tcr\rlf\nbell\x07\x1F\x7F", "tab\tcr\rlf\nbell\x07\x1F\x7F"},
        {{"a\0b", 3}, {"a\0b", 3}},
        {"Gr\xC3\xBC\xC3\x9F \xE4\xB8\x96 \xF0\x9F\x8C\x8D",
         "Gr\xC3\xBC\xC3\x9F \xE4\xB8\x96 \xF0\x9F\x8C\x8D"},
        {"bad\xFF", "bad" + fffd},
        {"cut\xE4\xB8", "cut" + fffd},
        {"surrogate\xED\xA0\x80!", "surrogate" + fffd + fffd + fffd + "!"}};
    std::map<std::string, std::string> fields;
    json expected = json::object();
    for (const auto& [sent, parsed] : cases) {
        fields[sent] = sent;
        expected[parsed] = parsed;
    }
    engine.Report(fields, "tag\"\x01");

    const auto lines = ReadJsonLines(dir.Native() / "a/b/c/client.jsonl");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0]["engine"], "client");
    EXPECT_EQ(lines[0]["texts"], json::array({"quote\"", "back\\slash", "line\nend"}));
    EXPECT_EQ(lines[1]["tag"], "tag\"\x01");
    EXPECT_EQ(lines[1]["fields"], expected);
    EXPECT_EQ(engine.WriteFailures(), 0u);

    // An existing directory is fine, and a second engine appends to the same file.
    FileReportEngine again;
    ASSERT_TRUE(again.Init("client", true, "", "", "", dir.Windows("a/b/c")));
    again.Report({}, "second");
    EXPECT_EQ(ReadJsonLines(dir.Native() / "a/b/c/client.jsonl").size(), 4u);
}

TEST(FileReportEngineTest, FailuresAreReportedByInitAndCountedByReport) {
    TempDirectory dir;
    std::ofstream(dir.Native() / "plain-file") << "x";
    FileReportEngine engine;
    EXPECT_FALSE(engine.Init("x", false, "", "", "", dir.Windows("plain-file/below")));
    EXPECT_FALSE(engine.Init("x", false, "", "", "", "D:\\elsewhere"));
    EXPECT_EQ(engine.FilePath(), "");
    EXPECT_EQ(engine.NativeFilePath(), "");
    engine.Report({{"k", "v"}}, "before init");
    EXPECT_EQ(engine.WriteFailures(), 1u);
    ASSERT_TRUE(engine.Init("x", false, "", "", "", dir.Windows()));
    engine.Report({{"k", "v"}}, "after init");
    EXPECT_EQ(engine.WriteFailures(), 1u);
}

// A record that meets a full disk part-way leaves no fragment: the file is cut back, the
// failure is counted, and the records before and after it parse.
TEST(FileReportEngineTest, RecordThatMeetsAFullDiskLeavesNoFragment) {
    TempDirectory dir;
    FileReportEngine engine;
    ASSERT_TRUE(engine.Init("full", false, "", "", "", dir.Windows()));
    engine.Report({{"k", "before"}}, "t");
    const auto file = dir.Native() / "full.jsonl";
    const auto size = std::filesystem::file_size(file);
    if (!platform::LimitFileSizeForTesting(size + 16)) {
        GTEST_SKIP() << "this system cannot limit the size of a file";
    }
    engine.Report({{"k", std::string(64, 'x')}}, "t");
    platform::LimitFileSizeForTesting(0);
    EXPECT_EQ(engine.WriteFailures(), 1u);
    EXPECT_EQ(std::filesystem::file_size(file), size);
    engine.Report({{"k", "after"}}, "t");
    const auto lines = ReadJsonLines(file);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[2]["fields"]["k"], "after");
}

}  // namespace
}  // namespace orvik
