#include "internal/unicode.h"

#include <gtest/gtest.h>

#include <string>

namespace orvik::detail {
namespace {

// The strict mode is covered through CharsetCvt; here, what the replacing mode makes of input
// the strict mode refuses: one U+FFFD per byte that starts no valid sequence.
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
    std::string utf8;
    ASSERT_TRUE(Utf16ToUtf8(std::u16string{u'a', 0xD83C, u'b'}, utf8, Invalid::kReplace));
    EXPECT_EQ(utf8, u8"a\uFFFDb");
    ASSERT_TRUE(Utf32ToUtf8(std::u32string{0x110000}, utf8, Invalid::kReplace));
    EXPECT_EQ(utf8, u8"\uFFFD");
}

}  // namespace
}  // namespace orvik::detail
