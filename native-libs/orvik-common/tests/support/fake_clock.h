// A wall clock for tests that moves only when told to, installed as the platform layer's time
// seam while it lives. A sleep of the code under test advances it at once; a timed wait blocks
// until notified or until the clock reaches its deadline. AwaitWaiter shows a test that a thread
// has gone back to sleep. A wait's condition and mutex must outlive the clock.
#ifndef ORVIK_COMMON_TESTS_SUPPORT_FAKE_CLOCK_H
#define ORVIK_COMMON_TESTS_SUPPORT_FAKE_CLOCK_H

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <ctime>
#include <map>
#include <mutex>
#include <vector>

#include "platform/platform.h"

namespace orvik::testing {

class FakeClock : public platform::TimeSeam {
public:
    using Nanos = std::chrono::nanoseconds;
    using TimePoint = std::chrono::system_clock::time_point;

    explicit FakeClock(TimePoint start) : now_(Count(start)) {
        platform::SetTimeSeamForTesting(this);
    }
    ~FakeClock() override { platform::SetTimeSeamForTesting(nullptr); }
    static TimePoint AtMillis(long long since1970) {
        return TimePoint(std::chrono::milliseconds(since1970));
    }
    // Milliseconds since 1970 of a local calendar time.
    static long long LocalMillis(int year, int month, int day, int hour, int min, int sec, int ms) {
        std::tm t{};
        t.tm_year = year - 1900, t.tm_mon = month - 1, t.tm_mday = day, t.tm_isdst = -1;
        t.tm_hour = hour, t.tm_min = min, t.tm_sec = sec;
        return static_cast<long long>(std::mktime(&t)) * 1000 + ms;
    }

    TimePoint WallClockNow() override {
        return TimePoint(std::chrono::duration_cast<TimePoint::duration>(Nanos(now_)));
    }
    void SleepFor(Nanos duration) override {
        if (duration.count() > 0) {
            slept_ += duration.count();
            Advance(duration);
        }
    }
    // The waiter holds its mutex from before it registers until the wait begins, and a waker
    // takes that mutex before it notifies, so a wake-up cannot slip in between.
    void WaitFor(std::condition_variable_any& condition,
                 std::unique_lock<std::recursive_mutex>& lock, Nanos duration) override {
        if (duration.count() <= 0) {
            return;
        }
        std::unique_lock<std::mutex> guard(waitersMutex_);
        const unsigned long long serial = ++waitsBegun_;
        waiters_[serial] = Waiter{&condition, lock.mutex(), now_ + duration.count()};
        waitersChanged_.notify_all();
        guard.unlock();
        condition.wait(lock);
        guard.lock();
        waiters_.erase(serial);
        waitersChanged_.notify_all();
    }

    void Set(TimePoint when) { WakeDue(now_ = Count(when)); }
    void Advance(Nanos by) { WakeDue(now_ += by.count()); }
    Nanos Slept() const { return Nanos(slept_); }  // the total of all sleeps
    unsigned long long WaitsBegun() const { return waitsBegun_; }

    // True once a wait until `wakeAt`, begun after the first `waitsBefore`, is seen in time.
    bool AwaitWaiter(TimePoint wakeAt, unsigned long long waitsBefore = 0,
                     std::chrono::milliseconds realTimeout = std::chrono::seconds(10)) {
        std::unique_lock<std::mutex> guard(waitersMutex_);
        return waitersChanged_.wait_for(guard, realTimeout, [&] {
            return std::any_of(waiters_.upper_bound(waitsBefore), waiters_.end(),
                               [&](const auto& w) { return w.second.deadline == Count(wakeAt); });
        });
    }

private:
    struct Waiter {
        std::condition_variable_any* condition;
        std::recursive_mutex* mutex;
        long long deadline;
    };
    static long long Count(TimePoint when) { return Nanos(when.time_since_epoch()).count(); }
    // Waiters' mutexes are taken outside waitersMutex_: a waiter registers holding its own.
    void WakeDue(long long now) {
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

    std::atomic<long long> now_, slept_{0};
    std::atomic<unsigned long long> waitsBegun_{0};
    std::mutex waitersMutex_;
    std::condition_variable waitersChanged_;
    std::map<unsigned long long, Waiter> waiters_;  // by the serial number of the wait
};

}  // namespace orvik::testing

#endif  // ORVIK_COMMON_TESTS_SUPPORT_FAKE_CLOCK_H
