// Storage for the library's process-wide objects, which are built once and never destroyed.
//
// Threads of the library (pool workers, the timer thread, the reporter's thread) and threads of
// the host may still run while the process exits. An object that the exit sequence destroyed
// could then be used after its end; an object that is never destroyed cannot. What its
// destructor would have done at unload (release a formatter, stop the timers, drop the report
// engine) is done instead by an UnloadHook, built right after the object, so that the work
// happens at the same place of the exit order.
//
//   Log& Log::GetInstance() {
//       static detail::NeverDestroyed<Log> instance(detail::kBuildInPlace,
//                                                   [](void* where) { new (where) Log(); });
//       static detail::UnloadHook teardown([] { instance->ReleaseLoggerAtUnload(); });
//       return *instance;
//   }
//
// A lambda written inside a member of T may call T's private constructor, hence the
// build-in-place form. NeverDestroyed is trivially destructible: no exit handler is registered
// for it, and its memory stays valid until the process ends.
#ifndef ORVIK_COMMON_NEVER_DESTROYED_H
#define ORVIK_COMMON_NEVER_DESTROYED_H

#include <new>
#include <utility>

#include "platform/platform.h"

namespace orvik::detail {

struct BuildInPlace {};
inline constexpr BuildInPlace kBuildInPlace{};

template <class T>
class NeverDestroyed {
public:
    template <class... Args>
    explicit NeverDestroyed(Args&&... args) {
        ::new (static_cast<void*>(storage_)) T(std::forward<Args>(args)...);
    }
    // `build(where)` constructs the T at `where`.
    template <class Build>
    NeverDestroyed(BuildInPlace, Build build) {
        build(static_cast<void*>(storage_));
    }
    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;

    T* get() { return std::launder(reinterpret_cast<T*>(storage_)); }
    T& operator*() { return *get(); }
    T* operator->() { return get(); }

private:
    alignas(T) unsigned char storage_[sizeof(T)];
};

// Calls `teardown` when the exit sequence destroys this hook: for a static built right after a
// NeverDestroyed object, exactly where that object's destructor would have run. Not when the
// system has already stopped every other thread (see platform::ProcessIsEnding): a stopped
// thread may have held a lock that the teardown would wait for, and nothing is left to stop.
template <class Teardown>
class UnloadHook {
public:
    explicit UnloadHook(Teardown teardown) : teardown_(std::move(teardown)) {}
    ~UnloadHook() {
        if (!platform::ProcessIsEnding()) {
            teardown_();
        }
    }
    UnloadHook(const UnloadHook&) = delete;
    UnloadHook& operator=(const UnloadHook&) = delete;

private:
    Teardown teardown_;
};

}  // namespace orvik::detail

#endif  // ORVIK_COMMON_NEVER_DESTROYED_H
