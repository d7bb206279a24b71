// System facts on POSIX systems, from uname().
#include <sys/utsname.h>

#include <climits>
#include <cstring>

#include "platform/platform.h"

namespace orvik::platform {
namespace {

std::optional<utsname> Uname() {
    utsname names{};
    if (uname(&names) != 0) {
        return std::nullopt;
    }
    return names;
}

// Reads the decimal number at `text`, moving `text` behind it. False if there is no digit or
// the number does not fit an unsigned.
bool ReadNumber(const char*& text, unsigned& value) {
    if (*text < '0' || *text > '9') {
        return false;
    }
    value = 0;
    for (; *text >= '0' && *text <= '9'; ++text) {
        const unsigned digit = static_cast<unsigned>(*text - '0');
        if (value > (UINT_MAX - digit) / 10) {
            return false;
        }
        value = value * 10 + digit;
    }
    return true;
}

}  // namespace

std::string NativeSystemName() {
    const std::optional<utsname> names = Uname();
    return names ? std::string(names->sysname) : std::string();
}

std::string NativeProcessorArchitecture() {
    const std::optional<utsname> names = Uname();
    if (!names) {
        return std::string();
    }
    // uname's spellings differ between systems: Linux says "x86_64" and "aarch64", the BSDs
    // and macOS say "amd64" and "arm64", 32-bit systems name the exact processor generation.
    const char* machine = names->machine;
    const auto is = [machine](const char* name) { return std::strcmp(machine, name) == 0; };
    if (is("x86_64") || is("amd64")) {
        return "x64";
    }
    if (is("aarch64") || is("arm64")) {
        return "arm64";
    }
    if (is("i386") || is("i486") || is("i586") || is("i686") || is("x86")) {
        return "x86";
    }
    if (std::strncmp(machine, "arm", 3) == 0) {
        return "arm";
    }
    return std::string(machine);
}

std::optional<std::pair<unsigned, unsigned>> NativeSystemVersion() {
    const std::optional<utsname> names = Uname();
    if (!names) {
        return std::nullopt;
    }
    // The release begins with "major.minor", whatever follows ("6.1.0-18-amd64", "23.1.0").
    const char* text = names->release;
    unsigned major = 0;
    unsigned minor = 0;
    if (!ReadNumber(text, major) || *text != '.' || !ReadNumber(++text, minor)) {
        return std::nullopt;
    }
    return std::make_pair(major, minor);
}

}  // namespace orvik::platform
