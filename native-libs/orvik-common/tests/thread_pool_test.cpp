#include "common/thread_pool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "common/latch.h"
#include "internal/library_frame.h"
#include "platform/platform.h"
#include "support/console_capture.h"
#include "support/eventually.h"
#include "internal/thread_pool_seam.h"

namespace orvik {
namespace {

using testing::ConsoleCapture;
using testing::CountOf;
using testing::Eventually;
using testing::Since;

constexpr auto kIdleTimeout = std::chrono::milliseconds(1000);

// SubmitTask takes an lvalue; this helper lets tests hand it a lambda.
bool Submit(ThreadPool& pool, std::function<void()> task) {
    return pool.SubmitTask(task);
}

// The error a future reports instead of a result; none when it holds one.
template <class R>
std::error_code ErrorOf(std::future<R> future) {
    try {
        future.get();
    } catch (const std::future_error& error) {
        return error.code();
    }
    return {};
}

// A pool of one thread whose first task blocks until Open(), with `queued` tasks behind it;
// every task counts itself in `ran` when it ends.
struct BlockedPool {
    explicit BlockedPool(int queued) : pool(std::make_shared<ThreadPool>("blocked", 1, 1)) {
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
        if (pool) {
            pool->Shutdown(ThreadPool::SHUTDOWN_IMMEDIATE);
        }
    }
    void Open() { gate.CountDown(); }

    CountDownLatch started{1}, gate{1};
    std::atomic<int> ran{0};
    std::shared_ptr<ThreadPool> pool;
};

TEST(ThreadPoolTest, EachSubmissionStartsOneThreadUpToTheMaximumThenAllLeaveWhenIdle) {
    const int processThreads = platform::ProcessThreadCount();
    auto pool = std::make_shared<ThreadPool>("elastic", 3, 3);
    EXPECT_EQ(platform::ProcessThreadCount(), processThreads) << "no thread before a task";
    auto lastSubmission = platform::SteadyClockNow();
    for (size_t threads : {1, 2, 3, 3}) {
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

// Each task starts before the next submission, so the queue holds only what no thread took.
TEST(ThreadPoolTest, LoadWarningStartsWhenThreadsExceedTenTimesWarnThreads) {
    const struct {
        size_t warnThreads, maxThreads, firstWarned;  // 0: never
    } cases[] = {{1, 10, 0}, {1, 11, 11}, {0, 1, 1}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.maxThreads);
        auto pool = std::make_shared<ThreadPool>("busy", c.maxThreads, c.warnThreads);
        CountDownLatch gate(1);  // keeps every thread busy, so none idles out
        std::atomic<size_t> started{0};
        ConsoleCapture console;
        for (size_t i = 1; i <= 12; ++i) {
            ASSERT_TRUE(Eventually([&] { return started == std::min(i - 1, c.maxThreads); }));
            ASSERT_TRUE(Submit(*pool, [&] {
                ++started;
                gate.Wait(0);
            }));
            const size_t warnings = c.firstWarned && i >= c.firstWarned ? i + 1 - c.firstWarned : 0;
            EXPECT_EQ(CountOf(console.Text(), "PoolName:busy,"), warnings) << "submission " << i;
        }
        EXPECT_EQ(CountOf(console.Text(), "[WARN][native-libs/orvik-common/src/thread_pool.cpp:"),
                  c.firstWarned ? 13 - c.firstWarned : 0);
        if (c.maxThreads == 11) {  // the twelfth submission waits behind eleven threads
            EXPECT_NE(console.Text().find("[orvik::ThreadPool::SubmitTask] PoolName:busy,"
                                          "PendingTaskNumber:1; RunningThreadNumber:11\n"),
                      std::string::npos)
                << console.Text();
        }
        gate.CountDown();
        pool->Shutdown(ThreadPool::SHUTDOWN_AFTER_DRAIN);
    }
}

// A task's exception goes to its future, or else to a FATAL line; either way the thread goes on.
TEST(ThreadPoolTest, TaskExceptionsGoToTheFutureOrTheLogAndTheThreadGoesOn) {
    auto pool = std::make_shared<ThreadPool>("throwing", 1, 1);
    std::thread::id first, last;  // the thread of the first and of the last task
    std::string text = "bound", seen;
    ConsoleCapture console;
    ASSERT_TRUE(Submit(*pool, [&first] {
        first = std::this_thread::get_id();
        throw std::runtime_error("boom");
    }));
    ASSERT_TRUE(Submit(*pool, [] { throw 42; }));
    ASSERT_TRUE(Submit(*pool, std::function<void()>()));
    std::future<void> failed = pool->SubmitWithFuture([] { throw std::invalid_argument("bad"); });
    std::future<void> done = pool->SubmitWithFuture(
        [&seen](const std::string& value, int number) { seen = value + std::to_string(number); },
        text, 7);
    text = "changed";  // the argument was bound by copy
    ASSERT_TRUE(Submit(*pool, [&last] { last = std::this_thread::get_id(); }));
    pool->Shutdown(ThreadPool::SHUTDOWN_AFTER_DRAIN);  // the thread has logged once it left

    EXPECT_THROW(failed.get(), std::invalid_argument);
    done.get();
    EXPECT_EQ(seen, "bound7");
    EXPECT_EQ(ErrorOf(pool->SubmitWithFuture([] {})), std::future_errc::broken_promise);
    const std::string log = console.Text();
    for (const char* what : {"boom\n", "unknown exception\n", "bad_function_call\n"}) {
        SCOPED_TRACE(what);
        EXPECT_EQ(CountOf(log, std::string("[orvik::ThreadPool::RunTask] task exception: ") + what),
                  1u)
            << log;
    }
    EXPECT_EQ(CountOf(log, "[FATAL][native-libs/orvik-common/src/thread_pool.cpp:"), 3u);
    EXPECT_EQ(first, last);
}

// Any callable, move-only ones included, gives its result or its exception through the future;
// a refused one breaks the promise.
TEST(ThreadPoolTest, SubmitGivesTheCallablesResultOrException) {
    auto pool = std::make_shared<ThreadPool>("results", 2, 2);
    auto owned = std::make_unique<int>(41);
    std::future<int> moved = pool->Submit([owned = std::move(owned)] { return *owned + 1; });
    auto counter = [count = 0]() mutable { return ++count; };
    std::future<int> copied = pool->Submit(counter);  // an lvalue is copied
    std::future<std::string> text = pool->Submit([] { return std::string(300, 'x'); });
    std::future<void> failed = pool->Submit([] { throw std::invalid_argument("bad"); });
    for (std::future<int>* future : {&moved, &copied}) {
        ASSERT_EQ(future->wait_for(std::chrono::seconds(10)), std::future_status::ready);
    }
    EXPECT_EQ(moved.get(), 42);
    EXPECT_EQ(copied.get(), 1);
    EXPECT_EQ(counter(), 1);
    EXPECT_EQ(text.get(), std::string(300, 'x'));
    EXPECT_THROW(failed.get(), std::invalid_argument);
    pool->Shutdown(ThreadPool::SHUTDOWN_AFTER_DRAIN);
    EXPECT_EQ(ErrorOf(pool->Submit([] { return 1; })), std::future_errc::broken_promise);
}

// A Wait that starts before the shutdown ends once the queue is empty: an immediate shutdown
// empties it (breaking the futures it drops) while the running task still blocks.
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
        std::future<void> last = blocked.pool->SubmitWithFuture([] {});
        std::atomic<bool> waited{false}, returned{false};
        std::thread waiter([&] {
            blocked.pool->Wait();
            waited = true;
        });
        std::thread shutdown([&] {
            blocked.pool->Shutdown(c.method);
            returned = true;
        });
        EXPECT_TRUE(Eventually([&] { return blocked.pool->IsShuntDown(); }));
        if (c.method == ThreadPool::SHUTDOWN_IMMEDIATE) {
            EXPECT_TRUE(Eventually([&] { return waited.load(); }));
        }
        EXPECT_FALSE(returned) << "Shutdown waits for the running task";
        const auto opened = platform::SteadyClockNow();
        blocked.Open();
        shutdown.join();
        waiter.join();
        EXPECT_EQ(blocked.ran, c.ran);
        EXPECT_EQ(ErrorOf(std::move(last)) == std::future_errc::broken_promise, c.ran == 1);
        EXPECT_EQ(blocked.pool->GetPendingTaskNumber(), 0u);
        EXPECT_EQ(blocked.pool->GetRunningThreadNumber(), 0u);
        if (c.waitsForIdleOut) {
            EXPECT_GE(Since(opened), kIdleTimeout);
        }
        EXPECT_FALSE(Submit(*blocked.pool, [] {}));
        blocked.pool->Shutdown(c.method);  // a second call finds no thread and returns
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

TEST(ThreadPoolTest, PoolOutlivesItsLastOwnerUntilItsQueueIsDrained) {
    BlockedPool blocked(3);
    std::weak_ptr<ThreadPool> watched = blocked.pool;
    blocked.pool.reset();
    EXPECT_FALSE(watched.expired()) << "its thread holds the pool";
    blocked.Open();
    ASSERT_TRUE(Eventually([&] { return blocked.ran == 4; }));
    EXPECT_TRUE(Eventually([&] { return watched.expired(); }));
}

TEST(ThreadPoolTest, RefusedThreadLeavesThePoolUsableAndShutdownUnblocked) {
    auto pool = std::make_shared<ThreadPool>("refused", 1, 1, 1);
    auto stranded = std::make_shared<ThreadPool>("stranded", 1, 1);
    std::atomic<int> ran{0};
    std::function<void()> task = [&ran] { ++ran; };
    ConsoleCapture console;
    if (!platform::RefuseNewThreadsForTesting(true)) {
        GTEST_SKIP() << "this system cannot refuse threads";
    }
    EXPECT_THROW(pool->SubmitTask(task), std::system_error);
    EXPECT_THROW(stranded->SubmitTask(task), std::system_error);
    stranded->Shutdown(ThreadPool::SHUTDOWN_AFTER_DRAIN);  // no thread can drain it
    platform::RefuseNewThreadsForTesting(false);
    EXPECT_NE(console.Text().find("[ERROR]"), std::string::npos);
    EXPECT_EQ(stranded->GetPendingTaskNumber(), 0u);
    EXPECT_EQ(pool->GetRunningThreadNumber(), 0u);
    EXPECT_EQ(pool->GetPendingTaskNumber(), 1u);  // the queue of one is full
    // The next submission starts a thread for the waiting task before it waits for room.
    ASSERT_TRUE(pool->SubmitTask(task));
    EXPECT_TRUE(Eventually([&] { return ran == 2; }));
    pool->Shutdown(ThreadPool::SHUTDOWN_IMMEDIATE);
}

// Holds the first pool thread that reaches `moment` until `release` opens; one hold at a time.
struct Hold {
    explicit Hold(detail::WorkerMoment at) : moment(at) {
        current = this;
        detail::SetWorkerHookForTesting([](detail::WorkerMoment now) {
            if (now == current->moment && !current->taken.exchange(true)) {
                current->arrived.CountDown();
                current->release.Wait(0);
                current->left.CountDown();
            }
        });
    }
    ~Hold() {
        release.CountDown();
        if (taken) {
            left.Wait(0);
        }
        detail::SetWorkerHookForTesting(nullptr);
    }
    static inline Hold* current = nullptr;
    const detail::WorkerMoment moment;
    std::atomic<bool> taken{false};
    CountDownLatch arrived{1}, release{1}, left{1};
};

// A task submitted while the only thread is leaving finds the thread count at its maximum and
// starts no thread; the leaving thread must see it and stay.
TEST(ThreadPoolMomentTest, TaskQueuedWhileTheOnlyThreadIdlesOutStillRuns) {
    enum Then { kNothing, kSubmitToFullQueue, kShutdownAfterDrain };
    for (const Then then : {kNothing, kSubmitToFullQueue, kShutdownAfterDrain}) {
        SCOPED_TRACE(then);
        Hold held(detail::WorkerMoment::kIdleTimedOut);
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

// The last owner lets go right after a submission, before the new thread has begun: the
// thread keeps the pool, runs the queued task and keeps its promise, and the pool goes with
// the thread.
TEST(ThreadPoolMomentTest, PoolDroppedRightAfterSubmissionStillRunsTheTask) {
    Hold held(detail::WorkerMoment::kThreadBegun);
    auto pool = std::make_shared<ThreadPool>("orphan", 1, 1);
    std::weak_ptr<ThreadPool> watched = pool;
    std::future<void> done = pool->SubmitWithFuture([] {});
    held.arrived.Wait(0);
    pool.reset();
    EXPECT_FALSE(watched.expired());
    held.release.CountDown();
    ASSERT_EQ(done.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_NO_THROW(done.get());
    EXPECT_TRUE(Eventually([&] { return watched.expired(); }));
}

TEST(SharedPoolsTest, SharedPoolsRunTasksStrictlyInSubmissionOrder) {
    const std::pair<const std::shared_ptr<ThreadPool>*, const char*> cases[] = {
        {&InitOrRetryTask::initRetryThreadPool, "initOrRetryTask"},
        {&detail::reporterPool, "ov-com-report"}};
    for (const auto& [shared, name] : cases) {
        SCOPED_TRACE(name);
        ThreadPool& pool = **shared;
        EXPECT_EQ(pool.GetName(), name);
        EXPECT_EQ(pool.GetRunningThreadNumber(), 0u);
        constexpr int kTasks = 50;
        int next = 0;  // one task at a time, in order, may touch it
        CountDownLatch done(kTasks);
        for (int i = 0; i < kTasks; ++i) {
            ASSERT_TRUE(Submit(pool, [&next, &done, i] {
                EXPECT_EQ(next++, i);
                done.CountDown();
            }));
            EXPECT_LE(pool.GetRunningThreadNumber(), 1u);
        }
        done.Wait(0);
        EXPECT_EQ(next, kTasks);
        pool.Shutdown(ThreadPool::SHUTDOWN_AFTER_DRAIN);
        EXPECT_FALSE(Submit(pool, [] {})) << "shut down for every user, for good";
    }
}

}  // namespace
}  // namespace orvik
