// Symbol publication for orvik-common.
//
// ORVIK_COMMON_API marks exactly the published surface: classes (whole, with their private
// members and virtual tables), free functions and published data members of namespace orvik.
// Everything else is built with hidden visibility and stays inside the library.
//
// Consumers of the shared library need define nothing. A consumer that links the static
// archive (the test suite does) sees ORVIK_COMMON_STATIC through the CMake target.
#ifndef ORVIK_COMMON_EXPORT_H
#define ORVIK_COMMON_EXPORT_H

#if defined(ORVIK_COMMON_STATIC) && !defined(ORVIK_COMMON_BUILDING)
#define ORVIK_COMMON_API
#elif defined(_WIN32)
#if defined(ORVIK_COMMON_BUILDING)
#define ORVIK_COMMON_API __declspec(dllexport)
#else
#define ORVIK_COMMON_API __declspec(dllimport)
#endif
#else
#define ORVIK_COMMON_API __attribute__((visibility("default")))
#endif

// Lets the compiler check printf-style arguments against their format. The positions count
// the implicit object parameter of a member function as 1.
#if defined(__GNUC__) || defined(__clang__)
#define ORVIK_COMMON_PRINTF(formatIndex, firstArgIndex) \
    __attribute__((format(printf, formatIndex, firstArgIndex)))
#else
#define ORVIK_COMMON_PRINTF(formatIndex, firstArgIndex)
#endif

#endif  // ORVIK_COMMON_EXPORT_H
