// The one logging macro of the library's own modules.
//
//   ORVIK_LOG(LOG_LEVEL_WARN, "queue full or timeout");
//   ORVIK_LOG(LOG_LEVEL_FATAL, "task exception: %s", error.what());
//
// It logs through the plain form of Log::DoLog with the call site's file and line and the
// function named as "orvik::Class::Member" on every compiler: the name is cut out of the
// compiler's full signature at compile time (return type, parameters and template arguments
// removed), so a log site costs nothing extra at run time and nothing needs destroying at
// unload.
#ifndef ORVIK_COMMON_INTERNAL_LOG_H
#define ORVIK_COMMON_INTERNAL_LOG_H

#include <cstddef>

#include "common/log.h"

namespace orvik::detail {

template <std::size_t N>
struct FunctionName {
    char text[N] = {};
};

// "bool orvik::BlockingQueue<T>::Push(const T&, int) [with T = ...]" =>
// "orvik::BlockingQueue::Push" "void orvik::Log::SetLevel(orvik::LOG_LEVEL)" =>
// "orvik::Log::SetLevel" "orvik::Class::Member" (MSVC's __FUNCTION__)                         =>
// "orvik::Class::Member" Inside a lambda the enclosing function is named.
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

}  // namespace orvik::detail

#if defined(_MSC_VER) && !defined(__clang__)
#define ORVIK_FUNCTION_SIGNATURE __FUNCTION__
#else
#define ORVIK_FUNCTION_SIGNATURE __PRETTY_FUNCTION__
#endif

#define ORVIK_LOG(level, ...)                                                                 \
    do {                                                                                      \
        static constexpr auto orvikLogFunction =                                              \
            ::orvik::detail::QualifiedFunctionName(ORVIK_FUNCTION_SIGNATURE);                 \
        ::orvik::Log::GetInstance().DoLog((level), __FILE__, __LINE__, orvikLogFunction.text, \
                                          __VA_ARGS__);                                       \
    } while (false)

#endif  // ORVIK_COMMON_INTERNAL_LOG_H
