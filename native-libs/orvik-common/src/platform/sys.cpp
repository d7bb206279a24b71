// The system facts of the platform layer that are the same on every system: the dispatch to
// the test seam in front of each system's own answers.
#include <atomic>

#include "platform/platform.h"

namespace orvik::platform {
namespace {

std::atomic<SystemFactsSeam*> installedSeam{nullptr};

}  // namespace

std::string SystemName() {
    if (SystemFactsSeam* seam = installedSeam.load(std::memory_order_acquire)) {
        return seam->SystemName();
    }
    return NativeSystemName();
}

std::string ProcessorArchitecture() {
    if (SystemFactsSeam* seam = installedSeam.load(std::memory_order_acquire)) {
        return seam->ProcessorArchitecture();
    }
    return NativeProcessorArchitecture();
}

std::optional<std::pair<unsigned, unsigned>> SystemVersion() {
    if (SystemFactsSeam* seam = installedSeam.load(std::memory_order_acquire)) {
        return seam->SystemVersion();
    }
    return NativeSystemVersion();
}

void SetSystemFactsSeamForTesting(SystemFactsSeam* seam) {
    installedSeam.store(seam, std::memory_order_release);
}

}  // namespace orvik::platform
