#include "common/token_bucket_speed_limiter.h"

#include <gtest/gtest.h>

#include <chrono>

#include "support/fake_clock.h"

namespace orvik {
namespace {

using std::chrono::milliseconds;
using testing::FakeClock;

constexpr long long kStart = 1721678328000;

class TokenBucketTest : public ::testing::Test {
protected:
    long long SleptMs() const {
        return std::chrono::duration_cast<milliseconds>(clock_.Slept()).count();
    }
    FakeClock clock_{FakeClock::AtMillis(kStart)};
};

// On a new limiter both operations price a request alike: one token more than is missing, at
// `rate` per second, truncated, with 10 ms for anything below 1 ms. A purchase leaves exactly
// one token, whatever the sleep itself earned: one more costs nothing, one after that 20 ms.
TEST_F(TokenBucketTest, FirstRequestCostsNeedTimesThousandOverRate) {
    const struct {
        long long rate, want, ms, nextMs;  // nextMs: the sleep of AcquireSync(1) right after
    } cases[] = {
        {100, 50, 510, 0},   // (50 + 1) * 1000 / 100
        {2000, 1, 1, 0},     // need 2
        {3000, 1, 10, 0},    // 0.66 ms truncates to 0: the floor
        {10, 99, 10000, 0},  // beyond capacity 20: paid in one piece
        {100, 0, 0, 20},     // nothing wanted, nothing charged
        {100, -3, 0, 20},    // negative: nothing, and nothing granted
        {0, 500, 0, 0},      // unlimited
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << "rate " << c.rate << " want " << c.want);
        TokenBucketSpeedLimiter waiting(c.rate);
        EXPECT_EQ(waiting.GetBucketWaitTime(c.want), c.ms);
        TokenBucketSpeedLimiter blocking(c.rate);
        const long long before = SleptMs();
        EXPECT_EQ(blocking.AcquireSync(c.want), c.want < 0 ? 0 : c.want);
        EXPECT_EQ(SleptMs() - before, c.ms);
        blocking.AcquireSync(1);
        EXPECT_EQ(SleptMs() - before, c.ms + c.nextMs);
    }
}

TEST_F(TokenBucketTest, IdleTimeEarnsTokensSinceTheLastRefillUpToTwiceTheRate) {
    // UpdateLastAddTokenTime moves the refill time forward only: 500 ms earn 50 tokens.
    TokenBucketSpeedLimiter updated(100);
    updated.GetBucketWaitTime(0);
    updated.UpdateLastAddTokenTime(kStart + 500);
    updated.UpdateLastAddTokenTime(kStart - 1000);  // ignored
    clock_.Advance(milliseconds(1000));
    EXPECT_EQ(updated.GetBucketWaitTime(150), 1010);

    TokenBucketSpeedLimiter limiter(100);
    limiter.AcquireSync(0);  // starts the refill clock
    clock_.Advance(std::chrono::hours(1));
    limiter.AcquireSync(200);
    EXPECT_EQ(SleptMs(), 0);
    limiter.AcquireSync(1);
    EXPECT_EQ(SleptMs(), 20);
}

TEST_F(TokenBucketTest, EarnedTokensBeyondSixtyFourBitsBecomeCapacity) {
    TokenBucketSpeedLimiter huge(1000000000000000000);  // capacity 2e18
    huge.AcquireSync(1);
    const long long slept = SleptMs();
    clock_.Advance(std::chrono::seconds(10));  // earns 1e19: no 64-bit number holds it
    huge.AcquireSync(2000000000000000000);
    EXPECT_EQ(SleptMs(), slept);

    // The sum of bucket and earnings overflows: capacity as well.
    TokenBucketSpeedLimiter wide(4000000000000000000);  // capacity 8e18
    wide.AcquireSync(1);
    clock_.Advance(std::chrono::seconds(2));
    wide.AcquireSync(2);  // refills to capacity, leaves 8e18 - 2
    const long long before = SleptMs();
    clock_.Advance(milliseconds(2300));  // earns 9.2e18
    wide.AcquireSync(8000000000000000000);
    EXPECT_EQ(SleptMs(), before);
}

// A refill time ahead of the clock: GetBucketWaitTime's own, or a clock set back.
TEST_F(TokenBucketTest, RefillTimeInTheFutureEmptiesForWaitTimeAndFillsForAcquire) {
    TokenBucketSpeedLimiter early(100);
    EXPECT_EQ(early.GetBucketWaitTime(50), 510);
    EXPECT_EQ(early.GetBucketWaitTime(1), 20);  // came back early: the left token is gone

    TokenBucketSpeedLimiter acquiring(100);
    acquiring.GetBucketWaitTime(50);
    acquiring.AcquireSync(150);  // nearly 2^64 ms "elapsed": full bucket
    EXPECT_EQ(SleptMs(), 0);

    TokenBucketSpeedLimiter patient(100);
    patient.GetBucketWaitTime(50);
    clock_.Advance(milliseconds(510));
    EXPECT_EQ(patient.GetBucketWaitTime(1), 0);  // waited it out: the left token is there

    TokenBucketSpeedLimiter setBack(100);
    setBack.AcquireSync(0);
    clock_.Advance(-std::chrono::hours(1));
    setBack.AcquireSync(200);
    EXPECT_EQ(SleptMs(), 0);
}

}  // namespace
}  // namespace orvik
