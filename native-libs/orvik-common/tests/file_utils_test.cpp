#include "common/file_utils.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <stdexcept>
#include <string>

#include "common/log.h"
#include "common/path.h"
#include "platform/platform.h"
#include "support/console_capture.h"
#include "support/temp_directory.h"

namespace orvik {
namespace {

namespace fs = std::filesystem;
using testing::WorkingDirectory;

constexpr bool kWindows =
#ifdef _WIN32
    true;
#else
    false;
#endif

std::string FileBytes(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
}

class FileUtilsTest : public ::testing::Test {
protected:
    void Write(const std::string& relative, const std::string& bytes) {
        std::ofstream(temp_.Native() / relative, std::ios::binary) << bytes;
    }
    testing::TempDirectory temp_;
    const std::string withNul_{"one\0two\r\n\0", 10};
};

TEST_F(FileUtilsTest, ReadFileAndWriteFileResultsInTheirOrder) {
    fs::create_directory(temp_.Native() / "dir");
    Write("empty", "");
    Write("crlf", withNul_);
    Write("locked", "x");
    fs::permissions(temp_.Native() / "locked", fs::perms::none);
    const bool lockWorks = !std::ifstream(temp_.Native() / "locked").is_open();  // not as root
    const std::pair<std::string, FileOptRet> cases[] = {
        {temp_.Windows("missing"), FILE_OPT_NOT_FILE},
        {temp_.Windows("dir"), FILE_OPT_NOT_FILE},
        {temp_.Windows("empty"), FILE_OPT_NO_CONTENT},
        {temp_.Windows("locked"), lockWorks ? FILE_OPT_NO_CONTENT : FILE_OPT_SUCCESS},
    };
    for (const auto& [path, result] : cases) {
        SCOPED_TRACE(path);
        std::string content = "kept";
        EXPECT_EQ(FileUtils::ReadFile(path, content, 0), result);
        EXPECT_EQ(content, result == FILE_OPT_SUCCESS ? "x" : "kept");
    }
    // Windows' text mode reads each CRLF as LF: fewer bytes arrive than the file holds.
    std::string content;
    EXPECT_EQ(FileUtils::ReadFile(temp_.Windows("crlf"), content, 0),
              kWindows ? FILE_OPT_SIZE_MISMATCH : FILE_OPT_SUCCESS);
    EXPECT_EQ(FileUtils::ReadFile(temp_.Windows("crlf"), content, std::ios::binary),
              FILE_OPT_SUCCESS);
    EXPECT_EQ(content, withNul_);
    EXPECT_THROW(FileUtils::ReadFile(std::string("a\0b\\c", 5), content, 0), std::out_of_range);
    EXPECT_THROW(FileUtils::WriteFile("x", std::string("a\0b\\c", 5), 0), std::out_of_range);

    const WorkingDirectory inside(temp_.Native());
    EXPECT_EQ(FileUtils::WriteFile("x", temp_.Windows("dir"), 0), FILE_OPT_IS_DIRECTORY);
    EXPECT_EQ(FileUtils::WriteFile("x", "dir", 0), FILE_OPT_IS_DIRECTORY);
    EXPECT_EQ(FileUtils::WriteFile("x", temp_.Windows("no\\file"), 0), FILE_OPT_NO_PARENT);
    EXPECT_FALSE(fs::exists("no"));
    EXPECT_EQ(FileUtils::WriteFile("x", "file.txt", 0), FILE_OPT_NO_PARENT);  // bare name
    EXPECT_EQ(FileUtils::WriteFile("x", "dir\\g", std::ios::in), FILE_OPT_OPEN_FAILED);
    EXPECT_EQ(FileUtils::WriteFile(withNul_, ".\\file.txt", 0), FILE_OPT_SUCCESS);
    // Windows' text mode writes each LF as CRLF.
    EXPECT_EQ(FileBytes("file.txt"), kWindows ? std::string("one\0two\r\r\n\0", 11) : withNul_);
    EXPECT_EQ(FileUtils::WriteFile("new", "./file.txt", 0), FILE_OPT_SUCCESS);
    EXPECT_EQ(FileUtils::WriteFile("+more", temp_.Windows("file.txt"), std::ios::app),
              FILE_OPT_SUCCESS);
    EXPECT_EQ(FileBytes("file.txt"), "new+more");
}

// A write that blocks (opening a pipe that nobody reads yet) holds up no write to another file.
TEST_F(FileUtilsTest, BlockedWriteHoldsUpNoWriteToAnotherFile) {
    const std::string pipe = (temp_.Native() / "pipe").string();
    if (!platform::MakeFifoForTesting(pipe)) {
        GTEST_SKIP() << "this system has no named pipes";
    }
    auto blocked = std::async(std::launch::async,
                              [&] { return FileUtils::WriteFile("1", temp_.Windows("pipe"), 0); });
    EXPECT_EQ(blocked.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
    auto other = std::async(std::launch::async,
                            [&] { return FileUtils::WriteFile("2", temp_.Windows("other"), 0); });
    const bool otherDone = other.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
    const auto reader = platform::OpenFifoReaderForTesting(pipe);  // lets the first write through
    EXPECT_TRUE(otherDone && other.get() == FILE_OPT_SUCCESS && blocked.get() == FILE_OPT_SUCCESS);
}

TEST_F(FileUtilsTest, LongPathsWorkEndToEnd) {
    std::string dir = temp_.Windows();
    for (int level = 0; level < 8; ++level) {
        dir += "\\" + std::string(40, static_cast<char>('a' + level));
        // Windows' C runtime takes no narrow name beyond the legacy limit; a Path's MakeDir can.
        ASSERT_TRUE(!kWindows || MakeDir(Path(dir)));
    }
    ASSERT_TRUE(kWindows || FileUtils::MakeDir(dir + "\\"));
    const std::string file = dir + "\\file.bin";
    EXPECT_EQ(FileUtils::WriteFile(withNul_, file, std::ios::binary), FILE_OPT_SUCCESS);
    std::string content;
    EXPECT_EQ(FileUtils::ReadFile("\\\\?\\" + file, content, std::ios::binary), FILE_OPT_SUCCESS);
    EXPECT_EQ(content, withNul_);
    EXPECT_TRUE(FileUtils::CheckDirOrFileExists(file));
    EXPECT_TRUE(kWindows || FileUtils::IsFileExist(file));  // a narrow C runtime call
}

TEST_F(FileUtilsTest, MakeDirChecksAndRemoval) {
    const WorkingDirectory inside(temp_.Native());
    EXPECT_FALSE(FileUtils::MakeDir(""));
    EXPECT_TRUE(FileUtils::MakeDir("plain") && !fs::exists("plain"));
    EXPECT_TRUE(FileUtils::MakeDir("a/b\\c") && fs::is_directory("a/b") && !fs::exists("a/b/c"));
    EXPECT_TRUE(FileUtils::MakeDir("a//b/c/"));  // doubled separator: the prefix exists by then
    EXPECT_TRUE(FileUtils::MakeDir(temp_.Windows("d\\e\\")) && fs::is_directory("d/e"));
    Write("file", "x");  // a file at a prefix counts as existing; making below it fails
    EXPECT_FALSE(FileUtils::MakeDir("file/sub/"));
    EXPECT_FALSE(FileUtils::MakeDir("/x/"));  // "/" parses to nothing, and the root exists

    const std::string dir = temp_.Windows("d"), file = temp_.Windows("file");
    EXPECT_TRUE(FileUtils::IsFileExist(dir) && FileUtils::IsDirExist(file));
    EXPECT_TRUE(FileUtils::CanRead(file) && FileUtils::CanWrite(file));
    EXPECT_FALSE(FileUtils::CanRead(temp_.Windows("missing")));
    EXPECT_FALSE(FileUtils::RemoveFile(dir) || FileUtils::RemoveDir(file));
    EXPECT_TRUE(FileUtils::RemoveFile(file) && FileUtils::RemoveDir(temp_.Windows("d\\e")));
    // A share path of one token is written as "\\dir" and read back as the relative "dir".
    EXPECT_FALSE(FileUtils::CheckDirOrFileExists("\\\\dir"));
    fs::create_directory("dir");
    EXPECT_TRUE(FileUtils::CheckDirOrFileExists("\\\\dir"));
}

TEST_F(FileUtilsTest, NormalizedFilePathWarnsAndReturnsNothing) {
    Log::GetInstance().SetLogEnabled(true);
    testing::ConsoleCapture console;
    EXPECT_EQ(FileUtils::NormalizedFilePath("") + console.Text(), "");
    EXPECT_EQ(FileUtils::NormalizedFilePath("C:\\a\\..\\b"), "");
    EXPECT_NE(console.Text().find("[WARN][", 0), std::string::npos);
    EXPECT_NE(console.Text().find("][orvik::FileUtils::NormalizedFilePath] NormalizedFilePath "
                                  "_WIN32 error"),
              std::string::npos);
}

}  // namespace
}  // namespace orvik
