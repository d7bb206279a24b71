// A wall clock for tests that moves only when told to, installed as the platform layer's time
// seam while it lives. A sleep advances it at once; a timed wait blocks until notified or until
// the clock reaches its deadline. A wait's condition and mutex must outlive the clock.
#ifndef ORVIK_COMMON_TESTS_SUPPORT_FAKE_CLOCK_H
#define ORVIK_COMMON_TESTS_SUPPORT_FAKE_CLOCK_H

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <ctime>
#include <iterator>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/platform.h"

namespace orvik::testing {

class FakeClock : public platform::TimeSeam {
public:
    using Nanos = std::chrono::nanoseconds;
    using TimePoint = std::chrono::system_clock::time_point;

    explicit FakeClock(TimePoint start) : now_(Nanos(start.time_since_epoch()).count()) {
        platform::SetTimeSeamForTesting(this);
    }
    ~FakeClock() override { platform::SetTimeSeamForTesting(nullptr); }
    static TimePoint AtMillis(long long ms) { return TimePoint(std::chrono::milliseconds(ms)); }
    // Milliseconds since 1970 of a local calendar time.
    static long long LocalMillis(int year, int month, int day, int hour, int min, int sec, int ms) {
        std::tm t{};
        t.tm_year = year - 1900, t.tm_mon = month - 1, t.tm_mday = day, t.tm_isdst = -1;
        t.tm_hour = hour, t.tm_min = min, t.tm_sec = sec;
        return static_cast<long long>(std::mktime(&t)) * 1000 + ms;
    }

    TimePoint WallClockNow() override { return TimePoint(Nanos(now_)); }
    void SleepFor(Nanos duration) override {
        if (duration.count() > 0) {
            slept_ += duration.count();
            Advance(duration);
        }
    }
    // A waiter registers and waits holding its mutex, and a waker takes that mutex before it
    // notifies, so a wake-up cannot slip in between.
    void WaitFor(std::condition_variable_any& condition,
                 std::unique_lock<std::recursive_mutex>& lock, Nanos duration) override {
        if (duration.count() > 0) {
            const auto serial = Register({&condition, lock.mutex(), now_ + duration.count()});
            condition.wait(lock);
            std::lock_guard<std::mutex> guard(waitersMutex_);
            waiters_.erase(serial);
        }
    }

    void Set(TimePoint when) { WakeDue(now_ = Nanos(when.time_since_epoch()).count()); }
    void Advance(Nanos by) { WakeDue(now_ += by.count()); }
    Nanos Slept() const { return Nanos(slept_); }  // the total of all sleeps
    unsigned long long WaitsBegun() const { return waitsBegun_; }
    // True once a wait until `wakeAt`, begun after the first `waitsBefore`, is seen within 10 s.
    bool AwaitWaiter(TimePoint wakeAt, unsigned long long waitsBefore = 0) {
        std::unique_lock<std::mutex> guard(waitersMutex_);
        return waitersChanged_.wait_for(guard, std::chrono::seconds(10), [&] {
            return std::any_of(waiters_.upper_bound(waitsBefore), waiters_.end(), [&](auto& w) {
                return TimePoint(Nanos(w.second.deadline)) == wakeAt;
            });
        });
    }

private:
    struct Waiter {
        std::condition_variable_any* condition;
        std::recursive_mutex* mutex;
        long long deadline;
    };
    unsigned long long Register(const Waiter& waiter) {
        std::lock_guard<std::mutex> guard(waitersMutex_);
        waiters_[++waitsBegun_] = waiter;
        waitersChanged_.notify_all();
        return waitsBegun_;
    }
    // Wakes the waiters whose deadline `now` has reached, taking their mutexes outside
    // waitersMutex_, since a waiter holds its own while it registers.
    void WakeDue(long long now) {
        std::vector<std::pair<const unsigned long long, Waiter>> due;
        {
            std::lock_guard<std::mutex> guard(waitersMutex_);
            std::copy_if(waiters_.begin(), waiters_.end(), std::back_inserter(due),
                         [&](auto& w) { return w.second.deadline <= now; });
        }
        for (const auto& w : due) {
            std::lock_guard<std::recursive_mutex> hold(*w.second.mutex);
            w.second.condition->notify_all();
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
