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
    Write("data", withNul_);
    Write("locked", "x");
    fs::permissions(temp_.Native() / "locked", fs::perms::none);
    const bool lockWorks = !std::ifstream(temp_.Native() / "locked").is_open();  // not as root

    const std::pair<std::string, FileOptRet> cases[] = {
        {temp_.Windows("missing"), FILE_OPT_NOT_FILE},
        {temp_.Windows("dir"), FILE_OPT_NOT_FILE},
        {"\\\\srv\\share\\data", FILE_OPT_NOT_FILE},
        {temp_.Windows("empty"), FILE_OPT_NO_CONTENT},
        {temp_.Windows("locked"), lockWorks ? FILE_OPT_NO_CONTENT : FILE_OPT_SUCCESS},
    };
    for (const auto& [path, result] : cases) {
        SCOPED_TRACE(path);
        std::string content = "kept";
        EXPECT_EQ(FileUtils::ReadFile(path, content, 0), result);
        EXPECT_EQ(content, result == FILE_OPT_SUCCESS ? "x" : "kept");
    }

    std::string content = "old";
    EXPECT_EQ(FileUtils::ReadFile(temp_.Windows("data"), content, std::ios::binary),
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
    EXPECT_EQ(FileUtils::WriteFile("x", "\\\\srv\\share\\f", 0), FILE_OPT_NO_PARENT);
    EXPECT_EQ(FileUtils::WriteFile("x", "dir\\g", std::ios::in), FILE_OPT_OPEN_FAILED);

    EXPECT_EQ(FileUtils::WriteFile(withNul_, ".\\file.txt", 0), FILE_OPT_SUCCESS);
#ifdef _WIN32  // Windows' text mode writes each LF as CRLF
    EXPECT_EQ(FileBytes("file.txt"), std::string("one\0two\r\r\n\0", 11));
#else
    EXPECT_EQ(FileBytes("file.txt"), withNul_);
#endif
    EXPECT_EQ(FileUtils::WriteFile(withNul_, ".\\file.txt", std::ios::binary), FILE_OPT_SUCCESS);
    EXPECT_EQ(FileBytes("file.txt"), withNul_);
    EXPECT_EQ(FileUtils::WriteFile("new", "./file.txt", 0), FILE_OPT_SUCCESS);
    EXPECT_EQ(FileUtils::WriteFile("+more", temp_.Windows("file.txt"), std::ios::app),
              FILE_OPT_SUCCESS);
    EXPECT_EQ(FileBytes("file.txt"), "new+more");
    EXPECT_EQ(FileUtils::WriteFile("", "./file.txt", 0), FILE_OPT_SUCCESS);
    EXPECT_EQ(FileBytes("file.txt"), "");
}

TEST_F(FileUtilsTest, ModeZeroReadsCrlfLineEndsInTheSystemsTextMode) {
    const std::string crlf = "one\r\ntwo\r\n";
    Write("crlf", crlf);
    std::string content = "old";
#ifdef _WIN32
    // Windows' text mode reads each CRLF as LF: fewer bytes arrive than the file holds.
    EXPECT_EQ(FileUtils::ReadFile(temp_.Windows("crlf"), content, 0), FILE_OPT_SIZE_MISMATCH);
    EXPECT_EQ(content, "");
#else
    // Text mode is binary mode here.
    EXPECT_EQ(FileUtils::ReadFile(temp_.Windows("crlf"), content, 0), FILE_OPT_SUCCESS);
    EXPECT_EQ(content, crlf);
#endif
    EXPECT_EQ(FileUtils::ReadFile(temp_.Windows("crlf"), content, std::ios::binary),
              FILE_OPT_SUCCESS);
    EXPECT_EQ(content, crlf);
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
    EXPECT_TRUE(otherDone);
    EXPECT_EQ(other.get(), FILE_OPT_SUCCESS);
    EXPECT_EQ(blocked.get(), FILE_OPT_SUCCESS);
}

TEST_F(FileUtilsTest, LongPathsWorkEndToEnd) {
    std::string dir = temp_.Windows();
    for (int level = 0; level < 8; ++level) {
        dir += "\\" + std::string(40, static_cast<char>('a' + level));
#ifdef _WIN32
        // Windows' C runtime hands narrow names to the system's ANSI calls, which take none
        // beyond the legacy limit, so FileUtils::MakeDir cannot make these levels there. MakeDir
        // of a Path reaches them through the wide call, with the long-path prefix.
        ASSERT_TRUE(MakeDir(Path(dir)));
#endif
    }
#ifndef _WIN32
    ASSERT_TRUE(FileUtils::MakeDir(dir + "\\"));
#endif
    const std::string file = dir + "\\file.bin";
    ASSERT_GT(file.size(), 260u);
    EXPECT_EQ(FileUtils::WriteFile(withNul_, file, std::ios::binary), FILE_OPT_SUCCESS);
    std::string content;
    EXPECT_EQ(FileUtils::ReadFile("\\\\?\\" + file, content, std::ios::binary), FILE_OPT_SUCCESS);
    EXPECT_EQ(content, withNul_);
    EXPECT_TRUE(FileUtils::CheckDirOrFileExists(file));
#ifndef _WIN32
    EXPECT_TRUE(FileUtils::IsFileExist(file));  // a narrow C runtime call (see above)
#endif
}

TEST_F(FileUtilsTest, MakeDirWalksTheBytes) {
    const WorkingDirectory inside(temp_.Native());
    EXPECT_FALSE(FileUtils::MakeDir(""));
    EXPECT_TRUE(FileUtils::MakeDir("plain"));
    EXPECT_FALSE(fs::exists("plain"));

    EXPECT_TRUE(FileUtils::MakeDir("a/b\\c"));
    EXPECT_TRUE(fs::is_directory("a/b"));
    EXPECT_FALSE(fs::exists("a/b/c"));
    EXPECT_TRUE(FileUtils::MakeDir("a//b/c/"));  // doubled separator: the prefix exists by then
    EXPECT_TRUE(fs::is_directory("a/b/c"));
    EXPECT_TRUE(FileUtils::MakeDir(temp_.Windows("d\\e\\")));
    EXPECT_TRUE(fs::is_directory("d/e"));

    Write("file", "x");  // a file at a prefix counts as existing; making below it fails
    EXPECT_FALSE(FileUtils::MakeDir("file/sub/"));
    EXPECT_FALSE(FileUtils::MakeDir("/x/"));  // "/" parses to nothing, and the root exists
}

TEST_F(FileUtilsTest, NarrowChecksAndRemoval) {
    fs::create_directory(temp_.Native() / "dir");
    Write("file", "x");
    const std::string dir = temp_.Windows("dir");
    const std::string file = temp_.Windows("file");

    EXPECT_TRUE(FileUtils::IsFileExist(dir));
    EXPECT_TRUE(FileUtils::IsDirExist(file));
    EXPECT_TRUE(FileUtils::CanRead(file));
    EXPECT_TRUE(FileUtils::CanWrite(file));
    EXPECT_FALSE(FileUtils::CanRead(temp_.Windows("missing")));

    EXPECT_FALSE(FileUtils::RemoveFile(dir));
    EXPECT_FALSE(FileUtils::RemoveDir(file));
    EXPECT_TRUE(FileUtils::RemoveFile(file));
    EXPECT_TRUE(FileUtils::RemoveDir(dir));

    // A share path of one token is written as "\\dir" and read back as the relative "dir".
    const WorkingDirectory inside(temp_.Native());
    EXPECT_FALSE(FileUtils::CheckDirOrFileExists("\\\\dir"));
    fs::create_directory("dir");
    EXPECT_TRUE(FileUtils::CheckDirOrFileExists("\\\\dir"));
}

TEST_F(FileUtilsTest, NormalizedFilePathWarnsAndReturnsNothing) {
    Log::GetInstance().SetLogEnabled(true);
    testing::ConsoleCapture console;
    EXPECT_EQ(FileUtils::NormalizedFilePath(""), "");
    EXPECT_EQ(console.Text(), "");
    EXPECT_EQ(FileUtils::NormalizedFilePath("C:\\a\\..\\b"), "");
    const std::string text = console.Text();
    EXPECT_NE(text.find("[WARN]["), std::string::npos) << text;
    EXPECT_NE(text.find("][orvik::FileUtils::NormalizedFilePath] NormalizedFilePath _WIN32 error"),
              std::string::npos)
        << text;
}

}  // namespace
}  // namespace orvik
