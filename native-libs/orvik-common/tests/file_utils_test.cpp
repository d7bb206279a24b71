#include "common/file_utils.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <string>

#include "common/path.h"
#include "platform/platform.h"
#include "support/console_capture.h"
#include "support/library_log_lines.h"
#include "support/temp_directory.h"

namespace orvik {
namespace {

namespace fs = std::filesystem;
using testing::kWindows;

class FileUtilsTest : public ::testing::Test {
protected:
    testing::TempDirectory temp_;
    const testing::WorkingDirectory inside_{temp_.Native()};
    const std::string withNul_{"one\0two\r\n\0", 10};
};

// Throwing on a NUL and the parsing of each text are path_test's.
TEST_F(FileUtilsTest, ReadFileAndWriteFileResultsInTheirOrder) {
    fs::create_directory("dir");
    std::ofstream("empty");
    std::ofstream("crlf", std::ios::binary) << withNul_;
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
        EXPECT_EQ(FileUtils::ReadFile(path, content, 0), result);
        EXPECT_EQ(content, result == FILE_OPT_SUCCESS ? "x" : "kept");
    }
    // Windows' text mode reads each CRLF as LF, and writes each LF as CRLF.
    std::string content;
    EXPECT_EQ(FileUtils::ReadFile("crlf", content, 0),
              kWindows ? FILE_OPT_SIZE_MISMATCH : FILE_OPT_SUCCESS);
    EXPECT_EQ(FileUtils::ReadFile("crlf", content, std::ios::binary), FILE_OPT_SUCCESS);
    EXPECT_EQ(content, withNul_);

    EXPECT_EQ(FileUtils::WriteFile("x", temp_.Windows("dir"), 0), FILE_OPT_IS_DIRECTORY);
    EXPECT_EQ(FileUtils::WriteFile("x", "no\\file", 0), FILE_OPT_NO_PARENT);
    EXPECT_EQ(FileUtils::WriteFile("x", "file.txt", 0), FILE_OPT_NO_PARENT);  // bare name
    EXPECT_EQ(FileUtils::WriteFile("x", "dir\\g", std::ios::in), FILE_OPT_OPEN_FAILED);
    EXPECT_EQ(FileUtils::WriteFile(withNul_, ".\\file.txt", 0), FILE_OPT_SUCCESS);
    EXPECT_EQ(FileUtils::ReadFile("file.txt", content, std::ios::binary), FILE_OPT_SUCCESS);
    EXPECT_EQ(content, kWindows ? std::string("one\0two\r\r\n\0", 11) : withNul_);
    EXPECT_EQ(FileUtils::WriteFile("new", "./file.txt", 0), FILE_OPT_SUCCESS);
    EXPECT_EQ(FileUtils::WriteFile("+more", temp_.Windows("file.txt"), std::ios::app),
              FILE_OPT_SUCCESS);
    EXPECT_EQ(FileUtils::ReadFile("file.txt", content, 0), FILE_OPT_SUCCESS);
    EXPECT_EQ(content, "new+more");
}

// A write that blocks (opening a pipe that nobody reads yet) holds up no write to another file.
TEST_F(FileUtilsTest, BlockedWriteHoldsUpNoWriteToAnotherFile) {
    if (!platform::MakeFifoForTesting("pipe")) {
        GTEST_SKIP() << "this system has no named pipes";
    }
    auto blocked =
        std::async(std::launch::async, [] { return FileUtils::WriteFile("1", "./pipe", 0); });
    EXPECT_EQ(blocked.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
    auto other =
        std::async(std::launch::async, [] { return FileUtils::WriteFile("2", "./other", 0); });
    EXPECT_EQ(other.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    const auto reader = platform::OpenFifoReaderForTesting("pipe");  // lets the first write through
    EXPECT_EQ(other.get(), FILE_OPT_SUCCESS);
    EXPECT_EQ(blocked.get(), FILE_OPT_SUCCESS);
}

TEST_F(FileUtilsTest, MakeDirChecksRemovalAndLongPaths) {
    EXPECT_FALSE(FileUtils::MakeDir(""));
    EXPECT_TRUE(FileUtils::MakeDir("plain"));  // makes only the levels before a separator
    EXPECT_TRUE(FileUtils::MakeDir("a/b\\c"));
    EXPECT_TRUE(fs::is_directory("a/b"));
    EXPECT_FALSE(fs::exists("plain") || fs::exists("a/b/c"));
    EXPECT_TRUE(FileUtils::MakeDir(temp_.Windows("d\\e\\")));
    std::ofstream("file") << "x";  // a file at a prefix counts as existing; making below it fails
    EXPECT_FALSE(FileUtils::MakeDir("file/sub/"));
    EXPECT_FALSE(FileUtils::MakeDir("/x/"));  // "/" parses to nothing, and the root exists
    const std::string dir = temp_.Windows("d"), file = temp_.Windows("file");
    EXPECT_TRUE(FileUtils::IsFileExist(dir));  // both only ask whether the entry exists
    EXPECT_TRUE(FileUtils::IsDirExist(file));
    EXPECT_TRUE(FileUtils::CanRead(file));
    EXPECT_TRUE(FileUtils::CanWrite(file));
    EXPECT_FALSE(FileUtils::CanRead(temp_.Windows("missing")));
    EXPECT_FALSE(FileUtils::RemoveFile(dir));
    EXPECT_TRUE(FileUtils::RemoveFile(file));
    EXPECT_TRUE(FileUtils::RemoveDir(temp_.Windows("d\\e")));
    // A share path of one token is written as "\\dir" and read back as the relative "dir".
    EXPECT_FALSE(FileUtils::CheckDirOrFileExists("\\\\dir"));
    fs::create_directory("dir");
    EXPECT_TRUE(FileUtils::CheckDirOrFileExists("\\\\dir"));

    std::string deep = temp_.Windows();
    for (int level = 0; level < 8; ++level) {
        deep += "\\" + std::string(40, static_cast<char>('a' + level));
        // Windows' C runtime takes no narrow name beyond the legacy limit; a Path's MakeDir can.
        ASSERT_TRUE(!kWindows || MakeDir(Path(deep)));
    }
    ASSERT_TRUE(kWindows || FileUtils::MakeDir(deep + "\\"));
    EXPECT_EQ(FileUtils::WriteFile(withNul_, deep + "\\f", std::ios::binary), FILE_OPT_SUCCESS);
    std::string content;
    EXPECT_EQ(FileUtils::ReadFile("\\\\?\\" + deep + "\\f", content, std::ios::binary),
              FILE_OPT_SUCCESS);
    EXPECT_EQ(content, withNul_);
    EXPECT_TRUE(FileUtils::CheckDirOrFileExists(deep + "\\f"));
}

TEST_F(FileUtilsTest, NormalizedFilePathWarnsAndReturnsNothing) {
    testing::FixedLogTime time;
    testing::ConsoleCapture console;
    EXPECT_EQ(FileUtils::NormalizedFilePath("") + console.Text(), "");
    EXPECT_EQ(FileUtils::NormalizedFilePath("C:\\a\\..\\b"), "");
    EXPECT_EQ(
        testing::MaskLineNumbers(console.Text()),
        testing::LibraryLine("WARN", "src/file_utils.cpp", "orvik::FileUtils::NormalizedFilePath",
                             "NormalizedFilePath _WIN32 error"));
}

}  // namespace
}  // namespace orvik
