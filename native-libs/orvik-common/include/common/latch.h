// Two small synchronisation gates for callers of the library.
//
// CountDownLatch releases its waiters when a count of expected events reaches zero; it moves
// one way, from counting to released. CountOutWake is a gate on which threads park until
// another thread wakes one of them (CountOut) or all of them for good (CountAll).
//
// Neither reports a time-out: Wait returns nothing, and a caller that needs to know asks
// GetCount. A timed Wait is one sleep that any wake-up ends, a spurious one included.
//
// Thread-safety: every member may be called from any thread at once. Destroying an object while
// a thread is inside its Wait is a caller error.
#ifndef ORVIK_COMMON_LATCH_H
#define ORVIK_COMMON_LATCH_H

#include <condition_variable>
#include <mutex>

#include "common/export.h"

namespace orvik {

// Counts down from the constructor's value; Wait passes once the count is 0.
//
//   CountDownLatch(0)  Wait returns at once, CountDown changes nothing
//   CountDownLatch(2)  two CountDown calls release every Wait; a third changes nothing
class ORVIK_COMMON_API CountDownLatch {
public:
    explicit CountDownLatch(unsigned int count);
    ~CountDownLatch();

    // Subtracts 1 from a count above 0; the step to 0 wakes every waiter. Non-blocking.
    void CountDown();
    // Returns at once when the count is 0. timeoutMs: milliseconds; 0 blocks until the count
    // reaches 0; otherwise one sleep of at most timeoutMs, ended early by the release (or a
    // spurious wake-up). A value with its top bit set counts as negative and returns at once.
    void Wait(unsigned long long timeoutMs);
    // The count-downs still owed.
    unsigned int GetCount();

private:
    std::condition_variable condition;
    bool released = false;  // guarded by mutex
    std::mutex mutex;       // guards released and count
    unsigned int count;     // guarded by mutex
};

// A parking gate. CountOut hands out one wake-up, CountAll opens the gate for good.
//
//   before any wake-up    Wait(0) sleeps until CountOut or CountAll
//   after CountOut        the next Wait(0) still sleeps first, then consumes the wake-up at
//                         its first waking
//   after CountAll        every Wait(0) returns at once; a timed Wait still sleeps
class ORVIK_COMMON_API CountOutWake {
public:
    // GetCount starts at `count` (0 for the default constructor).
    CountOutWake();
    explicit CountOutWake(unsigned int count);
    ~CountOutWake();

    // Sets the single wake-up and wakes one waiter. Non-blocking.
    void CountOut();
    // Opens the gate for good and wakes every waiter. Non-blocking.
    void CountAll();
    // timeoutNs: NANOseconds. 0 blocks until a wake-up: the single one (which it consumes) or
    // CountAll; it returns at once when CountAll came before. Otherwise one sleep of at most
    // timeoutNs that reads and consumes nothing, ended early by any notification (or a
    // spurious wake-up). A value with its top bit set counts as negative and returns at once.
    void Wait(unsigned long long timeoutNs);
    // The constructor's value plus the number of threads inside Wait now.
    unsigned int GetCount();

private:
    std::mutex mutex;  // guards wakeAll, wakeOne and count
    std::condition_variable condition;
    bool wakeAll = false;  // guarded by mutex
    bool wakeOne = false;  // guarded by mutex
    unsigned int count;    // guarded by mutex
};

}  // namespace orvik

#endif  // ORVIK_COMMON_LATCH_H
