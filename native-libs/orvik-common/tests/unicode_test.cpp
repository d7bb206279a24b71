#include "unicode.h"

#include <gtest/gtest.h>

#include <string>

namespace orvik::detail {
namespace {

// "Grüße, 世界 🌍": one-, two-, three- and four-byte sequences.
const std::string kMixedUtf8 =
    "Gr\xC3\xBC\xC3\x9F"
    "e, \xE4\xB8\x96\xE7\x95\x8C \xF0\x9F\x8C\x8D";
const std::u32string kMixedUtf32 = U"Gr\u00FC\u00DFe, \u4E16\u754C \U0001F30D";
const std::u16string kMixedUtf16 = u"Gr\u00FC\u00DFe, \u4E16\u754C \U0001F30D";

TEST(UnicodeTest, MultilingualTextRoundTripsThroughEveryForm) {
    std::u32string utf32;
    std::u16string utf16;
    std::wstring wide;
    std::string back;
    ASSERT_TRUE(Utf8ToUtf32(kMixedUtf8, utf32, Invalid::kFail));
    EXPECT_EQ(utf32, kMixedUtf32);
    ASSERT_TRUE(Utf8ToUtf16(kMixedUtf8, utf16, Invalid::kFail));
    EXPECT_EQ(utf16, kMixedUtf16);
    EXPECT_EQ(utf16.size(), utf32.size() + 1) << "U+1F30D takes a surrogate pair";
    ASSERT_TRUE(Utf8ToWide(kMixedUtf8, wide, Invalid::kFail));
    EXPECT_EQ(wide, L"Gr\u00FC\u00DFe, \u4E16\u754C \U0001F30D");

    ASSERT_TRUE(Utf32ToUtf8(utf32, back, Invalid::kFail));
    EXPECT_EQ(back, kMixedUtf8);
    ASSERT_TRUE(Utf16ToUtf8(utf16, back, Invalid::kFail));
    EXPECT_EQ(back, kMixedUtf8);
    ASSERT_TRUE(WideToUtf8(wide, back, Invalid::kFail));
    EXPECT_EQ(back, kMixedUtf8);

    const std::string withNul("a\0b", 3);
    ASSERT_TRUE(Utf8ToUtf32(withNul, utf32, Invalid::kFail));
    EXPECT_EQ(utf32, std::u32string(U"a\0b", 3));
}

TEST(UnicodeTest, MalformedUtf8IsRefusedOrReplacedPerInvalidRun) {
    const struct {
        const char* name;
        std::string input;
        std::u32string replaced;
    } cases[] = {
        {"lone continuation", "a\x80z", U"a\uFFFDz"},
        {"overlong two-byte NUL", "\xC0\x80", U"\uFFFD\uFFFD"},
        {"overlong three-byte", "\xE0\x80\x80", U"\uFFFD\uFFFD\uFFFD"},
        {"encoded surrogate", "\xED\xA0\x80", U"\uFFFD\uFFFD\uFFFD"},
        {"above U+10FFFF", "\xF4\x90\x80\x80", U"\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"F8 lead", "\xF8\x88\x80\x80\x80", U"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"truncated at end", "x\xE4\xB8", U"x\uFFFD"},
        {"truncated before ASCII",
         "\xE4\xB8"
         "a",
         U"\uFFFDa"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::u32string out;
        EXPECT_FALSE(Utf8ToUtf32(c.input, out, Invalid::kFail));
        ASSERT_TRUE(Utf8ToUtf32(c.input, out, Invalid::kReplace));
        EXPECT_EQ(out, c.replaced);
    }
    std::u32string edge;
    ASSERT_TRUE(Utf8ToUtf32("\xED\x9F\xBF\xF4\x8F\xBF\xBF", edge, Invalid::kFail));
    EXPECT_EQ(edge, U"\uD7FF\U0010FFFF");
}

TEST(UnicodeTest, UnpairedSurrogatesAndOutOfRangeCodePointsAreInvalid) {
    std::string out;
    const std::u16string loneHigh = {u'a', static_cast<char16_t>(0xD83C), u'b'};
    const std::u16string loneLow = {static_cast<char16_t>(0xDF0D)};
    EXPECT_FALSE(Utf16ToUtf8(loneHigh, out, Invalid::kFail));
    ASSERT_TRUE(Utf16ToUtf8(loneHigh, out, Invalid::kReplace));
    EXPECT_EQ(out,
              "a\xEF\xBF\xBD"
              "b");
    EXPECT_FALSE(Utf16ToUtf8(loneLow, out, Invalid::kFail));

    const std::u32string tooLarge = {static_cast<char32_t>(0x110000)};
    const std::u32string surrogate = {static_cast<char32_t>(0xD800)};
    EXPECT_FALSE(Utf32ToUtf8(tooLarge, out, Invalid::kFail));
    EXPECT_FALSE(Utf32ToUtf8(surrogate, out, Invalid::kFail));
    ASSERT_TRUE(Utf32ToUtf8(tooLarge, out, Invalid::kReplace));
    EXPECT_EQ(out, "\xEF\xBF\xBD");
}

}  // namespace
}  // namespace orvik::detail
