#include "common/file_utils.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <string>

#include "common/path.h"
#include "platform/platform.h"
#include "support/console_capture.h"
#include "support/library_log_lines.h"
#include "support/temp_directory.h"

namespace orvik {
namespace {

namespace fs = std::filesystem;
using F = FileUtils;
using testing::kWindows;

class FileUtilsTest : public ::testing::Test {
protected:
    testing::TempDirectory temp_;
    const testing::WorkingDirectory inside_{temp_.Native()};
    const std::string withNul_{"one\0two\r\n\0", 10};
};

TEST_F(FileUtilsTest, ReadWriteResultsInTheirOrderAndNormalizedFilePathWarns) {
    fs::create_directory("dir");
    std::ofstream("empty");
    std::ofstream("eol", std::ios::binary) << withNul_;
    std::ofstream("locked") << "x";
    fs::permissions("locked", fs::perms::none);
    const bool lockWorks = !std::ifstream("locked").is_open();  // not as root
    const std::pair<std::string, FileOptRet> cases[] = {
        {temp_.Windows("missing"), FILE_OPT_NOT_FILE},
        {"dir", FILE_OPT_NOT_FILE},
        {"empty", FILE_OPT_NO_CONTENT},
        {temp_.Windows("locked"), lockWorks ? FILE_OPT_NO_CONTENT : FILE_OPT_SUCCESS}};
    for (const auto& [path, result] : cases) {
        SCOPED_TRACE(path);
        std::string content = "kept";
        EXPECT_EQ(F::ReadFile(path, content, 0), result);
        EXPECT_EQ(content, result == FILE_OPT_SUCCESS ? "x" : "kept");
    }
    // Windows' text mode reads each CRLF as LF, and writes each LF as CRLF.
    std::string content;
    EXPECT_EQ(F::ReadFile("eol", content, 0), kWindows ? FILE_OPT_SIZE_MISMATCH : FILE_OPT_SUCCESS);

    EXPECT_EQ(F::WriteFile("x", temp_.Windows("dir"), 0), FILE_OPT_IS_DIRECTORY);
    EXPECT_EQ(F::WriteFile("x", "no\\file", 0), FILE_OPT_NO_PARENT);
    EXPECT_EQ(F::WriteFile("x", "dir\\g", std::ios::in), FILE_OPT_OPEN_FAILED);
    EXPECT_EQ(F::WriteFile(withNul_, ".\\file.txt", 0), FILE_OPT_SUCCESS);
    EXPECT_EQ(F::ReadFile("file.txt", content, std::ios::binary), FILE_OPT_SUCCESS);
    EXPECT_EQ(content, kWindows ? std::string("one\0two\r\r\n\0", 11) : withNul_);
    EXPECT_EQ(F::WriteFile("new", "./file.txt", 0), FILE_OPT_SUCCESS);
    EXPECT_EQ(F::WriteFile("+more", temp_.Windows("file.txt"), std::ios::app), FILE_OPT_SUCCESS);
    EXPECT_EQ(F::ReadFile("file.txt", content, 0), FILE_OPT_SUCCESS);
    EXPECT_EQ(content, "new+more");

    testing::FixedLogTime time;
    testing::ConsoleCapture console;
    EXPECT_EQ(F::NormalizedFilePath("") + console.Text(), "");
    EXPECT_EQ(F::NormalizedFilePath("C:\\a\\..\\b"), "");
    EXPECT_EQ(
        testing::MaskLineNumbers(console.Text()),
        testing::LibraryLine("WARN", "src/file_utils.cpp", "orvik::FileUtils::NormalizedFilePath",
                             "NormalizedFilePath _WIN32 error"));
}

TEST_F(FileUtilsTest, BlockedWriteHoldsUpNoWriteToAnotherFile) {
    if (!platform::MakeFifoForTesting("pipe")) {
        GTEST_SKIP() << "this system has no named pipes";
    }
    auto blocked = std::async(std::launch::async, [] { return F::WriteFile("1", "./pipe", 0); });
    EXPECT_EQ(blocked.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
    auto other = std::async(std::launch::async, [] { return F::WriteFile("2", "./other", 0); });
    EXPECT_EQ(other.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    const auto reader = platform::OpenFifoReaderForTesting("pipe");  // lets the first write through
    EXPECT_EQ(other.get(), FILE_OPT_SUCCESS);
    EXPECT_EQ(blocked.get(), FILE_OPT_SUCCESS);
}

TEST_F(FileUtilsTest, MakeDirChecksRemovalAndLongPaths) {
    EXPECT_FALSE(F::MakeDir(""));
    EXPECT_TRUE(F::MakeDir("plain"));  // makes only the levels before a separator
    EXPECT_TRUE(F::MakeDir("a/b\\c"));
    EXPECT_TRUE(fs::is_directory("a/b"));
    EXPECT_FALSE(fs::exists("plain") || fs::exists("a/b/c"));
    EXPECT_TRUE(F::MakeDir(temp_.Windows("d\\e\\")));
    std::ofstream("file") << "x";  // a file at a prefix counts as existing; making below it fails
    EXPECT_FALSE(F::MakeDir("file/sub/"));
    EXPECT_TRUE(F::IsFileExist("d"));  // both only ask whether the entry exists
    EXPECT_TRUE(F::IsDirExist("file"));
    EXPECT_TRUE(F::CanRead(temp_.Windows("file")));
    EXPECT_TRUE(F::CanWrite("file"));
    EXPECT_FALSE(F::RemoveFile("d"));
    EXPECT_TRUE(F::RemoveDir(temp_.Windows("d\\e")));

    std::string deep = temp_.Windows();
    for (int level = 0; level < 8; ++level) {
        deep += "\\" + std::string(40, static_cast<char>('a' + level));
        // Windows' C runtime takes no narrow name beyond the legacy limit; a Path's MakeDir can.
        ASSERT_TRUE(!kWindows || MakeDir(Path(deep)));
    }
    ASSERT_TRUE(kWindows || F::MakeDir(deep + "\\"));
    EXPECT_EQ(F::WriteFile(withNul_, deep + "\\f", std::ios::binary), FILE_OPT_SUCCESS);
    std::string content;
    EXPECT_EQ(F::ReadFile("\\\\?\\" + deep + "\\f", content, std::ios::binary), FILE_OPT_SUCCESS);
    EXPECT_TRUE(F::CheckDirOrFileExists(deep + "\\f"));
}

}  // namespace
}  // namespace orvik
