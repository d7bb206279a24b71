#include "common/string_utils.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "support/console_capture.h"
#include "support/library_log_lines.h"

namespace orvik {
namespace {

using Fields = std::vector<std::string>;
using testing::ConsoleCapture;
using testing::FixedLogTime;
using testing::LibraryLine;
using testing::MaskLineNumbers;

std::string WarnLine(const std::string& func, const std::string& message) {
    return LibraryLine("WARN", "src/string_utils.cpp", "orvik::StringUtils::" + func, message);
}

// ---- Comparison and case ----------------------------------------------------------------------

TEST(StringUtilsCompareTest, ExactAndCaseInsensitiveFormsDifferAtTheEmptyString) {
    const struct {
        std::string first, second;
        bool equalsIgnoreCase, contains, containedIgnoreCase, startsWith, startsWithIgnoreCase,
            endsWith;
    } cases[] = {
        {"", "", true, true, false, true, false, true},
        {"abc", "", false, true, false, true, false, true},
        {"", "true", false, false, false, false, false, false},
        {"TRUE", "true", true, false, true, false, true, false},
        {"tr", "true", false, false, false, false, false, false},
        {"true", "tr", false, true, true, true, true, false},
        {"ab", "abc", false, false, false, false, false, false},
        {"abcabc", "BCA", false, false, true, false, false, false},
        {"xAbC", "abc", false, false, true, false, false, false},
        {"HelloWorld", "WORLD", false, false, true, false, false, false},
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
    EXPECT_FALSE(StringUtils::Equals("a", "A"));
    EXPECT_TRUE(StringUtils::Equals("", ""));
}

TEST(StringUtilsCaseTest, OnlyAsciiLettersChangeAndTrimTakesBlanksOnly) {
    const std::string mixed("Ab1-\xC3\x84\xFFz", 8);
    EXPECT_EQ(StringUtils::ToLowerCase(mixed), std::string("ab1-\xC3\x84\xFFz", 8));
    EXPECT_EQ(StringUtils::ToUpperCase(mixed), std::string("AB1-\xC3\x84\xFFZ", 8));
    EXPECT_FALSE(StringUtils::EqualsIgnoreCase("\xC3\xA4", "\xC3\x84"));

    std::string text = "  a b\t ";
    StringUtils::Trim(text);
    EXPECT_EQ(text, "a b\t");
    text = "  ";
    StringUtils::Trim(text);
    EXPECT_EQ(text, "");
}

// ---- Split, join and extraction ---------------------------------------------------------------

TEST(StringUtilsSplitTest, TheThreeSplitsFieldByField) {
    const struct {
        std::string text;
        Fields split, all, first;
    } rows[] = {
        {"", {}, {""}, {""}},
        {"a", {"a"}, {"a"}, {"a"}},
        {"a,b", {"a", "b"}, {"a", "b"}, {"a", "b"}},
        {"a,b,c", {"a", "b", "c"}, {"a", "b", "c"}, {"a", "b,c"}},
        {"a,,b", {"a", "", "b"}, {"a", "", "b"}, {"a", ",b"}},
        {",a", {"", "a"}, {"", "a"}, {"", "a"}},
        {"a,", {"a", ""}, {"a"}, {"a", ""}},
        {",", {"", ""}, {""}, {"", ""}},
        {",,", {"", "", ""}, {"", ""}, {"", ","}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE("'" + row.text + "'");
        EXPECT_EQ(StringUtils::SplitString(row.text, ","), row.split);
        EXPECT_EQ(StringUtils::SplitAllByString(row.text, ","), row.all);
        EXPECT_EQ(StringUtils::SplitFirstByString(row.text, ","), row.first);
    }
}

TEST(StringUtilsSplitTest, MultiByteSeparatorsDoNotOverlap) {
    EXPECT_EQ(StringUtils::SplitString("a--b", "--"), (Fields{"a", "b"}));
    EXPECT_EQ(StringUtils::SplitString("a---b", "--"), (Fields{"a", "-b"}));
    EXPECT_EQ(StringUtils::SplitAllByString("a---b", "--"), (Fields{"a", "-b"}));
    EXPECT_EQ(StringUtils::SplitFirstByString("a---b", "--"), (Fields{"a", "-b"}));
    // The added separator overlaps the text's last byte; the piece it swallows is dropped.
    EXPECT_EQ(StringUtils::SplitString("a-", "--"), (Fields{"a"}));
    EXPECT_EQ(StringUtils::SplitAllByString("a-", "--"), (Fields{"a-"}));
}

TEST(StringUtilsSplitTest, EmptySeparatorEndsWithTheWholeText) {
    EXPECT_EQ(StringUtils::SplitString("abc", ""), (Fields{"abc"}));
    EXPECT_EQ(StringUtils::SplitString("", ""), Fields{});
    EXPECT_EQ(StringUtils::SplitAllByString("abc", ""), (Fields{"abc"}));
    EXPECT_EQ(StringUtils::SplitAllByString("", ""), (Fields{""}));
    EXPECT_EQ(StringUtils::SplitFirstByString("abc", ""), (Fields{"", "abc"}));
}

TEST(StringUtilsSplitTest, ManyFieldsRoundTripThroughJoin) {
    Fields items;
    for (int i = 0; i < 2000; ++i) {
        items.push_back(i % 7 == 0 ? "" : std::to_string(i));
    }
    items.back() = "end";
    const std::string joined = StringUtils::Join(items, "::");
    EXPECT_EQ(StringUtils::SplitString(joined, "::"), items);
    EXPECT_EQ(StringUtils::SplitAllByString(joined, "::"), items);

    Fields none;
    Fields three{"a", "", "b"};
    EXPECT_EQ(StringUtils::Join(none, ","), "");
    EXPECT_EQ(StringUtils::Join(three, ""), "ab");
}

TEST(StringUtilsExtractTest, FetchConsecutiveNumbersTakesRunsOfTheTenDigits) {
    EXPECT_EQ(StringUtils::FetchConsecutiveNumbers("x1.20-003"), (Fields{"1", "20", "003"}));
    EXPECT_TRUE(StringUtils::FetchConsecutiveNumbers("").empty());
    std::string everyByte;
    for (int b = 0; b < 256; ++b) {
        everyByte += static_cast<char>(b);
    }
    EXPECT_EQ(StringUtils::FetchConsecutiveNumbers(everyByte), Fields{"0123456789"});
}

TEST(StringUtilsExtractTest, HashTextPadsWithBlanksNotZeros) {
    // SHA-256 of "" is e3b0c442 98fc1c14 9afbf4c8 996fb924 27ae41e4 649b934c a495991b 7852b855.
    EXPECT_EQ(StringUtils::GetHashText("", 0),
              "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    // SHA-256 of "abc" is ba7816bf 8f01cfea 414140de 5dae2223 b00361a3 96177a9c b410ff61 f20015ad:
    // its bytes 0x01, 0x03 and 0x00 show the blank fill.
    const std::string abc = "abc";
    EXPECT_EQ(StringUtils::GetHashText(abc.data(), abc.size()),
              "ba7816bf8f 1cfea414140de5dae2223b0 361a396177a9cb410ff61f2 015ad");
}

TEST(StringUtilsExtractTest, SpaceToUnderscoreReplacesTheCallersSet) {
    EXPECT_EQ(StringUtils::SpaceToUnderscore("a b-c", " -", '_'), "a_b_c");
    EXPECT_EQ(StringUtils::SpaceToUnderscore("a b", "", '_'), "a b");
    EXPECT_EQ(StringUtils::SpaceToUnderscore("a_b c", "_", ' '), "a b c");
    EXPECT_EQ(StringUtils::CharToString(nullptr), "");
    EXPECT_EQ(StringUtils::CharToString("x"), "x");
}

// ---- Number and bool conversion ---------------------------------------------------------------

TEST(StringUtilsNumberTest, CheckNumberAndCheckBool) {
    EXPECT_TRUE(StringUtils::CheckNumber("") && StringUtils::CheckNumber("0123456789"));
    EXPECT_FALSE(StringUtils::CheckNumber("-12") || StringUtils::CheckNumber("1.5"));
    EXPECT_TRUE(StringUtils::CheckBool("TRUE") && StringUtils::CheckBool("False"));
    for (const char* text : {"", "1", "yes", "t", "true "}) {
        EXPECT_FALSE(StringUtils::CheckBool(text)) << text;
    }
}

TEST(StringUtilsNumberTest, IntegerConversionsTakeTheLowThirtyTwoBits) {
    const struct {
        std::string text;
        int expected;
    } cases[] = {
        {"  42abc", 42},
        {"+5", 5},
        {"-7", -7},
        {"\t\n 9", 9},
        {"4294967297", 1},                                // 2^32 + 1
        {"2147483648", std::numeric_limits<int>::min()},  // 2^31
        {"9223372036854775807", -1},                      // 2^63 - 1
        {"-9223372036854775808", 0},                      // -2^63
        {"0x1F", 0},                                      // no base prefix
    };
    ConsoleCapture console;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        std::string text = c.text;
        EXPECT_EQ(StringUtils::StrTollInt(text, 99), c.expected);
        EXPECT_EQ(StringUtils::StrTollLong(text, 99L), static_cast<long>(c.expected));
        EXPECT_EQ(text, c.text);
    }
    EXPECT_EQ(console.Text(), "");
}

TEST(StringUtilsNumberTest, FloatingConversionsReadIntegersOnly) {
    for (std::string text : {"2.5", "2e3", " +2x"}) {
        EXPECT_EQ(StringUtils::StrTollDouble(text, 9.5), 2.0) << text;
    }
    std::string twoTo24PlusOne = "16777217";
    EXPECT_EQ(StringUtils::StrTollFloat(twoTo24PlusOne, 0.5f), 16777216.0f);
}

TEST(StringUtilsNumberTest, EveryFailureReturnsTheDefaultWithItsWarningLine) {
    FixedLogTime time;
    ConsoleCapture console;
    std::string empty;
    std::string letters = "abc";
    std::string beyond = "9223372036854775808";  // 2^63
    std::string below = "-9223372036854775809";
    std::string point = ".5";

    EXPECT_EQ(StringUtils::StrTollInt(empty, 3), 3);
    EXPECT_EQ(console.Text(), "") << "the empty text is silent";

    EXPECT_EQ(StringUtils::StrTollInt(letters, 3), 3);
    EXPECT_EQ(StringUtils::StrTollInt(beyond, 3), 3);
    EXPECT_EQ(StringUtils::StrTollLong(below, 4L), 4L);
    EXPECT_EQ(StringUtils::StrTollLong(letters, 4L), 4L);
    EXPECT_EQ(StringUtils::StrTollFloat(beyond, 1.5f), 1.5f);
    EXPECT_EQ(StringUtils::StrTollFloat(letters, 1.5f), 1.5f);
    EXPECT_EQ(StringUtils::StrTollDouble(point, 2.5), 2.5);
    EXPECT_EQ(StringUtils::StrTollDouble(below, 2.5), 2.5);
    EXPECT_EQ(MaskLineNumbers(console.Text()),
              WarnLine("StrTollInt", "StrTollInt invalid") +
                  WarnLine("StrTollInt", "StrTollInt out_of_range") +
                  WarnLine("StrTollLong", "StrTollLong out_of_range") +
                  WarnLine("StrTollLong", "StrTollLong invalid") +
                  WarnLine("StrTollFloat", "StrTollFloat out_of_range") +
                  WarnLine("StrTollFloat", "StrTollFloat invalid") +
                  WarnLine("StrTollDouble", "StrTollDouble invalid") +
                  WarnLine("StrTollDouble", "StrTollDouble out_of_range"));
}

TEST(StringUtilsNumberTest, BoolConversionWarnsOnAnyOtherWord) {
    FixedLogTime time;
    ConsoleCapture console;
    const struct {
        std::string text;
        bool defaultValue, expected;
    } silent[] = {{"true", false, true}, {"FALSE", true, false}, {"", true, true}};
    for (const auto& c : silent) {
        SCOPED_TRACE(c.text);
        std::string text = c.text;
        EXPECT_EQ(StringUtils::StrTollBool(text, c.defaultValue), c.expected);
    }
    EXPECT_EQ(console.Text(), "");

    std::string maybe = "maybe";
    EXPECT_TRUE(StringUtils::StrTollBool(maybe, true));
    EXPECT_EQ(MaskLineNumbers(console.Text()),
              WarnLine("StrTollBool", "StrTollBool unknown exception"));
}

}  // namespace
}  // namespace orvik
