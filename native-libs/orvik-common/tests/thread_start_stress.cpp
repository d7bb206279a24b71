// One short process of the thread start stress test, as a host would run it: starts one-shot
// timers (which start the manager's thread) and submits a task to each of several fresh pools
// (each starts a worker), then waits, with a generous deadline, until every callback and task
// has run. Exits with 0 when all ran and 1 when any did not. tests/CMakeLists.txt runs it from
// many processes in a row, since a thread that fails to start does so in few of them.
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "common/orvik_common.h"

int main() {
    constexpr int kTimers = 4;
    constexpr int kPools = 4;
    std::mutex doneMutex;
    std::condition_variable doneChanged;
    int done = 0;
    const std::function<void()> mark = [&] {
        std::lock_guard<std::mutex> lock(doneMutex);
        ++done;
        doneChanged.notify_all();
    };

    std::vector<std::shared_ptr<orvik::OvTimer>> timers;
    for (int i = 0; i < kTimers; ++i) {
        timers.push_back(std::make_shared<orvik::OvTimer>(1 + i, false));
        timers.back()->Init(mark);
        timers.back()->Start();
    }
    std::vector<std::shared_ptr<orvik::ThreadPool>> pools;
    for (int i = 0; i < kPools; ++i) {
        pools.push_back(std::make_shared<orvik::ThreadPool>("stress" + std::to_string(i), 1, 1));
        std::function<void()> task = mark;
        pools.back()->SubmitTask(task);
    }

    std::unique_lock<std::mutex> lock(doneMutex);
    const bool allRan = doneChanged.wait_for(lock, std::chrono::seconds(30),
                                             [&] { return done == kTimers + kPools; });
    if (!allRan) {
        std::fprintf(stderr, "%d of %d timer callbacks and tasks ran\n", done, kTimers + kPools);
        std::fflush(stderr);
        // A thread that never ran would keep its pool's shutdown waiting: leave at once.
        std::_Exit(1);
    }
    return 0;
}
