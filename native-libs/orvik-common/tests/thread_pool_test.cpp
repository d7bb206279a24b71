#include "common/thread_pool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>

#include "common/latch.h"
#include "internal/library_frame.h"
#include "internal/thread_pool_seam.h"
#include "platform/platform.h"
#include "support/console_capture.h"
#include "support/eventually.h"

namespace orvik {
namespace {

using testing::CountOf;
using testing::Eventually;

constexpr char kLogSite[] = "][native-libs/orvik-common/src/thread_pool.cpp:";

bool Submit(ThreadPool& pool, std::function<void()> task) {  // SubmitTask takes an lvalue
    return pool.SubmitTask(task);
}

// Each task starts before the next submission, so the queue holds only what no thread took.
TEST(ThreadPoolTest, ThreadsGrowToTheMaximumAndWarnBeyondTenTimesWarnThreads) {
    const struct {
        size_t warnThreads, maxThreads, firstWarned;  // 0: never
    } cases[] = {{1, 10, 0}, {1, 11, 11}, {0, 1, 1}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.maxThreads);
        auto pool = std::make_shared<ThreadPool>("busy", c.maxThreads, c.warnThreads);
        CountDownLatch gate(1);  // keeps every thread busy, so none idles out
        std::atomic<size_t> started{0};
        testing::ConsoleCapture console;
        for (size_t i = 1; i <= 12; ++i) {
            ASSERT_TRUE(Eventually([&] { return started == std::min(i - 1, c.maxThreads); }));
            ASSERT_TRUE(Submit(*pool, [&] { ++started, gate.Wait(0); }));
            EXPECT_EQ(pool->GetRunningThreadNumber(), std::min(i, c.maxThreads));
            const size_t warned = c.firstWarned && i >= c.firstWarned ? i + 1 - c.firstWarned : 0;
            EXPECT_EQ(CountOf(console.Text(), std::string("[WARN") + kLogSite), warned) << i;
        }
        const std::string twelfth = "PoolName:busy,PendingTaskNumber:1; RunningThreadNumber:11\n";
        EXPECT_EQ(CountOf(console.Text(), "SubmitTask] " + twelfth) > 0, c.maxThreads == 11);
        gate.CountDown();
        pool->Shutdown(ThreadPool::SHUTDOWN_AFTER_DRAIN);
    }
}

TEST(ThreadPoolTest, TaskExceptionsAreLoggedAndTheThreadGoesOn) {
    auto pool = std::make_shared<ThreadPool>("throwing", 1, 1);
    std::thread::id first;  // the thread of the first task
    testing::ConsoleCapture console;
    Submit(*pool, [&] { first = std::this_thread::get_id(), throw std::runtime_error("boom"); });
    ASSERT_TRUE(Submit(*pool, [] { throw 42; }));
    ASSERT_TRUE(Submit(*pool, std::function<void()>()));
    ASSERT_TRUE(Submit(*pool, [&first] { EXPECT_EQ(std::this_thread::get_id(), first); }));
    pool->Shutdown(ThreadPool::SHUTDOWN_AFTER_DRAIN);  // the thread has logged once it left

    for (const char* what : {"boom\n", "unknown exception\n", "bad_function_call\n"}) {
        EXPECT_EQ(CountOf(console.Text(), std::string("::RunTask] task exception: ") + what), 1u);
    }
    EXPECT_EQ(CountOf(console.Text(), std::string("[FATAL") + kLogSite), 3u);
}

// A Wait begun before an immediate shutdown ends when it empties the queue, before the task ends.
TEST(ThreadPoolTest, ShutdownMethodsDecideTheFateOfQueuedTasks) {
    const struct {
        ThreadPool::SHUTDOWN_METHOD method;
        int ran;  // of one running and five queued tasks
    } cases[] = {{ThreadPool::SHUTDOWN_IMMEDIATE, 1},
                 {ThreadPool::SHUTDOWN_AFTER_DRAIN, 6},
                 {static_cast<ThreadPool::SHUTDOWN_METHOD>(7), 6}};  // left to idle out
    for (const auto& c : cases) {
        SCOPED_TRACE(c.method);
        auto pool = std::make_shared<ThreadPool>("blocked", 1, 1);
        CountDownLatch started(1), gate(1);
        std::atomic<int> ran{0};
        Submit(*pool, [&] { started.CountDown(), gate.Wait(0), ++ran; });
        started.Wait(0);
        for (int i = 0; i < 5; ++i) {
            Submit(*pool, [&ran] { ++ran; });
        }
        std::atomic<bool> waited{false}, returned{false};
        std::thread waiter([&] { pool->Wait(), waited = true; });
        std::thread shutdown([&] { pool->Shutdown(c.method), returned = true; });
        EXPECT_TRUE(Eventually([&] { return pool->IsShuntDown(); }));
        EXPECT_TRUE(c.ran != 1 || Eventually([&] { return waited.load(); }));  // immediate
        EXPECT_FALSE(returned) << "Shutdown waits for the running task";
        const auto idledOut = platform::SteadyClockNow() + std::chrono::seconds(1);
        gate.CountDown();
        shutdown.join();
        waiter.join();
        EXPECT_EQ(ran, c.ran);
        EXPECT_EQ(pool->GetPendingTaskNumber() + pool->GetRunningThreadNumber(), 0u);
        EXPECT_TRUE(c.method != 7 || platform::SteadyClockNow() >= idledOut);
        EXPECT_FALSE(Submit(*pool, [] {}));
        pool->Shutdown(c.method);  // a second call finds no thread and returns
    }
}

TEST(ThreadPoolTest, RefusedThreadLeavesThePoolUsableAndShutdownUnblocked) {
    auto pool = std::make_shared<ThreadPool>("refused", 1, 1, 1);
    auto stranded = std::make_shared<ThreadPool>("stranded", 1, 1);
    std::atomic<int> ran{0};
    std::function<void()> task = [&ran] { ++ran; };
    testing::ConsoleCapture console;
    if (!platform::RefuseNewThreadsForTesting(true)) {
        GTEST_SKIP() << "this system cannot refuse threads";
    }
    EXPECT_THROW(pool->SubmitTask(task), std::system_error);
    EXPECT_THROW(stranded->SubmitTask(task), std::system_error);
    stranded->Shutdown(ThreadPool::SHUTDOWN_AFTER_DRAIN);  // no thread can drain it
    platform::RefuseNewThreadsForTesting(false);
    EXPECT_NE(console.Text().find("[ERROR]"), std::string::npos);
    EXPECT_EQ(stranded->GetPendingTaskNumber() + pool->GetRunningThreadNumber(), 0u);
    EXPECT_EQ(pool->GetPendingTaskNumber(), 1u);  // the queue of one is full
    ASSERT_TRUE(pool->SubmitTask(task));  // starts a thread for the waiting task, then waits
    EXPECT_TRUE(Eventually([&] { return ran == 2; }));
    pool->Shutdown(ThreadPool::SHUTDOWN_IMMEDIATE);
}

// Holds the first pool thread that reaches `moment` until `release` opens.
struct Hold {
    explicit Hold(detail::WorkerMoment at) : moment(at) {
        current = this;
        detail::SetWorkerHookForTesting([](detail::WorkerMoment now) {
            if (now == current->moment && !current->taken.exchange(true)) {
                current->arrived.CountDown(), current->release.Wait(0);
            }
        });
    }
    ~Hold() { release.CountDown(), detail::SetWorkerHookForTesting(nullptr); }
    static inline Hold* current = nullptr;
    const detail::WorkerMoment moment;
    std::atomic<bool> taken{false};
    CountDownLatch arrived{1}, release{1};
};

// A task queued while the only thread leaves starts none: that thread must see it and stay.
TEST(ThreadPoolMomentTest, TaskQueuedWhileTheOnlyThreadIdlesOutStillRuns) {
    Hold held(detail::WorkerMoment::kIdleTimedOut);
    auto pool = std::make_shared<ThreadPool>("leaving", 1, 1, 1);
    std::atomic<int> ran{0};
    ASSERT_TRUE(Submit(*pool, [&ran] { ++ran; }));
    held.arrived.Wait(0);  // after 1000 ms without work
    ASSERT_TRUE(Submit(*pool, [&ran] { ++ran; }));
    std::thread other([&] {
        Submit(*pool, [&ran] { ++ran; });  // waits for room in the full queue
        pool->Shutdown(ThreadPool::SHUTDOWN_AFTER_DRAIN);
    });
    held.release.CountDown();
    EXPECT_TRUE(Eventually([&] { return ran == 3; }));
    other.join();
}

// The last owner lets go before the new thread has begun: it keeps the pool until drained.
TEST(ThreadPoolMomentTest, PoolDroppedRightAfterSubmissionStillRunsTheTasks) {
    Hold held(detail::WorkerMoment::kThreadBegun);
    auto pool = std::make_shared<ThreadPool>("orphan", 1, 1);
    std::weak_ptr<ThreadPool> watched = pool;
    std::atomic<int> ran{0};
    ASSERT_TRUE(Submit(*pool, [&ran] { ++ran; }));
    ASSERT_TRUE(Submit(*pool, [&ran] { ++ran; }));
    held.arrived.Wait(0);
    pool.reset();
    EXPECT_FALSE(watched.expired());
    held.release.CountDown();
    EXPECT_TRUE(Eventually([&] { return ran == 2 && watched.expired(); }));
}

// A wake-up lost between Wait's test of the queue and its sleep would hang one of the Waits.
TEST(SharedPoolsTest, SharedPoolsRunTasksStrictlyInSubmissionOrderAndWaitNeverHangs) {
    EXPECT_EQ(InitOrRetryTask::initRetryThreadPool->GetName(), "initOrRetryTask");
    EXPECT_EQ(detail::reporterPool->GetName(), "ov-com-report");
    for (const auto& pool : {InitOrRetryTask::initRetryThreadPool, detail::reporterPool}) {
        SCOPED_TRACE(pool->GetName());
        std::atomic<int> next{0};  // one task at a time, in order, may touch it
        for (int i = 0; i < 2000; ++i) {
            ASSERT_TRUE(Submit(*pool, [&next, i] { EXPECT_EQ(next++, i); }));
            ASSERT_LE(pool->GetRunningThreadNumber(), 1u);
            if (i % 10 == 9) {
                pool->Wait();
            }
        }
        pool->Shutdown(ThreadPool::SHUTDOWN_AFTER_DRAIN);
        EXPECT_EQ(next, 2000);
    }
}

}  // namespace
}  // namespace orvik
