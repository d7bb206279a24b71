// Conditions that tests arrange on Windows: a system that refuses new threads. Windows offers
// no per-process file size limit and no named pipes in the file system's name space, so the
// tests that need them skip. Linked into the tests' static archive only, never shipped.
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/platform.h"

namespace orvik::platform {

namespace {

std::atomic<bool> refuseNewThreads{false};

}  // namespace

bool RefuseNewThreadsForTesting(bool refuse) {
    refuseNewThreads.store(refuse, std::memory_order_relaxed);
    return true;
}

bool LimitFileSizeForTesting(std::uint64_t) {
    return false;
}

bool MakeFifoForTesting(const std::string&) {
    return false;
}

std::shared_ptr<void> OpenFifoReaderForTesting(const std::string&) {
    return nullptr;
}

}  // namespace orvik::platform

// This compiler's std::thread starts its threads with pthread_create of the winpthreads library.
// Programs that link the library's static archive are linked with --wrap=pthread_create, which
// sends every such call here first, so that a test can make thread creation fail as it fails for
// want of resources.
extern "C" int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                     void* (*start)(void*), void* argument);

extern "C" int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                     void* (*start)(void*), void* argument) {
    if (orvik::platform::refuseNewThreads.load(std::memory_order_relaxed)) {
        return EAGAIN;
    }
    return __real_pthread_create(thread, attributes, start, argument);
}
