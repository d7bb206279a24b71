#include "common/native_path.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <ios>
#include <string>

#include "common/file_utils.h"
#include "common/path.h"
#include "support/temp_directory.h"

namespace orvik {
namespace {

using testing::TempDirectory;
using testing::WorkingDirectory;

const std::string kLongName(300, 'n');  // long enough for the long-path prefix

// Native text in, the Path's Windows text and anchoring, and the native text it gives back.
TEST(NativePathTest, NativeTextBecomesAPathAndComesBack) {
    struct Case {
        std::string native;
        std::string windows;
        bool absolute;
        std::string back;
    };
#ifdef _WIN32
    const Case cases[] = {
        {"C:\\tmp\\x", "C:\\tmp\\x", true, "C:\\tmp\\x"},
        {"out/x", "out\\x", false, "out\\x"},
        {"\\\\srv\\s\\f", "\\\\srv\\s\\f", true, "\\\\srv\\s\\f"},
        {"C:\\" + kLongName, "\\\\?\\C:\\" + kLongName, true, "\\\\?\\C:\\" + kLongName},
        {"", "", false, ""},
    };
#else
    const Case cases[] = {
        {"/tmp/x", "C:\\tmp\\x", true, "/tmp/x"},
        {"/", "C:\\", true, "/"},
        {"//tmp//x/", "C:\\tmp\\x", true, "/tmp/x"},
        {"/" + kLongName, "\\\\?\\C:\\" + kLongName, true, "/" + kLongName},
        {"out/x", "out\\x", false, "out/x"},
        {"../x", "..\\x", false, "../x"},
        {"C:x", ".\\C:x", false, "./C:x"},              // a name, not drive C:'s x
        {"\\\\srv\\s", ".\\srv\\s", false, "./srv/s"},  // names, not a share
        {"", "", false, ""},
    };
#endif
    for (const Case& c : cases) {
        SCOPED_TRACE(c.native);
        const Path path = PathFromNative(c.native);
        EXPECT_EQ(path.Str(Path::PATH_TYPE_WINDOWS), c.windows);
        EXPECT_EQ(path.IsAbsolute(), c.absolute);
        EXPECT_EQ(PathToNative(path), c.back);
    }
}

// Windows text the library gives back, as native text; what this system cannot reach is empty.
TEST(NativePathTest, LibraryPathsBecomeNativeTextOrEmptyWhenUnreachable) {
    Path posixParsed;
    posixParsed.Set("/a/b", Path::PATH_TYPE_POSIX);
#ifdef _WIN32
    EXPECT_EQ(PathToNative(Path("c:/tmp/x")), "c:\\tmp\\x");
    EXPECT_EQ(PathToNative(Path("D:\\x")), "D:\\x");
    EXPECT_EQ(PathToNative(posixParsed), "/a\\b");
#else
    const std::pair<std::string, std::string> cases[] = {
        {"C:\\tmp\\x", "/tmp/x"},
        {"c:/tmp/x", "/tmp/x"},
        {"\\\\?\\C:\\tmp", "/tmp"},
        {"C:x", "x"},
        {"D:\\x", ""},
        {"\\\\srv\\share\\x", ""},
        {"UNC\\srv\\s", ""},
        {"\\\\?\\UNC\\srv\\s", ""},
    };
    for (const auto& [windows, native] : cases) {
        SCOPED_TRACE(windows);
        EXPECT_EQ(PathToNative(Path(windows)), native);
    }
    EXPECT_EQ(PathToNative(posixParsed), "/a/b");
#endif
    EXPECT_EQ(PathToNative(Path()), "");
}

// The library's file calls and other programs meet at the same file through the bridge.
TEST(NativePathTest, AFileWrittenThroughTheBridgeIsWhereTheNativeTextSays) {
    TempDirectory dir;
    const std::string native = (dir.Native() / "x.bin").string();
    const Path path = PathFromNative(native);
    ASSERT_EQ(
        FileUtils::WriteFile("data", path.Str(Path::PATH_TYPE_WINDOWS), std::ios_base::binary),
        FILE_OPT_SUCCESS);
    EXPECT_EQ(std::filesystem::file_size(native), 4u);
    EXPECT_EQ(PathToNative(path), native);

    WorkingDirectory inside(dir.Native());
    EXPECT_EQ(PathToNative(Path::Getcwd()), std::filesystem::current_path().string());
}

}  // namespace
}  // namespace orvik
