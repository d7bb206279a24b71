#include "common/time_utils.h"

#include <gtest/gtest.h>

#include <chrono>

#include "support/fake_clock.h"

namespace orvik {
namespace {

using testing::FakeClock;
using Count = unsigned long long;

constexpr Count kMillis = 1721678328007;  // 2024-07-22 19:58:48.007 UTC

// Readings truncate into their unit; the wall clock steps back, the steady clock does not.
TEST(TimeUtilsTest, WallReadingsFollowTheClockBothWays) {
    FakeClock clock(FakeClock::AtMillis(kMillis) + std::chrono::microseconds(123));
    EXPECT_EQ(TimeUtils::GetUtcFormatTime(), "20240722195848007");
    EXPECT_EQ(TimeUtils::GetTimeMills(), kMillis);
    EXPECT_EQ(TimeUtils::GetTimeMicro(), kMillis * 1000 + 123);
    const Count steadyBefore = TimeUtils::GetEpochTimeMicro();
    clock.Advance(-std::chrono::hours(1));
    EXPECT_EQ(TimeUtils::GetUtcFormatTime(), "20240722185848007");
    const Count millis = TimeUtils::GetEpochTimeMills(), micros = TimeUtils::GetEpochTimeMicro();
    EXPECT_LE(steadyBefore, micros);
    EXPECT_LE(millis, micros / 1000);
    EXPECT_LT(micros / 1000 - millis, 5000u);
}

}  // namespace
}  // namespace orvik
