// Pacing for transfer loops: a token bucket that either blocks for as long as a request
// costs (AcquireSync) or tells the caller how long to wait (GetBucketWaitTime).
//
//   orvik::TokenBucketSpeedLimiter limiter(64 * 1024);   // units per second
//   while (Send(chunk)) limiter.AcquireSync(chunk.size());
//
// A unit is whatever the caller counts; the limiter knows only units per second. The bucket
// starts empty and refills, from the wall clock (TimeUtils::GetTimeMills), only when a
// request finds too few tokens; a refill never lifts it above `capacity` (twice the rate).
// A request is never refused or split: one larger than the bucket is paid for with one long
// wait. A purchase buys one token more than is missing, and a wait below 1 ms counts 10 ms.
//
//   rate 100, new limiter: AcquireSync(50) sleeps 510 ms ((50 + 1) * 1000 / 100) and leaves
//   one token; a following AcquireSync(1) takes it at once.
//
// Thread-safety: none. One instance serves one thread at a time; callers that share an
// instance serialise their calls themselves.
#ifndef ORVIK_COMMON_TOKEN_BUCKET_SPEED_LIMITER_H
#define ORVIK_COMMON_TOKEN_BUCKET_SPEED_LIMITER_H

#include "common/export.h"

namespace orvik {

class ORVIK_COMMON_API TokenBucketSpeedLimiter {
public:
    // rate: tokens per second. 0 or less builds an unlimited limiter (capacity 8).
    explicit TokenBucketSpeedLimiter(long long rate);

    // Blocks until `want` tokens are paid for, then returns `want`; a wait cannot be
    // interrupted. Negative `want`: returns 0. Unlimited limiter: returns `want` at once.
    // The clock is read only when the bucket holds fewer than `want` tokens (and once on
    // the first call). A refill that finds the last refill time in the future (the clock set
    // back, or a time set by GetBucketWaitTime) fills the bucket to capacity.
    long long AcquireSync(long long want);

    // Charges `want` tokens at once and returns the milliseconds the caller must now wait
    // (0 when the bucket covered them; otherwise at least 1), without sleeping. The refill
    // time moves to the end of that wait; a caller that comes back before it finds the
    // bucket emptied. Negative `want` or an unlimited limiter: 0, nothing charged.
    long long GetBucketWaitTime(long long want);

    // Moves the last refill time forward to `time` (wall-clock milliseconds); a time not
    // after the present value changes nothing.
    void UpdateLastAddTokenTime(unsigned long long time);

private:
    long long rate;
    long long tokens;
    unsigned long long lastAddTokenTime;
    long long capacity;
};

}  // namespace orvik

#endif  // ORVIK_COMMON_TOKEN_BUCKET_SPEED_LIMITER_H
