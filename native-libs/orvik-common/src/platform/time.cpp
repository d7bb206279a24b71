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

void SetTimeSeamForTesting(TimeSeam* seam) {
    installedSeam.store(seam, std::memory_order_release);
}

}  // namespace orvik::platform
