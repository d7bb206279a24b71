#include "internal/unicode.h"

#include <gtest/gtest.h>

#include <string>

namespace orvik::detail {
namespace {

// What the replacing mode makes of UTF-8 the strict mode refuses: one U+FFFD per byte that starts
// no valid sequence. UTF-16 and UTF-32 input, and the strict mode, are charset_cvt_test's.
TEST(UnicodeTest, ReplacingModeMarksEachInvalidRun) {
    const struct {
        std::string input;
        std::u32string replaced;
    } cases[] = {
        {"a\x80z", U"a\uFFFDz"},
        {"\xC0\x80", U"\uFFFD\uFFFD"},                      // overlong
        {"\xED\xA0\x80", U"\uFFFD\uFFFD\uFFFD"},            // encoded surrogate
        {"\xF4\x90\x80\x80", U"\uFFFD\uFFFD\uFFFD\uFFFD"},  // above U+10FFFF
        {"\xF8\x88\x80\x80\x80", U"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"x\xE4\xB8", U"x\uFFFD"},  // truncated at the end
        {"\xE4\xB8!", U"\uFFFD!"},  // truncated before ASCII
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.input));
        std::u32string out;
        EXPECT_FALSE(Utf8ToUtf32(c.input, out, Invalid::kFail));
        ASSERT_TRUE(Utf8ToUtf32(c.input, out, Invalid::kReplace));
        EXPECT_EQ(out, c.replaced);
    }
}

// The first and last code points of each sequence length, both ways through UTF-16.
TEST(UnicodeTest, SequenceLengthBoundariesRoundTrip) {
    for (const std::string text : {"\x7F", "\xC2\x80", "\xE0\xA0\x80", "\xEF\xBF\xBF",
                                   "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
        SCOPED_TRACE(::testing::PrintToString(text));
        std::u16string utf16;
        ASSERT_TRUE(Utf8ToUtf16(text, utf16, Invalid::kFail));
        EXPECT_EQ(utf16.size(), text.size() == 4 ? 2u : 1u);
        std::string back;
        ASSERT_TRUE(Utf16ToUtf8(utf16, back, Invalid::kFail));
        EXPECT_EQ(back, text);
    }
}

}  // namespace
}  // namespace orvik::detail
