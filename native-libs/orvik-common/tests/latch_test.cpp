#include "common/latch.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "platform/platform.h"
#include "support/eventually.h"

namespace orvik {
namespace {

using testing::Eventually;
using testing::Since;

TEST(CountDownLatchTest, ZeroReleasesForGoodAndTimedWaitsSleepOnce) {
    CountDownLatch latch(2), zero(0);
    zero.Wait(0);
    std::thread waiter([&] { latch.Wait(0); });
    latch.CountDown();
    const auto start = platform::SteadyClockNow();
    latch.Wait(100);
    EXPECT_GE(Since(start), std::chrono::milliseconds(100));
    latch.Wait(~0ull);  // top bit set: negative, no wait
    EXPECT_EQ(latch.GetCount(), 1u);
    std::thread releaser([&] { latch.CountDown(); });
    latch.Wait(1ull << 62);  // must neither overflow the clock nor outlast the release
    releaser.join();
    waiter.join();
    latch.CountDown();
    EXPECT_EQ(latch.GetCount(), 0u);
    latch.Wait(0);
}

// After CountAll every endless Wait passes at once; timed ones still sleep until notified.
TEST(CountOutWakeTest, CountOutReleasesOneWaiterAndCountAllTheRest) {
    CountOutWake gate(5);  // counts 5 plus the threads inside Wait
    std::atomic<int> released{0};
    auto park = [&] {
        gate.Wait(0);
        ++released;
    };
    std::thread first(park), second(park);
    ASSERT_TRUE(Eventually([&] { return gate.GetCount() == 7; }));
    gate.CountOut();
    ASSERT_TRUE(Eventually([&] { return released == 1; }));
    EXPECT_EQ(gate.GetCount(), 6u);
    gate.CountAll();
    first.join();
    second.join();
    EXPECT_EQ(gate.GetCount(), 5u);

    gate.Wait(0);
    const auto start = platform::SteadyClockNow();
    gate.Wait(1000000);  // nanoseconds
    EXPECT_GE(Since(start), std::chrono::milliseconds(1));
    gate.Wait(~0ull);                                    // negative: no wait
    std::thread waiter([&] { gate.Wait(~0ull >> 1); });  // the longest wait ends at CountAll
    ASSERT_TRUE(Eventually([&] { return gate.GetCount() == 6; }));
    gate.CountAll();
    waiter.join();
}

TEST(CountOutWakeTest, EarlyCountOutDoesNotOpenTheNextWait) {
    CountOutWake gate;
    gate.CountOut();  // nobody waits yet
    std::atomic<bool> returned{false};
    std::thread waiter([&] {
        gate.Wait(0);
        returned = true;
    });
    ASSERT_TRUE(Eventually([&] { return gate.GetCount() == 1; }));
    EXPECT_FALSE(returned);
    gate.CountOut();
    waiter.join();
}

}  // namespace
}  // namespace orvik
