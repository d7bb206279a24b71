#include "common/blocking_queue.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/platform.h"
#include "support/console_capture.h"
#include "support/eventually.h"

namespace orvik {
namespace {

using Task = std::function<void()>;
using Queue = BlockingQueue<Task>;
using testing::ConsoleCapture;
using testing::CountOf;
using testing::Since;

constexpr char kRefusedLine[] = "[WARN][native-libs/orvik-common/include/common/blocking_queue.h:";
constexpr char kRefused[] = "[orvik::BlockingQueue::Push] queue full or timeout\n";

TEST(BlockingQueueTest, FullQueueRefusesPushesWithLogAndEmptyPopIsSilent) {
    Queue unbounded, queue(2), closed(0);
    for (int i = 0; i < 10000; ++i) {
        ASSERT_TRUE(unbounded.Push([] {}, -1));
    }
    std::vector<int> ran;
    for (int i = 1; i <= 2; ++i) {
        ASSERT_TRUE(queue.Push([&ran, i] { ran.push_back(i); }, -1));
    }
    ConsoleCapture console;
    const auto start = platform::SteadyClockNow();
    EXPECT_FALSE(queue.Push([] {}, -1));
    EXPECT_FALSE(queue.Push([] {}, 100));
    EXPECT_GE(Since(start), std::chrono::milliseconds(100));
    EXPECT_FALSE(closed.Push([] {}, 10));
    EXPECT_EQ(queue.Size(), 2u);
    EXPECT_EQ(CountOf(console.Text(), kRefusedLine), 3u) << console.Text();
    EXPECT_EQ(CountOf(console.Text(), kRefused), 3u);

    console.Clear();
    Task out;
    while (queue.Pop(out, -1)) {
        out();
    }
    EXPECT_EQ(ran, (std::vector<int>{1, 2}));
    out = [&ran] { ran.clear(); };
    EXPECT_FALSE(queue.Pop(out, 20));
    out();  // a failed Pop leaves `out` alone
    EXPECT_TRUE(ran.empty());
    EXPECT_EQ(console.Text(), "");
}

// 20000 items through a queue of one, both sides waiting without limit: each side sleeps and
// is woken thousands of times, and a lost wake-up hangs the test.
TEST(BlockingQueueTest, EndlessWaitsOnBothSidesHandOverEveryItemInOrder) {
    constexpr int kItems = 20000;
    Queue queue(1);
    int next = 0;
    std::thread consumer([&] {
        Task out;
        for (int i = 0; i < kItems; ++i) {
            ASSERT_TRUE(queue.Pop(out, 0));
            out();
        }
    });
    for (int i = 0; i < kItems; ++i) {
        ASSERT_TRUE(queue.Push([&next, i] { ASSERT_EQ(next++, i); }, 0));
    }
    consumer.join();
    EXPECT_EQ(next, kItems);
}

TEST(BlockingQueueTest, HaltDropsItemsReleasesWaitersAndRefusesAsTimeOutsSay) {
    Queue full(1), empty;
    auto token = std::make_shared<int>(0);
    ASSERT_TRUE(full.Push([token] { ADD_FAILURE() << "a dropped item ran"; }));
    ConsoleCapture console;
    bool pushed = true, popped = true;
    std::thread pusher([&] { pushed = full.Push([] {}, 0); });
    std::thread popper([&] {
        Task out;
        popped = empty.Pop(out, 0);
    });
    full.Halt();
    full.Halt();  // idempotent
    empty.Halt();
    pusher.join();
    popper.join();
    EXPECT_FALSE(pushed);
    EXPECT_FALSE(popped);
    EXPECT_EQ(token.use_count(), 1);
    EXPECT_EQ(CountOf(console.Text(), kRefused), 1u) << console.Text();
    for (int timeoutMs : {-1, 0, 50}) {  // a positive time-out is waited out
        SCOPED_TRACE(timeoutMs);
        console.Clear();
        const auto start = platform::SteadyClockNow();
        EXPECT_FALSE(full.Push([] {}, timeoutMs));
        EXPECT_GE(Since(start), std::chrono::milliseconds(timeoutMs > 0 ? timeoutMs : 0));
        EXPECT_EQ(CountOf(console.Text(), kRefused), 1u);
        Task out;
        EXPECT_FALSE(full.Pop(out, timeoutMs));
        EXPECT_EQ(full.Size(), 0u);
    }
}

}  // namespace
}  // namespace orvik
