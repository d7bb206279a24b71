// What system the client runs on: SysInfo fills a caller's ClientDeviceInfo with the system's
// name, version and processor architecture, for the stack's libraries to report.
//
// Thread-safety: SysInfo has no state and takes no lock; concurrent calls with different
// ClientDeviceInfo objects are independent.
#ifndef ORVIK_COMMON_SYS_INFO_H
#define ORVIK_COMMON_SYS_INFO_H

#include <memory>
#include <string>

#include "common/export.h"

namespace orvik {

// System texts on the caller's side, owned by the caller through a std::shared_ptr.
// SysInfo writes the three os* fields and nothing else.
struct ClientDeviceInfo {
    // The system's name: "Windows", or "Linux" (what uname reports) elsewhere. Despite the
    // field's name it is no processor architecture.
    std::string osArch;
    // The device's own name, for the caller to fill; SysInfo neither reads nor writes it.
    std::string deviceName;
    // The system's version as "major.minor": "10.0" on Windows 10 and 11, the kernel release's
    // first two numbers elsewhere ("6.1" for "6.1.0-18-amd64").
    std::string osVersion;
    // The processor architecture in Windows' spelling: "x64", "arm64", "x86" or "arm", else
    // the system's own name for it. Despite the field's name it is no device model.
    std::string osManufacturingModel;
};

class ORVIK_COMMON_API SysInfo {
public:
    // Fills osArch, osVersion and osManufacturingModel of `*info`, in that order, each
    // replacing what the field held. `info` must hold an object; it is not checked. Returns
    // true when all three were filled. On the first text the system does not tell, it logs
    // "GetOSArch Failed", "GetOSVersion Failed" or "GetOSManufacturingModel Failed" at
    // LOG_LEVEL_ERROR and returns false: the fields filled before stay filled, the later ones
    // keep what they held.
    static bool GetClientOsInfo(std::shared_ptr<ClientDeviceInfo>& info);

private:
    // Each writes its text to `out`, replacing it, and returns true; or returns false, with
    // `out` untouched, when the system does not tell. Asked anew at every call.
    static bool GetOSArch(std::string& out);
    static bool GetOSVersion(std::string& out);
    static bool GetOSManufacturingModel(std::string& out);
};

}  // namespace orvik

#endif  // ORVIK_COMMON_SYS_INFO_H
