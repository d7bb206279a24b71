// Leveled logging: one formatted line per message, delivered to the console writer and to
// a callback installed by the host application.
//
// A line reads, byte for byte:
//
//   [2024-07-22 19:58:48.7][ERROR][sys_info:37][orvik::SysInfo::GetClientOsInfo] message
//
// local time with unpadded milliseconds, the level's name, the part of the source file behind
// its last backslash, the line, the function, then the printf-formatted message. A line that
// would be longer than 2047 bytes is delivered as the empty string, never cut short.
//
// Log has four entrances:
//   - DoLog(level, file, line, func, fmt, ...)       to the console writer only, when the
//                                                     switch is on and level <= threshold;
//   - DoLog(level, tag, file, line, func, fmt, ...)  to the host callback at every level, then
//                                                     to the console writer under the same rule;
//   - DoLog(level, text)                             a finished line, to the console writer;
//   - OvLog(...)                                     formats with its own threshold and hands
//                                                     the line to a caller's sink.
// The library's own modules use the first form only, so their lines never reach the callback.
//
// Thread-safety: every member may be called from any thread at any time; Log takes no lock.
// Receivers run on the logging thread, possibly several at once. The one exception is
// SetLogger, which must not run while another thread logs (the old Logger is destroyed).
#ifndef ORVIK_COMMON_LOG_H
#define ORVIK_COMMON_LOG_H

#include <atomic>
#include <cstdarg>
#include <memory>
#include <string>

#include "common/export.h"

namespace orvik {

// Severity. Lower is more severe; a message passes the gate when its value is less than or
// equal to the threshold.
enum LOG_LEVEL : int {
    LOG_LEVEL_FATAL = 0,
    LOG_LEVEL_ERROR = 1,
    LOG_LEVEL_WARN = 2,
    LOG_LEVEL_INFO = 3,
    LOG_LEVEL_DEBUG = 4,
    LOG_LEVEL_VERBOSE = 5,
};

// Receives a finished line that passed the gate. The text is valid only during the call.
using LogSink = void (*)(LOG_LEVEL level, const char* text);
// The host's callback: host level (0 verbose .. 5 fatal, the reverse of LOG_LEVEL), the tag of
// the tagged DoLog unchanged, and the finished line.
using LoggerCallback = void (*)(int hostLevel, const char* tag, const char* text);
// OvLog's receiver of a finished line.
using LogTextSink = void (*)(const char* text);
// OvLog's source of a threshold.
using LogLevelGetter = LOG_LEVEL (*)();

// Turns a message into the text of one line. The base class writes the standard line; a host
// may derive from it to change the text that the two formatting DoLog forms produce (OvLog
// always writes the standard line).
class ORVIK_COMMON_API Logger {
public:
    Logger() = default;
    virtual ~Logger();

    // Writes the line into `out`, replacing its content. If the line does not fit 2047 bytes
    // or the format fails, `out` is left as it was.
    virtual void VFormat(LOG_LEVEL level, std::string& out, const char* file, int line,
                         const char* func, const char* fmt, va_list args);
};

// The process-wide log facility. Built at the first GetInstance; it stays usable for every
// destructor that can run while the library unloads.
class ORVIK_COMMON_API Log {
public:
    // The one instance; safe against concurrent first calls.
    static Log& GetInstance();

    // Plain form: formats and writes to the console writer when the switch is on and
    // level <= threshold; never calls the host callback. Below the gate it costs two compares.
    void DoLog(LOG_LEVEL level, const char* file, int line, const char* func, const char* fmt, ...)
        ORVIK_COMMON_PRINTF(6, 7);

    // Tagged form: formats when the gate passes or a callback is stored. Calls the callback
    // first, at every level and whatever the switch says, with the host level of `level`
    // (0 for a value outside 0..5); then the console writer under the plain form's rule.
    void DoLog(LOG_LEVEL level, const char* tag, const char* file, int line, const char* func,
               const char* fmt, ...) ORVIK_COMMON_PRINTF(7, 8);

    // Text form: `text` is a finished line, written to the console writer when the switch is
    // on and level <= threshold. A null text counts as the empty line.
    void DoLog(LOG_LEVEL level, const char* text);

    // Stores the threshold; a value of 4 or more is stored as 3 (LOG_LEVEL_INFO), so the
    // threshold can never rise above INFO.
    void SetLevel(LOG_LEVEL level);
    // Master switch for the console writer. It has no effect on the host callback.
    void SetLogEnabled(bool enabled);
    // Replaces the formatter and destroys the previous one. Must not be empty, and must not
    // run while another thread logs. Handing in the held formatter itself changes nothing.
    void SetLogger(std::unique_ptr<Logger>&& logger);
    // Stores `callback` if it is not null and no callback is stored yet: the first non-null
    // callback stays for the life of the process; later calls change nothing.
    void SetLoggerCallback(LoggerCallback callback);

private:
    Log();
    ~Log();
    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;

    // Destroys a host's formatter when the library unloads, leaving a plain one in its place so
    // that unload work running after this point, and threads still running, can still log.
    friend class LogTeardown;
    void ReleaseLoggerAtUnload();

    // The fields are read on every log call without a lock; atomics keep those reads defined
    // while a setter runs on another thread.
    const LogSink sink;
    std::unique_ptr<Logger> logger;
    std::atomic<LOG_LEVEL> level;
    std::atomic<LoggerCallback> callback;
    std::atomic<bool> enabled;
};

// Formats a line with the standard formatter and hands it to `sink`. The threshold is
// getLevel() when both `sink` and `getLevel` are given, else LOG_LEVEL_INFO whatever Log's
// threshold is. With a null `sink` the line goes on to Log's text form, which applies Log's
// switch and gate once more.
ORVIK_COMMON_API void OvLog(LOG_LEVEL level, LogTextSink sink, LogLevelGetter getLevel,
                            const char* file, int line, const char* func, const char* fmt, ...)
    ORVIK_COMMON_PRINTF(7, 8);

}  // namespace orvik

#endif  // ORVIK_COMMON_LOG_H
