// The platform layer's contracts, tested once for every system's implementation.
#include "platform/platform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <future>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <tuple>

#include "support/fake_clock.h"
#include "support/temp_directory.h"

namespace orvik {
namespace {

std::wstring WideWindows(const std::string& windowsText) {
    return platform::Utf8ToWide(windowsText);
}

constexpr bool kWindows =
#ifdef _WIN32
    true;
#else
    false;
#endif

TEST(PlatformTimeTest, CalendarBreakdownOfKnownInstants) {
    std::tm utc{};
    ASSERT_TRUE(platform::UtcCalendarTime(1721678328, utc));  // 2024-07-22 19:58:48 UTC
    EXPECT_EQ(
        std::make_tuple(utc.tm_year, utc.tm_mon, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec),
        std::make_tuple(124, 6, 22, 19, 58, 48));

    // Local time is the inverse of mktime, whatever the machine's zone.
    std::tm local{};
    const std::time_t now = std::time(nullptr);
    ASSERT_TRUE(platform::LocalCalendarTime(now, local));
    EXPECT_EQ(std::mktime(&local), now);
}

TEST(PlatformTimeTest, SeamReplacesWallClockAndSleepUntilRemoved) {
    {
        testing::FakeClock clock(testing::FakeClock::AtMillis(1000));
        const auto steadyBefore = std::chrono::steady_clock::now();
        platform::SleepFor(std::chrono::hours(1));
        EXPECT_LT(std::chrono::steady_clock::now() - steadyBefore, std::chrono::seconds(10));
        EXPECT_EQ(platform::WallClockNow(), testing::FakeClock::AtMillis(1000 + 3600 * 1000));
        EXPECT_EQ(clock.Slept(), std::chrono::hours(1));
    }
    const auto before = platform::SteadyClockNow();  // the real sleep lasts at least its time
    platform::SleepFor(std::chrono::milliseconds(20));
    EXPECT_GE(platform::SteadyClockNow() - before, std::chrono::milliseconds(20));
    EXPECT_GT(platform::WallClockNow(), testing::FakeClock::AtMillis(1600000000000));
}

TEST(PlatformTimeTest, ConditionWaitEndsOnNotificationOrDurationAndKeepsTheLock) {
    std::recursive_mutex mutex;
    std::condition_variable_any condition;
    std::unique_lock<std::recursive_mutex> lock(mutex);

    const auto before = platform::SteadyClockNow();
    platform::WaitFor(condition, lock, std::chrono::milliseconds(20));
    EXPECT_GE(platform::SteadyClockNow() - before, std::chrono::milliseconds(20));
    EXPECT_TRUE(lock.owns_lock());

    bool notified = false;
    std::thread notifier([&] {
        std::lock_guard<std::recursive_mutex> hold(mutex);  // only once the waiter has let go
        notified = true;
        condition.notify_all();
    });
    while (!notified) {  // an early return without notification is allowed: wait again
        platform::WaitFor(condition, lock, std::chrono::seconds(10));
    }
    EXPECT_LT(platform::SteadyClockNow() - before, std::chrono::seconds(10));
    notifier.join();
}

TEST(PlatformTimeTest, SeamWaitEndsWhenTheFakeClockReachesItsDeadline) {
    testing::FakeClock clock(testing::FakeClock::AtMillis(1000));
    std::recursive_mutex mutex;
    std::condition_variable_any condition;
    bool woke = false;
    std::thread waiter([&] {
        std::unique_lock<std::recursive_mutex> lock(mutex);
        platform::WaitFor(condition, lock, std::chrono::hours(1));
        woke = true;
    });
    const auto deadline = testing::FakeClock::AtMillis(1000 + 3600 * 1000);
    ASSERT_TRUE(clock.AwaitWaiter(deadline));
    clock.Advance(std::chrono::minutes(59));  // not yet: the waiter stays
    EXPECT_TRUE(clock.AwaitWaiter(deadline));
    clock.Advance(std::chrono::minutes(1));
    waiter.join();
    EXPECT_TRUE(woke);
}

TEST(PlatformThreadsTest, ProcessThreadCountSeesANewThread) {
    const int before = platform::ProcessThreadCount();
    if (before < 0) {
        GTEST_SKIP() << "this system does not tell the thread count";
    }
    std::promise<void> release;
    std::thread other([done = release.get_future()] { done.wait(); });
    EXPECT_GT(platform::ProcessThreadCount(), before);  // sanitizers may add threads of their own
    release.set_value();
    other.join();
}

TEST(PlatformThreadsTest, RefusedThreadsThrowUntilAllowedAgain) {
    if (!platform::RefuseNewThreadsForTesting(true)) {
        GTEST_SKIP() << "this system cannot refuse threads";
    }
    EXPECT_THROW(std::thread([] {}).join(), std::system_error);
    EXPECT_TRUE(platform::RefuseNewThreadsForTesting(false) && !platform::ProcessIsEnding());
    std::thread([] {}).join();
}

TEST(PlatformSysTest, SystemFactsOfThisMachineAndTheirSeam) {
    const std::string name = platform::SystemName();
    const auto version = platform::SystemVersion();
#if defined(_WIN32) || defined(__linux__)
    EXPECT_EQ(name, kWindows ? "Windows" : "Linux");
#endif
#if defined(__x86_64__) || defined(_M_X64)
    EXPECT_EQ(platform::ProcessorArchitecture(), "x64");
#endif
    ASSERT_TRUE(version.has_value());
#if defined(__linux__)
    // The kernel's release, read another way, begins with the two numbers and a "." or "-".
    std::string release;
    std::getline(std::ifstream("/proc/sys/kernel/osrelease"), release);
    const std::string prefix =
        std::to_string(version->first) + "." + std::to_string(version->second);
    EXPECT_TRUE(release.rfind(prefix + ".", 0) == 0 || release.rfind(prefix + "-", 0) == 0)
        << release;
#elif defined(_WIN32)
    // The kernel's own NtMajorVersion/NtMinorVersion in its shared data page, at the same address
    // in every process, which no compatibility setting changes.
    const auto* sharedData = reinterpret_cast<const volatile std::uint32_t*>(0x7FFE0000);
    EXPECT_EQ(*version,
              std::make_pair(unsigned{sharedData[0x26C / 4]}, unsigned{sharedData[0x270 / 4]}));
#endif
    EXPECT_EQ(platform::NativeSystemName(), name);
}

TEST(PlatformFileSystemTest, EverySpellingOfTheDriveReachesTheSameEntry) {
    testing::TempDirectory temp;
    std::filesystem::create_directory(temp.Native() / "dir");
    std::ofstream(temp.Native() / "file") << "12345";
    const std::string drive = temp.Windows("dir");  // "C:\...\dir"
    std::string forward = drive;
    std::replace(forward.begin(), forward.end(), '\\', '/');
    const std::string spellings[] = {
        drive,           "c" + drive.substr(1), forward,
        drive.substr(2), forward.substr(2),     "\\\\?\\" + drive,
    };
    for (const std::string& text : spellings) {
        SCOPED_TRACE(text);
        const auto attributes = platform::FileAttributes(WideWindows(text));
        ASSERT_TRUE(attributes.has_value());
        EXPECT_NE(*attributes & platform::kFileAttributeDirectory, 0u);
        EXPECT_TRUE(platform::AccessNarrow(text, 0));
    }

    const std::string file = temp.Windows("file");
    EXPECT_EQ(platform::FileAttributes(WideWindows(file)).value_or(~0u) &
                  platform::kFileAttributeDirectory,
              0u);
    EXPECT_EQ(platform::FileSize(WideWindows(file)), 5u);

    const std::string nowhere[] = {
        "D" + drive.substr(1),       "\\\\srv\\share\\x",     "//srv/share/x",
        "\\\\?\\UNC\\srv\\share\\x", temp.Windows("missing"), "",
    };
    for (const std::string& text : nowhere) {
        SCOPED_TRACE(text);
        EXPECT_FALSE(platform::FileAttributes(WideWindows(text)).has_value());
        EXPECT_FALSE(platform::FileSize(WideWindows(text)).has_value());
        std::ifstream in;
        EXPECT_FALSE(platform::OpenFileStream(in, WideWindows(text), std::ios::in));
    }
    EXPECT_FALSE(platform::CreateOneDirectory(WideWindows("D" + drive.substr(1) + "\\x")));
    EXPECT_FALSE(platform::CreateDirectoryTree(WideWindows("\\\\srv\\share\\x")));

    // A tree makes all its levels, but not one that exists.
    const std::wstring tree = WideWindows(temp.Windows("a\\b\\c"));
    EXPECT_TRUE(platform::CreateDirectoryTree(tree));
    EXPECT_FALSE(platform::CreateDirectoryTree(tree));
}

TEST(PlatformFileSystemTest, RelativeTextFollowsTheWorkingDirectory) {
    testing::TempDirectory temp;
    const testing::WorkingDirectory inside(temp.Native());
    EXPECT_EQ(platform::WideToUtf8(platform::CurrentDirectory().value_or(L"")), temp.Windows());
    EXPECT_TRUE(platform::CreateOneDirectory(L"sub"));
    EXPECT_FALSE(platform::CreateOneDirectory(L"sub") || platform::CreateOneDirectory(L"no\\sub"));
    EXPECT_TRUE(platform::FileAttributes(L"C:sub").has_value());
    EXPECT_TRUE(platform::MakeDirectoryNarrow("n\\") && platform::RemoveDirectoryNarrow("n"));
    std::ofstream out;
    ASSERT_TRUE(platform::OpenFileStream(out, L"sub\\f", std::ios::out | std::ios::binary));
    out.close();
    EXPECT_TRUE(platform::AccessNarrow("sub/f", 2));
    EXPECT_FALSE(platform::RemoveFileNarrow("sub"));       // never a directory
    EXPECT_FALSE(platform::RemoveDirectoryNarrow("sub"));  // not empty
    EXPECT_TRUE(platform::RemoveFileNarrow("sub\\f") && platform::RemoveDirectoryNarrow("sub"));
}

TEST(PlatformFileSystemTest, FullPathNameIsTextAlone) {
    testing::TempDirectory temp;
    const testing::WorkingDirectory inside(temp.Native());
    const std::wstring cwd = WideWindows(temp.Windows());
    const struct Case {
        std::wstring input, full;
    } cases[] = {
        {L"a\\..\\b", cwd + L"\\b"},
        {L"a/./b/", cwd + L"\\a\\b\\"},
        {L"C:", cwd},
        {L"\\x\\..\\..\\y", L"C:\\y"},
        {L"D:x\\y", L"D:\\x\\y"},
        {L"\\\\srv\\share\\a\\..\\..\\b", L"\\\\srv\\share\\b"},
        {L"\\\\?\\UNC\\srv\\share\\.\\b", L"\\\\?\\UNC\\srv\\share\\b"},
        {L"x\\\u00e9", cwd + L"\\x\\\u00e9"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(platform::WideToUtf8(c.input));
        EXPECT_EQ(platform::FullPathName(c.input, 32767), c.full);
    }
    EXPECT_FALSE(platform::FullPathName(L"", 32767).has_value());
    EXPECT_EQ(platform::FullPathName(L"C:\\abc", 7), L"C:\\abc");
    EXPECT_EQ(platform::FullPathName(L"C:\\abc", 6), L"");  // no room for the terminator
}

TEST(PlatformTextTest, ConversionsAreRealUnicodeAndRepairInvalidInput) {
    const std::string utf8("a\0\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", 11);
    const std::wstring wide = platform::Utf8ToWide(utf8);
    EXPECT_EQ(wide, std::wstring(L"a\0\u00e9\u20ac\U0001F600", sizeof(wchar_t) == 2 ? 6 : 5));
    EXPECT_EQ(platform::WideToUtf8(wide), utf8);
    EXPECT_EQ(platform::Utf8ToWide("x\xFFy\xC3"), L"x\uFFFDy\uFFFD");
    EXPECT_EQ(platform::WideToUtf8(std::wstring(1, static_cast<wchar_t>(0xD800))), "\xEF\xBF\xBD");
    EXPECT_EQ(platform::Utf8ToWide(""), L"");
}

TEST(PlatformEnvironmentTest, SetReadAndRemoveWideValuesAndRefuseMalformedOnes) {
    const std::wstring name = L"ORVIK_PLATFORM_ENV_\u00C4";
    ASSERT_TRUE(platform::SetEnvironmentVariable(name, std::nullopt));
    EXPECT_EQ(platform::EnvironmentVariable(name), std::nullopt);
    const std::wstring value = L"\u4E16\u754C \U0001F30D " + std::wstring(1000, L'v');
    ASSERT_TRUE(platform::SetEnvironmentVariable(name, value));
    EXPECT_EQ(platform::EnvironmentVariable(name), value) << "no length limit";

    ASSERT_TRUE(platform::SetEnvironmentVariable(name, std::wstring()));
    EXPECT_EQ(platform::EnvironmentVariable(name), std::wstring());  // set to nothing is set
    // Windows judges names itself: it keeps "=C:" (cmd.exe's per-drive directories) and
    // unpaired surrogates, which no byte environment can hold.
    const struct {
        std::wstring name;
        bool kept;
    } names[] = {{std::wstring(), false},
                 {std::wstring(L"A=B"), false},
                 {std::wstring(L"A\0B", 3), false},
                 {std::wstring(L"=Z:"), kWindows},
                 {std::wstring(1, wchar_t(0xD800)), kWindows}};
    for (const auto& c : names) {
        SCOPED_TRACE(c.name.size());
        EXPECT_EQ(platform::SetEnvironmentVariable(c.name, std::wstring(L"x")), c.kept);
        EXPECT_EQ(platform::EnvironmentVariable(c.name),
                  c.kept ? std::optional<std::wstring>(L"x") : std::nullopt);
    }
    EXPECT_FALSE(platform::SetEnvironmentVariable(L"ORVIK_PLATFORM_ENV", std::wstring(L"a\0b", 3)));
}

TEST(PlatformFileSystemTest, AppendOnlyFileCreatesAndAppendsWhateverOthersWrote) {
    testing::TempDirectory temp;
    const std::wstring path = platform::Utf8ToWide(temp.Windows("log.txt"));
    auto file = platform::OpenAppendOnlyFile(path);
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(file->Append(std::string("one\0\n", 5)) && file->SyncToDisk());
    file.reset();
    std::ofstream(temp.Native() / "log.txt", std::ios::app | std::ios::binary) << "other\n";
    file = platform::OpenAppendOnlyFile(path);
    EXPECT_TRUE(file && file->Append("two\n") && file->Append(""));
    file.reset();
    std::ifstream in(temp.Native() / "log.txt", std::ios::binary);
    const std::string content((std::istreambuf_iterator<char>(in)),
                              std::istreambuf_iterator<char>());
    EXPECT_EQ(content, std::string("one\0\nother\ntwo\n", 15));

    EXPECT_EQ(platform::OpenAppendOnlyFile(platform::Utf8ToWide(temp.Windows("missing/x"))),
              nullptr);
    EXPECT_EQ(platform::OpenAppendOnlyFile(L"\\\\srv\\share\\x"), nullptr);
}

}  // namespace
}  // namespace orvik
