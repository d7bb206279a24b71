// The clock and sleep functions of the platform layer that are the same on every system:
// the standard clocks, and the dispatch to the test seam.
#include <atomic>
#include <thread>

#include "platform/platform.h"

namespace orvik::platform {
namespace {

// Read on every clock reading; an acquire load costs no more than a plain load on the
// systems we build for.
std::atomic<TimeSeam*> installedSeam{nullptr};

void SystemWaitFor(std::condition_variable_any& condition,
                   std::unique_lock<std::recursive_mutex>& lock,
                   std::chrono::nanoseconds duration) {
    if (duration > std::chrono::nanoseconds::zero()) {
        condition.wait_for(lock, duration);
    }
}

}  // namespace

std::chrono::system_clock::time_point WallClockNow() {
    if (TimeSeam* seam = installedSeam.load(std::memory_order_acquire)) {
        return seam->WallClockNow();
    }
    return std::chrono::system_clock::now();
}

std::chrono::steady_clock::time_point SteadyClockNow() {
    return std::chrono::steady_clock::now();
}

void SleepFor(std::chrono::nanoseconds duration) {
    if (TimeSeam* seam = installedSeam.load(std::memory_order_acquire)) {
        seam->SleepFor(duration);
        return;
    }
    if (duration > std::chrono::nanoseconds::zero()) {
        std::this_thread::sleep_for(duration);
    }
}

void WaitFor(std::condition_variable_any& condition, std::unique_lock<std::recursive_mutex>& lock,
             std::chrono::nanoseconds duration) {
    if (TimeSeam* seam = installedSeam.load(std::memory_order_acquire)) {
        seam->WaitFor(condition, lock, duration);
        return;
    }
    SystemWaitFor(condition, lock, duration);
}

void TimeSeam::WaitFor(std::condition_variable_any& condition,
                       std::unique_lock<std::recursive_mutex>& lock,
                       std::chrono::nanoseconds duration) {
    SystemWaitFor(condition, lock, duration);
}

void SetTimeSeamForTesting(TimeSeam* seam) {
    installedSeam.store(seam, std::memory_order_release);
}

}  // namespace orvik::platform
