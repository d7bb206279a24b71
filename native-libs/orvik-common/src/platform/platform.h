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
#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <fstream>
#include <locale>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

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

// Waits on `condition`: releases `lock` (held once by the caller), blocks until the condition
// is notified or `duration` (at most a year) has passed on the steady clock, and holds the lock
// again on return. Zero or negative returns at once without releasing. May return early without a
// notification, as every condition wait may, so callers test their state again. Hands the
// wait to the time seam when one is installed, where `duration` counts on the fake clock.
void WaitFor(std::condition_variable_any& condition, std::unique_lock<std::recursive_mutex>& lock,
             std::chrono::nanoseconds duration);

// Asks the system to end the calling thread's timed waits as close to their deadline as it
// can, instead of letting them run late to gather wake-ups (by some 50 microseconds on Linux).
// For a thread whose waits are deadlines, such as the timer thread. Nothing where the system
// has no such setting or already wakes on time.
void WakeOnTimeForThisThread();

// Breaks `secondsSinceEpoch` down into local calendar time (the system's time zone and its
// daylight saving rules). Safe for concurrent callers. False if the system cannot represent
// the time; `out` is then unspecified.
bool LocalCalendarTime(std::int64_t secondsSinceEpoch, std::tm& out);

// The same in UTC.
bool UtcCalendarTime(std::int64_t secondsSinceEpoch, std::tm& out);

// The time seam, for tests only. While a seam is installed, WallClockNow(), SleepFor() and
// WaitFor() call it instead of the system. A test installs one before it starts the code under test
// and removes it (nullptr) after that code has stopped using time; the seam must outlive every call
// that may reach it. Installing is thread-safe.
class TimeSeam {
public:
    virtual ~TimeSeam() = default;
    virtual std::chrono::system_clock::time_point WallClockNow() = 0;
    virtual void SleepFor(std::chrono::nanoseconds duration) = 0;
    // By default the system's wait; a seam that moves its own clock overrides it, and must
    // then notify `condition` under the waiter's mutex when its clock passes the deadline.
    virtual void WaitFor(std::condition_variable_any& condition,
                         std::unique_lock<std::recursive_mutex>& lock,
                         std::chrono::nanoseconds duration);
};
void SetTimeSeamForTesting(TimeSeam* seam);

// ---------------------------------------------------------------------------------------------
// Threads
//
// Facts about the process's threads, for the library frame's guarantees (and their tests).
// ---------------------------------------------------------------------------------------------

// The number of threads the process has now, or -1 where the system does not tell.
int ProcessThreadCount();

// True while the process is ending and the library is being unloaded as part of that, after
// the system has already stopped every other thread: on Windows, once ExitProcess has begun
// (an explicit FreeLibrary is no such end). A thread stopped that way may have held a lock of
// the C++ runtime, so objects unloaded then must not be torn down. Always false on POSIX
// systems, whose threads keep running while static objects are destroyed.
bool ProcessIsEnding();

// Conditions for tests. They live in <system>/testing.cpp, which only the tests' static archive
// links: the shipped library has none of them.
//
// For tests: while `refuse` is true, the system refuses every new thread, so that creating a
// std::thread throws std::system_error; false restores the normal state. Returns false, and
// changes nothing, where the system cannot arrange it.
bool RefuseNewThreadsForTesting(bool refuse);

// For tests: while `bytes` is not 0, a write that would let any file of the process grow
// beyond `bytes` fails part-way, as on a full disk (the part below the limit is written); 0
// lifts the limit. Returns false, and changes nothing, where the system cannot arrange it.
bool LimitFileSizeForTesting(std::uint64_t bytes);

// For tests: makes a named pipe at `path` (a POSIX path) whose opening for writing blocks
// until a reader opens it. OpenFifoReaderForTesting opens it for reading without blocking and
// keeps it open until the returned object is destroyed. False / null where the system has no
// such pipes.
bool MakeFifoForTesting(const std::string& path);
std::shared_ptr<void> OpenFifoReaderForTesting(const std::string& path);

// ---------------------------------------------------------------------------------------------
// File system
//
// Paths arrive as the text of a Windows path, wide (UTF-16 or UTF-32, as wide text is on the
// system; "Narrow" functions: the process's code page on Windows, the bytes unchanged
// elsewhere). Every function accepts both separators and the long-path prefixes "\\?\" and
// "\\?\UNC\"; a relative path is relative to the working directory.
//
// On POSIX systems the whole file system is the one drive "C:", rooted at "/": "C:\tmp\x",
// "c:/tmp/x", "\tmp\x" and "/tmp/x" all name /tmp/x, "C:x" names x in the working directory.
// Any other drive letter and every share path ("\\server\share\...") name nothing: there is
// no entry there, and creating one fails.
// ---------------------------------------------------------------------------------------------

// The attribute bit of a directory in FileAttributes.
constexpr std::uint32_t kFileAttributeDirectory = 0x10;

// The entry's attribute bits: kFileAttributeDirectory for a directory; for anything else that
// bit is clear and some other bit is set. Nothing when there is no such entry or it cannot be
// reached (no access, another drive, a share).
std::optional<std::uint32_t> FileAttributes(const std::wstring& path);

// The size in bytes of the file, 0 for a directory. Nothing when there is no such entry or it
// cannot be reached.
std::optional<std::uint64_t> FileSize(const std::wstring& path);

// The working directory as a Windows path: "C:\work\x" for /work/x, "C:\" for "/". Nothing if
// the system cannot tell it.
std::optional<std::wstring> CurrentDirectory();

// The full form of `path`, by text alone, never touching the disk: a relative path, a rooted one
// without drive ("\a") and a drive-relative one ("C:a") are resolved against the working
// directory; "." and empty components are dropped, ".." removes the component before it and
// stops at the root; both separators come out as "\"; a trailing separator is kept. Long-path
// prefixes and share roots ("\\srv\share") are kept as they are.
//   "a\..\b" in C:\work     =>  "C:\work\b"
//   "C:/x/./y/"               =>  "C:\x\y\"
//   "\\srv\share\a\..\b"      =>  "\\srv\share\b"
// Nothing for the empty text, or when the working directory is needed and cannot be read. The
// empty text when the result and a terminator would not fit `capacity` wide elements.
std::optional<std::wstring> FullPathName(const std::wstring& path, std::size_t capacity);

// Creates the one directory `path`. False if an entry of that name exists, the parent is
// missing, or the system refuses.
bool CreateOneDirectory(const std::wstring& path);

// Creates the directory `path`, a full path, with every missing level above it. False if an
// entry of that name exists already or any level cannot be made (levels made stay).
bool CreateDirectoryTree(const std::wstring& path);

// The narrow-text calls of the C runtime.
//
// Whether the access test `mode` holds for `path`: 0 the entry exists, 2 it may be written,
// 4 it may be read (the kind of entry is not looked at).
bool AccessNarrow(const std::string& path, int mode);
// Creates one directory; false if it exists or cannot be made. A trailing separator is allowed.
bool MakeDirectoryNarrow(const std::string& path);
// Removes an empty directory; false otherwise.
bool RemoveDirectoryNarrow(const std::string& path);
// Removes a file (never a directory); false otherwise.
bool RemoveFileNarrow(const std::string& path);

// Opens `stream` on the file `path` with `mode` (the standard open modes, passed on unchanged;
// others may read and write the file meanwhile). True when the stream is open. A path that names
// nothing leaves the stream closed.
bool OpenFileStream(std::ifstream& stream, const std::wstring& path, std::ios_base::openmode mode);
bool OpenFileStream(std::ofstream& stream, const std::wstring& path, std::ios_base::openmode mode);

// A file open for appending: every write lands at its end, also when other writers append too.
// One owner writes at a time.
class AppendOnlyFile {
public:
    virtual ~AppendOnlyFile() = default;
    // Writes all of `bytes` at the end of the file. False if any part could not be written
    // (a full disk, say); the file is then cut back to its length before the call, so that
    // it never keeps a fragment. Not safe beside another Append on the same file.
    virtual bool Append(std::string_view bytes) = 0;
    // Makes everything written so far reach the storage device; false on failure.
    virtual bool SyncToDisk() = 0;
};

// Opens `path` for appending, creating the file if it is missing. Null when it cannot be opened.
std::unique_ptr<AppendOnlyFile> OpenAppendOnlyFile(const std::wstring& path);

// The system's own text for the Windows path text `path` (UTF-8), read as every call above
// reads it. On Windows the text unchanged. On POSIX the path it names, with "/" between names:
//   "C:\tmp\x", "\\?\C:\tmp\x", "\tmp\x"  =>  "/tmp/x"
//   "x\y"  =>  "x/y"     "C:x"  =>  "x"     "C:"  =>  "."     ""  =>  ""
//   "D:\x", "\\srv\share\x"  =>  nothing (no place here)
std::optional<std::string> NativePathText(const std::string& path);

// Windows path text (UTF-8) that names the system's own path `native`: NativePathText of it
// names the same place. On Windows the text unchanged. On POSIX:
//   "/tmp/x"  =>  "C:/tmp/x"     "/"  =>  "C:/"     "x/y"  =>  "x/y"
//   "C:x", "\x"  =>  "./C:x", "./\x" (a head that would read as a drive, a root or a share)
// A "\" inside the text separates names here, as in all Windows path text.
std::string PathTextOfNative(const std::string& native);

// ---------------------------------------------------------------------------------------------
// Text conversion
//
// Conversions between UTF-8 and the system's wide text, as the system's own calls make them,
// and the encoding of the user's locale.
// ---------------------------------------------------------------------------------------------

// UTF-8 to wide text and back, of the whole range (embedded NULs included, no terminator
// added). Invalid input never fails: each maximal invalid subsequence becomes U+FFFD, as the
// system's own conversions do. Empty in, empty out.
std::wstring Utf8ToWide(std::string_view text);
std::string WideToUtf8(std::wstring_view text);

// The multibyte encoding of the user's locale, as InstallUserLocale gives it. Both directions
// convert up to the first character they cannot convert, leave what they converted in `out`
// (replacing what it held), and report as std::codecvt does: ok when all of the input was
// converted, partial when the input ends inside a character, error otherwise. A wide
// character that the encoding cannot represent exactly is an error, never a look-alike.
// Thread-safety: const members may be called from several threads at once.
class UserEncoding {
public:
    virtual ~UserEncoding() = default;
    virtual std::codecvt_base::result Decode(std::string_view bytes, std::wstring& out) const = 0;
    virtual std::codecvt_base::result Encode(std::wstring_view wide, std::string& out) const = 0;
    // The most bytes that one wide element can take.
    virtual int MaxLength() const = 0;
};

// Installs the user's preferred locale for the whole process, as far as the system lets it be
// installed, and returns its encoding:
//   - POSIX: std::locale("") (from LC_ALL, LC_* and LANG) becomes the global C++ locale, and
//     with it the C locale; the encoding is its std::codecvt<wchar_t, char> facet.
//   - Windows: the C++ runtime builds no locale but "C" here, so the classic locale becomes
//     the global C++ locale and the C runtime takes the user's locale (setlocale(LC_ALL, "")),
//     which its case tables follow; the encoding is the system's ANSI code page. LANG and
//     LC_* are not read, as Windows knows neither.
// The change stays after the call and reaches every thread; nothing guards other users of the
// locale meanwhile. Raises std::runtime_error("bad locale name") when the system cannot build
// the user's locale.
std::unique_ptr<UserEncoding> InstallUserLocale();

// ---------------------------------------------------------------------------------------------
// Environment
//
// The process's environment variables, read by their wide names.
// ---------------------------------------------------------------------------------------------

// The value of the environment variable `name`, or nullopt when it is not set. A name holding
// a NUL character is never set. Windows is asked with the name as it is, so names that hold
// '=' (the per-drive "=C:") or an unpaired surrogate are found when the system keeps them.
// Where the system keeps its environment as bytes (POSIX), names and values are UTF-8: a name
// that is empty, holds '=' or is not valid wide text is never set, and each malformed run of
// bytes in a value becomes one U+FFFD. No length limit.
std::optional<std::wstring> EnvironmentVariable(const std::wstring& name);

// Sets the variable `name` to `value`, or removes it for nullopt (removing an unset variable
// succeeds). False when the name holds NUL (on POSIX also when it is empty, holds '=' or is
// not valid wide text), when `value` holds NUL or is not valid wide text, or when the system
// refuses. Not safe while another thread reads or writes the environment: for tests and
// start-up code.
bool SetEnvironmentVariable(const std::wstring& name, const std::optional<std::wstring>& value);

// ---------------------------------------------------------------------------------------------
// System facts
//
// The system's name, processor architecture and version, for SysInfo. Each reading asks the
// system again; nothing is cached. Safe for concurrent callers.
// ---------------------------------------------------------------------------------------------

// The system's own name: "Windows" on Windows, what uname reports elsewhere ("Linux",
// "Darwin"). Empty if the system does not tell.
std::string SystemName();

// The processor architecture in the spelling Windows uses for it:
//   x86-64  => "x64"     AArch64   => "arm64"
//   IA-32   => "x86"     32-bit ARM => "arm"
// The system's own name for any other architecture ("riscv64"); empty if the system does not
// tell.
std::string ProcessorArchitecture();

// The system's version as major and minor number: Windows' own version numbers (10 and 0 on
// Windows 10 and 11), elsewhere the first two numbers of the kernel release (6 and 1 for
// "6.1.0-18-amd64"). nullopt if the system does not tell, or tells in another form.
std::optional<std::pair<unsigned, unsigned>> SystemVersion();

// The system facts seam, for tests only. While a seam is installed, the three functions above
// answer from it instead of the system. Install and remove it as the time seam above.
class SystemFactsSeam {
public:
    virtual ~SystemFactsSeam() = default;
    virtual std::string SystemName() = 0;
    virtual std::string ProcessorArchitecture() = 0;
    virtual std::optional<std::pair<unsigned, unsigned>> SystemVersion() = 0;
};
void SetSystemFactsSeamForTesting(SystemFactsSeam* seam);

// The system's own answers, which the three functions above give while no seam is installed.
// Implemented once per system; callers use the functions above.
std::string NativeSystemName();
std::string NativeProcessorArchitecture();
std::optional<std::pair<unsigned, unsigned>> NativeSystemVersion();

}  // namespace orvik::platform

#endif  // ORVIK_COMMON_PLATFORM_PLATFORM_H
