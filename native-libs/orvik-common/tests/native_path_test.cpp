#include "common/native_path.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "common/file_utils.h"
#include "support/temp_directory.h"

namespace orvik {
namespace {

constexpr Path::PathType kWin = Path::PATH_TYPE_WINDOWS;
const std::string kLong(300, 'n');  // long enough for the long-path prefix

TEST(NativePathTest, NativeTextBecomesAPathAndComesBack) {
    const std::string cases[][3] = {
#ifdef _WIN32
        {"C:\\tmp\\x", "C:\\tmp\\x", "C:\\tmp\\x"},
        {"\\\\srv\\s\\f", "\\\\srv\\s\\f", "\\\\srv\\s\\f"},
        {"C:\\" + kLong, "\\\\?\\C:\\" + kLong, "\\\\?\\C:\\" + kLong},
        {"out/x", "out\\x", "out\\x"},
#else
        {"/tmp/x", "C:\\tmp\\x", "/tmp/x"},
        {"/", "C:\\", "/"},
        {"/" + kLong, "\\\\?\\C:\\" + kLong, "/" + kLong},
        {"out/x", "out\\x", "out/x"},
        {"C:x", ".\\C:x", "./C:x"},              // a name, not drive C:'s x
        {"\\\\srv\\s", ".\\srv\\s", "./srv/s"},  // names, not a share
#endif
        {"", "", ""}};
    for (const auto& [native, windows, back] : cases) {
        SCOPED_TRACE(native);
        EXPECT_EQ(PathFromNative(native).Str(kWin), windows);
        EXPECT_EQ(PathToNative(PathFromNative(native)), back);
    }
    EXPECT_EQ(PathToNative(Path()), "");  // and what this system cannot reach
    EXPECT_EQ(PathToNative(Path("D:\\x")), testing::kWindows ? "D:\\x" : "");
    EXPECT_EQ(PathToNative(Path("C:x")), testing::kWindows ? "C:x" : "x");
    EXPECT_TRUE(testing::kWindows || PathToNative(Path("\\\\srv\\share\\x")).empty());
}

// The library's file calls and other programs meet at the same file through the bridge.
TEST(NativePathTest, AFileWrittenThroughTheBridgeIsWhereTheNativeTextSays) {
    testing::TempDirectory dir;
    const std::string native = (dir.Native() / "x.bin").string();
    ASSERT_EQ(FileUtils::WriteFile("data", PathFromNative(native).Str(kWin), 0), FILE_OPT_SUCCESS);
    EXPECT_EQ(std::filesystem::file_size(native), 4u);
}

}  // namespace
}  // namespace orvik
