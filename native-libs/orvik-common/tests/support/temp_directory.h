// A fresh, empty directory for one test, removed with its contents at the end; named as the
// system's path and as Windows path text ("C:\tmp\orvik-...": POSIX's file system is drive C:).
#ifndef ORVIK_COMMON_TESTS_SUPPORT_TEMP_DIRECTORY_H
#define ORVIK_COMMON_TESTS_SUPPORT_TEMP_DIRECTORY_H

#include <algorithm>
#include <filesystem>
#include <random>
#include <string>

namespace orvik::testing {

constexpr bool kWindows = std::filesystem::path::preferred_separator == '\\';

struct TempDirectory {
    TempDirectory() {
        std::random_device random;
        do {
            path_ =
                std::filesystem::temp_directory_path() / ("orvik-test-" + std::to_string(random()));
        } while (!std::filesystem::create_directory(path_));
    }
    ~TempDirectory() { std::filesystem::remove_all(path_, ignored_); }
    const std::filesystem::path& Native() const { return path_; }

    std::string Windows(const std::string& relative = {}) const {  // relative: "a/b", "/" parts
        return WindowsForm(relative.empty() ? path_ : path_ / relative);
    }
    static std::string WindowsForm(const std::filesystem::path& native) {
        std::string text = native.string();
        std::replace(text.begin(), text.end(), '/', '\\');
        return kWindows ? text : "C:" + text;
    }
    std::filesystem::path path_;
    std::error_code ignored_;
};

struct WorkingDirectory {  // changes the working directory for the lifetime of the object
    explicit WorkingDirectory(const std::filesystem::path& d) { std::filesystem::current_path(d); }
    ~WorkingDirectory() { std::filesystem::current_path(previous_, ignored_); }
    const std::filesystem::path previous_ = std::filesystem::current_path();
    std::error_code ignored_;
};

}  // namespace orvik::testing

#endif  // ORVIK_COMMON_TESTS_SUPPORT_TEMP_DIRECTORY_H
