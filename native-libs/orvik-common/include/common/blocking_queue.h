// A bounded, closable first-in-first-out hand-over between threads.
//
// Producers call Push, consumers call Pop; either side can wait for room or for an item with a
// time-out, and Halt closes the queue for good and throws away what it holds. It is the task
// queue of ThreadPool, and other code may use it directly.
//
// Time-outs are int milliseconds, the same for Push and Pop:
//   timeoutMs > 0   wait at most that long (one deadline, taken on entry)
//   timeoutMs == 0  wait without limit (0 is not a poll)
//   timeoutMs < 0   do not wait (-1 is not an endless wait)
//
// States: open from construction until the first Halt, then halted for good. A halted queue is
// empty, every Pop returns false at once and no Push stores anything.
//
// Thread-safety: every member may be called from any thread at once. Destroying the queue while
// another thread is inside one of its members is a caller error. An item's destructor must not
// call back into the same queue (Halt destroys the dropped items under the queue's lock).
//
// The library publishes the instantiation BlockingQueue<std::function<void()>>; other item
// types are instantiated from this header by their user.
#ifndef ORVIK_COMMON_BLOCKING_QUEUE_H
#define ORVIK_COMMON_BLOCKING_QUEUE_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>

#include "common/export.h"
#include "common/log.h"

namespace orvik {

template <class T>
class BlockingQueue {
public:
    // A queue whose Push is never refused for want of room (capacity SIZE_MAX).
    BlockingQueue();
    // A queue that holds at most `maxItems` items. With 0 every Push is refused; a
    // Push with time-out 0 on such a queue waits until Halt.
    explicit BlockingQueue(size_t maxItems);
    // Destroys the items still held. It does not halt and wakes nobody.
    virtual ~BlockingQueue();

    BlockingQueue(const BlockingQueue&) = delete;
    BlockingQueue& operator=(const BlockingQueue&) = delete;

    // Push(item, 0): waits without limit for room.
    bool Push(const T& item);
    // Stores a copy of `item` at the back; true when stored. Waits for room as the time-out
    // says. False when no room came in time, at once for a negative time-out, and on a halted
    // queue: with a positive time-out only after the whole time-out, with time-out 0 as soon
    // as the queue is halted, also while blocked. Every false result writes the WARN line
    // "queue full or timeout".
    bool Push(const T& item, int timeoutMs);
    // Moves the front item into `out`; true when an item was taken. Waits for an item as the
    // time-out says. False at the time-out and, at once, on a halted queue; `out` is then left
    // as it was. Nothing is logged.
    bool Pop(T& out, int timeoutMs);
    // The number of items held now; 0 once halted.
    size_t Size();
    // Closes the queue for good: destroys every held item (none of them is handed out), then
    // wakes every waiting Push and Pop. Idempotent.
    void Halt();

private:
    // The threads asleep on one condition that no broadcast has woken yet. A broadcast wakes
    // them all, so it clears the count: the next change of the queue signals nobody until a
    // thread goes to sleep again. Guarded by `mutex`.
    struct Sleepers {
        size_t count = 0;
        size_t broadcasts = 0;  // tells a sleeper whether a broadcast has counted it out
    };

    // Waits on `condition` until `predicate` holds, as `timeoutMs` says (see above); the result
    // is the last evaluation of `predicate`. `predicate` runs with `mutex` held.
    template <class Predicate>
    bool WaitCondition(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                       int timeoutMs, Sleepers& sleepers, Predicate predicate);

    // Releases `lock`, then wakes every thread asleep on `condition`, if any: a broadcast after
    // the unlock, so that a woken thread does not run into the lock still held, and none where
    // nobody sleeps.
    static void UnlockAndWake(std::unique_lock<std::mutex>& lock,
                              std::condition_variable& condition, Sleepers& sleepers);

    std::mutex mutex;  // guards items, halted and the two Sleepers
    const size_t capacity;
    std::deque<T> items;  // guarded by mutex
    std::condition_variable notFull;
    std::condition_variable notEmpty;
    bool halted = false;   // guarded by mutex
    Sleepers pushWaiters;  // guarded by mutex; asleep on notFull
    Sleepers popWaiters;   // guarded by mutex; asleep on notEmpty
};

// The members are defined out of line and not inline: for the published instantiation the
// caller links the library's copies instead of compiling its own.

template <class T>
BlockingQueue<T>::BlockingQueue() : BlockingQueue(static_cast<size_t>(-1)) {}

template <class T>
BlockingQueue<T>::BlockingQueue(size_t maxItems) : capacity(maxItems) {}

template <class T>
BlockingQueue<T>::~BlockingQueue() = default;

template <class T>
bool BlockingQueue<T>::Push(const T& item) {
    return Push(item, 0);
}

template <class T>
bool BlockingQueue<T>::Push(const T& item, int timeoutMs) {
    std::unique_lock<std::mutex> lock(mutex);
    bool hasRoom;
    if (timeoutMs == 0) {
        // A halted queue never has room again, so an endless wait ends at the halt as well.
        WaitCondition(notFull, lock, 0, pushWaiters,
                      [this] { return halted || items.size() != capacity; });
        hasRoom = !halted;
    } else {
        hasRoom = WaitCondition(notFull, lock, timeoutMs, pushWaiters,
                                [this] { return !halted && items.size() != capacity; });
    }
    if (!hasRoom) {
        // The log line is written from here, so its file is this header.
        Log::GetInstance().DoLog(LOG_LEVEL_WARN, __FILE__, __LINE__, "orvik::BlockingQueue::Push",
                                 "queue full or timeout");
        return false;
    }
    items.push_back(item);
    UnlockAndWake(lock, notEmpty, popWaiters);
    return true;
}

template <class T>
bool BlockingQueue<T>::Pop(T& out, int timeoutMs) {
    std::unique_lock<std::mutex> lock(mutex);
    if (!WaitCondition(notEmpty, lock, timeoutMs, popWaiters,
                       [this] { return halted || !items.empty(); }) ||
        items.empty()) {
        return false;
    }
    out = std::move(items.front());
    items.pop_front();
    UnlockAndWake(lock, notFull, pushWaiters);
    return true;
}

template <class T>
size_t BlockingQueue<T>::Size() {
    std::lock_guard<std::mutex> lock(mutex);
    return items.size();
}

template <class T>
void BlockingQueue<T>::Halt() {
    std::unique_lock<std::mutex> lock(mutex);
    {
        std::deque<T> dropped;
        dropped.swap(items);
        halted = true;
    }
    const bool consumerWaits = popWaiters.count != 0;
    if (consumerWaits) {
        popWaiters.count = 0;
        ++popWaiters.broadcasts;
    }
    UnlockAndWake(lock, notFull, pushWaiters);
    if (consumerWaits) {
        notEmpty.notify_all();
    }
}

template <class T>
void BlockingQueue<T>::UnlockAndWake(std::unique_lock<std::mutex>& lock,
                                     std::condition_variable& condition, Sleepers& sleepers) {
    const bool anyoneSleeps = sleepers.count != 0;
    if (anyoneSleeps) {
        sleepers.count = 0;
        ++sleepers.broadcasts;
    }
    lock.unlock();
    if (anyoneSleeps) {
        condition.notify_all();
    }
}

template <class T>
template <class Predicate>
bool BlockingQueue<T>::WaitCondition(std::condition_variable& condition,
                                     std::unique_lock<std::mutex>& lock, int timeoutMs,
                                     Sleepers& sleepers, Predicate predicate) {
    if (predicate()) {
        return true;
    }
    if (timeoutMs < 0) {
        return false;
    }
    // One deadline, taken on entry; unused when the wait has no limit.
    const auto deadline =
        timeoutMs > 0 ? std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs)
                      : std::chrono::steady_clock::time_point();
    for (;;) {
        ++sleepers.count;
        const size_t broadcasts = sleepers.broadcasts;
        bool timedOut = false;
        if (timeoutMs == 0) {
            condition.wait(lock);
        } else {
            timedOut = condition.wait_until(lock, deadline) == std::cv_status::timeout;
        }
        if (sleepers.broadcasts == broadcasts) {
            --sleepers.count;  // woken by the clock or spuriously: still counted
        }
        if (predicate()) {
            return true;
        }
        if (timedOut) {
            return false;
        }
    }
}

// The published instantiation: the task queue of ThreadPool.
extern template class ORVIK_COMMON_API BlockingQueue<std::function<void()>>;

}  // namespace orvik

#endif  // ORVIK_COMMON_BLOCKING_QUEUE_H
