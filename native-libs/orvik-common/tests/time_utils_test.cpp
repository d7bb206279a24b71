#include "common/time_utils.h"

#include <gtest/gtest.h>

#include <chrono>

#include "support/fake_clock.h"

namespace orvik {
namespace {

using testing::FakeClock;
using Count = unsigned long long;

constexpr Count kSecond = 1721678328;  // 2024-07-22 19:58:48 UTC

// Each reading truncates the same moment into its unit; the UTC text pads the milliseconds.
TEST(TimeUtilsTest, WallReadingsFollowTheClockBothWays) {
    FakeClock clock(FakeClock::AtMillis(kSecond * 1000 + 7));
    EXPECT_EQ(TimeUtils::GetUtcFormatTime(), "20240722195848007");
    clock.Advance(std::chrono::microseconds(992123));
    EXPECT_EQ(TimeUtils::GetUtcFormatTime(), "20240722195848999");
    EXPECT_EQ(TimeUtils::GetTimeSeconds(), kSecond);
    EXPECT_EQ(TimeUtils::GetTimeMills(), kSecond * 1000 + 999);
    EXPECT_EQ(TimeUtils::GetTimeMicro(), (kSecond * 1000 + 999) * 1000 + 123);

    // The wall clock steps back with the system; the steady clock does not, and its units agree.
    const Count steadyBefore = TimeUtils::GetEpochTimeMicro();
    clock.Advance(-std::chrono::hours(1));
    EXPECT_EQ(TimeUtils::GetUtcFormatTime(), "20240722185848999");
    const Count seconds = TimeUtils::GetEpochTimeSeconds(), millis = TimeUtils::GetEpochTimeMills();
    const Count micros = TimeUtils::GetEpochTimeMicro();
    EXPECT_TRUE(steadyBefore <= micros && seconds <= millis / 1000 && millis <= micros / 1000);
    EXPECT_LT(micros / 1000 - millis, 5000u);
}

}  // namespace
}  // namespace orvik
