// The platform layer's contracts, tested once for every system's implementation.
#include "platform/platform.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <future>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>

#include "support/temp_directory.h"

namespace orvik {
namespace {

using platform::Utf8ToWide;
using testing::kWindows;

TEST(PlatformTimeTest, LocalTimeSleepAndConditionWaitOfTheRealClock) {
    std::tm local{};  // the inverse of mktime, whatever the machine's zone

    const std::time_t now = std::time(nullptr);
    ASSERT_TRUE(platform::LocalCalendarTime(now, local));
    EXPECT_EQ(std::mktime(&local), now);

    const auto before = platform::SteadyClockNow();
    platform::SleepFor(std::chrono::milliseconds(20));
    std::recursive_mutex mutex;
    std::condition_variable_any condition;
    std::unique_lock<std::recursive_mutex> lock(mutex);
    platform::WaitFor(condition, lock, std::chrono::milliseconds(20));
    EXPECT_GE(platform::SteadyClockNow() - before, std::chrono::milliseconds(40));
}

TEST(PlatformThreadsTest, ThreadCountSeesANewThreadAndRefusedThreadsThrow) {
    if (const int before = platform::ProcessThreadCount(); before >= 0) {
        std::promise<void> release;
        std::thread other([done = release.get_future()] { done.wait(); });
        EXPECT_GT(platform::ProcessThreadCount(), before);  // sanitizers may add threads too
        release.set_value();
        other.join();
    }
    if (platform::RefuseNewThreadsForTesting(true)) {
        EXPECT_THROW(std::thread([] {}).join(), std::system_error);
        EXPECT_TRUE(platform::RefuseNewThreadsForTesting(false));
        EXPECT_FALSE(platform::ProcessIsEnding());
        std::thread([] {}).join();
    }
}

TEST(PlatformSysTest, SystemFactsOfThisMachine) {
    const auto version = platform::SystemVersion();
    ASSERT_TRUE(version.has_value());
#if defined(__x86_64__) || defined(_M_X64)
    EXPECT_EQ(platform::ProcessorArchitecture(), "x64");
#endif
#if defined(__linux__)
    EXPECT_EQ(platform::SystemName(), "Linux");
    // The kernel's release, read another way, begins with the two numbers.
    unsigned major = 0, minor = 0;
    char dot = 0;
    std::ifstream("/proc/sys/kernel/osrelease") >> major >> dot >> minor;
    EXPECT_EQ(*version, std::make_pair(major, minor));
#elif defined(_WIN32)
    EXPECT_EQ(platform::SystemName(), "Windows");
    // The kernel's NtMajorVersion/NtMinorVersion in its shared data page, which nothing changes.
    const auto* sharedData = reinterpret_cast<const volatile unsigned*>(0x7FFE0000);
    EXPECT_EQ(*version,
              std::make_pair(unsigned{sharedData[0x26C / 4]}, unsigned{sharedData[0x270 / 4]}));
#endif
    EXPECT_EQ(platform::NativeSystemName(), platform::SystemName());
}

// Where each spelling leads is native_path_test's; FullPathName works on the text alone.
TEST(PlatformFileSystemTest, SpellingsRelativeTextAndFullPathNames) {
    testing::TempDirectory temp;
    const testing::WorkingDirectory inside(temp.Native());
    std::filesystem::create_directory(temp.Native() / "dir");
    const std::string dir = temp.Windows("dir");  // "C:\...\dir"
    for (const std::string& text : {dir, "c" + dir.substr(1), dir.substr(2), "\\\\?\\" + dir}) {
        SCOPED_TRACE(text);
        EXPECT_NE(platform::FileAttributes(Utf8ToWide(text)).value_or(0) &
                      platform::kFileAttributeDirectory,
                  0u);
    }
    for (const std::string& text :
         {"D" + dir.substr(1), std::string("\\\\?\\UNC\\srv\\share\\x"), std::string()}) {
        SCOPED_TRACE(text);
        EXPECT_FALSE(platform::FileAttributes(Utf8ToWide(text)).has_value());
        EXPECT_FALSE(platform::AccessNarrow(text, 0));
    }
    EXPECT_FALSE(platform::CreateOneDirectory(Utf8ToWide("D" + dir.substr(1) + "\\x")));
    EXPECT_FALSE(platform::CreateDirectoryTree(L"\\\\srv\\share\\x"));

    std::ofstream("dir/f").close();
    EXPECT_FALSE(platform::RemoveDirectoryNarrow("dir"));  // not empty
    EXPECT_TRUE(platform::RemoveFileNarrow("dir\\f"));
    EXPECT_TRUE(platform::RemoveDirectoryNarrow("dir"));

    const std::wstring cwd = Utf8ToWide(temp.Windows());
    const std::pair<std::wstring, std::wstring> cases[] = {
        {L"a/./b/", cwd + L"\\a\\b\\"},
        {L"C:", cwd},
        {L"D:x\\y", L"D:\\x\\y"},
        {L"\\\\srv\\share\\a\\..\\..\\b", L"\\\\srv\\share\\b"},
        {L"\\\\?\\UNC\\srv\\share\\.\\b", L"\\\\?\\UNC\\srv\\share\\b"},
        {L"x\\\u00e9", cwd + L"\\x\\\u00e9"},
    };
    for (const auto& [input, full] : cases) {
        SCOPED_TRACE(platform::WideToUtf8(input));
        EXPECT_EQ(platform::FullPathName(input, 32767), full);
    }
    if (!kWindows) {  // here ".." stops at a long share's root; Wine's system climbs past it
        EXPECT_EQ(platform::FullPathName(L"\\\\?\\UNC\\s\\sh\\..\\b", 99),
                  L"\\\\?\\UNC\\s\\sh\\b");
    }
    EXPECT_EQ(platform::FullPathName(L"C:\\abc", 7), L"C:\\abc");
    EXPECT_EQ(platform::FullPathName(L"C:\\abc", 6), L"");  // no room for the terminator
}

TEST(PlatformTextTest, ConversionsAreRealUnicodeAndRepairInvalidInput) {
    const std::string utf8("a\0\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", 11);
    EXPECT_EQ(Utf8ToWide(utf8),
              std::wstring(L"a\0\u00e9\u20ac\U0001F600", sizeof(wchar_t) == 2 ? 6 : 5));
    EXPECT_EQ(platform::WideToUtf8(Utf8ToWide(utf8)), utf8);
    EXPECT_EQ(Utf8ToWide("x\xFFy\xC3"), L"x\uFFFDy\uFFFD");
    EXPECT_EQ(platform::WideToUtf8(std::wstring(1, static_cast<wchar_t>(0xD800))), "\xEF\xBF\xBD");
}

// Windows keeps "=C:" names (cmd.exe's per-drive directories) and unpaired surrogates.
TEST(PlatformEnvironmentTest, SetAndRemoveWideValuesAndRefuseMalformedOnes) {
    const std::wstring name = L"ORVIK_PLATFORM_ENV_\u00C4";
    const std::pair<std::wstring, bool> names[] = {
        {name, true},       {L"", false},
        {L"A=B", false},    {std::wstring(L"A\0B", 3), false},
        {L"=Z:", kWindows}, {std::wstring(1, wchar_t(0xD800)), kWindows}};
    for (const auto& [each, kept] : names) {
        SCOPED_TRACE(each.size());
        EXPECT_EQ(platform::SetEnvironmentVariable(each, std::wstring(L"x")), kept);
        EXPECT_EQ(platform::EnvironmentVariable(each).value_or(L"-"), kept ? L"x" : L"-");
    }
    ASSERT_TRUE(platform::SetEnvironmentVariable(name, std::wstring()));
    EXPECT_EQ(platform::EnvironmentVariable(name), std::wstring());  // set to nothing is set
    ASSERT_TRUE(platform::SetEnvironmentVariable(name, std::nullopt));
    EXPECT_EQ(platform::EnvironmentVariable(name), std::nullopt);
    EXPECT_FALSE(platform::SetEnvironmentVariable(name, std::wstring(L"a\0b", 3)));
}

TEST(PlatformFileSystemTest, AppendOnlyFileCreatesAndAppendsBehindWhatOthersWrite) {
    testing::TempDirectory temp;
    auto file = platform::OpenAppendOnlyFile(Utf8ToWide(temp.Windows("log.txt")));
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(file->Append(std::string("one\0\n", 5)));
    std::ofstream(temp.Native() / "log.txt", std::ios::app | std::ios::binary) << "other\n";
    EXPECT_TRUE(file->Append("two\n"));
    EXPECT_TRUE(file->SyncToDisk());
    file.reset();
    std::ifstream in(temp.Native() / "log.txt", std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}),
              std::string("one\0\nother\ntwo\n", 15));
    EXPECT_EQ(platform::OpenAppendOnlyFile(Utf8ToWide(temp.Windows("missing/x"))), nullptr);
    EXPECT_EQ(platform::OpenAppendOnlyFile(L"\\\\srv\\share\\x"), nullptr);
}

}  // namespace
}  // namespace orvik
