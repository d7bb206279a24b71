// A fresh, empty directory for one test, removed with its contents when the object goes. Named
// both as the system's path and as the Windows path text the library takes ("C:\tmp\orvik-...":
// on POSIX systems the file system is the drive C:).
#ifndef ORVIK_COMMON_TESTS_SUPPORT_TEMP_DIRECTORY_H
#define ORVIK_COMMON_TESTS_SUPPORT_TEMP_DIRECTORY_H

#include <algorithm>
#include <filesystem>
#include <random>
#include <string>
#include <system_error>

namespace orvik::testing {

class TempDirectory {
public:
    TempDirectory() {
        std::random_device random;
        const auto base = std::filesystem::temp_directory_path();
        do {
            path_ = base / ("orvik-test-" + std::to_string(random()) + std::to_string(random()));
        } while (!std::filesystem::create_directory(path_));
    }
    ~TempDirectory() { std::filesystem::remove_all(path_, ignored_); }
    const std::filesystem::path& Native() const { return path_; }

    // `relative` ("a/b", "/" as separator) under the directory, as Windows path text.
    std::string Windows(const std::string& relative = {}) const {
        return WindowsForm(relative.empty() ? path_ : path_ / relative);
    }

    static std::string WindowsForm(const std::filesystem::path& native) {
        std::string text = native.string();
#ifndef _WIN32
        std::replace(text.begin(), text.end(), '/', '\\');
        text.insert(0, "C:");
#endif
        return text;
    }

private:
    std::filesystem::path path_;
    std::error_code ignored_;
};

// Changes the working directory for the lifetime of the object.
class WorkingDirectory {
public:
    explicit WorkingDirectory(const std::filesystem::path& directory)
        : previous_(std::filesystem::current_path()) {
        std::filesystem::current_path(directory);
    }
    ~WorkingDirectory() { std::filesystem::current_path(previous_, ignored_); }

private:
    std::filesystem::path previous_;
    std::error_code ignored_;
};

}  // namespace orvik::testing

#endif  // ORVIK_COMMON_TESTS_SUPPORT_TEMP_DIRECTORY_H
