#include "common/sys_info.h"

#include <optional>
#include <string>
#include <utility>

#include "internal/internal_log.h"
#include "platform/platform.h"

namespace orvik {
namespace {

// Stores a text the system told; an empty one means it did not tell.
bool StoreIfTold(std::string text, std::string& out) {
    if (text.empty()) {
        return false;
    }
    out = std::move(text);
    return true;
}

}  // namespace

bool SysInfo::GetClientOsInfo(std::shared_ptr<ClientDeviceInfo>& info) {
    std::string text;
    if (!GetOSArch(text)) {
        ORVIK_LOG(LOG_LEVEL_ERROR, "GetOSArch Failed");
        return false;
    }
    info->osArch = text;
    if (!GetOSVersion(text)) {
        ORVIK_LOG(LOG_LEVEL_ERROR, "GetOSVersion Failed");
        return false;
    }
    info->osVersion = text;
    if (!GetOSManufacturingModel(text)) {
        ORVIK_LOG(LOG_LEVEL_ERROR, "GetOSManufacturingModel Failed");
        return false;
    }
    info->osManufacturingModel = text;
    return true;
}

bool SysInfo::GetOSArch(std::string& out) {
    return StoreIfTold(platform::SystemName(), out);
}

bool SysInfo::GetOSVersion(std::string& out) {
    const std::optional<std::pair<unsigned, unsigned>> version = platform::SystemVersion();
    if (!version) {
        return false;
    }
    out = std::to_string(version->first) + '.' + std::to_string(version->second);
    return true;
}

bool SysInfo::GetOSManufacturingModel(std::string& out) {
    return StoreIfTold(platform::ProcessorArchitecture(), out);
}

}  // namespace orvik
