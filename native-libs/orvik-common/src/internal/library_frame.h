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
//
// Every process-wide object of the library, where it is built and where it is torn down:
//
//   object                        built                         torn down at unload
//   fileWriteMutex, optionMutex   load (library_frame.cpp)      never: trivially destructible
//   reporterPool                  load (library_frame.cpp)      the pointer drops its share;
//   initRetryThreadPool           load (library_frame.cpp)        the pool object stays
//   trueText, falseText           load (library_frame.cpp)      never destroyed
//   the file write locks          first WriteFile               never destroyed
//   Log                           first Log::GetInstance        formatter replaced; object stays
//   TimerManager                  first GetInstance             stopped; object stays
//   Reporter                      first GetInstance             line logged, engine released;
//                                                                 object stays
//
// "Object stays" means the object lives in never_destroyed.h's storage and an unload hook does
// the destructor's work at the destructor's place in the exit order, so that threads still
// running while the process exits never reach a destroyed object.
#ifndef ORVIK_COMMON_LIBRARY_FRAME_H
#define ORVIK_COMMON_LIBRARY_FRAME_H

#include <memory>
#include <mutex>
#include <string>

#include "common/thread_pool.h"

namespace orvik::detail {

// Guards FileUtils::WriteFile's table of per-file locks.
extern std::mutex fileWriteMutex;

// Serialises the two operations of NetworkGlobalOption; guards what they store.
extern std::recursive_mutex optionMutex;

// The reporter's serial pool: one thread at most, an unbounded queue. Used only by Reporter,
// whose unload work runs before this pointer is destroyed.
extern const std::shared_ptr<ThreadPool> reporterPool;

// Defined by Reporter; called when the reporter pool has stopped, with no delivery running.
// Lets go of what the records that the pool dropped unrun still hold: their engines, whose
// destructors may have output of their own to write.
void ReleaseUndeliveredReports();

// The words that StringUtils::CheckBool and StringUtils::StrTollBool accept.
extern const std::string& trueText;
extern const std::string& falseText;

}  // namespace orvik::detail

#endif  // ORVIK_COMMON_LIBRARY_FRAME_H
