// A wall clock for tests that moves only when told to, installed through the platform layer's
// time seam for the lifetime of the object. A sleep of the code under test advances the clock at
// once. Timed condition waits (platform::WaitFor) block for real until notified or until Set,
// Advance or SleepFor reach their deadline; AwaitWaiter shows a test that a thread has gone back
// to sleep, so has finished reacting to the last change. The condition and mutex of a wait must
// outlive the clock (the library's are never destroyed).
#ifndef ORVIK_COMMON_TESTS_SUPPORT_FAKE_CLOCK_H
#define ORVIK_COMMON_TESTS_SUPPORT_FAKE_CLOCK_H

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <map>
#include <mutex>
#include <vector>

#include "platform/platform.h"

namespace orvik::testing {

class FakeClock : public platform::TimeSeam {
public:
    using Nanos = std::chrono::nanoseconds;

    explicit FakeClock(std::chrono::system_clock::time_point start) : now_(ToNanos(start)) {
        platform::SetTimeSeamForTesting(this);
    }
    ~FakeClock() override { platform::SetTimeSeamForTesting(nullptr); }

    // The time point of a wall-clock count of milliseconds since 1970.
    static std::chrono::system_clock::time_point AtMillis(std::int64_t millisSinceEpoch) {
        return std::chrono::system_clock::time_point(std::chrono::milliseconds(millisSinceEpoch));
    }

    // Milliseconds since 1970 of a local calendar time (tm_isdst left to the system).
    static std::int64_t LocalMillis(int year, int month, int day, int hour, int minute, int second,
                                    int millis) {
        std::tm calendar{};
        calendar.tm_year = year - 1900;
        calendar.tm_mon = month - 1;
        calendar.tm_mday = day;
        calendar.tm_hour = hour;
        calendar.tm_min = minute;
        calendar.tm_sec = second;
        calendar.tm_isdst = -1;
        return static_cast<std::int64_t>(std::mktime(&calendar)) * 1000 + millis;
    }

    std::chrono::system_clock::time_point WallClockNow() override {
        return std::chrono::system_clock::time_point(
            std::chrono::duration_cast<std::chrono::system_clock::duration>(Nanos(now_.load())));
    }

    void SleepFor(Nanos duration) override {
        if (duration.count() > 0) {
            slept_ += duration.count();
            MoveTo(now_ += duration.count());
        }
    }

    void WaitFor(std::condition_variable_any& condition,
                 std::unique_lock<std::recursive_mutex>& lock, Nanos duration) override {
        if (duration.count() <= 0) {
            return;
        }
        const std::int64_t deadline = now_.load() + duration.count();
        std::uint64_t serial = 0;
        {
            std::lock_guard<std::mutex> guard(waitersMutex_);
            serial = ++waitsBegun_;
            waiters_[serial] = Waiter{&condition, lock.mutex(), deadline};
        }
        waitersChanged_.notify_all();
        // A waker takes this thread's mutex before it notifies, and this thread holds it from the
        // test until the wait has begun, so a wake-up cannot slip in between.
        if (now_.load() < deadline) {
            condition.wait(lock);
        }
        {
            std::lock_guard<std::mutex> guard(waitersMutex_);
            waiters_.erase(serial);
        }
        waitersChanged_.notify_all();
    }

    void Set(std::chrono::system_clock::time_point when) { MoveTo(now_ = ToNanos(when)); }
    void Advance(Nanos by) { MoveTo(now_ += by.count()); }

    // Total of all sleeps requested so far.
    Nanos Slept() const { return Nanos(slept_.load()); }

    // The number of waits begun so far.
    std::uint64_t WaitsBegun() const { return waitsBegun_.load(); }

    // Blocks until a thread waits in WaitFor until `wakeAt`, in a wait begun after the first
    // `waitsBefore` waits, or for at most `realTimeout`; true when such a waiter was seen. Taking
    // WaitsBegun() before an action makes sure the wait seen is one begun after the action.
    bool AwaitWaiter(std::chrono::system_clock::time_point wakeAt, std::uint64_t waitsBefore = 0,
                     std::chrono::milliseconds realTimeout = std::chrono::seconds(10)) {
        std::unique_lock<std::mutex> guard(waitersMutex_);
        return waitersChanged_.wait_for(guard, realTimeout, [&] {
            return std::any_of(waiters_.upper_bound(waitsBefore), waiters_.end(),
                               [&](const auto& w) { return w.second.deadline == ToNanos(wakeAt); });
        });
    }

private:
    struct Waiter {
        std::condition_variable_any* condition;
        std::recursive_mutex* mutex;
        std::int64_t deadline;
    };

    static std::int64_t ToNanos(std::chrono::system_clock::time_point when) {
        return std::chrono::duration_cast<Nanos>(when.time_since_epoch()).count();
    }

    // Wakes every waiter whose deadline `now` has reached. Their mutexes are taken outside
    // waitersMutex_, since a waiter holds its own mutex while it registers.
    void MoveTo(std::int64_t now) {
        std::vector<Waiter> due;
        {
            std::lock_guard<std::mutex> guard(waitersMutex_);
            for (const auto& w : waiters_) {
                if (w.second.deadline <= now) {
                    due.push_back(w.second);
                }
            }
        }
        for (const Waiter& w : due) {
            std::lock_guard<std::recursive_mutex> hold(*w.mutex);
            w.condition->notify_all();
        }
    }

    std::atomic<std::int64_t> now_;
    std::atomic<std::int64_t> slept_{0};
    std::mutex waitersMutex_;
    std::condition_variable waitersChanged_;
    std::map<std::uint64_t, Waiter> waiters_;  // by the serial number of the wait
    std::atomic<std::uint64_t> waitsBegun_{0};
};

}  // namespace orvik::testing

#endif  // ORVIK_COMMON_TESTS_SUPPORT_FAKE_CLOCK_H
