#include "common/thread_pool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "common/latch.h"
#include "library_frame.h"
#include "platform/platform.h"
#include "support/console_capture.h"
#include "support/eventually.h"
#include "thread_pool_seam.h"

namespace orvik {
namespace {

using testing::ConsoleCapture;
using testing::Eventually;
using testing::Since;

constexpr auto kIdleTimeout = std::chrono::milliseconds(1000);

size_t CountOf(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

// SubmitTask takes an lvalue; this helper lets tests hand it a lambda.
bool Submit(ThreadPool& pool, std::function<void()> task) {
    return pool.SubmitTask(task);
}

// A pool whose first task blocks until Open(), with `queued` more tasks behind it; every task
// counts itself in `ran` when it ends.
struct BlockedPool {
    explicit BlockedPool(int queued, size_t warnThreads = 1)
        : pool(std::make_shared<ThreadPool>("blocked", 1, warnThreads)) {
        Submit(*pool, [this] {
            started.CountDown();
            gate.Wait(0);
            ++ran;
        });
        started.Wait(0);
        for (int i = 0; i < queued; ++i) {
            Submit(*pool, [this] { ++ran; });
        }
    }
    ~BlockedPool() {
        Open();
        pool->Shutdown(ThreadPool::SHUTDOWN_IMMEDIATE);
    }
    void Open() { gate.CountDown(); }

    CountDownLatch started{1};
    CountDownLatch gate{1};
    std::atomic<int> ran{0};
    std::shared_ptr<ThreadPool> pool;
};

TEST(ThreadPoolTest, NewPoolHoldsNoThreadAndNoTask) {
    const int threadsBefore = platform::ProcessThreadCount();
    auto pool = std::make_shared<ThreadPool>("fresh", 4, 4);
    EXPECT_EQ(pool->GetRunningThreadNumber(), 0u);
    EXPECT_EQ(pool->GetPendingTaskNumber(), 0u);
    EXPECT_EQ(platform::ProcessThreadCount(), threadsBefore);
    EXPECT_EQ(pool->GetName(), "fresh");
    pool->SetName("renamed");
    EXPECT_EQ(pool->GetName(), "renamed");
    EXPECT_FALSE(pool->IsShuntDown());
}

TEST(ThreadPoolTest, EachSubmissionStartsOneThreadUpToTheMaximumThenAllLeaveWhenIdle) {
    auto pool = std::make_shared<ThreadPool>("elastic", 3, 3);
    const size_t expected[] = {1, 2, 3, 3};
    auto lastSubmission = platform::SteadyClockNow();
    for (size_t threads : expected) {
        SCOPED_TRACE(threads);
        CountDownLatch done(1);
        lastSubmission = platform::SteadyClockNow();
        ASSERT_TRUE(Submit(*pool, [&done] { done.CountDown(); }));
        EXPECT_EQ(pool->GetRunningThreadNumber(), threads);
        done.Wait(0);  // the earlier threads are idle at the next submission
    }

    ASSERT_TRUE(Eventually([&] { return pool->GetRunningThreadNumber() == 0; }));
    EXPECT_GE(Since(lastSubmission), kIdleTimeout);

    ASSERT_TRUE(Submit(*pool, [] {}));
    EXPECT_EQ(pool->GetRunningThreadNumber(), 1u);
    pool->Shutdown(ThreadPool::SHUTDOWN_AFTER_DRAIN);
}

TEST(ThreadPoolTest, PoolWithoutThreadsKeepsTasksQueuedAndShutsDownWithoutWaiting) {
    auto pool = std::make_shared<ThreadPool>("none", 0, 1);
    int ran = 0;
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(Submit(*pool, [&ran] { ++ran; }));
    }
    EXPECT_EQ(pool->GetPendingTaskNumber(), 3u);
    EXPECT_EQ(pool->GetRunningThreadNumber(), 0u);
    pool->Shutdown(ThreadPool::SHUTDOWN_AFTER_DRAIN);  // nothing could drain the queue
    EXPECT_EQ(pool->GetPendingTaskNumber(), 0u);
    EXPECT_EQ(ran, 0);
}

TEST(ThreadPoolTest, LoadWarningStartsWhenThreadsExceedTenTimesWarnThreads) {
    const struct {
        size_t warnThreads;
        size_t maxThreads;
        int submissions;
        int firstWarned;  // 1-based; 0 for never
    } cases[] = {{1, 11, 12, 11}, {1, 10, 12, 0}, {0, 2, 3, 1}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.maxThreads);
        auto pool = std::make_shared<ThreadPool>("busy", c.maxThreads, c.warnThreads);
        CountDownLatch gate(1);  // keeps every thread busy, so none idles out
        ConsoleCapture console;
        for (int i = 1; i <= c.submissions; ++i) {
            const size_t before = CountOf(console.Text(), "PoolName:busy,");
            ASSERT_TRUE(Submit(*pool, [&gate] { gate.Wait(0); }));
            const bool warned = c.firstWarned != 0 && i >= c.firstWarned;
            EXPECT_EQ(CountOf(console.Text(), "PoolName:busy,"), before + (warned ? 1 : 0))
                << "submission " << i;
        }
        gate.CountDown();
        pool->Shutdown(ThreadPool::SHUTDOWN_AFTER_DRAIN);
    }
}

TEST(ThreadPoolTest, LoadWarningShowsNameQueueAndThreadsAsDecimals) {
    BlockedPool blocked(0, 0);  // warnThreads 0: every submission warns
    ConsoleCapture console;
    ASSERT_TRUE(Submit(*blocked.pool, [] {}));
    ASSERT_TRUE(Submit(*blocked.pool, [] {}));
    EXPECT_NE(console.Text().find("[WARN][native-libs/orvik-common/src/thread_pool.cpp:"),
              std::string::npos);
    EXPECT_NE(console.Text().find("[orvik::ThreadPool::SubmitTask] "
                                  "PoolName:blocked,PendingTaskNumber:1; RunningThreadNumber:1\n"),
              std::string::npos)
        << console.Text();
    EXPECT_NE(console.Text().find("PoolName:blocked,PendingTaskNumber:2; RunningThreadNumber:1\n"),
              std::string::npos);
}

TEST(ThreadPoolTest, TaskExceptionsAreLoggedAtFatalAndTheThreadGoesOn) {
    auto pool = std::make_shared<ThreadPool>("throwing", 1, 1);
    std::vector<std::thread::id> threads;  // written by the one pool thread only
    auto record = [&threads] { threads.push_back(std::this_thread::get_id()); };
    const struct {
        const char* message;
        std::function<void()> task;
    } cases[] = {
        {"task exception: boom\n",
         [&] {
             record();
             throw std::runtime_error("boom");
         }},
        {"task exception: unknown exception\n",
         [&] {
             record();
             throw 42;
         }},
        {"task exception: bad_function_call\n", std::function<void()>()},
    };
    ConsoleCapture console;
    for (const auto& c : cases) {
        std::function<void()> task = c.task;
        ASSERT_TRUE(pool->SubmitTask(task));
    }
    ASSERT_TRUE(Submit(*pool, record));
    pool->Shutdown(ThreadPool::SHUTDOWN_AFTER_DRAIN);  // the thread has logged once it left

    const std::string text = console.Text();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.message);
        EXPECT_EQ(CountOf(text, std::string("[orvik::ThreadPool::RunTask] ") + c.message), 1u)
            << text;
    }
    EXPECT_EQ(CountOf(text, "[FATAL][native-libs/orvik-common/src/thread_pool.cpp:"), 3u);
    ASSERT_EQ(threads.size(), 3u);
    EXPECT_EQ(threads[0], threads[1]);
    EXPECT_EQ(threads[1], threads[2]);
}

TEST(ThreadPoolTest, ShutdownMethodsDecideTheFateOfQueuedTasks) {
    const struct {
        ThreadPool::SHUTDOWN_METHOD method;
        int ran;               // of one running and five queued tasks
        bool waitsForIdleOut;  // the threads leave only after 1000 ms without work
    } cases[] = {{ThreadPool::SHUTDOWN_IMMEDIATE, 1, false},
                 {ThreadPool::SHUTDOWN_AFTER_DRAIN, 6, false},
                 {static_cast<ThreadPool::SHUTDOWN_METHOD>(7), 6, true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.method);
        BlockedPool blocked(5);
        std::atomic<bool> returned{false};
        std::thread shutdown([&] {
            blocked.pool->Shutdown(c.method);
            returned = true;
        });
        ASSERT_TRUE(Eventually([&] { return blocked.pool->IsShuntDown(); }));
        EXPECT_FALSE(returned) << "Shutdown waits for the running task";
        const auto opened = platform::SteadyClockNow();
        blocked.Open();
        shutdown.join();

        EXPECT_EQ(blocked.ran, c.ran);
        EXPECT_EQ(blocked.pool->GetPendingTaskNumber(), 0u);
        EXPECT_EQ(blocked.pool->GetRunningThreadNumber(), 0u);
        if (c.waitsForIdleOut) {
            EXPECT_GE(Since(opened), kIdleTimeout);
        }
        EXPECT_FALSE(Submit(*blocked.pool, [] {}));
        blocked.pool->Shutdown(c.method);  // a second call finds no thread and returns
    }
}

TEST(ThreadPoolTest, WaitReturnsWhenTheQueueIsEmptyNotWhenTasksEnd) {
    {
        BlockedPool blocked(0);
        blocked.pool->Wait();  // the queue is empty while the first task still runs
    }
    {
        BlockedPool blocked(3);
        std::thread waiter([&] { blocked.pool->Wait(); });
        blocked.Open();
        waiter.join();
        EXPECT_EQ(blocked.pool->GetPendingTaskNumber(), 0u);
    }
    {
        // Discarding the queue ends a Wait, while the running task still blocks.
        BlockedPool blocked(3);
        std::atomic<bool> returned{false};
        std::thread waiter([&] {
            blocked.pool->Wait();
            returned = true;
        });
        std::thread shutdown([&] { blocked.pool->Shutdown(ThreadPool::SHUTDOWN_IMMEDIATE); });
        EXPECT_TRUE(Eventually([&] { return returned.load(); }));
        blocked.Open();
        shutdown.join();
        waiter.join();
    }
}

// Many short rounds, each ending in Wait: a wake-up lost between Wait's test of the queue and
// its sleep would hang one of them.
TEST(ThreadPoolTest, WaitNeverMissesTheLastPop) {
    auto pool = std::make_shared<ThreadPool>("rounds", 2, 2);
    std::atomic<int> ran{0};
    for (int round = 1; round <= 300; ++round) {
        for (int i = 0; i < 10; ++i) {
            ASSERT_TRUE(Submit(*pool, [&ran] { ++ran; }));
        }
        pool->Wait();
        ASSERT_EQ(pool->GetPendingTaskNumber(), 0u);
    }
    pool->Shutdown(ThreadPool::SHUTDOWN_AFTER_DRAIN);
    EXPECT_EQ(ran, 3000);
}

TEST(ThreadPoolTest, SubmitWithFutureReportsTheEndOfItsTask) {
    auto pool = std::make_shared<ThreadPool>("futures", 1, 1);
    std::string text = "bound";
    std::string seen;
    std::future<void> done = pool->SubmitWithFuture(
        [&seen](const std::string& value, int number) { seen = value + std::to_string(number); },
        text, 7);
    text = "changed";  // the argument was bound by copy
    done.get();
    EXPECT_EQ(seen, "bound7");

    ConsoleCapture console;
    std::future<void> failed = pool->SubmitWithFuture([] { throw std::invalid_argument("bad"); });
    EXPECT_THROW(failed.get(), std::invalid_argument);

    pool->Shutdown(ThreadPool::SHUTDOWN_AFTER_DRAIN);
    EXPECT_EQ(console.Text(), "") << "the future took the exception, not the pool";
    std::future<void> refused = pool->SubmitWithFuture([] {});
    try {
        refused.get();
        ADD_FAILURE() << "a refused task has no result";
    } catch (const std::future_error& error) {
        EXPECT_EQ(error.code(), std::future_errc::broken_promise);
    }
}

TEST(ThreadPoolTest, DiscardedTaskBreaksItsFuture) {
    BlockedPool blocked(0);
    std::future<void> discarded = blocked.pool->SubmitWithFuture([] {});
    std::thread shutdown([&] { blocked.pool->Shutdown(ThreadPool::SHUTDOWN_IMMEDIATE); });
    EXPECT_THROW(discarded.get(), std::future_error);
    blocked.Open();
    shutdown.join();
}

TEST(ThreadPoolTest, PoolOutlivesItsLastOwnerUntilItsQueueIsDrained) {
    auto blocked = std::make_unique<BlockedPool>(3);
    std::weak_ptr<ThreadPool> watched = blocked->pool;
    std::shared_ptr<ThreadPool> owner;
    owner.swap(blocked->pool);
    owner.reset();
    EXPECT_FALSE(watched.expired()) << "its thread holds the pool";

    blocked->Open();
    ASSERT_TRUE(Eventually([&] { return blocked->ran == 4; }));
    EXPECT_TRUE(Eventually([&] { return watched.expired(); }));
    blocked->pool = std::make_shared<ThreadPool>("spare", 1, 1);  // for BlockedPool's destructor
}

// Restores thread creation however the test ends.
struct RefusedThreads {
    RefusedThreads() : active(platform::RefuseNewThreadsForTesting(true)) {}
    ~RefusedThreads() { Allow(); }
    void Allow() {
        if (active) {
            platform::RefuseNewThreadsForTesting(false);
            active = false;
        }
    }
    bool active;
};

TEST(ThreadPoolTest, RefusedThreadLeavesThePoolUsableAndShutdownUnblocked) {
    auto pool = std::make_shared<ThreadPool>("refused", 1, 1, 1);
    auto stranded = std::make_shared<ThreadPool>("stranded", 1, 1);
    std::atomic<int> ran{0};
    std::function<void()> task = [&ran] { ++ran; };
    ConsoleCapture console;
    {
        RefusedThreads refused;
        if (!refused.active) {
            GTEST_SKIP() << "this system cannot refuse threads";
        }
        EXPECT_THROW(pool->SubmitTask(task), std::system_error);
        EXPECT_THROW(stranded->SubmitTask(task), std::system_error);
        stranded->Shutdown(ThreadPool::SHUTDOWN_AFTER_DRAIN);  // no thread can drain it
        EXPECT_NE(console.Text().find("[ERROR]"), std::string::npos);
        EXPECT_EQ(stranded->GetPendingTaskNumber(), 0u);
    }
    EXPECT_EQ(pool->GetRunningThreadNumber(), 0u);
    EXPECT_EQ(pool->GetPendingTaskNumber(), 1u);  // the queue of one is full

    // The next submission starts a thread for the waiting task before it waits for room.
    ASSERT_TRUE(pool->SubmitTask(task));
    EXPECT_TRUE(Eventually([&] { return ran == 2; }));
    pool->Shutdown(ThreadPool::SHUTDOWN_IMMEDIATE);
}

// The seam's hook holds a pool thread at one moment of its life until the test lets it go.
struct HeldMoment {
    detail::WorkerMoment moment;
    std::atomic<bool> taken{false};  // only the first thread to get there is held
    CountDownLatch arrived{1};
    CountDownLatch release{1};
    CountDownLatch left{1};
};
HeldMoment* heldMoment = nullptr;

void HoldAtMoment(detail::WorkerMoment moment) {
    HeldMoment& held = *heldMoment;
    if (moment != held.moment || held.taken.exchange(true)) {
        return;
    }
    held.arrived.CountDown();
    held.release.Wait(0);
    held.left.CountDown();
}

class ThreadPoolMomentTest : public ::testing::Test {
protected:
    // Holds the first thread that reaches `moment`; replaces an earlier hold, which must be
    // over.
    HeldMoment& Hold(detail::WorkerMoment moment) {
        held = std::make_unique<HeldMoment>();
        held->moment = moment;
        heldMoment = held.get();
        detail::SetWorkerHookForTesting(&HoldAtMoment);
        return *held;
    }
    void TearDown() override {
        if (held) {
            held->release.CountDown();
            if (held->taken) {
                held->left.Wait(0);
            }
        }
        detail::SetWorkerHookForTesting(nullptr);
    }
    std::unique_ptr<HeldMoment> held;
};

// A task submitted while the only thread is leaving finds the thread count at its maximum and
// starts no thread; the leaving thread must see it and stay.
TEST_F(ThreadPoolMomentTest, TaskQueuedWhileTheOnlyThreadIdlesOutStillRuns) {
    enum Then { kNothing, kSubmitToFullQueue, kShutdownAfterDrain };
    for (const Then then : {kNothing, kSubmitToFullQueue, kShutdownAfterDrain}) {
        SCOPED_TRACE(then);
        HeldMoment& held = Hold(detail::WorkerMoment::kIdleTimedOut);
        auto pool = std::make_shared<ThreadPool>("leaving", 1, 1, 1);
        std::atomic<int> ran{0};
        ASSERT_TRUE(Submit(*pool, [&ran] { ++ran; }));
        held.arrived.Wait(0);  // after 1000 ms without work

        ASSERT_TRUE(Submit(*pool, [&ran] { ++ran; }));
        EXPECT_EQ(pool->GetRunningThreadNumber(), 1u);
        std::atomic<bool> returned{false};
        std::thread other([&] {
            if (then == kSubmitToFullQueue) {
                Submit(*pool, [&ran] { ++ran; });
            } else if (then == kShutdownAfterDrain) {
                pool->Shutdown(ThreadPool::SHUTDOWN_AFTER_DRAIN);
            }
            returned = true;
        });
        held.release.CountDown();
        const int expected = then == kSubmitToFullQueue ? 3 : 2;
        EXPECT_TRUE(Eventually([&] { return ran == expected && returned; }));
        other.join();
        held.left.Wait(0);
        pool->Shutdown(ThreadPool::SHUTDOWN_IMMEDIATE);
    }
}

// The last owner lets go between the start of a thread and its first hold of the pool: the
// destructor must not wait for that thread, and the thread must end on its own.
TEST_F(ThreadPoolMomentTest, ThreadThatBeginsAfterTheLastOwnerLetGoEndsOnItsOwn) {
    HeldMoment& held = Hold(detail::WorkerMoment::kThreadBegun);
    auto pool = std::make_shared<ThreadPool>("orphan", 1, 1);
    std::weak_ptr<ThreadPool> watched = pool;
    int ran = 0;
    ASSERT_TRUE(Submit(*pool, [&ran] { ++ran; }));
    held.arrived.Wait(0);
    pool.reset();  // the destructor runs here, while the thread is held
    EXPECT_TRUE(watched.expired());
    held.release.CountDown();
    held.left.Wait(0);
    EXPECT_EQ(ran, 0);
}

TEST(SharedPoolsTest, SharedPoolsRunTasksStrictlyInSubmissionOrder) {
    const struct {
        const std::shared_ptr<ThreadPool>& pool;
        const char* name;
    } cases[] = {{InitOrRetryTask::initRetryThreadPool, "initOrRetryTask"},
                 {detail::reporterPool, "ov-com-report"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.pool->GetName(), c.name);
        EXPECT_EQ(c.pool->GetRunningThreadNumber(), 0u);
        constexpr int kTasks = 50;
        std::vector<int> order;  // written by one task at a time
        std::atomic<bool> inside{false};
        std::atomic<bool> overlapped{false};
        CountDownLatch done(kTasks);
        for (int i = 0; i < kTasks; ++i) {
            ASSERT_TRUE(Submit(*c.pool, [&, i] {
                if (inside.exchange(true)) {
                    overlapped = true;
                }
                order.push_back(i);
                inside = false;
                done.CountDown();
            }));
            EXPECT_LE(c.pool->GetRunningThreadNumber(), 1u);
        }
        done.Wait(0);
        EXPECT_FALSE(overlapped);
        ASSERT_EQ(order.size(), static_cast<size_t>(kTasks));
        for (int i = 0; i < kTasks; ++i) {
            EXPECT_EQ(order[i], i);
        }
        c.pool->Shutdown(ThreadPool::SHUTDOWN_AFTER_DRAIN);
        EXPECT_FALSE(Submit(*c.pool, [] {})) << "shut down for every user, for good";
    }
}

}  // namespace
}  // namespace orvik
