#include "common/latch.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "support/eventually.h"

namespace orvik {
namespace {

TEST(CountDownLatchTest, CountsDownToAReleaseForGoodAndATimedWaitSleepsOnce) {
    CountDownLatch latch(2);
    CountDownLatch(0).Wait(0);
    std::thread waiter([&] { latch.Wait(0); });
    latch.CountDown();
    const auto start = std::chrono::steady_clock::now();
    latch.Wait(100);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100));
    latch.Wait(~0ull);  // top bit set: negative, no wait
    latch.CountDown();
    waiter.join();
    latch.CountDown();
    EXPECT_EQ(latch.GetCount(), 0u);
}

// An early CountOut opens no later Wait; after CountAll only a timed Wait still sleeps.
TEST(CountOutWakeTest, CountOutReleasesOneWaiterAndCountAllTheRest) {
    EXPECT_EQ(CountOutWake().GetCount(), 0u);
    CountOutWake gate(5);  // counts 5 plus the threads inside Wait
    gate.CountOut();
    std::thread first([&] { gate.Wait(0); }), second([&] { gate.Wait(0); });
    ASSERT_TRUE(testing::Eventually([&] { return gate.GetCount() == 7; }));
    gate.CountOut();
    ASSERT_TRUE(testing::Eventually([&] { return gate.GetCount() == 6; }));
    gate.CountAll();
    first.join();
    second.join();
    gate.Wait(0);
    std::thread waiter([&] { gate.Wait(~0ull >> 1); });
    ASSERT_TRUE(testing::Eventually([&] { return gate.GetCount() == 6; }));
    gate.CountAll();
    waiter.join();
}

}  // namespace
}  // namespace orvik
