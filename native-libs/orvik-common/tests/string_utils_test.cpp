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
using testing::ConsoleCapture;
using testing::FixedLogTime;
using testing::MaskLineNumbers;

// The warning line of "<Name> <what>", written by StringUtils::<Name>.
std::string WarnLine(const std::string& message) {
    return testing::LibraryLine("WARN", "src/string_utils.cpp",
                                "orvik::StringUtils::" + message.substr(0, message.find(' ')),
                                message);
}

TEST(StringUtilsTest, ExactAndCaseInsensitiveFormsDifferAtTheEmptyString) {
    const struct {
        std::string first, second;
        bool equalsIgnoreCase, contains, containedIgnoreCase, startsWith, startsWithIgnoreCase,
            endsWith;
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
        EXPECT_EQ(StringUtils::EqualsIgnoreCase(c.first, c.second), c.equalsIgnoreCase);
        EXPECT_EQ(StringUtils::Contains(c.first, c.second), c.contains);
        EXPECT_EQ(StringUtils::ContainedIgnoreCase(c.first, c.second), c.containedIgnoreCase);
        EXPECT_EQ(StringUtils::StartsWith(c.first, c.second), c.startsWith);
        EXPECT_EQ(StringUtils::StartsWithIgnoreCase(c.first, c.second), c.startsWithIgnoreCase);
        EXPECT_EQ(StringUtils::EndsWith(c.first, c.second), c.endsWith);
    }
    EXPECT_FALSE(StringUtils::Equals("a", "A") ||
                 StringUtils::EqualsIgnoreCase("\xC3\xA4", "\xC3\x84"));
    EXPECT_EQ(StringUtils::ToLowerCase("Ab1-\xC3\x84\xFFz"), "ab1-\xC3\x84\xFFz");
    EXPECT_EQ(StringUtils::ToUpperCase("Ab1-\xC3\x84\xFFz"), "AB1-\xC3\x84\xFFZ");
    std::string text = "  a b\t ", blanks = "  ";
    StringUtils::Trim(text);
    StringUtils::Trim(blanks);
    EXPECT_EQ(text + "|" + blanks, "a b\t|") << "only blanks are trimmed";
}

TEST(StringUtilsTest, TheThreeSplitsFieldByField) {
    const struct {
        std::string text, sep;
        Fields split, all, first;
    } rows[] = {
        {"", ",", {}, {""}, {""}},
        {"a", ",", {"a"}, {"a"}, {"a"}},
        {"a,b,c", ",", {"a", "b", "c"}, {"a", "b", "c"}, {"a", "b,c"}},
        {"a,,b", ",", {"a", "", "b"}, {"a", "", "b"}, {"a", ",b"}},
        {",a", ",", {"", "a"}, {"", "a"}, {"", "a"}},
        {"a,", ",", {"a", ""}, {"a"}, {"a", ""}},
        {",,", ",", {"", "", ""}, {"", ""}, {"", ","}},
        {"a---b", "--", {"a", "-b"}, {"a", "-b"}, {"a", "-b"}},  // no overlapping matches
        {"a-", "--", {"a"}, {"a-"}, {"a-"}},  // SplitString drops what the added "--" overlaps
        {"abc", "", {"abc"}, {"abc"}, {"", "abc"}},  // an empty separator ends the call
        {"", "", {}, {""}, {"", ""}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE("'" + row.text + "' by '" + row.sep + "'");
        EXPECT_EQ(StringUtils::SplitString(row.text, row.sep), row.split);
        EXPECT_EQ(StringUtils::SplitAllByString(row.text, row.sep), row.all);
        EXPECT_EQ(StringUtils::SplitFirstByString(row.text, row.sep), row.first);
    }
    // Many fields, as the linear splits see them, come back through Join.
    Fields items(2000);
    for (size_t i = 0; i < items.size(); ++i) {
        items[i] = i % 7 == 0 ? "" : std::to_string(i);
    }
    const std::string joined = StringUtils::Join(items, "::");
    EXPECT_EQ(StringUtils::SplitString(joined, "::"), items);
    EXPECT_EQ(StringUtils::SplitAllByString(joined, "::"), items);
    items.clear();
    EXPECT_EQ(StringUtils::Join(items, ","), "");
}

TEST(StringUtilsTest, Extraction) {
    EXPECT_EQ(StringUtils::FetchConsecutiveNumbers("x1.20-003"), (Fields{"1", "20", "003"}));
    std::string everyByte;
    for (int b = 0; b < 256; ++b) {
        everyByte += static_cast<char>(b);
    }
    EXPECT_EQ(StringUtils::FetchConsecutiveNumbers(everyByte), Fields{"0123456789"});
    // SHA-256 of "abc" is ba7816bf 8f01cfea 414140de 5dae2223 b00361a3 96177a9c b410ff61 f20015ad:
    // its bytes 0x01, 0x03 and 0x00 are padded with blanks.
    EXPECT_EQ(StringUtils::GetHashText("abc", 3),
              "ba7816bf8f 1cfea414140de5dae2223b0 361a396177a9cb410ff61f2 015ad");
    EXPECT_EQ(StringUtils::SpaceToUnderscore("a b-c", " -", '_'), "a_b_c");
    EXPECT_EQ(StringUtils::CharToString(nullptr), "");
}

TEST(StringUtilsTest, IntegerConversionsTakeTheLowThirtyTwoBits) {
    EXPECT_TRUE(StringUtils::CheckNumber("") && StringUtils::CheckNumber("0123456789"));
    EXPECT_FALSE(StringUtils::CheckNumber("-12") || StringUtils::CheckNumber("1.5"));
    EXPECT_TRUE(StringUtils::CheckBool("TRUE") && StringUtils::CheckBool("False"));
    EXPECT_FALSE(StringUtils::CheckBool("") || StringUtils::CheckBool("1") ||
                 StringUtils::CheckBool("true "));
    // Blanks and signs lead; 2^32 + 1, 2^31, 2^63 - 1 and -2^63 give their low 32 bits.
    const struct {
        std::string text;
        int expected;
    } cases[] = {{"  42abc", 42},
                 {"+5", 5},
                 {"-7", -7},
                 {"\t\n 9", 9},
                 {"4294967297", 1},
                 {"2147483648", INT_MIN},
                 {"9223372036854775807", -1},
                 {"-9223372036854775808", 0},
                 {"0x1F", 0}};
    ConsoleCapture console;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        std::string text = c.text;
        EXPECT_EQ(StringUtils::StrTollInt(text, 99), c.expected);
        EXPECT_EQ(StringUtils::StrTollLong(text, 99L), static_cast<long>(c.expected));
        EXPECT_EQ(text, c.text);
    }
    // The floating forms read the same integer and round it.
    for (std::string text : {"2.5", "2e3", " +2x"}) {
        EXPECT_EQ(StringUtils::StrTollDouble(text, 9.5), 2.0) << text;
    }
    std::string twoTo24PlusOne = "16777217";
    EXPECT_EQ(StringUtils::StrTollFloat(twoTo24PlusOne, 0.5f), 16777216.0f);
    EXPECT_EQ(console.Text(), "");
}

TEST(StringUtilsTest, EveryFailureReturnsTheDefaultWithItsWarningLine) {
    FixedLogTime time;
    ConsoleCapture console;
    std::string empty, letters = "abc", point = ".5", maybe = "maybe", upperFalse = "FALSE";
    std::string beyond = "9223372036854775808", below = "-9223372036854775809";  // 2^63, -2^63 - 1
    EXPECT_EQ(StringUtils::StrTollInt(empty, 3), 3);                             // silent
    EXPECT_EQ(StringUtils::StrTollInt(letters, 3), 3);
    EXPECT_EQ(StringUtils::StrTollInt(beyond, 3), 3);
    EXPECT_EQ(StringUtils::StrTollLong(below, 4L), 4L);
    EXPECT_EQ(StringUtils::StrTollFloat(letters, 1.5f), 1.5f);
    EXPECT_EQ(StringUtils::StrTollDouble(point, 2.5), 2.5);
    EXPECT_TRUE(StringUtils::StrTollBool(empty, true));  // silent
    EXPECT_FALSE(StringUtils::StrTollBool(upperFalse, true));
    EXPECT_TRUE(StringUtils::StrTollBool(maybe, true));
    std::string expected;
    for (const char* line :
         {"StrTollInt invalid", "StrTollInt out_of_range", "StrTollLong out_of_range",
          "StrTollFloat invalid", "StrTollDouble invalid", "StrTollBool unknown exception"}) {
        expected += WarnLine(line);
    }
    EXPECT_EQ(MaskLineNumbers(console.Text()), expected);
}

}  // namespace
}  // namespace orvik
