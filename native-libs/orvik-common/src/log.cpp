#include "common/log.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <iostream>
#include <new>
#include <typeinfo>

#include "internal/never_destroyed.h"
#include "platform/platform.h"

namespace orvik {
namespace {

// A line is built in this many bytes: 2047 is the greatest line length.
constexpr std::size_t kLineBufferSize = 2048;
// Room for the longest console prefix, "OV_LOG:[ERROR]", and the newline behind the line.
constexpr std::size_t kConsoleRoom = 16;

const char* LogLevelName(LOG_LEVEL level) {
    switch (level) {
        case LOG_LEVEL_FATAL:
            return "FATAL";
        case LOG_LEVEL_ERROR:
            return "ERROR";
        case LOG_LEVEL_WARN:
            return "WARN";
        case LOG_LEVEL_INFO:
            return "INFO";
        case LOG_LEVEL_DEBUG:
            return "DEBUG";
        case LOG_LEVEL_VERBOSE:
            return "VERBOSE";
    }
    return "";
}

// The console prefix of a level, or null for a level the console writer skips.
const char* ConsolePrefix(LOG_LEVEL level) {
    switch (level) {
        case LOG_LEVEL_FATAL:
            return "OV_LOG:[FATAL]";
        case LOG_LEVEL_ERROR:
            return "OV_LOG:[ERROR]";
        case LOG_LEVEL_WARN:
            return "OV_LOG:[WARN]";
        case LOG_LEVEL_INFO:
            return "OV_LOG:[INFO]";
        case LOG_LEVEL_DEBUG:
            return "OV_LOG:[DEBUG]";
        case LOG_LEVEL_VERBOSE:
            break;
    }
    return nullptr;
}

// The host's scale runs the other way: FATAL is 5, VERBOSE 0; anything unknown counts as 0.
int HostLogLevel(LOG_LEVEL level) {
    return level >= LOG_LEVEL_FATAL && level <= LOG_LEVEL_VERBOSE ? LOG_LEVEL_VERBOSE - level : 0;
}

// The part of `file` behind its last backslash. Forward slashes do not count, so a path
// written with them stays whole; null stays null.
const char* BaseFileName(const char* file) {
    if (file == nullptr) {
        return nullptr;
    }
    const char* lastBackslash = std::strrchr(file, '\\');
    return lastBackslash != nullptr ? lastBackslash + 1 : file;
}

void WriteLogToConsole(LOG_LEVEL level, const char* text) {
    const char* prefix = ConsolePrefix(level);
    if (prefix == nullptr) {
        return;
    }
    // Prefix, line and newline leave in one insertion and one flush: each insertion into the
    // stream costs a sentry and a trip through the stream buffer.
    char console[kConsoleRoom + kLineBufferSize];
    const std::size_t prefixLength = std::strlen(prefix);
    const std::size_t textLength = std::strlen(text);
    if (prefixLength + textLength + 1 > sizeof console) {
        // Only a finished line of the text form or of a host's Logger can be this long.
        std::cout << prefix << text << std::endl;
        return;
    }
    std::memcpy(console, prefix, prefixLength);
    std::memcpy(console + prefixLength, text, textLength);
    console[prefixLength + textLength] = '\n';
    std::cout.write(console, static_cast<std::streamsize>(prefixLength + textLength + 1));
    std::cout.flush();
}

// printf's "%s" of a null pointer is undefined in the standard; the line shows "(null)".
const char* OrNullText(const char* text) {
    return text != nullptr ? text : "(null)";
}

// Writes the decimal text of `value` at `out`, as printf's "%d" and "%ld" would, and returns
// its length (at most 20).
std::size_t WriteDecimal(long long value, char* out) {
    char digits[20];
    std::size_t count = 0;
    unsigned long long magnitude = value < 0 ? 0ULL - static_cast<unsigned long long>(value)
                                             : static_cast<unsigned long long>(value);
    do {
        digits[count++] = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    std::size_t length = 0;
    if (value < 0) {
        out[length++] = '-';
    }
    while (count > 0) {
        out[length++] = digits[--count];
    }
    return length;
}

std::size_t Append(char* out, const char* text, std::size_t length) {
    std::memcpy(out, text, length);
    return length;
}

// The local date-time text of one second, "%Y-%m-%d %H:%M:%S", kept per thread so that the
// calendar conversion and strftime run at most once per second on each logging thread. The
// key is the wall clock's second, so the time seam of the tests reaches it as before.
struct SecondText {
    bool valid;
    long long second;
    std::size_t length;
    char text[30];
};
thread_local SecondText lastSecond{};

// Writes the date-time text of `seconds` at `out` and returns its length (at most 29). The
// text is empty when the system cannot represent the time.
std::size_t WriteDateTime(long long seconds, char* out) {
    SecondText& cached = lastSecond;
    if (!cached.valid || cached.second != seconds) {
        char text[sizeof cached.text] = {};
        std::tm calendar{};
        if (!platform::LocalCalendarTime(seconds, calendar) ||
            std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &calendar) == 0) {
            text[0] = '\0';
        }
        cached.length = std::strlen(text);
        std::memcpy(cached.text, text, cached.length);
        cached.second = seconds;
        cached.valid = true;
    }
    return Append(out, cached.text, cached.length);
}

// Builds the standard line into `buffer` and returns its length; 0 when the line would be
// longer than 2047 bytes or the format fails, and `buffer` then holds the empty line. The
// steps are those of the printf calls the line is defined by: "[%s.%ld]" with the date-time
// and the milliseconds, "[%s][%s:%d][%s] " with level, file, line and function, then the
// caller's format. A step that does not fit into the room left adds nothing, so the next one
// starts where it would have started.
std::size_t FormatLogLine(LOG_LEVEL level, char (&buffer)[kLineBufferSize], const char* file,
                          int line, const char* func, const char* fmt, va_list args) {
    buffer[0] = '\0';
    if (fmt == nullptr) {
        return 0;
    }
    const auto sinceEpoch = platform::WallClockNow().time_since_epoch();
    const long long millisSinceEpoch =
        std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch).count();

    // "[%s.%ld]": at most 36 bytes, so it always fits.
    std::size_t used = 0;
    buffer[used++] = '[';
    used += WriteDateTime(millisSinceEpoch / 1000, buffer + used);
    buffer[used++] = '.';
    used += WriteDecimal(millisSinceEpoch % 1000, buffer + used);
    buffer[used++] = ']';

    // "[%s][%s:%d][%s] "
    const char* levelName = LogLevelName(level);
    const char* fileName = OrNullText(BaseFileName(file));
    const char* funcName = OrNullText(func);
    char lineText[20];
    const std::size_t levelLength = std::strlen(levelName);
    const std::size_t fileLength = std::strlen(fileName);
    const std::size_t funcLength = std::strlen(funcName);
    const std::size_t lineLength = WriteDecimal(line, lineText);
    if (levelLength + fileLength + funcLength + lineLength + 8 < kLineBufferSize - used) {
        buffer[used++] = '[';
        used += Append(buffer + used, levelName, levelLength);
        used += Append(buffer + used, "][", 2);
        used += Append(buffer + used, fileName, fileLength);
        buffer[used++] = ':';
        used += Append(buffer + used, lineText, lineLength);
        used += Append(buffer + used, "][", 2);
        used += Append(buffer + used, funcName, funcLength);
        used += Append(buffer + used, "] ", 2);
    }

#if defined(__GNUC__) || defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#endif
    const int written = std::vsnprintf(buffer + used, kLineBufferSize - used, fmt, args);
#if defined(__GNUC__) || defined(__clang__)
#pragma GCC diagnostic pop
#endif
    if (written < 0 || static_cast<std::size_t>(written) >= kLineBufferSize - used) {
        buffer[0] = '\0';
        return 0;
    }
    return used + static_cast<std::size_t>(written);
}

#if defined(_MSC_VER) && !defined(__clang__)
#define ORVIK_NOINLINE __declspec(noinline)
#else
#define ORVIK_NOINLINE __attribute__((noinline))
#endif

// The text of one line as `logger` makes it. The standard formatter writes straight into a
// buffer on the stack, so a line costs no allocation; a host's formatter fills a string, as
// its VFormat requires. A line that failed is the empty text.
class FormattedLine {
public:
    FormattedLine(Logger& logger, LOG_LEVEL level, const char* file, int line, const char* func,
                  const char* fmt, va_list args) {
        if (typeid(logger) == typeid(Logger)) {
            FormatLogLine(level, buffer_, file, line, func, fmt, args);
            text_ = buffer_;
        } else {
            logger.VFormat(level, hostText_, file, line, func, fmt, args);
            text_ = hostText_.c_str();
        }
    }
    FormattedLine(const FormattedLine&) = delete;
    FormattedLine& operator=(const FormattedLine&) = delete;

    const char* CStr() const { return text_; }

private:
    char buffer_[kLineBufferSize];
    std::string hostText_;
    const char* text_;
};

// The plain form's work behind the gate, kept out of line so that the gate itself runs in a
// small frame: a message stopped there pays for the compares and nothing of the line.
ORVIK_NOINLINE void FormatAndDeliver(LogSink sink, Logger& logger, LOG_LEVEL level,
                                     const char* file, int line, const char* func, const char* fmt,
                                     va_list args) {
    const FormattedLine text(logger, level, file, line, func, fmt, args);
    sink(level, text.CStr());
}

}  // namespace

// Builds the instance, never destroyed: singletons of other families log from their unload
// work, and threads may still log while the process exits. Where the exit sequence would
// destroy Log, the unload hook releases a formatter that the host installed.
class LogTeardown {
public:
    static Log* CreateInstance() {
        static detail::NeverDestroyed<Log> log(detail::kBuildInPlace,
                                               [](void* where) { new (where) Log(); });
        static detail::UnloadHook teardown([] { log->ReleaseLoggerAtUnload(); });
        return log.get();
    }
};

Logger::~Logger() = default;

void Logger::VFormat(LOG_LEVEL level, std::string& out, const char* file, int line,
                     const char* func, const char* fmt, va_list args) {
    char buffer[kLineBufferSize];
    const std::size_t length = FormatLogLine(level, buffer, file, line, func, fmt, args);
    if (length != 0) {
        out.assign(buffer, length);
    }
}

Log::Log()
    : sink(&WriteLogToConsole),
      logger(new Logger()),
      level(LOG_LEVEL_INFO),
      callback(nullptr),
      enabled(true) {}

Log::~Log() = default;

Log& Log::GetInstance() {
    // One guard on the path every log call takes; the teardown is arranged inside it, once.
    static Log* const instance = LogTeardown::CreateInstance();
    return *instance;
}

void Log::ReleaseLoggerAtUnload() {
    // The library's own formatter owns nothing and stays, so that a thread still logging while
    // the process exits never meets a destroyed one. A host's formatter is destroyed, as the
    // destructor would, and the library's takes its place.
    const Logger& held = *logger;
    if (typeid(held) != typeid(Logger)) {
        logger.reset(new Logger());
    }
}

void Log::DoLog(LOG_LEVEL messageLevel, const char* file, int line, const char* func,
                const char* fmt, ...) {
    if (!enabled.load(std::memory_order_relaxed) ||
        messageLevel > level.load(std::memory_order_relaxed)) {
        return;
    }
    va_list args;
    va_start(args, fmt);
    FormatAndDeliver(sink, *logger, messageLevel, file, line, func, fmt, args);
    va_end(args);
}

void Log::DoLog(LOG_LEVEL messageLevel, const char* tag, const char* file, int line,
                const char* func, const char* fmt, ...) {
    const bool passesGate = messageLevel <= level.load(std::memory_order_relaxed);
    const LoggerCallback hostCallback = callback.load(std::memory_order_acquire);
    if (!passesGate && hostCallback == nullptr) {
        return;
    }
    va_list args;
    va_start(args, fmt);
    const FormattedLine text(*logger, messageLevel, file, line, func, fmt, args);
    va_end(args);
    if (hostCallback != nullptr) {
        hostCallback(HostLogLevel(messageLevel), tag, text.CStr());
    }
    if (passesGate && enabled.load(std::memory_order_relaxed)) {
        sink(messageLevel, text.CStr());
    }
}

void Log::DoLog(LOG_LEVEL messageLevel, const char* text) {
    if (!enabled.load(std::memory_order_relaxed) ||
        messageLevel > level.load(std::memory_order_relaxed)) {
        return;
    }
    sink(messageLevel, text != nullptr ? text : "");
}

void Log::SetLevel(LOG_LEVEL newLevel) {
    level.store(newLevel >= LOG_LEVEL_DEBUG ? LOG_LEVEL_INFO : newLevel, std::memory_order_relaxed);
}

void Log::SetLogEnabled(bool isEnabled) {
    enabled.store(isEnabled, std::memory_order_relaxed);
}

void Log::SetLogger(std::unique_ptr<Logger>&& newLogger) {
    if (newLogger && newLogger.get() != logger.get()) {
        logger = std::move(newLogger);
    }
}

void Log::SetLoggerCallback(LoggerCallback newCallback) {
    if (newCallback == nullptr) {
        return;
    }
    LoggerCallback expected = nullptr;
    callback.compare_exchange_strong(expected, newCallback, std::memory_order_acq_rel);
}

void OvLog(LOG_LEVEL level, LogTextSink sink, LogLevelGetter getLevel, const char* file, int line,
           const char* func, const char* fmt, ...) {
    const LOG_LEVEL threshold =
        sink != nullptr && getLevel != nullptr ? getLevel() : LOG_LEVEL_INFO;
    if (level > threshold) {
        return;
    }
    char buffer[kLineBufferSize];
    va_list args;
    va_start(args, fmt);
    FormatLogLine(level, buffer, file, line, func, fmt, args);
    va_end(args);
    if (sink != nullptr) {
        sink(buffer);
    } else {
        Log::GetInstance().DoLog(level, buffer);
    }
}

}  // namespace orvik
