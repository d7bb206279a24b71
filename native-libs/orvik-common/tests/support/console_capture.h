// Captures std::cout while it lives (not copyable, as its stream is not); single thread only.
#ifndef ORVIK_COMMON_TESTS_SUPPORT_CONSOLE_CAPTURE_H
#define ORVIK_COMMON_TESTS_SUPPORT_CONSOLE_CAPTURE_H

#include <iostream>
#include <sstream>
#include <string>

namespace orvik::testing {

class ConsoleCapture {
public:
    ConsoleCapture() : previous_(std::cout.rdbuf(captured_.rdbuf())) {}
    ~ConsoleCapture() { std::cout.rdbuf(previous_); }
    std::string Text() const { return captured_.str(); }

private:
    std::ostringstream captured_;
    std::streambuf* previous_;
};

}  // namespace orvik::testing

#endif  // ORVIK_COMMON_TESTS_SUPPORT_CONSOLE_CAPTURE_H
