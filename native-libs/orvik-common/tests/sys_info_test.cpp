#include "common/sys_info.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>

#include "platform/platform.h"
#include "support/console_capture.h"
#include "support/fake_system_facts.h"

namespace orvik {
namespace {

using testing::ConsoleCapture;
using testing::FakeSystemFacts;

std::shared_ptr<ClientDeviceInfo> CallersInfo() {
    return std::make_shared<ClientDeviceInfo>(
        ClientDeviceInfo{"old arch", "my laptop", "old version", "old model"});
}

auto Fields(const ClientDeviceInfo& i) {
    return std::make_tuple(i.osArch, i.deviceName, i.osVersion, i.osManufacturingModel);
}

TEST(SysInfoTest, ReplacesTheThreeFieldsWithWhatTheSystemTells) {
    {
        FakeSystemFacts system;
        system.version = std::make_pair(4294967295u, 12u);
        auto info = CallersInfo();
        ConsoleCapture console;
        ASSERT_TRUE(SysInfo::GetClientOsInfo(info));
        EXPECT_EQ(Fields(*info), Fields({"Windows", "my laptop", "4294967295.12", "x64"}));
        EXPECT_EQ(console.Text(), "");
    }
    // The real system, twice: a second call replaces, it does not append.
    auto info = CallersInfo();
    ASSERT_TRUE(SysInfo::GetClientOsInfo(info));
    ASSERT_TRUE(SysInfo::GetClientOsInfo(info));
    EXPECT_EQ(info->osArch, platform::SystemName());
    EXPECT_EQ(info->osManufacturingModel, platform::ProcessorArchitecture());
    const auto version = platform::SystemVersion();
    ASSERT_TRUE(version.has_value());
    EXPECT_EQ(info->osVersion,
              std::to_string(version->first) + "." + std::to_string(version->second));
#ifdef _WIN32
    // What a 64-bit Windows build reports of itself.
    EXPECT_EQ(info->osArch, "Windows");
    EXPECT_EQ(info->osManufacturingModel, "x64");
#endif
}

TEST(SysInfoTest, FirstFailureEndsTheCallWithItsLogLine) {
    const struct Case {
        const char* failing;
        void (*breakIt)(FakeSystemFacts&);
        ClientDeviceInfo expected;
    } cases[] = {
        {"GetOSArch",
         [](FakeSystemFacts& s) { s.name.clear(); },
         {"old arch", "my laptop", "old version", "old model"}},
        {"GetOSVersion",
         [](FakeSystemFacts& s) { s.version.reset(); },
         {"Windows", "my laptop", "old version", "old model"}},
        {"GetOSManufacturingModel",
         [](FakeSystemFacts& s) { s.architecture.clear(); },
         {"Windows", "my laptop", "10.0", "old model"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.failing);
        FakeSystemFacts system;
        c.breakIt(system);
        auto info = CallersInfo();
        ConsoleCapture console;

        EXPECT_FALSE(SysInfo::GetClientOsInfo(info));
        EXPECT_EQ(Fields(*info), Fields(c.expected));

        const std::string text = console.Text();
        const std::string tail =
            std::string("][orvik::SysInfo::GetClientOsInfo] ") + c.failing + " Failed\n";
        EXPECT_EQ(text.rfind("OV_LOG:[ERROR][", 0), 0u) << text;
        ASSERT_GE(text.size(), tail.size()) << text;
        EXPECT_EQ(text.substr(text.size() - tail.size()), tail) << text;
        EXPECT_EQ(text.find('\n'), text.size() - 1) << "one line only: " << text;
    }
}

}  // namespace
}  // namespace orvik
