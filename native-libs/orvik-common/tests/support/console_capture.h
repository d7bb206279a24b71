// Captures std::cout for the lifetime of the object; for single-threaded test bodies only.
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
    ConsoleCapture(const ConsoleCapture&) = delete;
    ConsoleCapture& operator=(const ConsoleCapture&) = delete;

    std::string Text() const { return captured_.str(); }
    void Clear() { captured_.str(std::string()); }

private:
    std::ostringstream captured_;
    std::streambuf* previous_;
};

}  // namespace orvik::testing

#endif  // ORVIK_COMMON_TESTS_SUPPORT_CONSOLE_CAPTURE_H
