// One short process of the thread start stress test: one-shot timers (starting the manager's
// thread) and a task for each of several fresh pools (each starting a worker) must all run, in
// a generous time (exit 0, else 1). Run from many processes, as a failed start is rare.
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
    constexpr int kEach = 4;  // timers, and pools
    std::mutex doneMutex;
    std::condition_variable doneChanged;
    int done = 0;
    const std::function<void()> mark = [&] {
        std::lock_guard<std::mutex> lock(doneMutex);
        ++done;
        doneChanged.notify_all();
    };
    std::vector<std::shared_ptr<orvik::ThreadPool>> pools;
    for (int i = 0; i < kEach; ++i) {
        auto timer = std::make_shared<orvik::OvTimer>(1 + i, false);
        timer->Init(mark);
        timer->Start();
        std::function<void()> task = mark;
        pools.push_back(std::make_shared<orvik::ThreadPool>("stress" + std::to_string(i), 1, 1));
        pools.back()->SubmitTask(task);
    }
    std::unique_lock<std::mutex> lock(doneMutex);
    if (!doneChanged.wait_for(lock, std::chrono::seconds(30), [&] { return done == 2 * kEach; })) {
        std::fprintf(stderr, "%d of %d timer callbacks and tasks ran\n", done, 2 * kEach);
        std::fflush(stderr);
        std::_Exit(1);  // a thread that never ran would keep its pool's shutdown waiting
    }
    return 0;
}
