// A seam for tests of the moments in a pool thread's life that no caller can observe.
//
// Not published. Tests install a hook before they start the pool under test and remove it
// (nullptr) after the pool's threads have left.
#ifndef ORVIK_COMMON_THREAD_POOL_SEAM_H
#define ORVIK_COMMON_THREAD_POOL_SEAM_H

namespace orvik::detail {

enum class WorkerMoment {
    // The thread has begun (holding its pool) and has not yet looked for a task.
    kThreadBegun,
    // The thread's last Pop found no task (1000 ms without one, or the queue halted), and the
    // thread has not yet decided to leave.
    kIdleTimedOut,
};

// While set, every pool thread calls `hook` at each of the moments above, on its own thread,
// with no lock held.
void SetWorkerHookForTesting(void (*hook)(WorkerMoment moment));

}  // namespace orvik::detail

#endif  // ORVIK_COMMON_THREAD_POOL_SEAM_H
