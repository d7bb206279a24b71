#include "common/native_path.h"

#include "platform/platform.h"

namespace orvik {

Path PathFromNative(const std::string& native) {
    return Path(platform::PathTextOfNative(native));
}

std::string PathToNative(const Path& path) {
    return platform::NativePathText(path.Str(Path::PATH_TYPE_WINDOWS)).value_or(std::string());
}

}  // namespace orvik
