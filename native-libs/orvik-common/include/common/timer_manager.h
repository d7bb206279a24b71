// Timers: one-shot and repeating timers served by one process-wide manager with a thread of
// its own.
//
//   auto timer = std::make_shared<orvik::OvTimer>(1000, true);   // every 1000 ms
//   timer->Init([] { Poll(); });
//   timer->Start();          // the manager's list now keeps the timer alive
//   ...
//   timer->Stop();
//
// All times are wall-clock milliseconds (TimeUtils::GetTimeMills). A change of the system's
// time moves every timer and nothing corrects for it: set forward, timers are due at once;
// set back by an hour, they fire an hour late.
//
// Callbacks run on the manager's thread, one at a time, in order of due time, with no lock of
// the library held; a slow callback delays every other timer. (Right after TimerManager::Stop
// the old thread may still finish a callback beside the new thread's; never two of one timer.) A
// callback may call every member of every timer, its own included, and TimerManager::Stop. Stopping
// does not wait: a callback may still be running, or about to run, when Stop returns.
#ifndef ORVIK_COMMON_TIMER_MANAGER_H
#define ORVIK_COMMON_TIMER_MANAGER_H

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "common/export.h"

namespace orvik {

namespace detail {
class TimerList;
}  // namespace detail

// One schedulable item of the TimerManager: a period, a repeat flag, and the state that the
// manager keeps for it. Abstract: what happens on expiry is OnTimer. Always owned through a
// std::shared_ptr; while the timer is started the manager's list holds a reference too, so a
// caller may start a timer and drop its own.
//
// States:          IsStart()  in the list  reached by
//   Created        false      no           construction
//   Started        true       yes          Start with a non-zero period
//   Stopped        false      no           Stop, or the firing of a one-shot timer
//   Cleared        true       no           TimerManager::Stop while started
// Start leads from Created and Stopped to Started; from Cleared it does nothing, and Stop or
// Restart is what leaves that state.
//
// Thread-safety: every member may be called from any thread, callbacks included.
class ORVIK_COMMON_API Timer : public std::enable_shared_from_this<Timer> {
public:
    // timeout: the period in milliseconds, also the delay of a one-shot timer; 0 makes a timer
    // that never starts. loop: true repeats, false fires once per Start.
    Timer(unsigned long long timeout, bool loop);
    // Does not touch the manager: a timer in the manager's list cannot be destroyed.
    virtual ~Timer();

    // Runs on the manager's thread at each expiry, with no lock held. An exception that
    // escapes it is caught by the manager, logged at ERROR, and the thread goes on.
    virtual void OnTimer() = 0;

    // Start, Stop, Update and Restart hand a strong reference to this timer to the manager.
    // On a timer that no std::shared_ptr owns they throw std::bad_weak_ptr and change nothing.
    //
    // Start: due `timeout` ms from now. Does nothing with a period of 0, on a started timer
    // (its due time stays) and on a Cleared one.
    void Start();
    // Stop: takes the timer out of the list; it does not fire again, though a callback of it
    // that is already running finishes. A pending Update is kept (see Update).
    void Stop();
    // Update: on a started timer, asks for the due time `timeout` ms from now. The manager
    // takes it over at its next pass, not before: a thread asleep until the old due time
    // wakes then, fires nothing, and sleeps again. On a timer that is not started, nothing.
    // An Update followed by Stop stays pending, and the pass after a new Start applies it.
    void Update();
    // Stop, then Start: counts `timeout` anew from now, re-arms a fired one-shot timer and
    // revives a Cleared one.
    void Restart();

    unsigned long long GetTimeout() const;
    bool GetLoop() const;

    // The manager's bookkeeping, read and written under the timer's own lock. Expire is the
    // due time, UpdateExpire a due time waiting for the next pass (0: none). A direct call of
    // a setter on a started timer makes the next pass re-read every timer; SetStartState can
    // defeat the rule that a timer stands in the list at most once.
    unsigned long long GetExpire();
    void SetExpire(unsigned long long value);
    unsigned long long GetUpdateExpire();
    void SetUpdateExpire(unsigned long long value);
    bool IsStart();
    void SetStartState(bool started);

private:
    friend class TimerManager;
    friend class detail::TimerList;

    // The manager's own writes, which need not make the next pass re-read every timer.
    void StoreExpire(unsigned long long value) {
        std::lock_guard<std::recursive_mutex> lock(mutex);
        expire = value;
    }
    void StoreUpdateExpire(unsigned long long value) {
        std::lock_guard<std::recursive_mutex> lock(mutex);
        updateExpire = value;
    }

    const unsigned long long timeout;
    const bool loop;

protected:
    // What OvTimer::OnTimer runs; empty after construction.
    std::function<void()> callback;

private:
    std::recursive_mutex mutex;       // guards the three fields below
    unsigned long long expire;        // guarded by mutex
    unsigned long long updateExpire;  // guarded by mutex
    bool startState;                  // guarded by mutex
};

// A timer that runs a function object and shields the manager's thread from its exceptions.
class ORVIK_COMMON_API OvTimer : public Timer {
public:
    OvTimer(unsigned long long timeout, bool loop);
    ~OvTimer() override;

    // Replaces the function object. Takes no lock: call it before Start, or while stopped.
    void Init(std::function<void()> callback);

    // Runs the function object. A std::exception from it, or a missing function object, is
    // logged at ERROR as "exception" (without the exception's text) and the call returns
    // normally; the timer's state does not change, so a repeating timer fires again.
    void OnTimer() override;
};

// The process-wide timer service: the list of started timers in order of due time, and one
// detached thread that sleeps until the first is due and fires it. The thread exists only
// while timers do: the first timer to arrive starts it, and it ends once the list is empty.
//
// Order of firing: earliest due time first. Among equal due times a timer started later
// fires first; a repeating timer that just fired stands before the timers it meets at its new
// due time, behind those started while its callback ran; timers whose updates one pass takes
// over keep the order they had before it. A repeating timer is due again `timeout` ms after
// the moment it fired, read before its callback: a late firing shifts the series, and missed
// firings are not made up. A callback longer than its period makes the timer due again at
// once, behind other timers due earlier. Timers are kept in buckets of one due time each: a
// pass takes the next timer of the first bucket, and a firing one joins the bucket of its next
// due time, which the timers fired in the same millisecond share. Only a pass that takes
// updates over re-sorts the whole list.
//
// The instance lives until the process ends. At exit it is stopped, as TimerManager::Stop
// does, and its memory is never released, so that a thread still inside a callback never
// touches a destroyed manager.
//
// Thread-safety: every member may be called from any thread, callbacks included.
class ORVIK_COMMON_API TimerManager {
public:
    // The one instance, built at the first call (thread-safe). Starts no thread.
    static TimerManager* GetInstance();

    // An idle manager: empty list, no thread. The destructor calls Stop and does not wait for
    // the thread; the process-wide instance is never destroyed (see above).
    TimerManager();
    ~TimerManager();
    TimerManager(const TimerManager&) = delete;
    TimerManager& operator=(const TimerManager&) = delete;

    // Launches the thread unless one is running. On an empty list the thread ends at once.
    // Throws std::system_error if the thread cannot be created; the manager then counts as
    // running until Stop.
    void Start();
    // Empties the list and tells the thread to end; does not wait for it. Timers in the list
    // are not told: they stay started (Cleared) until Stop or Restart. Not final: a later
    // AddTimer launches a new thread at once, which fires its timers on time while the old
    // thread may still finish a callback; a timer whose callback still runs there fires again
    // only after that callback has returned, so no two callbacks of one timer run at once.
    void Stop();
    // The loop of the manager's thread. Returns at once on any other thread.
    void Run();

    // Behind Timer::Start: ignores an empty pointer, a period of 0 and a started timer.
    // Starts the thread whenever the list is not empty.
    void AddTimer(std::shared_ptr<Timer> timer);
    // Behind Timer::Stop: on a started timer, marks it stopped and removes it; always wakes
    // the thread. The thread ends by itself when the list becomes empty.
    void DeleteTimer(std::shared_ptr<Timer> timer);
    // Behind Timer::Update: on a started timer, stores the new due time for the next pass.
    void UpdateTimer(std::shared_ptr<Timer> timer);
    // One scheduling pass: takes pending updates over, and returns the timer to fire now, or
    // an empty pointer. A repeating timer stays in the list, due again `timeout` ms from now;
    // a one-shot timer leaves it, stopped.
    std::shared_ptr<Timer> GetTimeoutTimer();

private:
    // Milliseconds until the first timer is due, negative when past; 0 on an empty list.
    // Internal: defined only in the library's source and not published.
    inline long long GetTimeoutValue();

    std::unique_ptr<detail::TimerList> timers;  // guarded by mutex
    std::recursive_mutex mutex;  // guards the list and every compound step on a timer
    std::condition_variable_any wake;
    // Written under `mutex`; Start reads it once without the lock and again with it.
    std::atomic<bool> running;
    std::shared_ptr<std::thread> thread;  // guarded by mutex

    // The thread that owns the loop (the last one launched); earlier threads leave at their
    // next turn. Written under `mutex`; read without it by a thread asking whether it is
    // still the owner, which only its own launch could have made it.
    std::atomic<std::thread::id> loopThread;
};

}  // namespace orvik

#endif  // ORVIK_COMMON_TIMER_MANAGER_H
