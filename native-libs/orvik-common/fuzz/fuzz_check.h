// Shared by the harnesses: a property check that stops the run, and a quiet log.
#ifndef ORVIK_COMMON_FUZZ_CHECK_H
#define ORVIK_COMMON_FUZZ_CHECK_H

#include <cstdio>
#include <cstdlib>

#include "common/log.h"

// A broken property is a crash for libFuzzer: it stores the input and fails the run.
#define FUZZ_CHECK(condition)                                                                     \
    do {                                                                                          \
        if (!(condition)) {                                                                       \
            std::fprintf(stderr, "%s:%d: property broken: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                         \
        }                                                                                         \
    } while (0)

// The library's warning lines (StrToll*, empty UTF arguments) would flood the console.
inline void QuietLibraryLog() {
    orvik::Log::GetInstance().SetLogEnabled(false);
}

#endif  // ORVIK_COMMON_FUZZ_CHECK_H
