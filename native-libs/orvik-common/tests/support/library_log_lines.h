// Checks the library's own log lines byte for byte but for the line number, which moves with
// every edit: MaskLineNumbers(console.Text()) == LibraryLine(...) under FixedLogTime.
#ifndef ORVIK_COMMON_TESTS_SUPPORT_LIBRARY_LOG_LINES_H
#define ORVIK_COMMON_TESTS_SUPPORT_LIBRARY_LOG_LINES_H

#include <string>

#include "support/fake_clock.h"

namespace orvik::testing {

struct FixedLogTime : FakeClock {  // the wall clock held at 2024-07-22 19:58:48.007, local
    FixedLogTime() : FakeClock(AtMillis(LocalMillis(2024, 7, 22, 19, 58, 48, 7))) {}
};

// The console line of `func` in `file` (below native-libs/orvik-common), line number "#".
inline std::string LibraryLine(const std::string& level, const std::string& file,
                               const std::string& func, const std::string& message) {
    return "OV_LOG:[" + level + "][2024-07-22 19:58:48.7][" + level +
           "][native-libs/orvik-common/" + file + ":#][" + func + "] " + message + "\n";
}

// Replaces the line number after every ".cpp:" by "#".
inline std::string MaskLineNumbers(std::string text) {
    for (size_t at = 0; (at = text.find(".cpp:", at)) != std::string::npos; ++at) {
        text.replace(at + 5, text.find_first_not_of("0123456789", at + 5) - at - 5, "#");
    }
    return text;
}

}  // namespace orvik::testing

#endif  // ORVIK_COMMON_TESTS_SUPPORT_LIBRARY_LOG_LINES_H
