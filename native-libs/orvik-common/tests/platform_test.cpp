// The platform layer's contracts, tested once for every system's implementation.
#include "platform/platform.h"

#include <gtest/gtest.h>

#include <chrono>
#include <system_error>
#include <thread>

#include "support/fake_clock.h"

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

TEST(PlatformThreadsTest, RefusedThreadsThrowUntilAllowedAgain) {
    if (!platform::RefuseNewThreadsForTesting(true)) {
        GTEST_SKIP() << "this system cannot refuse threads";
    }
    bool refused = false;
    try {
        std::thread([] {}).join();
    } catch (const std::system_error&) {
        refused = true;
    }
    EXPECT_TRUE(platform::RefuseNewThreadsForTesting(false));
    EXPECT_TRUE(refused);
    bool ran = false;
    std::thread([&ran] { ran = true; }).join();
    EXPECT_TRUE(ran);
}

}  // namespace
}  // namespace orvik
