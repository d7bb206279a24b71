// Logging from a user's code with the call site filled in: the base name of the source file,
// the line, and the function named as the library's own lines name theirs.
//
//   ORVIK_LOG_WARN("retrying %s in %d ms", url.c_str(), delayMs);
//   // [2024-07-22 19:58:48.7][WARN][fetch.cpp:42][app::Fetcher::Retry] retrying ... in 250 ms
//
//   ORVIK_LOG_TAGGED(orvik::LOG_LEVEL_INFO, "fetch", "done after %d tries", tries);
//
// ORVIK_LOG_ERROR, ORVIK_LOG_WARN, ORVIK_LOG_INFO and ORVIK_LOG_DEBUG take a printf-style format
// and its arguments, checked by the compiler as printf's are, and log through the plain form of
// Log::DoLog: to the console writer when the switch is on and the level passes the threshold,
// never to the host callback; the threshold never rises above INFO, so ORVIK_LOG_DEBUG lines
// show nowhere. ORVIK_LOG_TAGGED(level, tag, fmt, ...) logs through the tagged form, which
// also reaches the host callback, at every level (see common/log.h). Each is one statement, safe
// in an unbraced if/else.
//
// The function is cut out of the compiler's full signature at compile time: return type,
// parameters and template arguments go, so
//   "int app::Fetcher::Retry(const std::string&)"    =>  "app::Fetcher::Retry"
//   "void app::Wait(T) [with T = int]"                =>  "app::Wait"
// and inside a lambda the enclosing function is named. A log site costs nothing extra at run
// time, and nothing needs destroying at exit.
//
// Thread-safety: as Log::DoLog, callable from any thread at any time.
#ifndef ORVIK_COMMON_LOG_MACROS_H
#define ORVIK_COMMON_LOG_MACROS_H

#include <cstddef>

#include "common/log.h"

namespace orvik::detail {

// Not for direct use: the compile-time pieces of the log macros.

template <std::size_t N>
struct FunctionName {
    char text[N] = {};
};

// The qualified function name in a compiler's signature:
//   "bool orvik::BlockingQueue<T>::Push(const T&, int) [with T = ...]"
//                                                       =>  "orvik::BlockingQueue::Push"
//   "void orvik::Log::SetLevel(orvik::LOG_LEVEL)"         =>  "orvik::Log::SetLevel"
//   "orvik::Class::Member" (MSVC's __FUNCTION__)          =>  "orvik::Class::Member"
//   "orvik::ThreadPool::RunTask(const int&)::<lambda()>"  =>  "orvik::ThreadPool::RunTask"
template <std::size_t N>
constexpr FunctionName<N> QualifiedFunctionName(const char (&signature)[N]) {
    std::size_t end = N - 1;  // the opening parenthesis of the parameters, if any
    int depth = 0;
    for (std::size_t i = 0; i + 1 < N; ++i) {
        const char c = signature[i];
        if (c == '<') {
            ++depth;
        } else if (c == '>') {
            --depth;
        } else if (c == '(' && depth == 0) {
            end = i;
            break;
        }
    }
    std::size_t begin = 0;  // behind the blank that ends the return type, if any
    depth = 0;
    for (std::size_t i = end; i > 0; --i) {
        const char c = signature[i - 1];
        if (c == '>') {
            ++depth;
        } else if (c == '<') {
            --depth;
        } else if (c == ' ' && depth == 0) {
            begin = i;
            break;
        }
    }
    FunctionName<N> name{};
    std::size_t length = 0;
    depth = 0;
    for (std::size_t i = begin; i < end; ++i) {
        const char c = signature[i];
        if (c == '<') {
            ++depth;
        } else if (c == '>') {
            --depth;
        } else if (depth == 0) {
            name.text[length++] = c;
        }
    }
    return name;
}

// Where the base name of a source path begins: behind its last '/' or '\'.
//   "src/app/fetch.cpp"  =>  8 ("fetch.cpp")     "C:\\app\\fetch.cpp"  =>  7     "fetch.cpp"  =>  0
template <std::size_t N>
constexpr std::size_t BaseNameOffset(const char (&path)[N]) {
    std::size_t offset = 0;
    for (std::size_t i = 0; i + 1 < N; ++i) {
        if (path[i] == '/' || path[i] == '\\') {
            offset = i + 1;
        }
    }
    return offset;
}

}  // namespace orvik::detail

#if defined(_MSC_VER) && !defined(__clang__)
#define ORVIK_FUNCTION_SIGNATURE __FUNCTION__
#else
#define ORVIK_FUNCTION_SIGNATURE __PRETTY_FUNCTION__
#endif

// Declares `orvikLogFunction`, the qualified name of the enclosing function, as a constant of
// the enclosing block.
#define ORVIK_DETAIL_LOG_FUNCTION_NAME       \
    static constexpr auto orvikLogFunction = \
        ::orvik::detail::QualifiedFunctionName(ORVIK_FUNCTION_SIGNATURE)

// One log call with the site's base file name, line and function; `...` is the DoLog form's
// arguments from the format on, preceded by the tag for the tagged form.
#define ORVIK_DETAIL_LOG_AT_SITE(level, ...)                     \
    do {                                                         \
        ORVIK_DETAIL_LOG_FUNCTION_NAME;                          \
        static constexpr ::std::size_t orvikLogFileOffset =      \
            ::orvik::detail::BaseNameOffset(__FILE__);           \
        ::orvik::Log::GetInstance().DoLog((level), __VA_ARGS__); \
    } while (false)

#define ORVIK_DETAIL_SITE &__FILE__[orvikLogFileOffset], __LINE__, orvikLogFunction.text

// ORVIK_LOG_ERROR(fmt, ...), and the same for WARN, INFO and DEBUG.
#define ORVIK_LOG_ERROR(...) \
    ORVIK_DETAIL_LOG_AT_SITE(::orvik::LOG_LEVEL_ERROR, ORVIK_DETAIL_SITE, __VA_ARGS__)
#define ORVIK_LOG_WARN(...) \
    ORVIK_DETAIL_LOG_AT_SITE(::orvik::LOG_LEVEL_WARN, ORVIK_DETAIL_SITE, __VA_ARGS__)
#define ORVIK_LOG_INFO(...) \
    ORVIK_DETAIL_LOG_AT_SITE(::orvik::LOG_LEVEL_INFO, ORVIK_DETAIL_SITE, __VA_ARGS__)
#define ORVIK_LOG_DEBUG(...) \
    ORVIK_DETAIL_LOG_AT_SITE(::orvik::LOG_LEVEL_DEBUG, ORVIK_DETAIL_SITE, __VA_ARGS__)

// ORVIK_LOG_TAGGED(level, tag, fmt, ...): the tagged form, which also reaches the host callback.
#define ORVIK_LOG_TAGGED(level, tag, ...) \
    ORVIK_DETAIL_LOG_AT_SITE((level), (tag), ORVIK_DETAIL_SITE, __VA_ARGS__)

#endif  // ORVIK_COMMON_LOG_MACROS_H
