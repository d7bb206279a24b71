// The timer manager against Boost.Asio's steady_timer driven by one thread, under the same
// load: repeating timers started spread over one period, 10 000 of 100 ms and 100 000 of
// 1000 ms (the same 100 000 firings a second over ten times the timers). Reported per run:
// the process's CPU time per firing (the main thread sleeps, so it is the timer thread's),
// and the 99th percentile of lateness. And a paced loop: the rate AcquireSync achieves
// against the configured rate.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <ctime>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "common/time_utils.h"
#include "common/timer_manager.h"
#include "common/token_bucket_speed_limiter.h"

namespace {

using Clock = std::chrono::steady_clock;

// The timers of a run and their period, from the benchmark's arguments.
struct Load {
    explicit Load(const benchmark::State& state)
        : timers(static_cast<int>(state.range(0))), periodMs(static_cast<int>(state.range(1))) {}
    int timers;
    int periodMs;
    int TimersPerMs() const { return timers / periodMs; }
};

constexpr auto kWarmUp = std::chrono::milliseconds(500);
constexpr auto kMeasured = std::chrono::seconds(3);

// Lateness of each firing in the measured window, in milliseconds.
class LatenessSamples {
public:
    void Record(double lateMs) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (open_) {
            samples_.push_back(lateMs);
        }
    }
    void Open(const Load& load) {
        std::lock_guard<std::mutex> lock(mutex_);
        samples_.reserve(static_cast<size_t>(load.timers) * 1000 / load.periodMs * 4);
        open_ = true;
    }
    std::vector<double> Close() {
        std::lock_guard<std::mutex> lock(mutex_);
        open_ = false;
        return std::move(samples_);
    }

private:
    std::mutex mutex_;
    bool open_ = false;
    std::vector<double> samples_;
};

double ProcessCpuSeconds() {
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

// Opens the samples after the warm-up, measures, and reports.
void MeasureWindow(benchmark::State& state, const Load& load, LatenessSamples& samples) {
    std::this_thread::sleep_for(kWarmUp);
    samples.Open(load);
    const double cpuBefore = ProcessCpuSeconds();
    std::this_thread::sleep_for(kMeasured);
    const double cpu = ProcessCpuSeconds() - cpuBefore;
    std::vector<double> late = samples.Close();
    if (late.empty()) {
        state.SkipWithError("no firing measured");
        return;
    }
    const auto p99 = late.begin() + static_cast<std::ptrdiff_t>(late.size() * 99 / 100);
    std::nth_element(late.begin(), p99, late.end());
    state.counters["firings"] = static_cast<double>(late.size());
    state.counters["cpu_ns_per_firing"] = cpu * 1e9 / static_cast<double>(late.size());
    state.counters["p99_late_ms"] = *p99;
}

void BM_TimerManager_RepeatingTimers(benchmark::State& state) {
    const Load load(state);
    LatenessSamples samples;
    std::vector<std::shared_ptr<orvik::OvTimer>> timers;
    for (auto _ : state) {
        for (int i = 0; i < load.timers; ++i) {
            auto timer = std::make_shared<orvik::OvTimer>(load.periodMs, true);
            orvik::OvTimer* self = timer.get();
            // Lateness against the due time the previous firing set; the first is not counted.
            timer->Init([self, &samples, expectedMs = 0ULL]() mutable {
                const double nowMs = static_cast<double>(orvik::TimeUtils::GetTimeMicro()) / 1000;
                if (expectedMs != 0) {
                    samples.Record(nowMs - static_cast<double>(expectedMs));
                }
                expectedMs = self->GetExpire();
            });
            timers.push_back(std::move(timer));
        }
        for (int i = 0; i < load.timers; ++i) {
            if (i % load.TimersPerMs() == 0) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            timers[i]->Start();
        }
        MeasureWindow(state, load, samples);

        orvik::TimerManager::GetInstance()->Stop();
        // Callbacks run one at a time, so once this one has run no other is running.
        std::promise<void> drained;
        auto sentinel = std::make_shared<orvik::OvTimer>(1, false);
        sentinel->Init([&drained] { drained.set_value(); });
        sentinel->Start();
        drained.get_future().wait();
    }
}
BENCHMARK(BM_TimerManager_RepeatingTimers)
    ->Name("BM_Timers_Repeating/orvik")
    ->ArgNames({"timers", "period_ms"})
    ->Args({10000, 100})
    ->Args({100000, 1000})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

// One asio timer that re-arms itself from the moment it fired, as the manager does.
class AsioRepeatingTimer {
public:
    AsioRepeatingTimer(boost::asio::io_context& io, LatenessSamples& samples,
                       Clock::time_point first, int periodMs)
        : timer_(io, first), samples_(samples), periodMs_(periodMs) {}
    void Wait() {
        timer_.async_wait([this](const boost::system::error_code& error) {
            if (error) {
                return;
            }
            const Clock::time_point now = Clock::now();
            if (!first_) {
                samples_.Record(
                    std::chrono::duration<double, std::milli>(now - timer_.expiry()).count());
            }
            first_ = false;
            timer_.expires_at(now + std::chrono::milliseconds(periodMs_));
            Wait();
        });
    }

private:
    boost::asio::steady_timer timer_;
    LatenessSamples& samples_;
    const int periodMs_;
    bool first_ = true;
};

void BM_Asio_RepeatingTimers(benchmark::State& state) {
    const Load load(state);
    LatenessSamples samples;
    for (auto _ : state) {
        boost::asio::io_context io;
        std::vector<std::unique_ptr<AsioRepeatingTimer>> timers;
        const Clock::time_point start = Clock::now();
        for (int i = 0; i < load.timers; ++i) {
            timers.push_back(std::make_unique<AsioRepeatingTimer>(
                io, samples,
                start + std::chrono::milliseconds(load.periodMs + i / load.TimersPerMs()),
                load.periodMs));
            timers.back()->Wait();
        }
        std::thread runner([&io] { io.run(); });
        MeasureWindow(state, load, samples);
        io.stop();
        runner.join();
        timers.clear();
    }
}
BENCHMARK(BM_Asio_RepeatingTimers)
    ->Name("BM_Timers_Repeating/asio_steady_timer")
    ->ArgNames({"timers", "period_ms"})
    ->Args({10000, 100})
    ->Args({100000, 1000})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

// A transfer loop paced at `rate` units per second in chunks of `chunk`, for one second.
void BM_TokenBucket_PacedLoop(benchmark::State& state) {
    const long long rate = state.range(0);
    const long long chunk = state.range(1);
    for (auto _ : state) {
        orvik::TokenBucketSpeedLimiter limiter(rate);
        long long moved = 0;
        const Clock::time_point start = Clock::now();
        while (Clock::now() - start < std::chrono::seconds(1)) {
            moved += limiter.AcquireSync(chunk);
        }
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        state.counters["achieved_over_configured"] =
            static_cast<double>(moved) / seconds / static_cast<double>(rate);
    }
}
BENCHMARK(BM_TokenBucket_PacedLoop)
    ->ArgNames({"rate", "chunk"})
    ->Args({1000000, 1000})
    ->Args({1000000, 10000})
    ->Args({100000, 50000})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
