// The objects that exist from the moment the library is loaded.
//
// They are all defined in library_frame.cpp, in the order in which the library must build
// them: C++ builds the objects of one source file in the order of their definitions and
// destroys them in reverse, which no order across several files would guarantee. Nothing here
// starts a thread, and nothing here needs an init or shutdown call.
//
// Tables that only translate numbers (host levels, log priorities) are compile-time constants
// beside their users instead: they need no construction, so they are valid before load ends
// and after unload begins, when a destructor may still log.
#ifndef ORVIK_COMMON_LIBRARY_FRAME_H
#define ORVIK_COMMON_LIBRARY_FRAME_H

#include <memory>
#include <mutex>
#include <string>

#include "common/thread_pool.h"

namespace orvik::detail {

// Serialises FileUtils::WriteFile calls against each other.
extern std::mutex fileWriteMutex;

// Serialises the two operations of NetworkGlobalOption.
extern std::recursive_mutex optionMutex;

// The reporter's serial pool: one thread at most, an unbounded queue.
extern const std::shared_ptr<ThreadPool> reporterPool;

// The words that StringUtils::CheckBool and StringUtils::StrTollBool accept.
extern const std::string trueText;
extern const std::string falseText;

}  // namespace orvik::detail

#endif  // ORVIK_COMMON_LIBRARY_FRAME_H
