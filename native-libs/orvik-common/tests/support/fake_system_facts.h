// System facts for tests (what the system "tells": set them before the code under test runs),
// installed through the platform layer's seam while the object lives.
#ifndef ORVIK_COMMON_TESTS_SUPPORT_FAKE_SYSTEM_FACTS_H
#define ORVIK_COMMON_TESTS_SUPPORT_FAKE_SYSTEM_FACTS_H

#include <optional>
#include <string>

#include "platform/platform.h"

namespace orvik::testing {

class FakeSystemFacts : public platform::SystemFactsSeam {
public:
    FakeSystemFacts() { platform::SetSystemFactsSeamForTesting(this); }
    ~FakeSystemFacts() override { platform::SetSystemFactsSeamForTesting(nullptr); }

    std::string SystemName() override { return name; }
    std::string ProcessorArchitecture() override { return architecture; }
    std::optional<std::pair<unsigned, unsigned>> SystemVersion() override { return version; }

    std::string name = "Windows", architecture = "x64";
    std::optional<std::pair<unsigned, unsigned>> version = std::make_pair(10u, 0u);
};

}  // namespace orvik::testing

#endif  // ORVIK_COMMON_TESTS_SUPPORT_FAKE_SYSTEM_FACTS_H
