#include "common/token_bucket_speed_limiter.h"

#include <chrono>

#include "common/time_utils.h"
#include "platform/platform.h"

namespace orvik {
namespace {

// 2 to the power 63: the first double that no signed 64-bit number holds.
constexpr double kSignedLimit = 9223372036854775808.0;

// A double truncated toward zero, or `fallback` when the result would not fit.
long long TruncateOr(double value, long long fallback) {
    if (!(value < kSignedLimit && value >= -kSignedLimit)) {
        return fallback;
    }
    return static_cast<long long>(value);
}

// Signed sums that wrap instead of overflowing.
long long WrappingAdd(long long a, long long b) {
    return static_cast<long long>(static_cast<unsigned long long>(a) +
                                  static_cast<unsigned long long>(b));
}

// One token more than is missing.
long long TokensToBuy(long long want, long long tokens) {
    return WrappingAdd(WrappingAdd(want, -tokens), 1);
}

constexpr long long kShortestWaitMs = 10;

// Adds to `tokens` what the time since `lastAddTokenTime` earned at `rate`, up to `capacity`,
// if it earned a whole token; a time in the future counts as nearly 2^64 ms and fills the
// bucket. Time too short to earn a token stays counted, since the refill time does not move.
void Refill(long long rate, long long capacity, long long& tokens,
            unsigned long long& lastAddTokenTime) {
    const unsigned long long now = TimeUtils::GetTimeMills();
    const double elapsed = static_cast<double>(now - lastAddTokenTime);
    const long long add = TruncateOr(elapsed / 1000.0 * static_cast<double>(rate), capacity);
    if (add <= 0) {
        return;
    }
    const long long sum = WrappingAdd(tokens, add);
    tokens = (sum < 0 || sum > capacity) ? capacity : sum;
    lastAddTokenTime = now;
}

// Milliseconds that `need` tokens cost at `rate`; 10 when below 1 ms or out of range.
long long CostMs(long long need, long long rate) {
    const long long ms =
        TruncateOr(static_cast<double>(need) * 1000.0 / static_cast<double>(rate), 0);
    return ms > 0 ? ms : kShortestWaitMs;
}

}  // namespace

TokenBucketSpeedLimiter::TokenBucketSpeedLimiter(long long rate)
    : rate(rate > 0 ? rate : 0),
      tokens(0),
      lastAddTokenTime(0),
      capacity(rate > 0 ? WrappingAdd(rate, rate) : 8) {}

long long TokenBucketSpeedLimiter::AcquireSync(long long want) {
    if (want < 0) {
        return 0;
    }
    if (rate <= 0 || capacity <= 0) {
        return want;
    }
    if (lastAddTokenTime == 0) {
        lastAddTokenTime = TimeUtils::GetTimeMills();
    }
    if (want > tokens) {
        Refill(rate, capacity, tokens, lastAddTokenTime);
    }
    if (want > tokens) {
        // Only the tokens bought are added: what the sleep itself earns is not counted,
        // since the refill time restarts when it ends.
        const long long need = TokensToBuy(want, tokens);
        platform::SleepFor(std::chrono::milliseconds(CostMs(need, rate)));
        tokens = WrappingAdd(tokens, need);
        lastAddTokenTime = TimeUtils::GetTimeMills();
    }
    tokens = WrappingAdd(tokens, -want);
    return want;
}

long long TokenBucketSpeedLimiter::GetBucketWaitTime(long long want) {
    if (want < 0 || rate <= 0 || capacity <= 0) {
        return 0;
    }
    long long waitMs = 0;
    const unsigned long long now = TimeUtils::GetTimeMills();
    if (lastAddTokenTime == 0 || lastAddTokenTime > now) {
        // New, or the caller came back before the wait it was given had passed.
        lastAddTokenTime = now;
        tokens = 0;
    }
    if (want > tokens) {
        Refill(rate, capacity, tokens, lastAddTokenTime);
    }
    if (want > tokens) {
        const long long need = TokensToBuy(want, tokens);
        waitMs = CostMs(need, rate);
        tokens = WrappingAdd(tokens, need);
        // The wait must not earn tokens: the refill time lies at its end.
        lastAddTokenTime = TimeUtils::GetTimeMills() + static_cast<unsigned long long>(waitMs);
    }
    tokens = WrappingAdd(tokens, -want);
    return waitMs;
}

void TokenBucketSpeedLimiter::UpdateLastAddTokenTime(unsigned long long time) {
    if (time > lastAddTokenTime) {
        lastAddTokenTime = time;
    }
}

}  // namespace orvik
