// An elastic pool of threads for std::function<void()> tasks, and the process-wide serial pool
// that the library publishes.
//
// A pool holds threads only while there is work: none at construction, one more per
// submission while fewer than maxThreads live (idle ones count), and a thread that finds no
// task for 1000 ms leaves. Tasks wait in a BlockingQueue and start in submission order; with
// maxThreads 1 they also run strictly one after the other.
//
// Ownership: a pool is always owned by a std::shared_ptr (starting a thread needs
// shared_from_this). A thread with work keeps its pool alive: when the last owner lets go, the
// queued tasks still run, and the pool is destroyed on its last thread after that thread's
// 1000 ms without work. Destroying the pool discards what is still queued and waits for the
// tasks being run.
//
// Thread-safety: every member may be called from any thread at once, except that SetName must
// not run beside submissions that can log, and that a task must not call Shutdown on its own
// pool (Shutdown waits for that task), nor SubmitTask while a Shutdown of its pool may be in
// progress, nor Wait on a single-thread pool while tasks are queued. No lock of the pool is
// held while a task runs.
#ifndef ORVIK_COMMON_THREAD_POOL_H
#define ORVIK_COMMON_THREAD_POOL_H

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "common/blocking_queue.h"
#include "common/export.h"

namespace orvik {

class Worker;

class ORVIK_COMMON_API ThreadPool : public std::enable_shared_from_this<ThreadPool> {
public:
    enum SHUTDOWN_METHOD : int {
        // Discards the queued tasks; the tasks being run finish.
        SHUTDOWN_IMMEDIATE = 0,
        // Runs every queued task first.
        SHUTDOWN_AFTER_DRAIN = 1,
    };

    // Starts no thread. `warnThreads` only sets the load warning of SubmitTask. A
    // `queueCapacity` of 0 would make every SubmitTask block for good.
    ThreadPool(std::string name, size_t maxThreads, size_t warnThreads,
               size_t queueCapacity = SIZE_MAX);
    // Shutdown(SHUTDOWN_IMMEDIATE), then frees the pool.
    virtual ~ThreadPool();

    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    // Queues a copy of `task` (the argument is left as it was) and starts one more thread if
    // fewer than maxThreads live. Blocks without limit while a bounded queue is full. True
    // when queued; false, without a log line, once Shutdown has begun. Writes the WARN line
    // "PoolName:<name>,PendingTaskNumber:<n>; RunningThreadNumber:<m>" while more than ten
    // times warnThreads threads live. Exceptions of the standard library pass through:
    // std::bad_weak_ptr for a pool that no std::shared_ptr owns (the task is queued all the
    // same), std::system_error when the system refuses a new thread (the task may be queued;
    // the next submission tries to start a thread again).
    bool SubmitTask(std::function<void()>& task);

    // Queues f(args...) (bound by copy) and returns a future of its end. The future holds the
    // exception that f throws, and std::future_errc::broken_promise when the task is never
    // run: refused after Shutdown, or discarded by SHUTDOWN_IMMEDIATE.
    template <class F, class... Args>
    std::future<void> SubmitWithFuture(F&& f, Args&&... args);

    // Queues the callable `f` (moved in when given as an rvalue, so move-only callables work)
    // and returns a future of its result; otherwise as SubmitWithFuture: the same queueing and
    // blocking, the exception that f throws in the future, std::future_errc::broken_promise
    // when the task is never run, and SubmitTask's exceptions passed through.
    //
    //   std::future<std::string> digest = pool->Submit([data = std::move(chunk)] {
    //       return EncryptUtils::Sha256Hex(data.data(), data.size());
    //   });
    template <class F>
    std::future<std::invoke_result_t<std::decay_t<F>&>> Submit(F&& f);

    // Tasks waiting in the queue; tasks being run do not count.
    size_t GetPendingTaskNumber();
    // Threads that live now, idle ones included.
    size_t GetRunningThreadNumber();
    // The name, read without a lock.
    std::string GetName() const;
    // Renames the pool (the load warning shows the new name; threads keep theirs). Takes no
    // lock: see the class comment.
    void SetName(const std::string& name);

    // Refuses every later submission, then, by method: SHUTDOWN_IMMEDIATE discards the queued
    // tasks; SHUTDOWN_AFTER_DRAIN waits until every queued task was taken (and discards them
    // only if no thread can be started to run them); any other value leaves them to the
    // threads, which leave after their 1000 ms without work. Returns when every thread has
    // left, so it waits for the tasks being run, without a time-out. A later call returns
    // once the threads have left.
    void Shutdown(SHUTDOWN_METHOD method);
    // True from the start of Shutdown on, also while it still waits. No lock.
    bool IsShuntDown() const;
    // Blocks until the queue is empty; tasks already taken may still be running. Returns at
    // once on an empty queue, and when the queue is discarded by Shutdown.
    void Wait();

private:
    friend class Worker;

    // Queues `callable` inside a packaged task whose future gives R; the task is refused or
    // dropped as SubmitTask says, which breaks the promise.
    template <class R, class Callable>
    std::future<R> SubmitPackaged(Callable&& callable);

    // Starts a thread if fewer than maxThreads live. Always true.
    bool AddWorker();
    // Starts a thread, with workersMutex held: the worker joins `workers` only once its
    // thread runs.
    void StartWorkerLocked();
    // Makes sure a thread lives while tasks wait (one may be missing after a refused thread
    // start). False when none can be started.
    bool StartWorkerForWaitingTasks();
    // One turn of a worker: takes a task and runs it, or stops the worker after 1000 ms
    // without a task.
    void RunTask(const std::shared_ptr<Worker>& worker);
    // Asked by a stopped worker before it leaves: true, and the worker no longer counts, if
    // the queue is empty; false, and the worker runs on, if a task came in meanwhile.
    bool RetireWorker(const std::shared_ptr<Worker>& worker);
    // Takes a retired worker out of `workers`. Always true.
    bool RemoveWorker(const std::shared_ptr<Worker>& worker);
    // Wakes the callers of Wait, if any, after the queue shrank.
    void NotifyTaskTaken();

    std::string name;
    const size_t maxThreads;
    // Changed under workersMutex; read without it where a check is repeated under the lock or
    // only feeds the warning line (see SubmitTask, AddWorker).
    std::atomic<size_t> threadCount{0};
    const size_t warnThreads;
    const size_t queueCapacity;
    std::mutex submitMutex;   // orders SubmitTask against Shutdown; guards isShutdown's writes
    std::mutex workersMutex;  // guards workers and the changes of threadCount
    std::condition_variable workersGone;
    const std::shared_ptr<BlockingQueue<std::function<void()>>> queue;  // locks itself
    std::vector<std::shared_ptr<Worker>> workers;                       // guarded by workersMutex
    std::mutex waitMutex;  // guards the changes of taskTakenWaiters and the sleep on taskTaken
    std::condition_variable taskTaken;
    std::atomic<size_t> taskTakenWaiters{0};  // changed under waitMutex; read without it
    std::atomic<bool> isShutdown{false};      // written under submitMutex; read without it
};

template <class F, class... Args>
std::future<void> ThreadPool::SubmitWithFuture(F&& f, Args&&... args) {
    return SubmitPackaged<void>(std::bind(std::forward<F>(f), std::forward<Args>(args)...));
}

template <class F>
std::future<std::invoke_result_t<std::decay_t<F>&>> ThreadPool::Submit(F&& f) {
    return SubmitPackaged<std::invoke_result_t<std::decay_t<F>&>>(std::forward<F>(f));
}

template <class R, class Callable>
std::future<R> ThreadPool::SubmitPackaged(Callable&& callable) {
    // The queue holds copyable std::function tasks; sharing the packaged task makes any
    // callable, move-only ones included, fit in one.
    auto packaged = std::make_shared<std::packaged_task<R()>>(std::forward<Callable>(callable));
    std::future<R> future = packaged->get_future();
    std::function<void()> task = [packaged] { (*packaged)(); };
    SubmitTask(task);
    return future;
}

// The process-wide serial pool for the init-or-retry work of the stack's libraries: one thread
// at most, an unbounded queue, tasks strictly in submission order. It exists from load on and
// starts no thread before its first task. The library never shuts it down; a Shutdown by any
// user refuses all later submissions of every user. Nothing is drained at unload.
class ORVIK_COMMON_API InitOrRetryTask {
public:
    static const std::shared_ptr<ThreadPool> initRetryThreadPool;
};

}  // namespace orvik

#endif  // ORVIK_COMMON_THREAD_POOL_H
