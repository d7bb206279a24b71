// The one logging macro of the library's own modules.
//
//   ORVIK_LOG(LOG_LEVEL_WARN, "queue full or timeout");
//   ORVIK_LOG(LOG_LEVEL_FATAL, "task exception: %s", error.what());
//
// It logs through the plain form of Log::DoLog with the call site's file and line and the
// function named as "orvik::Class::Member" on every compiler: the name is cut out of the
// compiler's full signature at compile time, as the published macros of common/log_macros.h
// do. Unlike those, it passes the file as the compiler names it (relative to the repository
// root), not its base name.
#ifndef ORVIK_COMMON_INTERNAL_LOG_H
#define ORVIK_COMMON_INTERNAL_LOG_H

#include "common/log_macros.h"

#define ORVIK_LOG(level, ...)                                                                 \
    do {                                                                                      \
        ORVIK_DETAIL_LOG_FUNCTION_NAME;                                                       \
        ::orvik::Log::GetInstance().DoLog((level), __FILE__, __LINE__, orvikLogFunction.text, \
                                          __VA_ARGS__);                                       \
    } while (false)

#endif  // ORVIK_COMMON_INTERNAL_LOG_H
