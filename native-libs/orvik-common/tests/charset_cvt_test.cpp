#include "common/charset_cvt.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <locale>
#include <optional>
#include <stdexcept>
#include <string>

#include "common/string_utils.h"
#include "platform/platform.h"
#include "support/console_capture.h"
#include "support/library_log_lines.h"
#include "support/temp_directory.h"

namespace orvik {
namespace {

using C = CharsetCvt;

std::string InfoLine(const std::string& func, const std::string& message) {
    return testing::LibraryLine("INFO", "src/charset_cvt.cpp", "orvik::CharsetCvt::" + func,
                                message);
}

// "Grüße, Привет, 世界 🌍" with a literal's prefix: one to four UTF-8 bytes, a UTF-16 pair.
#define MIXED_TEXT(prefix) \
    prefix##"Gr\u00FC\u00DFe, \u041F\u0440\u0438\u0432\u0435\u0442, \u4E16\u754C \U0001F30D"
const std::string kMixedUtf8 = MIXED_TEXT(u8);

// The message of the std::runtime_error (std::range_error among them) that `convert` raises.
std::string ErrorOf(const std::function<void()>& convert) {
    try {
        convert();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "no exception";
}

// Points the user's locale (std::locale("")) at `name` through LC_ALL, if the system has it.
bool UseUserLocale(const std::string& name) {
    try {
        std::locale probe(name);
        return platform::SetEnvironmentVariable(L"LC_ALL", std::wstring(name.begin(), name.end()));
    } catch (const std::runtime_error&) {
        return false;
    }
}

TEST(CharsetCvtTest, IsU8JudgesShapeNotValue) {
    const std::pair<std::string, bool> cases[] = {
        {"\xC0\x80", true},      {"\xE0\x80\x80", true},         {"\xF7\xBF\xBF\xBF", true},
        {"\xED\x9F\xBF", true},  {std::string("a\0b", 3), true}, {kMixedUtf8, true},
        {"\xED\xA0\x80", false}, {"\xED\xBF\xBF", false},        {"\xED", false},
        {"\xE4\xB8", false},     {"a\xE4\xB8\x96z\xC3", false},  {"\xC3\x28", false},
        {"\x80", false},         {"\xF8\x88\x80\x80", false},    {"", false}};
    for (const auto& [bytes, valid] : cases) {
        SCOPED_TRACE(::testing::PrintToString(bytes));
        EXPECT_EQ(C::IsU8(bytes), valid);
        EXPECT_EQ(C::StartsWithBom("\xEF\xBB\xBF" + bytes), valid || bytes.empty());
    }
    EXPECT_FALSE(C::StartsWithBom(kMixedUtf8));
    EXPECT_TRUE(C::IsASCII(std::string("\x7F\0a", 3)));
    EXPECT_FALSE(C::IsASCII("a\x80"));
}

TEST(CharsetCvtTest, MultilingualTextRoundTripsThroughEveryRoute) {
    EXPECT_EQ(C::U8ToU16(kMixedUtf8), MIXED_TEXT(u));
    EXPECT_EQ(C::U8ToU32(kMixedUtf8), MIXED_TEXT(U));
    EXPECT_EQ(C::U8ToW(kMixedUtf8), MIXED_TEXT(L));
    EXPECT_EQ(C::U16ToU8(MIXED_TEXT(u)), kMixedUtf8);
    EXPECT_EQ(C::U32ToU8(MIXED_TEXT(U)), kMixedUtf8);
    EXPECT_EQ(C::WToU8(MIXED_TEXT(L)), kMixedUtf8);
    EXPECT_EQ(C::U8ToU32("\xED\x9F\xBF"), U"\uD7FF");  // borders the surrogates
    EXPECT_EQ(C::U16ToU8(u"\uD7FF"), "\xED\x9F\xBF");
}

TEST(CharsetCvtTest, WideRoutesRaiseOthersReplaceAndEmptyArgumentsAreReported) {
    EXPECT_EQ(ErrorOf([] { C::U8ToW("ok\xE4\xB8"); }), "bad conversion");
    EXPECT_EQ(ErrorOf([] { C::WToU8(std::wstring(1, 0xDC00)); }), "bad conversion");
    EXPECT_EQ(ErrorOf([] { C::U8ToMb("\xC0\x80"); }), "bad conversion");
    EXPECT_EQ(C::U8ToU32("\xE4\xB8z\xF0\x9F\x8C"), U"\uFFFDz\uFFFD");
    EXPECT_EQ(C::U8ToU16("\xF4\x90\x80\x80z"), u"\uFFFD\uFFFD\uFFFD\uFFFDz");
    EXPECT_EQ(C::U16ToU8(u"\xDC00z\xD800\xD83C\xDF0D"), u8"\uFFFDz\uFFFD\U0001F30D");
    EXPECT_EQ(C::U32ToU8(std::u32string{0xD800, U'z', 0x110000}), u8"\uFFFDz\uFFFD");

    testing::FixedLogTime time;
    testing::ConsoleCapture console;
    const std::string before = std::locale().name();
    for (const size_t size :
         {C::U8ToW("").size(), C::WToU8(L"").size(), C::U8ToU16("").size(), C::U16ToU8(u"").size(),
          C::U8ToU32("").size(), C::U32ToU8(U"").size(), C::U8ToMb("").size()}) {
        EXPECT_EQ(size, 0u);
    }
    EXPECT_EQ(std::locale().name(), before) << "U8ToMb of \"\" leaves the locale alone";
    std::string expected;
    for (const char* route : {"U8ToW", "WToU8", "U8ToU16", "U16ToU8", "U8ToU32", "U32ToU8"}) {
        expected += InfoLine(route, "Parameter is empty!");
    }
    expected += InfoLine("U8ToMb", "Parameter is Not a valid UTF-8 string!");
    EXPECT_EQ(testing::MaskLineNumbers(console.Text()), expected);
}

TEST(CharsetCvtLocaleTest, ConvertingPathsInstallTheUserLocale) {
    if (!UseUserLocale("C.UTF-8")) {
        GTEST_SKIP() << "C.UTF-8 is not installed";
    }
    testing::FixedLogTime time;
    testing::ConsoleCapture console;
    EXPECT_EQ(C::MbToU8("plain"), "plain");
    EXPECT_EQ(std::locale().name(), "C") << "UTF-8 input returns before the locale";
    EXPECT_EQ(C::MbToU8(""), "");
    EXPECT_EQ(std::locale().name(), "C.UTF-8") << "\"\" is no UTF-8, so it converts";
    std::locale::global(std::locale::classic());
    EXPECT_EQ(C::U8ToMb("plain"), "plain");
    EXPECT_EQ(std::locale().name(), "C.UTF-8") << "U8ToMb converts even ASCII";
    EXPECT_EQ(C::U8ToMb(kMixedUtf8), kMixedUtf8);
    // "ab" decodes, 0xFF does not: three input bytes leave a buffer of three wide characters.
    EXPECT_EQ(C::MbToU8("ab\xFF"), std::string("ab\0", 3));
    EXPECT_EQ(testing::MaskLineNumbers(console.Text()), InfoLine("MbToU8", "Convert error: 2"));
}

TEST(CharsetCvtLocaleTest, LocaleThatCannotBeBuiltRaisesBadLocaleName) {
    ASSERT_TRUE(platform::SetEnvironmentVariable(L"LC_ALL", L"xx_XX.nowhere"));
    // Windows takes the user's locale from its own settings: these variables change nothing.
    const std::string expected = testing::kWindows ? "no exception" : "bad locale name";
    EXPECT_EQ(ErrorOf([] { C::MbToU8("\xFF"); }), expected);
    EXPECT_EQ(ErrorOf([] { C::U8ToMb("a"); }), expected);
}

// A Latin-1 locale where the system has one; on Windows the ANSI code page, fixed for the whole
// process, that the test run names in ORVIK_TEST_ANSI_CODE_PAGE, once per code page.
TEST(CharsetCvtCodePageTest, ConvertsThroughTheAnsiCodePageAndCaseFoldingFollows) {
    std::wstring encoding =
        platform::EnvironmentVariable(L"ORVIK_TEST_ANSI_CODE_PAGE").value_or(L"");
    const char* const latin1[] = {"de_DE.ISO-8859-1", "en_US.ISO-8859-1", "de_DE.iso88591"};
    if (!testing::kWindows && std::any_of(std::begin(latin1), std::end(latin1), UseUserLocale)) {
        encoding = L"Latin-1";
    }
    const struct {
        std::wstring encoding;
        std::string native, utf8, lowered;       // lowered: ToLowerCase(native), if it is known
        std::string unrepresentable, encodedAs;  // UTF-8 the encoding lacks, and U8ToMb of it
        std::string cut;                         // native text that ends inside a character, if any
    } cases[] = {
        {L"Latin-1", "\xC4 Gr\xFC\xDF", "\xC3\x84 Gr\xC3\xBC\xC3\x9F", "\xE4 gr\xFC\xDF",
         "\xE4\xB8\x96", std::string(1, '\0'), ""},
        {L"1252", "\x80\xC4 Gr\xFC\xDF", "\xE2\x82\xAC\xC3\x84 Gr\xC3\xBC\xC3\x9F",
         "\x80\xE4 gr\xFC\xDF", "\xD0\x96", std::string(1, '\0'), ""},
        // "あ日本 AB" in Shift-JIS: two bytes a character, no trail byte a letter. What the C
        // runtime's tables make of a lone lead byte is its own affair.
        {L"932", "\x82\xA0\x93\xFA\x96\x7B AB", "\xE3\x81\x82\xE6\x97\xA5\xE6\x9C\xAC AB", "",
         "\xC3\x84", std::string(2, '\0'), "a\x82"},
    };
    const auto c = std::find_if(std::begin(cases), std::end(cases),
                                [&](const auto& c) { return c.encoding == encoding; });
    if (c == std::end(cases)) {
        GTEST_SKIP() << "no narrow encoding with a row here";
    }
    EXPECT_EQ(C::MbToU8(c->native), c->utf8);
    EXPECT_EQ(C::U8ToMb(c->utf8), c->native);
    EXPECT_EQ(c->lowered.empty() ? "" : StringUtils::ToLowerCase(c->native), c->lowered);
    testing::FixedLogTime time;
    testing::ConsoleCapture console;
    EXPECT_EQ(C::U8ToMb(c->unrepresentable), c->encodedAs);
    std::string expected = InfoLine("U8ToMb", "Convert error: 2");
    if (!c->cut.empty()) {  // the decoded part, then one NUL for each byte left
        EXPECT_EQ(C::MbToU8(c->cut), std::string("a\0", 2));
        expected += InfoLine("MbToU8", "Convert error: 1");
    }
    EXPECT_EQ(testing::MaskLineNumbers(console.Text()), expected);
}

TEST(CharsetCvtEnvTest, ReadsUtf8ValuesBelow255Bytes) {
    const std::wstring name = L"ORVIK_CHARSET_TEST";
    ASSERT_TRUE(platform::SetEnvironmentVariable(name, std::nullopt));
    EXPECT_EQ(C::GetEnv(name, "ignored"), "");
    ASSERT_TRUE(platform::SetEnvironmentVariable(name, L"Gr\u00FC\u00DFe \U0001F30D"));
    EXPECT_EQ(C::GetEnv(name + std::wstring(1, L'\0') + L"tail", "x"),  // ends at NUL
              u8"Gr\u00FC\u00DFe \U0001F30D");

    // The limit counts UTF-8 bytes: 256 of them from 128 elements.
    for (const std::wstring& value :
         {std::wstring(254, L'a'), std::wstring(255, L'a'), std::wstring(128, L'\u00E9')}) {
        ASSERT_TRUE(platform::SetEnvironmentVariable(name, value));
        EXPECT_EQ(C::GetEnv(name, ""), value.size() == 254 ? std::string(254, 'a') : "");
    }
}

}  // namespace
}  // namespace orvik
