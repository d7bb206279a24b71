#include "common/log.h"

#include <cstdio>
#include <ctime>
#include <iostream>
#include <new>

#include "platform/platform.h"

namespace orvik {
namespace {

constexpr std::size_t kLineBufferSize = 2048;

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
    const char* base = file;
    for (const char* p = file; *p != '\0'; ++p) {
        if (*p == '\\') {
            base = p + 1;
        }
    }
    return base;
}

void WriteLogToConsole(LOG_LEVEL level, const char* text) {
    const char* prefix = ConsolePrefix(level);
    if (prefix == nullptr) {
        return;
    }
    std::cout << prefix << text << std::endl;
}

// Appends one step's text at `used`. The step may write at most one byte less than the room
// left; a step that does not fit or fails adds nothing, so the next one overwrites it.
bool AppendStep(std::size_t& used, int written) {
    if (written < 0 || static_cast<std::size_t>(written) >= kLineBufferSize - used) {
        return false;
    }
    used += static_cast<std::size_t>(written);
    return true;
}

// printf's "%s" of a null pointer is undefined in the standard; the line shows "(null)".
const char* OrNullText(const char* text) {
    return text != nullptr ? text : "(null)";
}

void FormatLogLine(LOG_LEVEL level, std::string& out, const char* file, int line, const char* func,
                   const char* fmt, va_list args) {
    char buffer[kLineBufferSize] = {};
    std::size_t used = 0;

    const auto sinceEpoch = platform::WallClockNow().time_since_epoch();
    const long long millisSinceEpoch =
        std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch).count();
    const long long seconds = millisSinceEpoch / 1000;
    const long milliseconds = static_cast<long>(millisSinceEpoch % 1000);

    char timeText[30] = {};
    std::tm calendar{};
    if (platform::LocalCalendarTime(seconds, calendar)) {
        std::strftime(timeText, sizeof timeText, "%Y-%m-%d %H:%M:%S", &calendar);
    }

    AppendStep(used, std::snprintf(buffer + used, kLineBufferSize - used, "[%s.%ld]", timeText,
                                   milliseconds));
    AppendStep(used, std::snprintf(buffer + used, kLineBufferSize - used, "[%s][%s:%d][%s] ",
                                   LogLevelName(level), OrNullText(BaseFileName(file)), line,
                                   OrNullText(func)));
    if (fmt == nullptr) {
        return;
    }
#if defined(__GNUC__) || defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#endif
    const int written = std::vsnprintf(buffer + used, kLineBufferSize - used, fmt, args);
#if defined(__GNUC__) || defined(__clang__)
#pragma GCC diagnostic pop
#endif
    if (AppendStep(used, written)) {
        out.assign(buffer);
    }
}

}  // namespace

// Destroys the formatter when the library unloads, at the place in the reverse order of
// construction that the first use of Log gave it. The Log object itself is never destroyed.
class LogTeardown {
public:
    explicit LogTeardown(Log& log) : log_(log) {}
    ~LogTeardown() { log_.ReleaseLoggerAtUnload(); }

private:
    Log& log_;
};

Logger::~Logger() = default;

void Logger::VFormat(LOG_LEVEL level, std::string& out, const char* file, int line,
                     const char* func, const char* fmt, va_list args) {
    FormatLogLine(level, out, file, line, func, fmt, args);
}

Log::Log()
    : sink(&WriteLogToConsole),
      logger(new Logger()),
      level(LOG_LEVEL_INFO),
      callback(nullptr),
      enabled(true) {}

Log::~Log() = default;

Log& Log::GetInstance() {
    // The instance lives in storage that is never released: singletons of other families log
    // from their destructors at unload, and their order against Log's follows first use.
    alignas(Log) static unsigned char storage[sizeof(Log)];
    static Log* const instance = new (storage) Log();
    static LogTeardown teardown(*instance);
    return *instance;
}

void Log::ReleaseLoggerAtUnload() {
    logger.reset(new Logger());
}

void Log::DoLog(LOG_LEVEL messageLevel, const char* file, int line, const char* func,
                const char* fmt, ...) {
    if (!enabled.load(std::memory_order_relaxed) ||
        messageLevel > level.load(std::memory_order_relaxed)) {
        return;
    }
    std::string out;
    va_list args;
    va_start(args, fmt);
    logger->VFormat(messageLevel, out, file, line, func, fmt, args);
    va_end(args);
    sink(messageLevel, out.c_str());
}

void Log::DoLog(LOG_LEVEL messageLevel, const char* tag, const char* file, int line,
                const char* func, const char* fmt, ...) {
    const bool passesGate = messageLevel <= level.load(std::memory_order_relaxed);
    const LoggerCallback hostCallback = callback.load(std::memory_order_acquire);
    if (!passesGate && hostCallback == nullptr) {
        return;
    }
    std::string out;
    va_list args;
    va_start(args, fmt);
    logger->VFormat(messageLevel, out, file, line, func, fmt, args);
    va_end(args);
    if (hostCallback != nullptr) {
        hostCallback(HostLogLevel(messageLevel), tag, out.c_str());
    }
    if (passesGate && enabled.load(std::memory_order_relaxed)) {
        sink(messageLevel, out.c_str());
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
    std::string out;
    va_list args;
    va_start(args, fmt);
    FormatLogLine(level, out, file, line, func, fmt, args);
    va_end(args);
    if (sink != nullptr) {
        sink(out.c_str());
    } else {
        Log::GetInstance().DoLog(level, out.c_str());
    }
}

}  // namespace orvik
