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

struct TokenizeProbe : Path {
    using Path::Tokenize;
};

TEST(PathParseTest, WindowsForms) {
    struct Case {
        std::string input;
        Tokens tokens;
        bool absolute;
        std::string str;
    };
    const Case cases[] = {
        {"", {""}, false, ""},
        {"a//b\\\\c/", {"a", "b", "c"}, false, "a\\b\\c"},
        {"/a", {"a"}, false, "a"},
        {"/", {}, false, ""},
        {"C:", {"C:"}, false, "C:"},
        {"C:x", {"C:x"}, false, "C:x"},
        {"C:\\", {"C:", ""}, true, "C:\\"},
        {"C:/x/y/", {"C:", "x", "y"}, true, "C:\\x\\y"},
        {"1:\\a", {"1:", "a"}, false, "1:\\a"},
        {"\xC3\x89:\\a", {"\xC3\x89:", "a"}, false, "\xC3\x89:\\a"},
        {"\\\\srv\\share\\f", {"srv", "share", "f"}, true, "\\\\srv\\share\\f"},
        {"\\\\srv", {"srv"}, false, "srv"},
        {"\\\\srv\\", {"srv"}, true, "\\\\srv"},
        {"\\\\", {""}, false, ""},
        {"UNC\\srv\\share", {"srv", "share"}, true, "\\\\srv\\share"},
        {"unc\\srv", {"unc", "srv"}, false, "unc\\srv"},
        {"\\\\?\\C:\\a", {"C:", "a"}, true, "C:\\a"},
        {"\\\\?\\UNC\\srv\\s", {"srv", "s"}, true, "\\\\srv\\s"},
        {"\\\\?\\", {""}, false, ""},
        {"\\\\?\\\\\\?\\C:\\a", {"?", "C:", "a"}, true, "\\\\?\\C:\\a"},
        {"//srv/share", {"srv", "share"}, false, "srv\\share"},
        {"..\\a\\.\\b", {"..", "a", ".", "b"}, false, "..\\a\\.\\b"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.input);
        const Path path(c.input);
        EXPECT_EQ(TokensOf(path), c.tokens);
        EXPECT_EQ(path.IsAbsolute(), c.absolute);
        EXPECT_EQ(path.Str(kWin), c.str);
    }
}

TEST(PathParseTest, PosixForms) {
    struct Case {
        std::string input;
        Tokens tokens;
        bool absolute;
        std::string str;
    };
    const Case cases[] = {
        {"", {""}, false, ""},
        {"/", {}, true, "/"},
        {"/a/b/", {"a", "b"}, true, "/a/b"},
        {"//a", {"a"}, true, "/a"},
        {"a\\b", {"a\\b"}, false, "a\\b"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.input);
        const Path path = Parsed(c.input, kPosix);
        EXPECT_EQ(TokensOf(path), c.tokens);
        EXPECT_EQ(path.IsAbsolute(), c.absolute);
        EXPECT_EQ(path.Str(kPosix), c.str);
    }
}

TEST(PathParseTest, TokenizeCollapsesRunsAndKeepsOneEmptyToken) {
    struct Case {
        std::string text;
        std::string delimiters;
        Tokens tokens;
    };
    const Case cases[] = {
        {"", "/", {""}},
        {"///", "/", {}},
        {"/a//b/", "/", {"a", "b"}},
        {"a;b,c", ";,", {"a", "b", "c"}},
        {"a/b", "", {"a/b"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(TokenizeProbe::Tokenize(c.text, c.delimiters), c.tokens);
    }
}

TEST(PathParseTest, TextBehindANulReachesNoToken) {
    EXPECT_EQ(TokensOf(Path(std::string("ab\0cd", 5))), Tokens{"ab"});
    EXPECT_EQ(TokensOf(Path(std::string("ab\0c/", 5))), Tokens{"ab"});
    EXPECT_EQ(TokensOf(Path(std::string("a/\0", 3))), (Tokens{"a", ""}));
    try {
        Path path;
        path.Set(std::string("a\0b/c", 5), kWin);
        FAIL() << "no exception";
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ(error.what(), "invalid string position");
    }
    EXPECT_EQ(TokensOf(Path("C:\\x\0y")), (Tokens{"C:", "x"}));  // the terminated form stops
}

TEST(PathParseTest, EmptyAndLengthCountTokens) {
    EXPECT_TRUE(Path().Empty());
    EXPECT_EQ(Path().Length(), 0u);
    EXPECT_FALSE(Path("").Empty());
    EXPECT_EQ(Path("").Length(), 1u);
    EXPECT_TRUE(Path("/").Empty());
    EXPECT_EQ(Path("C:\\a\\b").Length(), 3u);
}

TEST(PathParseTest, SetReplacesTokensAndPosixSetKeepsShareFlag) {
    Path path("\\\\srv\\share\\f");
    path.Set("/a/b", kPosix);
    EXPECT_EQ(TokensOf(path), (Tokens{"a", "b"}));
    EXPECT_EQ(path.Str(kWin), "/a\\b");
    // ParentPath writes as a Windows path, which shows the share flag left from before.
    EXPECT_EQ(path.ParentPath().Str(kWin), "\\\\a");
}

TEST(PathStrTest, StoredTypeDecidesHeadArgumentDecidesSeparator) {
    EXPECT_EQ(Path("C:\\x\\y").Str(kPosix), "C:/x/y");
    EXPECT_EQ(Parsed("/a/b", kPosix).Str(kWin), "/a\\b");
    EXPECT_EQ(Path("\\\\srv\\s").Str(kPosix), "\\\\srv/s");
}

TEST(PathStrTest, LongPathPrefixAboveTheLegacyLimit) {
    const std::string drive = "C:\\";
    const std::string share = "\\\\srv\\";
    const std::string at259 = drive + std::string(256, 'n');
    const std::string at260 = drive + std::string(257, 'n');
    EXPECT_EQ(Path(at259).Str(kWin), at259);
    EXPECT_EQ(Path(at260).Str(kWin), "\\\\?\\" + at260);
    EXPECT_EQ(Path(at260).Str(kWin).size(), 264u);
    EXPECT_EQ(Path(at260).Str(kPosix), "\\\\?\\C:/" + std::string(257, 'n'));

    EXPECT_EQ(Path(share + std::string(253, 'n')).Str(kWin), share + std::string(253, 'n'));
    EXPECT_EQ(Path(share + std::string(254, 'n')).Str(kWin),
              "\\\\?\\UNC\\srv\\" + std::string(254, 'n'));

    // The prefix is not kept: it comes back only where the length calls for it.
    EXPECT_EQ(Path("\\\\?\\" + at260).Str(kWin), "\\\\?\\" + at260);
    EXPECT_EQ(Path("\\\\?\\" + at259).Str(kWin), at259);
    EXPECT_EQ(Path("\\\\?\\UNC\\srv\\" + std::string(254, 'n')).Str(kWin),
              "\\\\?\\UNC\\srv\\" + std::string(254, 'n'));

    // Bytes count, not characters: 128 two-byte letters are 256 bytes.
    std::string letters;
    for (int i = 0; i < 129; ++i) {
        letters += "\xC3\xA9";
    }
    EXPECT_EQ(Path(drive + letters).Str(kWin).substr(0, 4), "\\\\?\\");

    // A relative path never gets a prefix.
    EXPECT_EQ(Path(std::string(400, 'r')).Str(kWin), std::string(400, 'r'));
}

TEST(PathStrTest, WideEntrancesConvertUtf8) {
    const Path path(L"C:\\\u00e9t\u00e9\\\U0001F600");
    EXPECT_EQ(path.Str(kWin), "C:\\\xC3\xA9t\xC3\xA9\\\xF0\x9F\x98\x80");
    EXPECT_EQ(path.Wstr(kWin), L"C:\\\u00e9t\u00e9\\\U0001F600");
    EXPECT_EQ(Path(std::wstring()).Length(), 1u);

    Path assigned;
    assigned = std::wstring(L"a/b");
    EXPECT_EQ(assigned.Str(kWin), "a\\b");
}

TEST(PathValueTest, MoveTakesTokensAndLeavesTypeAndFlags) {
    Path source = Parsed("/a/b", kPosix);
    Path moved(std::move(source));
    EXPECT_EQ(moved.Str(kPosix), "/a/b");
    EXPECT_TRUE(source.Empty());  // NOLINT(bugprone-use-after-move): the state is specified
    EXPECT_TRUE(source.IsAbsolute());
    EXPECT_EQ(source.Str(kWin), "/");

    Path target("x");
    target = std::move(moved);
    EXPECT_EQ(target.Str(kPosix), "/a/b");
    Path& self = target;
    target = std::move(self);
    EXPECT_EQ(target.Str(kPosix), "/a/b");
}

TEST(PathTokenOpsTest, ParentPath) {
    struct Case {
        Path receiver;
        std::string label;
        Tokens tokens;
        bool absolute;
        std::string str;
    };
    const Case cases[] = {
        {Path(), "default", {".."}, false, ".."},
        {Path("a"), "a", {}, false, ""},
        {Path("a/b"), "a/b", {"a"}, false, "a"},
        {Path("C:\\x"), "C:\\x", {"C:"}, true, "C:"},
        {Path("C:\\"), "C:\\", {"C:"}, true, "C:"},
        {Path("\\\\srv\\share"), "share", {"srv"}, true, "\\\\srv"},
        {Parsed("/", kPosix), "posix /", {}, true, ""},
        {Parsed("/a/b", kPosix), "posix /a/b", {"a"}, true, "a"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        const Path parent = c.receiver.ParentPath();
        EXPECT_EQ(TokensOf(parent), c.tokens);
        EXPECT_EQ(parent.IsAbsolute(), c.absolute);
        EXPECT_EQ(parent.Str(kWin), c.str);
    }
}

TEST(PathTokenOpsTest, FilenameAndExtension) {
    struct Case {
        Path path;
        std::string filename;
        std::string extension;
    };
    const Case cases[] = {
        {Path("a.tar.gz"), "a.tar.gz", "gz"},
        {Path("dir/.profile"), ".profile", "profile"},
        {Path("a."), "a.", ""},
        {Path("a"), "a", ""},
        {Path(".."), "..", ""},
        {Path("C:\\"), "", ""},
        {Path(), "", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.filename);
        EXPECT_EQ(c.path.Filename(), c.filename);
        EXPECT_EQ(c.path.Extension(), c.extension);
    }
}

TEST(PathTokenOpsTest, JoinAndCompare) {
    EXPECT_EQ((Path("a") / Path("b")).Str(kWin), "a\\b");
    const Path joined = Path("C:\\a") / Path("b");
    EXPECT_EQ(joined.Str(kWin), "C:\\a\\b");
    EXPECT_TRUE(joined.IsAbsolute());
    EXPECT_EQ((Path("a") / Path("C:\\b")).Str(kWin), "a");
    EXPECT_EQ((Path("a") / Parsed("b", kPosix)).Str(kWin), "a");
    EXPECT_EQ((Path("a") / Path("")).Str(kWin), "a\\");
    const std::string rootJoined = (Path("C:\\") / Path("b")).Str(kWin);
    EXPECT_EQ(rootJoined, "C:\\\\b");
    EXPECT_EQ(TokensOf(Path(rootJoined)), (Tokens{"C:", "b"}));

    EXPECT_EQ(Path("C:/x"), Path("C:\\x"));
    EXPECT_EQ(Path("a/"), Path("a"));
    EXPECT_EQ(Path("a\\b"), Path("\\\\a\\b"));
    EXPECT_EQ(Path("a/b"), Parsed("a/b", kPosix));
    EXPECT_NE(Path("a/b"), Path("a/B"));
    EXPECT_NE(Path("a"), Path("a/b"));
}

class PathFileSystemTest : public ::testing::Test {
protected:
    void WriteBytes(const std::string& relative, const std::string& bytes) {
        std::ofstream(temp_.Native() / relative, std::ios::binary) << bytes;
    }
    TempDirectory temp_;
};

TEST_F(PathFileSystemTest, QueriesByDriveAndRelativeText) {
    std::filesystem::create_directory(temp_.Native() / "dir");
    WriteBytes("file.bin", std::string("12\0"
                                       "45",
                                       5));

    const WorkingDirectory inside(temp_.Native());
    const std::string drive = temp_.Windows();
    for (const std::string& base : {drive + "\\", std::string(), std::string(".\\")}) {
        SCOPED_TRACE(base);
        EXPECT_TRUE(Path(base + "dir").IsDirectory());
        EXPECT_FALSE(Path(base + "dir").IsFile());
        EXPECT_TRUE(Path(base + "file.bin").IsFile());
        EXPECT_FALSE(Path(base + "file.bin").IsDirectory());
        EXPECT_EQ(Path(base + "file.bin").FileSize(), 5u);
        EXPECT_FALSE(Path(base + "missing").Exists());
        EXPECT_FALSE(Path(base + "missing").IsFile());
        EXPECT_EQ(Path(base + "missing").FileSize(), 0u);
    }
    EXPECT_FALSE(Path("").Exists());
    EXPECT_TRUE(Parsed(temp_.Native().string() + "/dir", kPosix).IsDirectory());
    EXPECT_FALSE(Path("D" + drive.substr(1) + "\\dir").Exists());
    EXPECT_FALSE(Path("\\\\srv\\share\\dir").Exists());
}

TEST_F(PathFileSystemTest, AbsoluteAndGetcwdFollowTheWorkingDirectory) {
    const WorkingDirectory inside(temp_.Native());
    const Path cwd = Path::Getcwd();
    EXPECT_EQ(cwd.Str(kWin), temp_.Windows());
    EXPECT_TRUE(cwd.IsAbsolute());

    // Text alone: nothing of this exists.
    EXPECT_EQ(Path("x\\..\\y\\.\\z").Absolute(), cwd / Path("y\\z"));
    EXPECT_EQ(Path("x\\..\\y").Absolute().Str(kWin), temp_.Windows() + "\\y");
    EXPECT_EQ(Path("C:\\a\\..\\..\\b").Absolute().Str(kWin), "C:\\b");
    EXPECT_EQ(Parsed("/a/./b", kPosix).Absolute().Str(kWin), "C:\\a\\b");
    EXPECT_EQ(Path("\\\\srv\\share\\a\\..\\b").Absolute().Str(kWin), "\\\\srv\\share\\b");

    EXPECT_TRUE(Path().Absolute().Empty());  // the system refuses the empty text
    EXPECT_FALSE(Path().Absolute().IsAbsolute());
}

TEST_F(PathFileSystemTest, AbsoluteOfALongPathKeepsItUsable) {
    const std::string deep = temp_.Windows() + "\\" + std::string(300, 'd') + "\\..\\x";
    const Path full = Path(deep).Absolute();
    EXPECT_EQ(full.Str(kWin), temp_.Windows() + "\\x");
    const std::string tooLong = "C:\\" + std::string(40000, 'l');
    EXPECT_EQ(Path(tooLong).Absolute().Length(), 1u);  // the path of the empty text
    EXPECT_EQ(Path(tooLong).Absolute().Str(kWin), "");
}

TEST_F(PathFileSystemTest, MakeDirMakesOneLevelMakeDirsAll) {
    const std::string base = temp_.Windows();
    EXPECT_FALSE(MakeDir(Path(base + "\\a\\b")));  // parent missing
    EXPECT_TRUE(MakeDir(Path(base + "\\a")));
    EXPECT_FALSE(MakeDir(Path(base + "\\a")));  // exists already
    EXPECT_TRUE(MakeDirs(Path(base + "\\x\\y\\z")));
    EXPECT_TRUE(std::filesystem::is_directory(temp_.Native() / "x/y/z"));
    EXPECT_FALSE(MakeDirs(Path(base + "\\x\\y\\z")));
    EXPECT_FALSE(MakeDirs(Path("\\\\srv\\share\\x")));
    EXPECT_FALSE(MakeDir(Path()));

    const WorkingDirectory inside(temp_.Native());
    EXPECT_TRUE(MakeDir(Path("rel")));
    EXPECT_TRUE(MakeDirs(Path("rel/one/two")));
    EXPECT_TRUE(std::filesystem::is_directory(temp_.Native() / "rel/one/two"));
}

TEST_F(PathFileSystemTest, DeepPathBeyondTheLegacyLimit) {
    std::string text = temp_.Windows();
    for (int level = 0; level < 12; ++level) {
        text += "\\" + std::string(40, static_cast<char>('a' + level));
    }
    const Path deep(text);
    ASSERT_GT(text.size(), 260u);
    EXPECT_EQ(deep.Str(kWin).substr(0, 4), "\\\\?\\");
    EXPECT_TRUE(MakeDirs(deep));
    EXPECT_TRUE(deep.IsDirectory());
    EXPECT_TRUE(MakeDir(deep / Path("leaf")));
    EXPECT_TRUE((deep / Path("leaf")).Exists());
}

}  // namespace
}  // namespace orvik
