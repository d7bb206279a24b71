// Conditions that tests arrange: Windows offers no per-process file size limit and no named
// pipes in the file system's name space, so the tests that need them skip.
#include <cstdint>
#include <memory>
#include <string>

#include "platform/platform.h"

namespace orvik::platform {

bool LimitFileSizeForTesting(std::uint64_t) {
    return false;
}

bool MakeFifoForTesting(const std::string&) {
    return false;
}

std::shared_ptr<void> OpenFifoReaderForTesting(const std::string&) {
    return nullptr;
}

}  // namespace orvik::platform
