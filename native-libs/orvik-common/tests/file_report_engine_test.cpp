#include "common/file_report_engine.h"

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
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

}  // namespace
}  // namespace orvik
