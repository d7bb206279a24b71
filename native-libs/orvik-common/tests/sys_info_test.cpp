#include "common/sys_info.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "support/console_capture.h"
#include "support/fake_system_facts.h"

namespace orvik {
namespace {

// The fields the system tells, in order; the first it does not tell ends the call with one
// error line, and leaves that field and the later ones as the caller had them.
TEST(SysInfoTest, FillsWhatTheSystemTellsUntilTheFirstFailure) {
    const std::string failing[] = {"", "GetOSArch", "GetOSVersion", "GetOSManufacturingModel"};
    const std::string fields[] = {"Windows|me|4294967295.12|x64", "old|me|old|old",
                                  "Windows|me|old|old", "Windows|me|4294967295.12|old"};
    for (int k = 0; k < 4; ++k) {
        SCOPED_TRACE(failing[k]);
        testing::FakeSystemFacts system;
        system.name = k == 1 ? "" : "Windows";
        system.version = k == 2 ? std::nullopt : std::optional(std::pair(4294967295u, 12u));
        system.architecture = k == 3 ? "" : "x64";
        auto i = std::make_shared<ClientDeviceInfo>(ClientDeviceInfo{"old", "me", "old", "old"});
        testing::ConsoleCapture console;
        EXPECT_EQ(SysInfo::GetClientOsInfo(i), k == 0);
        EXPECT_EQ(
            i->osArch + '|' + i->deviceName + '|' + i->osVersion + '|' + i->osManufacturingModel,
            fields[k]);
        const std::string text = console.Text(), tail = "] " + failing[k] + " Failed\n";
        EXPECT_EQ(k == 0 ? text : text.substr(0, 15) + text.substr(text.size() - tail.size()),
                  k == 0 ? "" : "OV_LOG:[ERROR][" + tail);
    }
}

}  // namespace
}  // namespace orvik
