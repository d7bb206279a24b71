#include "common/file_utils.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <mutex>
#include <stdexcept>
#include <string>

#include "common/log.h"
#include "library_frame.h"
#include "support/console_capture.h"
#include "support/temp_directory.h"

namespace orvik {
namespace {

namespace fs = std::filesystem;
using testing::TempDirectory;
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
    TempDirectory temp_;
    const std::string withNul_{"one\0two\r\n\0", 10};
};

TEST_F(FileUtilsTest, ReadFileResultsInTheirOrder) {
    fs::create_directory(temp_.Native() / "dir");
    Write("empty", "");
    Write("data", withNul_);

    struct Case {
        std::string name;
        FileOptRet result;
    };
    const Case cases[] = {
        {"missing", FILE_OPT_NOT_FILE},
        {"dir", FILE_OPT_NOT_FILE},
        {"empty", FILE_OPT_NO_CONTENT},
        {"\\\\srv\\share\\data", FILE_OPT_NOT_FILE},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string content = "kept";
        const std::string path = c.name[0] == '\\' ? c.name : temp_.Windows(c.name);
        EXPECT_EQ(FileUtils::ReadFile(path, content, 0), c.result);
        EXPECT_EQ(content, "kept");
    }

    std::string content = "old";
    EXPECT_EQ(FileUtils::ReadFile(temp_.Windows("data"), content, 0), FILE_OPT_SUCCESS);
    EXPECT_EQ(content, withNul_);  // mode 0 reads the bytes unchanged here
    content.clear();
    EXPECT_EQ(FileUtils::ReadFile(temp_.Windows("data"), content, std::ios::binary),
              FILE_OPT_SUCCESS);
    EXPECT_EQ(content, withNul_);
}

TEST_F(FileUtilsTest, ReadFileOfAnUnopenableFile) {
    Write("locked", "x");
    fs::permissions(temp_.Native() / "locked", fs::perms::none);
    if (std::ifstream(temp_.Native() / "locked").is_open()) {
        GTEST_SKIP() << "this user can open any file";
    }
    std::string content = "kept";
    EXPECT_EQ(FileUtils::ReadFile(temp_.Windows("locked"), content, 0), FILE_OPT_NO_CONTENT);
    EXPECT_EQ(content, "kept");
}

TEST_F(FileUtilsTest, WriteFileResultsInTheirOrder) {
    fs::create_directory(temp_.Native() / "dir");
    const WorkingDirectory inside(temp_.Native());

    EXPECT_EQ(FileUtils::WriteFile("x", temp_.Windows("dir"), 0), FILE_OPT_IS_DIRECTORY);
    EXPECT_EQ(FileUtils::WriteFile("x", "dir", 0), FILE_OPT_IS_DIRECTORY);
    EXPECT_EQ(FileUtils::WriteFile("x", temp_.Windows("no\\file"), 0), FILE_OPT_NO_PARENT);
    EXPECT_FALSE(fs::exists(temp_.Native() / "no"));
    EXPECT_EQ(FileUtils::WriteFile("x", "file.txt", 0), FILE_OPT_NO_PARENT);  // bare name
    EXPECT_EQ(FileUtils::WriteFile("x", "\\\\srv\\share\\f", 0), FILE_OPT_NO_PARENT);
    EXPECT_EQ(FileUtils::WriteFile("x", temp_.Windows("dir\\f"), std::ios::in | std::ios::app),
              FILE_OPT_SUCCESS);
    EXPECT_EQ(FileUtils::WriteFile("x", temp_.Windows("dir\\g"), std::ios::in),
              FILE_OPT_OPEN_FAILED);  // in|out does not create

    EXPECT_EQ(FileUtils::WriteFile(withNul_, ".\\file.txt", 0), FILE_OPT_SUCCESS);
    EXPECT_EQ(FileBytes("file.txt"), withNul_);
    EXPECT_EQ(FileUtils::WriteFile("new", "./file.txt", 0), FILE_OPT_SUCCESS);
    EXPECT_EQ(FileBytes("file.txt"), "new");
    EXPECT_EQ(FileUtils::WriteFile("+more", temp_.Windows("file.txt"), std::ios::app),
              FILE_OPT_SUCCESS);
    EXPECT_EQ(FileBytes("file.txt"), "new+more");
    EXPECT_EQ(FileUtils::WriteFile("", "./file.txt", 0), FILE_OPT_SUCCESS);
    EXPECT_EQ(FileBytes("file.txt"), "");
}

TEST_F(FileUtilsTest, WriteFileWaitsForTheFileWriteMutex) {
    std::unique_lock<std::mutex> held(detail::fileWriteMutex);
    auto writer = std::async(std::launch::async,
                             [&] { return FileUtils::WriteFile("done", temp_.Windows("f"), 0); });
    EXPECT_EQ(writer.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
    EXPECT_FALSE(fs::exists(temp_.Native() / "f"));
    held.unlock();
    ASSERT_EQ(writer.wait_for(std::chrono::seconds(30)), std::future_status::ready);
    EXPECT_EQ(writer.get(), FILE_OPT_SUCCESS);
    EXPECT_EQ(FileBytes(temp_.Native() / "f"), "done");
}

TEST_F(FileUtilsTest, LongPathsWorkEndToEnd) {
    std::string dir = temp_.Windows();
    for (int level = 0; level < 8; ++level) {
        dir += "\\" + std::string(40, static_cast<char>('a' + level));
    }
    ASSERT_TRUE(FileUtils::MakeDir(dir + "\\"));
    const std::string file = dir + "\\file.bin";
    ASSERT_GT(file.size(), 260u);
    EXPECT_EQ(FileUtils::WriteFile(withNul_, file, std::ios::binary), FILE_OPT_SUCCESS);
    std::string content;
    EXPECT_EQ(FileUtils::ReadFile("\\\\?\\" + file, content, 0), FILE_OPT_SUCCESS);
    EXPECT_EQ(content, withNul_);
    EXPECT_TRUE(FileUtils::CheckDirOrFileExists(file));
    EXPECT_TRUE(FileUtils::IsFileExist(file));
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
    EXPECT_FALSE(FileUtils::MakeDir("\\\\srv\\share\\x\\"));
}

TEST_F(FileUtilsTest, NarrowChecksAndRemoval) {
    fs::create_directory(temp_.Native() / "dir");
    Write("file", "x");
    const std::string dir = temp_.Windows("dir");
    const std::string file = temp_.Windows("file");

    EXPECT_TRUE(FileUtils::IsFileExist(dir));
    EXPECT_TRUE(FileUtils::IsDirExist(file));
    EXPECT_FALSE(FileUtils::IsFileExist(temp_.Windows("missing")));
    EXPECT_TRUE(FileUtils::CanRead(file));
    EXPECT_TRUE(FileUtils::CanWrite(file));
    EXPECT_FALSE(FileUtils::CanRead(temp_.Windows("missing")));
    EXPECT_TRUE(FileUtils::CheckDirOrFileExists(dir));
    EXPECT_FALSE(FileUtils::CheckDirOrFileExists("\\\\dir"));

    EXPECT_FALSE(FileUtils::RemoveFile(dir));
    EXPECT_FALSE(FileUtils::RemoveDir(file));
    EXPECT_TRUE(FileUtils::RemoveFile(file));
    EXPECT_TRUE(FileUtils::RemoveDir(dir));
    EXPECT_FALSE(FileUtils::RemoveDir(dir));

    // A share path of one token is written as "\\dir" and read back as the relative "dir".
    const WorkingDirectory inside(temp_.Native());
    fs::create_directory("dir");
    EXPECT_TRUE(FileUtils::CheckDirOrFileExists("\\\\dir"));
}

TEST_F(FileUtilsTest, NormalizedFilePathWarnsAndReturnsNothing) {
    Log::GetInstance().SetLogEnabled(true);
    testing::ConsoleCapture console;
    EXPECT_EQ(FileUtils::NormalizedFilePath(""), "");
    EXPECT_EQ(console.Text(), "");
    EXPECT_EQ(FileUtils::NormalizedFilePath("C:\\a\\..\\b"), "");
    const std::string line = console.Text();
    EXPECT_NE(line.find("[WARN]"), std::string::npos) << line;
    EXPECT_NE(line.find("[orvik::FileUtils::NormalizedFilePath] NormalizedFilePath _WIN32 error"),
              std::string::npos)
        << line;
}

TEST_F(FileUtilsTest, TextWithANulRaisesOutOfRange) {
    std::string content = "kept";
    EXPECT_THROW(FileUtils::ReadFile(std::string("a\0b\\c", 5), content, 0), std::out_of_range);
    EXPECT_THROW(FileUtils::WriteFile("x", std::string("a\0b\\c", 5), 0), std::out_of_range);
    EXPECT_EQ(content, "kept");
}

}  // namespace
}  // namespace orvik
