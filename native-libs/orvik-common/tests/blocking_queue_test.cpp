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
using testing::Since;

constexpr char kRefusedLine[] = "[WARN][native-libs/orvik-common/include/common/blocking_queue.h:";
constexpr char kRefusedMessage[] = "[orvik::BlockingQueue::Push] queue full or timeout\n";

size_t CountOf(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

// A task that records its value when run.
Task Recording(std::vector<int>& ran, int value) {
    return [&ran, value] { ran.push_back(value); };
}

TEST(BlockingQueueTest, ItemsLeaveInTheOrderOfTheirPushes) {
    Queue queue;
    std::vector<int> ran;
    for (int i = 1; i <= 3; ++i) {
        ASSERT_TRUE(queue.Push(Recording(ran, i)));
    }
    EXPECT_EQ(queue.Size(), 3u);
    Task out;
    while (queue.Pop(out, -1)) {
        out();
    }
    EXPECT_EQ(ran, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(queue.Size(), 0u);

    // The default queue is never full.
    for (int i = 0; i < 10000; ++i) {
        ASSERT_TRUE(queue.Push([] {}, -1));
    }
}

TEST(BlockingQueueTest, RefusedPushesOfAFullQueueLogAndTimeOut) {
    Queue queue(2);
    ASSERT_TRUE(queue.Push([] {}, -1));
    ASSERT_TRUE(queue.Push([] {}, -1));
    ConsoleCapture console;

    const auto start = platform::SteadyClockNow();
    EXPECT_FALSE(queue.Push([] {}, -1));
    EXPECT_FALSE(queue.Push([] {}, 100));
    EXPECT_GE(Since(start), std::chrono::milliseconds(100));
    EXPECT_EQ(queue.Size(), 2u);
    EXPECT_EQ(CountOf(console.Text(), kRefusedLine), 2u) << console.Text();
    EXPECT_EQ(CountOf(console.Text(), kRefusedMessage), 2u) << console.Text();

    // Capacity 0 refuses every Push that does not wait without limit.
    Queue closed(0);
    EXPECT_FALSE(closed.Push([] {}, -1));
    EXPECT_FALSE(closed.Push([] {}, 10));
}

TEST(BlockingQueueTest, EmptyPopReturnsFalseSilentlyAndLeavesOutAlone) {
    Queue queue;
    std::vector<int> ran;
    Task out = Recording(ran, 7);
    ConsoleCapture console;
    EXPECT_FALSE(queue.Pop(out, -1));
    EXPECT_FALSE(queue.Pop(out, 20));
    ASSERT_TRUE(out);
    out();
    EXPECT_EQ(ran, std::vector<int>{7});
    EXPECT_EQ(console.Text(), "");
}

// Producer and consumer hand 20000 items over a queue of capacity 1, both waiting without
// limit: each side sleeps and is woken thousands of times, and a lost wake-up hangs the test.
TEST(BlockingQueueTest, EndlessWaitsOnBothSidesHandOverEveryItemInOrder) {
    constexpr int kItems = 20000;
    Queue queue(1);
    std::vector<int> ran;
    ran.reserve(kItems);
    std::thread consumer([&] {
        Task out;
        for (int i = 0; i < kItems; ++i) {
            ASSERT_TRUE(queue.Pop(out, 0));
            out();
        }
    });
    for (int i = 0; i < kItems; ++i) {
        ASSERT_TRUE(queue.Push(Recording(ran, i), 0));
    }
    consumer.join();
    ASSERT_EQ(ran.size(), static_cast<size_t>(kItems));
    for (int i = 0; i < kItems; ++i) {
        ASSERT_EQ(ran[i], i);
    }
}

TEST(BlockingQueueTest, HaltReleasesEndlessWaitersOnBothSides) {
    Queue full(1);
    ASSERT_TRUE(full.Push([] {}));
    Queue empty;
    ConsoleCapture console;
    bool pushed = true;
    bool popped = true;
    std::thread pusher([&] { pushed = full.Push([] {}, 0); });
    std::thread popper([&] {
        Task out;
        popped = empty.Pop(out, 0);
    });
    full.Halt();
    empty.Halt();
    pusher.join();
    popper.join();
    EXPECT_FALSE(pushed);
    EXPECT_FALSE(popped);
    EXPECT_EQ(CountOf(console.Text(), kRefusedMessage), 1u) << console.Text();
}

TEST(BlockingQueueTest, HaltedQueueRefusesEachPushAndPopAsItsTimeOutSays) {
    Queue queue;
    queue.Halt();
    queue.Halt();  // idempotent
    ConsoleCapture console;
    const struct {
        int timeoutMs;
        int atLeastMs;  // a halted Push with a positive time-out waits it out
    } cases[] = {{-1, 0}, {0, 0}, {50, 50}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.timeoutMs);
        console.Clear();
        const auto start = platform::SteadyClockNow();
        EXPECT_FALSE(queue.Push([] {}, c.timeoutMs));
        EXPECT_GE(Since(start), std::chrono::milliseconds(c.atLeastMs));
        EXPECT_EQ(CountOf(console.Text(), kRefusedMessage), 1u);
        Task out;
        EXPECT_FALSE(queue.Pop(out, c.timeoutMs));
        EXPECT_EQ(queue.Size(), 0u);
    }
}

TEST(BlockingQueueTest, HaltDestroysHeldItemsWithoutRunningThem) {
    Queue queue;
    auto token = std::make_shared<int>(0);
    int ran = 0;
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(queue.Push([token, &ran] { ++ran; }));
    }
    ASSERT_EQ(token.use_count(), 4);
    queue.Halt();
    EXPECT_EQ(token.use_count(), 1);
    EXPECT_EQ(queue.Size(), 0u);
    EXPECT_EQ(ran, 0);
}

}  // namespace
}  // namespace orvik
