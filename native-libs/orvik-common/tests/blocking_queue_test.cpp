#include "common/blocking_queue.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <thread>

#include "platform/platform.h"
#include "support/console_capture.h"
#include "support/eventually.h"

namespace orvik {
namespace {

using Queue = BlockingQueue<std::function<void()>>;

// A refused Push logs a warning and waits out a positive time-out; a failed Pop is silent and
// leaves `out` alone. Halt drops the items, releases endless waiters and refuses all later.
TEST(BlockingQueueTest, FullQueueRefusesWithLogUntilHaltDropsItemsAndReleasesWaiters) {
    Queue full(2), empty;
    auto token = std::make_shared<int>(0);
    ASSERT_TRUE(full.Push([token] {}, -1));
    ASSERT_TRUE(full.Push([token] {}, -1));
    testing::ConsoleCapture console;
    for (int timeoutMs : {-1, 50}) {
        const auto start = platform::SteadyClockNow();
        EXPECT_FALSE(full.Push([] {}, timeoutMs));
        EXPECT_GE(platform::SteadyClockNow() - start, std::chrono::milliseconds(timeoutMs));
    }
    std::function<void()> out = [] {};
    EXPECT_FALSE(empty.Pop(out, 20));
    EXPECT_TRUE(out);
    EXPECT_EQ(
        testing::CountOf(console.Text(), "[orvik::BlockingQueue::Push] queue full or timeout\n"),
        2u);
    bool pushed = true, popped = true;
    std::thread pusher([&] { pushed = full.Push([] {}, 0); });
    std::thread popper([&] { popped = empty.Pop(out, 0); });
    full.Halt();
    empty.Halt();
    pusher.join();
    popper.join();
    EXPECT_FALSE(pushed || popped || full.Push([] {}, -1) || full.Pop(out, 0));
    EXPECT_EQ(token.use_count(), 1);
}

// 20000 items through a queue of one, both sides waiting without limit: a lost wake-up hangs.
TEST(BlockingQueueTest, EndlessWaitsOnBothSidesHandOverEveryItemInOrder) {
    Queue queue(1);
    int next = 0;
    std::thread consumer([&] {
        std::function<void()> out;
        for (int i = 0; i < 20000 && queue.Pop(out, 0); ++i) {
            out();
        }
    });
    for (int i = 0; i < 20000; ++i) {
        ASSERT_TRUE(queue.Push([&next, i] { ASSERT_EQ(next++, i); }, 0));
    }
    consumer.join();
    EXPECT_EQ(next, 20000);
}

}  // namespace
}  // namespace orvik
