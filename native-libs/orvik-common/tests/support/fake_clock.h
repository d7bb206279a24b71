// A wall clock for tests that moves only when told to, installed through the platform
// layer's time seam for the lifetime of the object. A sleep of the code under test advances
// the clock at once instead of blocking, so waits of seconds run in microseconds.
#ifndef ORVIK_COMMON_TESTS_SUPPORT_FAKE_CLOCK_H
#define ORVIK_COMMON_TESTS_SUPPORT_FAKE_CLOCK_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <ctime>

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
            now_ += duration.count();
            slept_ += duration.count();
        }
    }

    void Set(std::chrono::system_clock::time_point when) { now_ = ToNanos(when); }
    void Advance(std::chrono::nanoseconds by) { now_ += by.count(); }

    // Total of all sleeps requested so far.
    std::chrono::nanoseconds Slept() const { return std::chrono::nanoseconds(slept_.load()); }

private:
    static std::int64_t ToNanos(std::chrono::system_clock::time_point when) {
        return std::chrono::duration_cast<std::chrono::nanoseconds>(when.time_since_epoch())
            .count();
    }

    std::atomic<std::int64_t> now_;
    std::atomic<std::int64_t> slept_{0};
};

}  // namespace orvik::testing

#endif  // ORVIK_COMMON_TESTS_SUPPORT_FAKE_CLOCK_H
