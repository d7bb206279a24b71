// Checks the library's own log lines byte for byte, except for the source line number, which
// moves with every edit: MaskLineNumbers(console.Text()) == LibraryLine(...) under FixedLogTime.
#ifndef ORVIK_COMMON_TESTS_SUPPORT_LIBRARY_LOG_LINES_H
#define ORVIK_COMMON_TESTS_SUPPORT_LIBRARY_LOG_LINES_H

#include <regex>
#include <string>

#include "support/fake_clock.h"

namespace orvik::testing {

// Holds the wall clock at 2024-07-22 19:58:48.007 local time.
struct FixedLogTime : FakeClock {
    FixedLogTime() : FakeClock(AtMillis(LocalMillis(2024, 7, 22, 19, 58, 48, 7))) {}
};

// The console line of `func` in `file` (below native-libs/orvik-common), line number "#".
inline std::string LibraryLine(const std::string& level, const std::string& file,
                               const std::string& func, const std::string& message) {
    return "OV_LOG:[" + level + "][2024-07-22 19:58:48.7][" + level +
           "][native-libs/orvik-common/" + file + ":#][" + func + "] " + message + "\n";
}

// Replaces the line number of every "[file.cpp:123]" by "#".
inline std::string MaskLineNumbers(const std::string& text) {
    return std::regex_replace(text, std::regex(R"(\.cpp:[0-9]+\])"), ".cpp:#]");
}

}  // namespace orvik::testing

#endif  // ORVIK_COMMON_TESTS_SUPPORT_LIBRARY_LOG_LINES_H
