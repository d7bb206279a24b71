// The latches, ThreadPool and its Worker.
#include "common/thread_pool.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <limits>
#include <thread>
#include <utility>

#include "common/latch.h"
#include "internal/internal_log.h"
#include "internal/thread_pool_seam.h"

namespace orvik {

namespace {

// A worker leaves after one Pop that finds no task for this long.
constexpr int kIdleTimeoutMs = 1000;

// The duration of a timed wait of `count` units, in a form that cannot overflow when the
// condition variable adds it to the clock: a count with its top bit set is negative (the wait
// ends at once), and waits beyond about 73 years are cut to that.
template <class Unit>
std::chrono::nanoseconds TimedWaitDuration(unsigned long long count) {
    constexpr unsigned long long kMaxNanos = std::numeric_limits<long long>::max() / 4;
    constexpr unsigned long long kNanosPerUnit = std::chrono::nanoseconds(Unit(1)).count();
    if (count > static_cast<unsigned long long>(std::numeric_limits<long long>::max())) {
        return std::chrono::nanoseconds(-1);
    }
    return std::chrono::nanoseconds(
        static_cast<long long>(std::min(count, kMaxNanos / kNanosPerUnit) * kNanosPerUnit));
}

std::atomic<void (*)(detail::WorkerMoment)> workerHook{nullptr};

void AtWorkerMoment(detail::WorkerMoment moment) {
    if (const auto hook = workerHook.load(std::memory_order_acquire)) {
        hook(moment);
    }
}

}  // namespace

namespace detail {

void SetWorkerHookForTesting(void (*hook)(WorkerMoment moment)) {
    workerHook.store(hook, std::memory_order_release);
}

}  // namespace detail

// ---------------------------------------------------------------------------------------------
// CountDownLatch

CountDownLatch::CountDownLatch(unsigned int count) : count(count) {}

CountDownLatch::~CountDownLatch() = default;

void CountDownLatch::CountDown() {
    std::lock_guard<std::mutex> lock(mutex);
    if (count == 0) {
        return;
    }
    if (--count == 0) {
        released = true;
        condition.notify_all();
    }
}

void CountDownLatch::Wait(unsigned long long timeoutMs) {
    std::unique_lock<std::mutex> lock(mutex);
    if (count == 0) {
        return;
    }
    if (timeoutMs == 0) {
        condition.wait(lock, [this] { return released; });
        return;
    }
    // One sleep, whatever ends it; the caller asks GetCount if it needs to know.
    condition.wait_for(lock, TimedWaitDuration<std::chrono::milliseconds>(timeoutMs));
}

unsigned int CountDownLatch::GetCount() {
    std::lock_guard<std::mutex> lock(mutex);
    return count;
}

// ---------------------------------------------------------------------------------------------
// CountOutWake

CountOutWake::CountOutWake() : CountOutWake(0) {}

CountOutWake::CountOutWake(unsigned int count) : count(count) {}

CountOutWake::~CountOutWake() = default;

void CountOutWake::CountOut() {
    std::lock_guard<std::mutex> lock(mutex);
    wakeOne = true;
    condition.notify_one();
}

void CountOutWake::CountAll() {
    std::lock_guard<std::mutex> lock(mutex);
    wakeAll = true;
    condition.notify_all();
}

void CountOutWake::Wait(unsigned long long timeoutNs) {
    std::unique_lock<std::mutex> lock(mutex);
    ++count;
    if (timeoutNs != 0) {
        // One sleep that reads and consumes neither flag.
        condition.wait_for(lock, TimedWaitDuration<std::chrono::nanoseconds>(timeoutNs));
    } else if (!wakeAll) {
        // A wake-up is looked for only after sleeping: a single wake-up set before this call
        // does not open it, and the single wake-up is consumed even when wakeAll is set too.
        for (;;) {
            condition.wait(lock);
            if (wakeOne) {
                wakeOne = false;
                break;
            }
            if (wakeAll) {
                break;
            }
        }
    }
    --count;
}

unsigned int CountOutWake::GetCount() {
    std::lock_guard<std::mutex> lock(mutex);
    return count;
}

// ---------------------------------------------------------------------------------------------
// Worker: one thread of a pool.
//
// The pool's `workers` and the thread's own argument each hold the Worker. The thread's
// argument also holds the pool, from the moment the thread is launched until it leaves, so a
// pool with a thread cannot be destroyed, even if its last owner lets go before the thread has
// begun: the queued tasks still run. A thread detaches itself before it leaves, so whoever
// drops the last reference never joins.

class Worker : public std::enable_shared_from_this<Worker> {
public:
    explicit Worker(std::string name) : name(std::move(name)) {}
    virtual ~Worker() { Join(); }

    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    // Sets `running` and launches the thread, which holds `pool` until it leaves. Throws
    // std::system_error when the system refuses a thread; the worker is then as before.
    void Start(std::shared_ptr<ThreadPool> pool);
    // Ends the loop after the current turn.
    void Stop();
    // Lets a stopped worker take more turns.
    void Resume();

    static void ThreadMain(const std::shared_ptr<Worker>& self, std::shared_ptr<ThreadPool>& pool);

    // Written under `mutex`; read without it by the worker's loop, where a stale true only
    // lets the worker take one more turn.
    std::atomic<bool> running{false};

private:
    // Waits for an attached thread; never joins the calling thread itself.
    void Join();
    // Lets the thread run on its own, unless Join is waiting for it.
    void DetachThread();

    const std::string name;  // the pool's name when the worker was made; kept, nothing reads it
    std::shared_ptr<std::thread> thread;  // guarded by mutex
    std::mutex mutex;                     // guards `thread` and the writes of running and joining
    std::atomic<bool> joining{false};     // guarded by mutex
};

void Worker::Start(std::shared_ptr<ThreadPool> pool) {
    std::lock_guard<std::mutex> lock(mutex);
    if (thread) {
        return;
    }
    running.exchange(true);
    try {
        // The thread's own references live in the lambda; ThreadMain releases the pool on the
        // thread, and the worker goes with the thread's state once ThreadMain has returned.
        thread = std::make_shared<std::thread>(
            [self = shared_from_this(), pool = std::move(pool)]() mutable {
                ThreadMain(self, pool);
            });
    } catch (...) {
        running.exchange(false);
        throw;
    }
}

void Worker::Stop() {
    std::lock_guard<std::mutex> lock(mutex);
    running.exchange(false);
}

void Worker::Resume() {
    std::lock_guard<std::mutex> lock(mutex);
    running.exchange(true);
}

void Worker::ThreadMain(const std::shared_ptr<Worker>& self, std::shared_ptr<ThreadPool>& pool) {
    AtWorkerMoment(detail::WorkerMoment::kThreadBegun);
    do {
        while (self->running) {
            pool->RunTask(self);
        }
        AtWorkerMoment(detail::WorkerMoment::kIdleTimedOut);
    } while (!pool->RetireWorker(self));
    self->DetachThread();
    pool->RemoveWorker(self);
    // Dropping the pool here may destroy it, on this thread; the thread's argument then drops
    // the worker.
    pool.reset();
}

void Worker::DetachThread() {
    std::shared_ptr<std::thread> attached;  // destroyed after the lock is released
    std::lock_guard<std::mutex> lock(mutex);
    if (!joining && thread) {
        attached.swap(thread);
        attached->detach();
    }
}

void Worker::Join() {
    Stop();
    std::shared_ptr<std::thread> attached;
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (!thread) {
            return;
        }
        attached.swap(thread);
        joining.exchange(true);
    }
    if (attached->joinable()) {
        if (attached->get_id() == std::this_thread::get_id()) {
            attached->detach();
        } else {
            attached->join();
        }
    }
    std::lock_guard<std::mutex> lock(mutex);
    attached.reset();
    joining.exchange(false);
}

// ---------------------------------------------------------------------------------------------
// ThreadPool

ThreadPool::ThreadPool(std::string name, size_t maxThreads, size_t warnThreads,
                       size_t queueCapacity)
    : name(std::move(name)),
      maxThreads(maxThreads),
      warnThreads(warnThreads),
      queueCapacity(queueCapacity),
      queue(std::make_shared<BlockingQueue<std::function<void()>>>(queueCapacity)) {}

ThreadPool::~ThreadPool() {
    Shutdown(SHUTDOWN_IMMEDIATE);
}

bool ThreadPool::SubmitTask(std::function<void()>& task) {
    std::lock_guard<std::mutex> lock(submitMutex);
    if (isShutdown) {
        return false;
    }
    // threadCount without workersMutex: StartWorkerForWaitingTasks tests it again under the
    // lock, so a stale count costs a lock at most.
    if (queueCapacity != SIZE_MAX && threadCount == 0) {
        // Only after a refused thread start can tasks wait with no thread to run them; a full
        // bounded queue would then block the Push below for good.
        StartWorkerForWaitingTasks();
    }
    const bool queued = queue->Push(task, 0);
    AddWorker();
    // Strictly more than ten times warnThreads; a product beyond size_t exceeds every count.
    // Read without workersMutex: the count only decides whether a warning is written.
    const size_t threads = threadCount;
    if (warnThreads <= SIZE_MAX / 10 && threads > warnThreads * 10) {
        ORVIK_LOG(LOG_LEVEL_WARN, "PoolName:%s,PendingTaskNumber:%s; RunningThreadNumber:%s",
                  name.c_str(), std::to_string(queue->Size()).c_str(),
                  std::to_string(threads).c_str());
    }
    return queued;
}

bool ThreadPool::AddWorker() {
    // Without workersMutex first: a pool at its limit, the common case, needs no lock. A count
    // that a retiring worker is about to lower is safe: RetireWorker uncounts itself before it
    // reads the queue, so it sees the task just pushed and runs on.
    if (threadCount >= maxThreads) {
        return true;
    }
    std::lock_guard<std::mutex> lock(workersMutex);
    if (threadCount < maxThreads) {
        StartWorkerLocked();
    }
    return true;
}

void ThreadPool::StartWorkerLocked() {
    auto worker = std::make_shared<Worker>(name);
    std::shared_ptr<ThreadPool> self = shared_from_this();
    workers.push_back(worker);
    try {
        worker->Start(std::move(self));
    } catch (...) {
        // A worker that never ran must not be waited for by Shutdown.
        workers.pop_back();
        throw;
    }
    ++threadCount;
}

bool ThreadPool::StartWorkerForWaitingTasks() {
    std::lock_guard<std::mutex> lock(workersMutex);
    if (threadCount != 0 || queue->Size() == 0) {
        return true;
    }
    if (maxThreads == 0) {
        return false;
    }
    StartWorkerLocked();
    return true;
}

void ThreadPool::RunTask(const std::shared_ptr<Worker>& worker) {
    std::function<void()> task;
    if (!queue->Pop(task, kIdleTimeoutMs)) {
        worker->Stop();
        return;
    }
    NotifyTaskTaken();
    try {
        task();
    } catch (const std::exception& error) {
        ORVIK_LOG(LOG_LEVEL_FATAL, "task exception: %s", error.what());
    } catch (...) {
        // Anything else a task throws would end the process on this thread.
        ORVIK_LOG(LOG_LEVEL_FATAL, "task exception: %s", "unknown exception");
    }
}

bool ThreadPool::RetireWorker(const std::shared_ptr<Worker>& worker) {
    std::lock_guard<std::mutex> lock(workersMutex);
    // Uncounted before the queue is read: a submitter that pushed after the read sees the
    // lower count and starts a thread, and one that pushed before it leaves a task that keeps
    // this worker. Either way no task waits with no thread to run it.
    --threadCount;
    if (queue->Size() == 0) {
        return true;
    }
    ++threadCount;
    worker->Resume();
    return false;
}

bool ThreadPool::RemoveWorker(const std::shared_ptr<Worker>& worker) {
    std::lock_guard<std::mutex> lock(workersMutex);
    const auto found = std::find(workers.begin(), workers.end(), worker);
    if (found != workers.end()) {
        workers.erase(found);
    }
    workersGone.notify_all();
    return true;
}

void ThreadPool::NotifyTaskTaken() {
    // Without waitMutex: a Wait counts itself under the lock before it tests the queue, which
    // has shrunk already, so a Wait that this read misses does not sleep on this change.
    if (taskTakenWaiters == 0) {
        return;
    }
    // A Wait that counted itself before the queue shrank is between its test of the queue and
    // its sleep, or asleep: taking its lock lets it reach the sleep before the signal comes.
    { std::lock_guard<std::mutex> lock(waitMutex); }
    taskTaken.notify_all();
}

void ThreadPool::Wait() {
    std::unique_lock<std::mutex> lock(waitMutex);
    ++taskTakenWaiters;
    taskTaken.wait(lock, [this] { return queue->Size() == 0; });
    --taskTakenWaiters;
}

void ThreadPool::Shutdown(SHUTDOWN_METHOD method) {
    std::lock_guard<std::mutex> submitLock(submitMutex);
    isShutdown = true;
    if (method == SHUTDOWN_IMMEDIATE || method == SHUTDOWN_AFTER_DRAIN) {
        if (method == SHUTDOWN_AFTER_DRAIN) {
            bool canDrain = false;
            try {
                canDrain = StartWorkerForWaitingTasks();
            } catch (const std::exception& error) {
                ORVIK_LOG(LOG_LEVEL_ERROR, "no thread to drain the queue: %s", error.what());
            }
            if (canDrain) {
                Wait();
            }
        }
        queue->Halt();
        // Halt empties the queue without a pop: callers of Wait must hear of it all the same.
        NotifyTaskTaken();
    }

    // No thread is left when the destructor runs: each holds the pool until it has left.
    std::unique_lock<std::mutex> workersLock(workersMutex);
    workersGone.wait(workersLock, [this] { return workers.empty(); });
}

size_t ThreadPool::GetPendingTaskNumber() {
    std::lock_guard<std::mutex> lock(workersMutex);
    return queue->Size();
}

size_t ThreadPool::GetRunningThreadNumber() {
    std::lock_guard<std::mutex> lock(workersMutex);
    return threadCount;
}

std::string ThreadPool::GetName() const {
    return name;
}

void ThreadPool::SetName(const std::string& newName) {
    if (&newName != &name) {
        name = newName;
    }
}

bool ThreadPool::IsShuntDown() const {
    // Without submitMutex, which Shutdown holds while it waits: the flag only ever turns true,
    // so the answer is at most a moment late.
    return isShutdown;
}

}  // namespace orvik
