#include "common/path.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/temp_directory.h"

namespace orvik {
namespace {

using Tokens = std::vector<std::string>;
using testing::TempDirectory;
using testing::WorkingDirectory;
constexpr Path::PathType kWin = Path::PATH_TYPE_WINDOWS;
constexpr Path::PathType kPosix = Path::PATH_TYPE_POSIX;

// The tokens of a path, peeled off from the end with Filename and ParentPath.
Tokens TokensOf(Path path) {
    Tokens tokens;
    while (!path.Empty()) {
        tokens.insert(tokens.begin(), path.Filename());
        path = path.ParentPath();
    }
    return tokens;
}

Path Parsed(const std::string& text, Path::PathType type) {
    Path path;
    path.Set(text, type);
    return path;
}

// A text parsed with `type`, and what comes of it: tokens, the anchor, Str(type).
struct Case {
    Path::PathType type;
    std::string input;
    Tokens tokens;
    bool absolute;
    std::string str;
};

TEST(PathParseTest, Forms) {
    const Case cases[] = {
        {kWin, "", {""}, false, ""},
        {kWin, "a//b\\\\c/", {"a", "b", "c"}, false, "a\\b\\c"},
        {kWin, "/", {}, false, ""},
        {kWin, "C:", {"C:"}, false, "C:"},
        {kWin, "C:\\", {"C:", ""}, true, "C:\\"},
        {kWin, "C:/x/y/", {"C:", "x", "y"}, true, "C:\\x\\y"},
        {kWin, "1:\\a", {"1:", "a"}, false, "1:\\a"},
        {kWin, "\\\\srv\\share\\f", {"srv", "share", "f"}, true, "\\\\srv\\share\\f"},
        {kWin, "\\\\srv", {"srv"}, false, "srv"},
        {kWin, "\\\\srv\\", {"srv"}, true, "\\\\srv"},
        {kWin, "UNC\\srv\\share", {"srv", "share"}, true, "\\\\srv\\share"},
        {kWin, "unc\\srv", {"unc", "srv"}, false, "unc\\srv"},
        {kWin, "\\\\?\\C:\\a", {"C:", "a"}, true, "C:\\a"},
        {kWin, "\\\\?\\UNC\\srv\\s", {"srv", "s"}, true, "\\\\srv\\s"},
        {kWin, "\\\\?\\", {""}, false, ""},
        {kWin, "\\\\?\\\\\\?\\C:\\a", {"?", "C:", "a"}, true, "\\\\?\\C:\\a"},
        {kWin, "//srv/share", {"srv", "share"}, false, "srv\\share"},
        {kPosix, "/", {}, true, "/"},
        {kPosix, "/a/b/", {"a", "b"}, true, "/a/b"},
        {kPosix, "a\\b", {"a\\b"}, false, "a\\b"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.input);
        const Path path = Parsed(c.input, c.type);
        EXPECT_EQ(TokensOf(path), c.tokens);
        EXPECT_EQ(path.IsAbsolute(), c.absolute);
        EXPECT_EQ(path.Str(c.type), c.str);
    }
}

TEST(PathParseTest, TextBehindANulReachesNoTokenAndSetReplacesTokens) {
    EXPECT_EQ(TokensOf(Path(std::string("ab\0cd", 5))), Tokens{"ab"});
    EXPECT_EQ(TokensOf(Path(std::string("a/\0", 3))), (Tokens{"a", ""}));
    for (const Path::PathType type : {kWin, kPosix}) {  // a Set that throws changes nothing
        Path path("\\\\srv\\share\\f");
        try {
            path.Set(std::string("C:\\x\0y/z", 8), type);
            ADD_FAILURE() << "no exception";
        } catch (const std::out_of_range& error) {
            EXPECT_STREQ(error.what(), "invalid string position");
        }
        EXPECT_EQ(path.Str(kWin), "\\\\srv\\share\\f");
    }
    // Set replaces the tokens, and a POSIX Set keeps the share flag.
    Path path("\\\\srv\\share\\f");
    path.Set("/a/b", kPosix);
    EXPECT_EQ(path.Str(kWin), "/a\\b");  // stored type decides the head, argument the separator
    // ParentPath writes as a Windows path, which shows the share flag left from before.
    EXPECT_EQ(path.ParentPath().Str(kWin), "\\\\a");
}

TEST(PathStrTest, LongPathPrefixAboveTheLegacyLimit) {
    const std::string at259 = "C:\\" + std::string(256, 'n');
    const std::string at260 = "C:\\" + std::string(257, 'n');
    const std::string share254 = "\\\\srv\\" + std::string(254, 'n');
    EXPECT_EQ(Path(at259).Str(kWin), at259);
    EXPECT_EQ(Path(at260).Str(kWin), "\\\\?\\" + at260);
    EXPECT_EQ(Path(at260).Str(kPosix), "\\\\?\\C:/" + std::string(257, 'n'));
    EXPECT_EQ(Path(share254.substr(0, 259)).Str(kWin), share254.substr(0, 259));
    EXPECT_EQ(Path(share254).Str(kWin), "\\\\?\\UNC\\" + share254.substr(2));
    EXPECT_EQ(Path(std::string(400, 'r')).Str(kWin), std::string(400, 'r'));  // relative

    // The wide entrances convert UTF-8.
    Path path(L"C:\\\u00e9\\\U0001F600");
    EXPECT_EQ(path.Str(kWin), "C:\\\xC3\xA9\\\xF0\x9F\x98\x80");
    EXPECT_EQ(path.Wstr(kWin), L"C:\\\u00e9\\\U0001F600");
    path = std::wstring(L"a/b");
    EXPECT_EQ(path.Str(kWin), "a\\b");
}

// A move takes the tokens and leaves the type and flags.
TEST(PathTokenOpsTest, MoveParentFilenameExtensionJoinAndCompare) {
    Path source = Parsed("/a/b", kPosix);
    Path moved(std::move(source));
    EXPECT_EQ(moved.Str(kPosix), "/a/b");
    EXPECT_EQ(source.Str(kWin), "/");  // NOLINT(bugprone-use-after-move): the state is specified
    Path& self = moved;
    moved = std::move(self);
    EXPECT_EQ(moved.Str(kPosix), "/a/b");
    Path relative("a");
    relative = Path("\\\\srv\\share");  // a move assignment takes the flags as well
    EXPECT_EQ(relative.Str(kWin), "\\\\srv\\share");

    const Case parents[] = {
        {kWin, "a", {}, false, ""},
        {kWin, "C:\\x", {"C:"}, true, "C:"},
        {kWin, "\\\\srv\\share", {"srv"}, true, "\\\\srv"},
        {kPosix, "/", {}, true, ""}};  // the result is a Windows path: no "/" head
    for (const Case& c : parents) {
        SCOPED_TRACE(c.input);
        const Path parent = Parsed(c.input, c.type).ParentPath();
        EXPECT_EQ(TokensOf(parent), c.tokens);
        EXPECT_EQ(parent.IsAbsolute(), c.absolute);
        EXPECT_EQ(parent.Str(kWin), c.str);
    }
    EXPECT_EQ(Path().ParentPath().Str(kWin), "..");

    const std::string names[][3] = {{"a.tar.gz", "a.tar.gz", "gz"},
                                    {"dir/.profile", ".profile", "profile"},
                                    {"a.", "a.", ""},
                                    {"C:\\", "", ""}};
    for (const auto& n : names) {
        SCOPED_TRACE(n[0]);
        EXPECT_EQ(Path(n[0]).Filename(), n[1]);
        EXPECT_EQ(Path(n[0]).Extension(), n[2]);
    }
    EXPECT_EQ(Path().Extension(), "");

    EXPECT_EQ((Path("C:\\a") / Path("b")).Str(kWin), "C:\\a\\b");
    EXPECT_EQ((Path("a") / Path("C:\\b")).Str(kWin), "a");
    EXPECT_EQ((Path("a") / Parsed("b", kPosix)).Str(kWin), "a");
    EXPECT_EQ((Path("C:\\") / Path("b")).Str(kWin), "C:\\\\b");

    EXPECT_EQ(Path("a\\b"), Path("\\\\a\\b"));
    EXPECT_EQ(Path("a/b"), Parsed("a/b", kPosix));
    EXPECT_NE(Path("a/b"), Path("a/B"));
}

// Long levels on Windows, which SHCreateDirectory (behind MakeDirs) refuses, are file_utils_test's.
TEST(PathFileSystemTest, QueriesAbsoluteGetcwdAndMakeDirs) {
    TempDirectory temp;
    const WorkingDirectory inside(temp.Native());
    std::filesystem::create_directory("dir");
    std::ofstream("file", std::ios::binary) << std::string(5, '\0');
    EXPECT_EQ(Path("file").FileSize(), 5u);
    EXPECT_EQ(Path("missing").FileSize(), 0u);
    EXPECT_FALSE(Path("missing").Exists() || Path("").Exists());
    EXPECT_TRUE(Parsed(temp.Native().string() + "/dir", kPosix).IsDirectory());

    const Path cwd = Path::Getcwd();
    EXPECT_EQ(cwd.Str(kWin), temp.Windows());
    // Text alone: nothing of this exists.
    EXPECT_EQ(Path("x\\..\\y\\.\\z").Absolute(), cwd / Path("y\\z"));
    EXPECT_EQ(Parsed("/a/./b", kPosix).Absolute().Str(kWin), "C:\\a\\b");
    EXPECT_EQ(Path(temp.Windows() + "\\" + std::string(300, 'd') + "\\..\\x").Absolute(),
              cwd / Path("x"));
    EXPECT_TRUE(Path().Absolute().Empty());  // the system refuses the empty text
    const Path tooLong = Path("C:\\" + std::string(40000, 'l')).Absolute();
    EXPECT_EQ(tooLong.Length(), 1u);  // the path of the empty text
    EXPECT_EQ(tooLong.Str(kWin), "");

    EXPECT_FALSE(MakeDir(Path("a\\b")));  // parent missing
    EXPECT_TRUE(MakeDir(Path(temp.Windows("a"))));
    EXPECT_FALSE(MakeDir(Path("a")));  // exists already
    EXPECT_FALSE(MakeDir(Path()));
    EXPECT_TRUE(MakeDirs(Path("rel/one/two")));
    EXPECT_FALSE(MakeDirs(Path("rel/one")));
    if (!testing::kWindows) {  // beyond the legacy limit
        const std::string deep = std::string(150, 'b') + "\\" + std::string(150, 'c');
        EXPECT_TRUE(MakeDirs(Path(deep)));
        EXPECT_TRUE(MakeDir(Path(deep + "\\leaf")));
    }
}

}  // namespace
}  // namespace orvik
