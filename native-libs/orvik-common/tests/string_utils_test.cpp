#include "common/string_utils.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "support/console_capture.h"
#include "support/library_log_lines.h"

namespace orvik {
namespace {

using Fields = std::vector<std::string>;
using S = StringUtils;

std::string WarnLine(const std::string& message) {  // "<Name> <what>", by StringUtils::<Name>
    return testing::LibraryLine("WARN", "src/string_utils.cpp",
                                "orvik::StringUtils::" + message.substr(0, message.find(' ')),
                                message);
}

TEST(StringUtilsTest, ExactAndCaseInsensitiveFormsDifferAtTheEmptyString) {
    const struct {
        std::string first, second;
        bool equalsNoCase, contains, containedNoCase, startsWith, startsWithNoCase, endsWith;
    } cases[] = {
        {"", "", true, true, false, true, false, true},
        {"abc", "", false, true, false, true, false, true},
        {"TRUE", "true", true, false, true, false, true, false},
        {"tr", "true", false, false, false, false, false, false},
        {"true", "tr", false, true, true, true, true, false},
        {"abcabc", "BCA", false, false, true, false, false, false},
        {"HelloWorld", "World", false, true, true, false, false, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE("'" + c.first + "', '" + c.second + "'");
        EXPECT_EQ(S::EqualsIgnoreCase(c.first, c.second), c.equalsNoCase);
        EXPECT_EQ(S::Contains(c.first, c.second), c.contains);
        EXPECT_EQ(S::ContainedIgnoreCase(c.first, c.second), c.containedNoCase);
        EXPECT_EQ(S::StartsWith(c.first, c.second), c.startsWith);
        EXPECT_EQ(S::StartsWithIgnoreCase(c.first, c.second), c.startsWithNoCase);
        EXPECT_EQ(S::EndsWith(c.first, c.second), c.endsWith);
    }
    EXPECT_FALSE(S::Equals("a", "A"));
    EXPECT_EQ(S::ToLowerCase("Ab1-\xC3\x84\xFFz"), "ab1-\xC3\x84\xFFz");  // only ASCII folds
    EXPECT_EQ(S::ToUpperCase("Ab1-\xC3\x84\xFFz"), "AB1-\xC3\x84\xFFZ");
    std::string text = "  a b\t ", blanks = "  ";
    S::Trim(text);
    S::Trim(blanks);
    EXPECT_EQ(text + "|" + blanks, "a b\t|") << "only blanks are trimmed";
}

TEST(StringUtilsTest, SplitsJoinAndExtraction) {
    const struct {
        std::string text, sep;
        Fields split, all, first;
    } rows[] = {
        {"", ",", {}, {""}, {""}},
        {"a,,b", ",", {"a", "", "b"}, {"a", "", "b"}, {"a", ",b"}},
        {",a", ",", {"", "a"}, {"", "a"}, {"", "a"}},
        {",,", ",", {"", "", ""}, {"", ""}, {"", ","}},
        {"a---b", "--", {"a", "-b"}, {"a", "-b"}, {"a", "-b"}},  // no overlapping matches
        {"a-", "--", {"a"}, {"a-"}, {"a-"}},  // SplitString drops what the added "--" overlaps
        {"abc", "", {"abc"}, {"abc"}, {"", "abc"}},  // an empty separator ends the call
    };
    for (const auto& row : rows) {
        SCOPED_TRACE("'" + row.text + "' by '" + row.sep + "'");
        EXPECT_EQ(S::SplitString(row.text, row.sep), row.split);
        EXPECT_EQ(S::SplitAllByString(row.text, row.sep), row.all);
        EXPECT_EQ(S::SplitFirstByString(row.text, row.sep), row.first);
    }
    Fields items{"a", "", "b"}, none;
    EXPECT_EQ(S::Join(items, "::"), "a::::b");
    EXPECT_EQ(S::Join(none, ","), "");

    EXPECT_EQ(S::FetchConsecutiveNumbers("x1.20-003"), (Fields{"1", "20", "003"}));
    // The bytes 0x01, 0x03 and 0x00 of SHA-256("abc") are padded with blanks.
    EXPECT_EQ(S::GetHashText("abc", 3),
              "ba7816bf8f 1cfea414140de5dae2223b0 361a396177a9cb410ff61f2 015ad");
    EXPECT_EQ(S::SpaceToUnderscore("a b-c", " -", '_'), "a_b_c");
    EXPECT_EQ(S::CharToString(nullptr), "");
}

// 2^32 + 1 and 2^31 give their low 32 bits, -2^63 - 1 is out of range. Each failure gives the
// default and one warning line; the floating forms parse integers too.
TEST(StringUtilsTest, ConversionsTakeTheLowThirtyTwoBitsOrWarn) {
    const struct {
        std::string text;
        int expected;
        std::string warning;
    } cases[] = {{"  42abc", 42, ""},         {"4294967297", 1, ""},
                 {"2147483648", INT_MIN, ""}, {"", 99, ""},
                 {"abc", 99, "invalid"},      {"-9223372036854775809", 99, "out_of_range"}};
    testing::FixedLogTime time;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        testing::ConsoleCapture console;
        std::string text = c.text;
        EXPECT_EQ(S::StrTollInt(text, 99), c.expected);
        EXPECT_EQ(S::StrTollLong(text, 99L), static_cast<long>(c.expected));
        EXPECT_EQ(testing::MaskLineNumbers(console.Text()),
                  c.warning.empty()
                      ? ""
                      : WarnLine("StrTollInt " + c.warning) + WarnLine("StrTollLong " + c.warning));
    }
    EXPECT_TRUE(S::CheckNumber("") && S::CheckNumber("0123456789"));
    EXPECT_FALSE(S::CheckNumber("-12") || S::CheckNumber("/") || S::CheckNumber(":"));
    testing::ConsoleCapture console;
    std::string two = " +2.5", letters = "abc", point = ".5", empty, maybe = "maybe", no = "FALSE";
    EXPECT_EQ(S::StrTollDouble(two, 9.5), 2.0);  // the same integer, rounded
    EXPECT_EQ(S::StrTollFloat(letters, 1.5f), 1.5f);
    EXPECT_EQ(S::StrTollDouble(point, 2.5), 2.5);
    EXPECT_TRUE(S::StrTollBool(empty, true));  // silent
    EXPECT_FALSE(S::StrTollBool(no, true));
    EXPECT_TRUE(S::StrTollBool(maybe, true));
    EXPECT_EQ(testing::MaskLineNumbers(console.Text()),
              WarnLine("StrTollFloat invalid") + WarnLine("StrTollDouble invalid") +
                  WarnLine("StrTollBool unknown exception"));
}

}  // namespace
}  // namespace orvik
