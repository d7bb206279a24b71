// A wall clock for tests that moves only when told to, installed through the platform
// layer's time seam for the lifetime of the object. A sleep of the code under test advances
// the clock at once instead of blocking, so waits of seconds run in microseconds.
//
// Timed condition waits (platform::WaitFor) block for real until they are notified or the
// fake clock passes their deadline: Set, Advance and SleepFor wake every wait whose deadline
// they reach. AwaitWaiter lets a test see that a thread has gone back to sleep with a given
// deadline, which tells it that the thread has finished reacting to the last change. The
// condition and mutex of a wait must outlive the clock (the library's are never destroyed).
#ifndef ORVIK_COMMON_TESTS_SUPPORT_FAKE_CLOCK_H
#define ORVIK_COMMON_TESTS_SUPPORT_FAKE_CLOCK_H

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/platform.h"

namespace orvik::testing {

class FakeClock : public platform::TimeSeam {
public:
    explicit FakeClock(std::chrono::system_clock::time_point start) : now_(ToNanos(start)) {
        platform::SetTimeSeamForTesting(this);
    }
    ~FakeClock() override { platform::SetTimeSeamForTesting(nullptr); }
    FakeClock(const FakeClock&) = delete;
    FakeClock& operator=(const FakeClock&) = delete;

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
            std::chrono::duration_cast<std::chrono::system_clock::duration>(
                std::chrono::nanoseconds(now_.load())));
    }

    void SleepFor(std::chrono::nanoseconds duration) override {
        if (duration.count() > 0) {
            slept_ += duration.count();
            MoveTo(now_ += duration.count());
        }
    }

    void WaitFor(std::condition_variable_any& condition,
                 std::unique_lock<std::recursive_mutex>& lock,
                 std::chrono::nanoseconds duration) override {
        if (duration.count() <= 0) {
            return;
        }
        Waiter me{&condition, lock.mutex(), now_.load() + duration.count(), 0};
        {
            std::lock_guard<std::mutex> guard(waitersMutex_);
            me.serial = ++waitsBegun_;
            waiters_.push_back(me);
        }
        waitersChanged_.notify_all();
        // The waker takes the waiter's mutex before it notifies, and this thread holds it from
        // the test below until the wait has begun, so a wake-up cannot slip in between.
        if (now_.load() < me.deadline) {
            condition.wait(lock);
        }
        {
            std::lock_guard<std::mutex> guard(waitersMutex_);
            waiters_.erase(std::find(waiters_.begin(), waiters_.end(), me));
        }
        waitersChanged_.notify_all();
    }

    void Set(std::chrono::system_clock::time_point when) { MoveTo(now_ = ToNanos(when)); }
    void Advance(std::chrono::nanoseconds by) { MoveTo(now_ += by.count()); }

    // Total of all sleeps requested so far.
    std::chrono::nanoseconds Slept() const { return std::chrono::nanoseconds(slept_.load()); }

    // The number of waits begun so far.
    std::uint64_t WaitsBegun() {
        std::lock_guard<std::mutex> guard(waitersMutex_);
        return waitsBegun_;
    }

    // Blocks until some thread waits in WaitFor with its deadline at `wakeAt`, in a wait begun
    // after the first `waitsBefore` waits, or for at most `realTimeout` of real time. True
    // when such a waiter was seen. Taking WaitsBegun() before an action that wakes the waiter
    // makes sure the wait seen is the one begun after the waiter saw the action.
    bool AwaitWaiter(std::chrono::system_clock::time_point wakeAt, std::uint64_t waitsBefore = 0,
                     std::chrono::milliseconds realTimeout = std::chrono::seconds(10)) {
        const std::int64_t deadline = ToNanos(wakeAt);
        std::unique_lock<std::mutex> guard(waitersMutex_);
        return waitersChanged_.wait_for(guard, realTimeout, [&] {
            return std::any_of(waiters_.begin(), waiters_.end(), [&](const Waiter& w) {
                return w.deadline == deadline && w.serial > waitsBefore;
            });
        });
    }

private:
    struct Waiter {
        std::condition_variable_any* condition;
        std::recursive_mutex* mutex;
        std::int64_t deadline;
        std::uint64_t serial;
        bool operator==(const Waiter& other) const { return serial == other.serial; }
    };

    static std::int64_t ToNanos(std::chrono::system_clock::time_point when) {
        return std::chrono::duration_cast<std::chrono::nanoseconds>(when.time_since_epoch())
            .count();
    }

    // Wakes every waiter whose deadline `now` has reached. The waiters' mutexes are taken
    // outside waitersMutex_, since a waiter holds its own mutex while it registers.
    void MoveTo(std::int64_t now) {
        std::vector<Waiter> due;
        {
            std::lock_guard<std::mutex> guard(waitersMutex_);
            for (const Waiter& w : waiters_) {
                if (w.deadline <= now) {
                    due.push_back(w);
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
    std::vector<Waiter> waiters_;
    std::uint64_t waitsBegun_ = 0;
};

}  // namespace orvik::testing

#endif  // ORVIK_COMMON_TESTS_SUPPORT_FAKE_CLOCK_H
