// The library's one gateway to the operating system.
//
// Family sources call orvik::platform and never include system headers themselves. The
// interface speaks the library's own terms: standard types in, plain results out; paths and
// other wide text as std::wstring whatever the width of wchar_t. Each function's contract is
// written once here and tested once in tests/platform_test.cpp, so that every implementation
// (posix/ and win/) answers to the same tests. Parts that are the same on every system (the
// clock seam below) live in src/platform/*.cpp; the rest in the folder of each system.
//
// Not published: nothing here carries the export macro. Tests reach it by linking the static
// archive of the library's objects.
#ifndef ORVIK_COMMON_PLATFORM_PLATFORM_H
#define ORVIK_COMMON_PLATFORM_PLATFORM_H

#include <chrono>
#include <cstdint>
#include <ctime>

namespace orvik::platform {

// ---------------------------------------------------------------------------------------------
// Clocks and sleeping
//
// Everything in the library that reads the wall clock or sleeps goes through these functions,
// so that tests can replace both with the time seam below.
// ---------------------------------------------------------------------------------------------

// The wall clock: time since 1970-01-01 00:00:00 UTC. Follows changes of the system's time,
// and the time seam when one is installed.
std::chrono::system_clock::time_point WallClockNow();

// The steady clock: never steps backwards; its origin is unspecified. Not affected by the seam.
std::chrono::steady_clock::time_point SteadyClockNow();

// Blocks the calling thread for `duration` (nothing for zero or negative), or hands the
// request to the time seam when one is installed.
void SleepFor(std::chrono::nanoseconds duration);

// Breaks `secondsSinceEpoch` down into local calendar time (the system's time zone and its
// daylight saving rules). Safe for concurrent callers. False if the system cannot represent
// the time; `out` is then unspecified.
bool LocalCalendarTime(std::int64_t secondsSinceEpoch, std::tm& out);

// The same in UTC.
bool UtcCalendarTime(std::int64_t secondsSinceEpoch, std::tm& out);

// The time seam, for tests only. While a seam is installed, WallClockNow() and SleepFor()
// call it instead of the system. A test installs one before it starts the code under test and
// removes it (nullptr) after that code has stopped using time; the seam must outlive every
// call that may reach it. Installing is thread-safe.
class TimeSeam {
public:
    virtual ~TimeSeam() = default;
    virtual std::chrono::system_clock::time_point WallClockNow() = 0;
    virtual void SleepFor(std::chrono::nanoseconds duration) = 0;
};
void SetTimeSeamForTesting(TimeSeam* seam);

// ---------------------------------------------------------------------------------------------
// Threads
//
// Facts about the process's threads, for the library frame's guarantees (and their tests).
// ---------------------------------------------------------------------------------------------

// The number of threads the process has now, or -1 where the system does not tell.
int ProcessThreadCount();

// For tests: while `refuse` is true, the system refuses every new thread, so that creating a
// std::thread throws std::system_error; false restores the normal state. Returns false, and
// changes nothing, where the system cannot arrange it.
bool RefuseNewThreadsForTesting(bool refuse);

// ---------------------------------------------------------------------------------------------
// File system
//
// Paths arrive as the wide text of a Windows path; see the file system section's functions.
// ---------------------------------------------------------------------------------------------

// ---------------------------------------------------------------------------------------------
// Text conversion
//
// Conversions between UTF-8 and the system's wide text, as the system's own calls make them.
// ---------------------------------------------------------------------------------------------

// ---------------------------------------------------------------------------------------------
// Environment
//
// The process's environment variables, read by their wide names.
// ---------------------------------------------------------------------------------------------

// ---------------------------------------------------------------------------------------------
// System facts
//
// The system's name, processor architecture and version, for SysInfo.
// ---------------------------------------------------------------------------------------------

}  // namespace orvik::platform

#endif  // ORVIK_COMMON_PLATFORM_PLATFORM_H
