// The platform layer's contracts, tested once for every system's implementation.
#include "platform/platform.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <string>
#include <thread>

#include "support/fake_clock.h"
#include "support/fake_system_facts.h"

namespace orvik {
namespace {

TEST(PlatformTimeTest, CalendarBreakdownOfKnownInstants) {
    std::tm utc{};
    ASSERT_TRUE(platform::UtcCalendarTime(0, utc));
    EXPECT_EQ(utc.tm_year, 70);
    EXPECT_EQ(utc.tm_mon, 0);
    EXPECT_EQ(utc.tm_mday, 1);
    EXPECT_EQ(utc.tm_hour, 0);

    ASSERT_TRUE(platform::UtcCalendarTime(1721678328, utc));  // 2024-07-22 19:58:48 UTC
    EXPECT_EQ(utc.tm_year, 124);
    EXPECT_EQ(utc.tm_mon, 6);
    EXPECT_EQ(utc.tm_mday, 22);
    EXPECT_EQ(utc.tm_hour, 19);
    EXPECT_EQ(utc.tm_min, 58);
    EXPECT_EQ(utc.tm_sec, 48);

    // Local time is the inverse of mktime, whatever the machine's zone.
    std::tm local{};
    const std::time_t now = std::time(nullptr);
    ASSERT_TRUE(platform::LocalCalendarTime(now, local));
    EXPECT_EQ(std::mktime(&local), now);
}

TEST(PlatformTimeTest, SeamReplacesWallClockAndSleepUntilRemoved) {
    const auto realBefore = std::chrono::system_clock::now();
    {
        testing::FakeClock clock(testing::FakeClock::AtMillis(1000));
        EXPECT_EQ(platform::WallClockNow(), testing::FakeClock::AtMillis(1000));

        const auto steadyBefore = std::chrono::steady_clock::now();
        platform::SleepFor(std::chrono::hours(1));
        EXPECT_LT(std::chrono::steady_clock::now() - steadyBefore, std::chrono::seconds(10));
        EXPECT_EQ(platform::WallClockNow(), testing::FakeClock::AtMillis(1000 + 3600 * 1000));
        EXPECT_EQ(clock.Slept(), std::chrono::hours(1));
    }
    EXPECT_GE(platform::WallClockNow(), realBefore);
}

TEST(PlatformTimeTest, RealSleepLastsAtLeastItsDuration) {
    const auto before = platform::SteadyClockNow();
    platform::SleepFor(std::chrono::milliseconds(20));
    EXPECT_GE(platform::SteadyClockNow() - before, std::chrono::milliseconds(20));
    platform::SleepFor(std::chrono::milliseconds(-5));  // returns at once
}

TEST(PlatformThreadsTest, ProcessThreadCountSeesANewThread) {
    const int before = platform::ProcessThreadCount();
    if (before < 0) {
        GTEST_SKIP() << "this system does not tell the thread count";
    }
    std::thread other([] { std::this_thread::sleep_for(std::chrono::milliseconds(200)); });
    EXPECT_GT(platform::ProcessThreadCount(), before);  // sanitizers may add threads of their own
    other.join();
}

TEST(PlatformSysTest, SystemFactsOfThisMachine) {
    const std::string name = platform::SystemName();
    const std::string architecture = platform::ProcessorArchitecture();
    const auto version = platform::SystemVersion();
#if defined(_WIN32)
    EXPECT_EQ(name, "Windows");
#elif defined(__linux__)
    EXPECT_EQ(name, "Linux");
#else
    EXPECT_FALSE(name.empty());
#endif
#if defined(__x86_64__) || defined(_M_X64)
    EXPECT_EQ(architecture, "x64");
#elif defined(__aarch64__) || defined(_M_ARM64)
    EXPECT_EQ(architecture, "arm64");
#else
    EXPECT_FALSE(architecture.empty());
#endif
    ASSERT_TRUE(version.has_value());
#if defined(__linux__)
    // The kernel's release, read another way, begins with the two numbers and a "." or "-".
    std::string release;
    std::getline(std::ifstream("/proc/sys/kernel/osrelease"), release);
    const std::string prefix =
        std::to_string(version->first) + "." + std::to_string(version->second);
    EXPECT_EQ(release.rfind(prefix, 0), 0u) << release;
    ASSERT_GT(release.size(), prefix.size()) << release;
    EXPECT_TRUE(release[prefix.size()] == '.' || release[prefix.size()] == '-') << release;
#endif
}

TEST(PlatformSysTest, SeamReplacesSystemFactsUntilRemoved) {
    const std::string realName = platform::SystemName();
    {
        testing::FakeSystemFacts system;
        system.name = "Plan9";
        system.architecture = "mips";
        system.version.reset();
        EXPECT_EQ(platform::SystemName(), "Plan9");
        EXPECT_EQ(platform::ProcessorArchitecture(), "mips");
        EXPECT_FALSE(platform::SystemVersion().has_value());
    }
    EXPECT_EQ(platform::SystemName(), realName);
    EXPECT_EQ(platform::NativeSystemName(), realName);
}

}  // namespace
}  // namespace orvik
