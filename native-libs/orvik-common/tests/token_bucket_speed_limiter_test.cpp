#include "common/token_bucket_speed_limiter.h"

#include <gtest/gtest.h>

#include <chrono>
#include <tuple>
#include <utility>
#include <vector>

#include "support/fake_clock.h"

namespace orvik {
namespace {

constexpr long long kStart = 1721678328000, kE18 = 1000000000000000000;

// Each row runs steps on a new limiter (the clock starts at kStart): 'W' GetBucketWaitTime(arg)
// returns ms; 'A' AcquireSync(arg) sleeps ms; 'T' moves the clock; 'U' UpdateLastAddTokenTime
// (kStart + arg). A request buys one token more than is missing, at `rate` per second, 10 ms at
// least; the purchase leaves one. Idle time earns up to twice the rate, also beyond 64 bits. A
// refill time ahead of the clock empties the bucket for GetBucketWaitTime, fills it for Acquire.
TEST(TokenBucketTest, RequestsBuyMissingTokensAndIdleTimeRefillsUpToCapacity) {
    testing::FakeClock clock(testing::FakeClock::AtMillis(kStart));
    using Step = std::tuple<char, long long, long long>;
    const std::pair<long long, std::vector<Step>> cases[] = {
        {100, {{'W', 0, 0}, {'U', 500, 0}, {'U', -1000, 0}, {'T', 1000, 0}, {'W', 150, 1010}}},
        {100, {{'W', -3, 0}, {'W', 50, 510}, {'W', 1, 20}}},  // 51 * 1000 / 100; then token gone
        {100, {{'W', 0, 0}, {'T', 2000, 0}, {'W', 150, 0}, {'W', 150, 1010}}},  // 50 left
        {100, {{'A', -3, 0}, {'A', 50, 510}, {'A', 1, 0}, {'A', 1, 20}}},
        {2000, {{'A', 1, 1}}},                  // need 2
        {3000, {{'A', 1, 10}}},                 // 0.66 ms: the floor
        {10, {{'A', 99, 10000}, {'A', 1, 0}}},  // beyond capacity 20: in one piece
        {0, {{'W', 500, 0}, {'A', 500, 0}}},    // unlimited
        {100, {{'A', 0, 0}, {'T', 3600000, 0}, {'A', 200, 0}, {'A', 1, 20}}},
        {100, {{'A', 0, 0}, {'T', -3600000, 0}, {'A', 200, 0}}},
        {kE18, {{'A', 1, 10}, {'T', 10000, 0}, {'A', 2 * kE18, 0}}},
        {4 * kE18, {{'A', 1, 10}, {'T', 2000, 0}, {'A', 2, 0}, {'T', 2300, 0}, {'A', 8 * kE18, 0}}},
        {100, {{'W', 50, 510}, {'A', 150, 0}}},  // nearly 2^64 ms "elapsed": full bucket
        {100, {{'W', 50, 510}, {'T', 510, 0}, {'W', 1, 0}}},
    };
    int row = 0;
    for (const auto& [rate, steps] : cases) {
        SCOPED_TRACE(row++);
        TokenBucketSpeedLimiter limiter(rate);
        for (const auto& [op, arg, ms] : steps) {
            const auto slept = clock.Slept();
            if (op == 'T') {
                clock.Advance(std::chrono::milliseconds(arg));
            } else if (op == 'U') {
                limiter.UpdateLastAddTokenTime(static_cast<unsigned long long>(kStart + arg));
            } else if (op == 'W') {
                EXPECT_EQ(limiter.GetBucketWaitTime(arg), ms) << arg;
            } else {
                EXPECT_EQ(limiter.AcquireSync(arg), arg < 0 ? 0 : arg);
                EXPECT_EQ(clock.Slept() - slept, std::chrono::milliseconds(ms)) << arg;
            }
        }
    }
}

}  // namespace
}  // namespace orvik
