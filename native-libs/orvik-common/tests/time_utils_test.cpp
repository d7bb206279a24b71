#include "common/time_utils.h"

#include <gtest/gtest.h>

#include <chrono>

#include "support/fake_clock.h"

namespace orvik {
namespace {

using testing::FakeClock;

// 2024-07-22 19:58:48 UTC.
constexpr long long kSecond = 1721678328;

TEST(TimeUtilsTest, UtcFormatTimeHas17DigitsWithZeroPaddedMillis) {
    FakeClock clock(FakeClock::AtMillis(kSecond * 1000 + 7));
    EXPECT_EQ(TimeUtils::GetUtcFormatTime(), "20240722195848007");
    clock.Set(FakeClock::AtMillis(kSecond * 1000));
    EXPECT_EQ(TimeUtils::GetUtcFormatTime(), "20240722195848000");
    clock.Set(FakeClock::AtMillis(kSecond * 1000 + 999));
    EXPECT_EQ(TimeUtils::GetUtcFormatTime(), "20240722195848999");
}

TEST(TimeUtilsTest, WallReadingsTruncateTheSameMomentIntoEachUnit) {
    FakeClock clock(FakeClock::AtMillis(kSecond * 1000 + 999));
    clock.Advance(std::chrono::microseconds(123));
    EXPECT_EQ(TimeUtils::GetTimeSeconds(), static_cast<unsigned long long>(kSecond));
    EXPECT_EQ(TimeUtils::GetTimeMills(), static_cast<unsigned long long>(kSecond * 1000 + 999));
    EXPECT_EQ(TimeUtils::GetTimeMicro(),
              static_cast<unsigned long long>((kSecond * 1000 + 999) * 1000 + 123));
}

TEST(TimeUtilsTest, WallClockFollowsTheSystemBackwardsWhileSteadyClockRises) {
    FakeClock clock(FakeClock::AtMillis(kSecond * 1000));
    const unsigned long long wallBefore = TimeUtils::GetTimeMills();
    const unsigned long long steadyBefore = TimeUtils::GetEpochTimeMicro();

    clock.Advance(-std::chrono::hours(1));

    EXPECT_EQ(TimeUtils::GetTimeMills(), wallBefore - 3600 * 1000);
    EXPECT_GE(TimeUtils::GetEpochTimeMicro(), steadyBefore);
}

TEST(TimeUtilsTest, SteadyReadingsAgreeAcrossUnits) {
    const unsigned long long seconds = TimeUtils::GetEpochTimeSeconds();
    const unsigned long long millis = TimeUtils::GetEpochTimeMills();
    const unsigned long long micros = TimeUtils::GetEpochTimeMicro();
    EXPECT_LE(seconds, millis / 1000);
    EXPECT_LE(millis, micros / 1000);
    EXPECT_LT(micros / 1000 - millis, 5000u);
}

}  // namespace
}  // namespace orvik
