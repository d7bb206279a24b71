// The pool and its queue beside boost::asio::thread_pool: throughput of trivial tasks, the time
// from submission to the start of a task on a waiting thread, and the hand-over of items
// between two threads on the queue.
#include <benchmark/benchmark.h>

#include <atomic>
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>

#include "common/blocking_queue.h"
#include "common/latch.h"
#include "common/thread_pool.h"

namespace {

constexpr int kTrivialTasks = 1000000;

using Clock = std::chrono::steady_clock;

// 1,000,000 tasks that each add one to a counter, through a pool of state.range(0) threads,
// from submission of the first to the end of the last, pool start and stop included.
// `runAll(threads, task)` starts a pool, submits `task` kTrivialTasks times and stops the pool
// once every task has run.
template <class RunAll>
void MeasureTrivialTasks(benchmark::State& state, RunAll runAll) {
    const auto threads = static_cast<size_t>(state.range(0));
    for (auto _ : state) {
        std::atomic<int> counter{0};
        runAll(threads, [&counter] { counter.fetch_add(1, std::memory_order_relaxed); });
        if (counter != kTrivialTasks) {
            state.SkipWithError("tasks lost");
        }
    }
    state.SetItemsProcessed(state.iterations() * kTrivialTasks);
}

void BM_Pool_TrivialTasks_Orvik(benchmark::State& state) {
    MeasureTrivialTasks(state, [](size_t threads, std::function<void()> task) {
        auto pool = std::make_shared<orvik::ThreadPool>("bench", threads, threads);
        for (int i = 0; i < kTrivialTasks; ++i) {
            pool->SubmitTask(task);
        }
        pool->Shutdown(orvik::ThreadPool::SHUTDOWN_AFTER_DRAIN);
    });
}
BENCHMARK(BM_Pool_TrivialTasks_Orvik)
    ->Name("BM_Pool_TrivialTasks/orvik")
    ->ArgName("threads")
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void BM_Pool_TrivialTasks_Asio(benchmark::State& state) {
    MeasureTrivialTasks(state, [](size_t threads, auto task) {
        boost::asio::thread_pool pool(threads);
        for (int i = 0; i < kTrivialTasks; ++i) {
            boost::asio::post(pool, task);
        }
        pool.join();
    });
}
BENCHMARK(BM_Pool_TrivialTasks_Asio)
    ->Name("BM_Pool_TrivialTasks/asio")
    ->ArgName("threads")
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// From just before the submission to the first instruction of the task, on a one-thread pool
// whose thread waits for work. The submitter waits for each task before the next.
template <class Submit>
void MeasureSubmitToStart(benchmark::State& state, Submit submit) {
    for (auto _ : state) {
        orvik::CountDownLatch started(1);
        Clock::time_point start;
        const Clock::time_point submitted = Clock::now();
        submit([&] {
            start = Clock::now();
            started.CountDown();
        });
        started.Wait(0);
        state.SetIterationTime(std::chrono::duration<double>(start - submitted).count());
    }
}

void BM_Pool_SubmitToStart_Orvik(benchmark::State& state) {
    auto pool = std::make_shared<orvik::ThreadPool>("bench", 1, 1);
    MeasureSubmitToStart(state, [&pool](std::function<void()> task) { pool->SubmitTask(task); });
    pool->Shutdown(orvik::ThreadPool::SHUTDOWN_AFTER_DRAIN);
}
BENCHMARK(BM_Pool_SubmitToStart_Orvik)
    ->Name("BM_Pool_SubmitToStart/orvik")
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

void BM_Pool_SubmitToStart_Asio(benchmark::State& state) {
    boost::asio::thread_pool pool(1);
    MeasureSubmitToStart(
        state, [&pool](std::function<void()> task) { boost::asio::post(pool, std::move(task)); });
    pool.join();
}
BENCHMARK(BM_Pool_SubmitToStart_Asio)
    ->Name("BM_Pool_SubmitToStart/asio")
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

// 1,000,000 items pushed by one thread and popped by another, both waiting without limit, on a
// queue of state.range(0) items (0 for the default, unbounded queue).
void BM_Queue_HandOver(benchmark::State& state) {
    constexpr int kItems = 1000000;
    const auto capacity = static_cast<size_t>(state.range(0));
    for (auto _ : state) {
        auto queue = capacity == 0
                         ? std::make_unique<orvik::BlockingQueue<std::function<void()>>>()
                         : std::make_unique<orvik::BlockingQueue<std::function<void()>>>(capacity);
        std::thread consumer([&queue] {
            std::function<void()> item;
            for (int i = 0; i < kItems; ++i) {
                queue->Pop(item, 0);
            }
        });
        const std::function<void()> item = [] {};
        for (int i = 0; i < kItems; ++i) {
            queue->Push(item, 0);
        }
        consumer.join();
    }
    state.SetItemsProcessed(state.iterations() * kItems);
}
BENCHMARK(BM_Queue_HandOver)
    ->ArgName("capacity")
    ->Arg(0)
    ->Arg(1024)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
