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

// On a new limiter both operations price a request the same way: one token more than is
// missing, at `rate` per second, truncated, with 10 ms for anything below 1 ms.
TEST_F(TokenBucketTest, FirstRequestCostsNeedTimesThousandOverRate) {
    const struct {
        long long rate;
        long long want;
        long long ms;
    } cases[] = {
        {100, 50, 510},                // (50 + 1) * 1000 / 100
        {2000, 1, 1},                  // need 2
        {3000, 1, 10},                 // 0.66 ms truncates to 0: the floor
        {10, 99, 10000},               // beyond capacity 20: paid in one piece
        {100, 0, 0},                   // nothing wanted, nothing charged
        {100, -3, 0},                  // negative: nothing
        {0, 500, 0},                   // unlimited
        {-7, 500, 0},                  // unlimited
        {1000000000000000000, 1, 10},  // 2e-15 ms: the floor
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << "rate " << c.rate << " want " << c.want);
        TokenBucketSpeedLimiter waiting(c.rate);
        EXPECT_EQ(waiting.GetBucketWaitTime(c.want), c.ms);

        TokenBucketSpeedLimiter blocking(c.rate);
        const long long before = SleptMs();
        EXPECT_EQ(blocking.AcquireSync(c.want), c.want < 0 ? 0 : c.want);
        EXPECT_EQ(SleptMs() - before, c.ms);
    }
}

TEST_F(TokenBucketTest, PurchaseLeavesExactlyOneTokenWhateverTheSleepEarned) {
    TokenBucketSpeedLimiter limiter(100);
    EXPECT_EQ(limiter.AcquireSync(50), 50);
    EXPECT_EQ(SleptMs(), 510);
    EXPECT_EQ(limiter.AcquireSync(1), 1);  // the last token, no wait
    EXPECT_EQ(SleptMs(), 510);
    EXPECT_EQ(limiter.AcquireSync(1), 1);  // empty again: buys 2 tokens
    EXPECT_EQ(SleptMs(), 530);

    TokenBucketSpeedLimiter large(10);  // capacity 20
    EXPECT_EQ(large.AcquireSync(99), 99);
    EXPECT_EQ(SleptMs(), 530 + 10000);
    EXPECT_EQ(large.AcquireSync(1), 1);
    EXPECT_EQ(SleptMs(), 530 + 10000);
}

TEST_F(TokenBucketTest, IdleTimeFillsTheBucketToTwiceTheRateAtMost) {
    TokenBucketSpeedLimiter limiter(100);
    limiter.AcquireSync(0);  // starts the refill clock
    clock_.Advance(std::chrono::hours(1));
    EXPECT_EQ(limiter.AcquireSync(200), 200);
    EXPECT_EQ(SleptMs(), 0);
    limiter.AcquireSync(1);
    EXPECT_EQ(SleptMs(), 20);

    // Refills earn whole tokens from the time since the last refill.
    TokenBucketSpeedLimiter slow(100);
    EXPECT_EQ(slow.GetBucketWaitTime(0), 0);
    clock_.Advance(milliseconds(1000));
    EXPECT_EQ(slow.GetBucketWaitTime(100), 0);  // 100 earned, 100 spent
    clock_.Advance(milliseconds(5));
    EXPECT_EQ(slow.GetBucketWaitTime(0), 0);
    clock_.Advance(milliseconds(5));
    EXPECT_EQ(slow.GetBucketWaitTime(1), 0);  // 10 ms since the refill: one token
}

TEST_F(TokenBucketTest, EarnedTokensBeyondSixtyFourBitsBecomeCapacity) {
    TokenBucketSpeedLimiter huge(1000000000000000000);  // capacity 2e18
    huge.AcquireSync(1);
    const long long slept = SleptMs();
    clock_.Advance(std::chrono::seconds(10));  // earns 1e19: no 64-bit number holds it
    EXPECT_EQ(huge.AcquireSync(2000000000000000000), 2000000000000000000);
    EXPECT_EQ(SleptMs(), slept);

    // The sum of bucket and earnings overflows: capacity as well.
    TokenBucketSpeedLimiter wide(4000000000000000000);  // capacity 8e18
    wide.AcquireSync(1);
    clock_.Advance(std::chrono::seconds(2));
    wide.AcquireSync(2);  // refills to capacity, leaves 8e18 - 2
    const long long before = SleptMs();
    clock_.Advance(milliseconds(2300));  // earns 9.2e18
    EXPECT_EQ(wide.AcquireSync(8000000000000000000), 8000000000000000000);
    EXPECT_EQ(SleptMs(), before);
}

// A refill time ahead of the clock: GetBucketWaitTime's own, or a clock set back.
TEST_F(TokenBucketTest, RefillTimeInTheFutureEmptiesForWaitTimeAndFillsForAcquire) {
    TokenBucketSpeedLimiter early(100);
    EXPECT_EQ(early.GetBucketWaitTime(50), 510);
    EXPECT_EQ(early.GetBucketWaitTime(1), 20);  // came back early: the left token is gone

    TokenBucketSpeedLimiter patient(100);
    EXPECT_EQ(patient.GetBucketWaitTime(50), 510);
    clock_.Advance(milliseconds(510));
    EXPECT_EQ(patient.GetBucketWaitTime(1), 0);  // waited it out: the left token is there

    TokenBucketSpeedLimiter acquiring(100);
    EXPECT_EQ(acquiring.GetBucketWaitTime(50), 510);
    EXPECT_EQ(acquiring.AcquireSync(150), 150);  // nearly 2^64 ms "elapsed": full bucket
    EXPECT_EQ(SleptMs(), 0);

    TokenBucketSpeedLimiter setBack(100);
    setBack.AcquireSync(0);
    clock_.Advance(-std::chrono::hours(1));
    EXPECT_EQ(setBack.AcquireSync(200), 200);
    EXPECT_EQ(SleptMs(), 0);
}

TEST_F(TokenBucketTest, UpdateLastAddTokenTimeOnlyMovesForward) {
    const struct {
        unsigned long long update;
        long long wait;
    } cases[] = {
        {kStart - 1000, 510},  // ignored: 1000 ms earned 100 tokens, 51 missing
        {0, 510},              // ignored
        {kStart + 500, 1010},  // taken: only 500 ms earned, 101 missing
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.update);
        clock_.Set(FakeClock::AtMillis(kStart));
        TokenBucketSpeedLimiter limiter(100);
        limiter.GetBucketWaitTime(0);
        limiter.UpdateLastAddTokenTime(c.update);
        clock_.Advance(milliseconds(1000));
        EXPECT_EQ(limiter.GetBucketWaitTime(150), c.wait);
    }
}

}  // namespace
}  // namespace orvik
