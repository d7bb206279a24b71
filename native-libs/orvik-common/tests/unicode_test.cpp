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

}  // namespace
}  // namespace orvik::detail
