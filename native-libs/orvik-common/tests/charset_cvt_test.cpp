#include "common/charset_cvt.h"

#include <gtest/gtest.h>

#include <locale>
#include <optional>
#include <stdexcept>
#include <string>

#include "common/string_utils.h"
#include "platform/platform.h"
#include "support/console_capture.h"
#include "support/library_log_lines.h"

namespace orvik {
namespace {

using testing::ConsoleCapture;
using testing::FixedLogTime;
using testing::LibraryLine;
using testing::MaskLineNumbers;

std::string InfoLine(const std::string& func, const std::string& message) {
    return LibraryLine("INFO", "src/charset_cvt.cpp", "orvik::CharsetCvt::" + func, message);
}

// "Grüße, Привет, 世界 🌍": one- to four-byte sequences from four scripts.
const std::string kMixedUtf8 =
    "Gr\xC3\xBC\xC3\x9F"
    "e, \xD0\x9F\xD1\x80\xD0\xB8\xD0\xB2\xD0\xB5\xD1\x82, \xE4\xB8\x96\xE7\x95\x8C "
    "\xF0\x9F\x8C\x8D";

std::string Repeat(const std::string& piece, size_t times) {
    std::string text;
    for (size_t i = 0; i < times; ++i) {
        text += piece;
    }
    return text;
}

// Points the user's preferred locale (std::locale("")) at `name` through LC_ALL, if the system
// has that locale. Each test case runs in a process of its own, so this stays inside the test.
bool UseUserLocale(const std::string& name) {
    try {
        std::locale probe(name);
    } catch (const std::runtime_error&) {
        return false;
    }
    return platform::SetEnvironmentVariable(L"LC_ALL", std::wstring(name.begin(), name.end()));
}

TEST(CharsetCvtTest, IsU8JudgesShapeNotValue) {
    const struct {
        std::string bytes;
        bool isU8;
    } cases[] = {
        {"", false},
        {std::string("a\0b", 3), true},
        {"\xEF\xBF\xBF", true},      // U+FFFF
        {"\xF7\xBF\xBF\xBF", true},  // beyond U+10FFFF, still four-byte shape
        {"\xF4\x90\x80\x80", true},
        {"\xC0\x80", true},          // overlong NUL
        {"\xE0\x80\x80", true},      // overlong
        {"\xF0\x80\x80\x80", true},  // overlong
        {"\xED\x9F\xBF", true},      // U+D7FF, just below the surrogates
        {"\xED\xA0\x80", false},     // U+D800
        {"\xED\xBF\xBF", false},     // U+DFFF
        {"\xED", false},             // 0xED as the last byte
        {"\xF8\x88\x80\x80\x80", false},
        {"\xFF", false},
        {"\x80", false},                // a lone continuation byte
        {"\xE4\xB8", false},            // truncated
        {"a\xE4\xB8\x96z\xC3", false},  // truncated at the end after good sequences
        {"\xC3\x28", false},            // continuation byte of the wrong form
        {kMixedUtf8, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.bytes));
        EXPECT_EQ(CharsetCvt::IsU8(c.bytes), c.isU8);
        const bool bom = c.isU8 && c.bytes.compare(0, 3, "\xEF\xBB\xBF") == 0;
        EXPECT_EQ(CharsetCvt::StartsWithBom("\xEF\xBB\xBF" + c.bytes), c.isU8 || c.bytes.empty());
        EXPECT_EQ(CharsetCvt::StartsWithBom(c.bytes), bom);
    }
    EXPECT_TRUE(CharsetCvt::StartsWithBom("\xEF\xBB\xBF"));
    EXPECT_FALSE(CharsetCvt::StartsWithBom("\xEF\xBB\xBF\xFF"));
    EXPECT_TRUE(CharsetCvt::IsASCII("") && CharsetCvt::IsASCII(std::string("\x7F\0a", 3)));
    EXPECT_FALSE(CharsetCvt::IsASCII("a\x80"));
}

TEST(CharsetCvtTest, MultilingualTextRoundTripsThroughEveryRoute) {
    const std::u16string utf16 = CharsetCvt::U8ToU16(kMixedUtf8);
    const std::u32string utf32 = CharsetCvt::U8ToU32(kMixedUtf8);
    const std::wstring wide = CharsetCvt::U8ToW(kMixedUtf8);
    EXPECT_EQ(utf32,
              U"Gr\u00FC\u00DFe, \u041F\u0440\u0438\u0432\u0435\u0442, \u4E16\u754C "
              U"\U0001F30D");
    EXPECT_EQ(utf16,
              u"Gr\u00FC\u00DFe, \u041F\u0440\u0438\u0432\u0435\u0442, \u4E16\u754C "
              u"\U0001F30D");
    EXPECT_EQ(utf16.size(), utf32.size() + 1) << "U+1F30D is a surrogate pair";
    EXPECT_EQ(wide,
              L"Gr\u00FC\u00DFe, \u041F\u0440\u0438\u0432\u0435\u0442, \u4E16\u754C "
              L"\U0001F30D");
    EXPECT_EQ(CharsetCvt::U16ToU8(utf16), kMixedUtf8);
    EXPECT_EQ(CharsetCvt::U32ToU8(utf32), kMixedUtf8);
    EXPECT_EQ(CharsetCvt::WToU8(wide), kMixedUtf8);

    const std::string withNul("a\0\xC3\xA9", 4);
    EXPECT_EQ(CharsetCvt::U8ToU32(withNul), std::u32string(U"a\0\u00E9", 3));
    EXPECT_EQ(CharsetCvt::U16ToU8(std::u16string(u"a\0\u00E9", 3)), withNul);
}

TEST(CharsetCvtTest, UnconvertibleInputRaisesBadConversion) {
    const auto expectBadConversion = [](const char* what, auto convert) {
        SCOPED_TRACE(what);
        try {
            convert();
            ADD_FAILURE() << "no exception";
        } catch (const std::range_error& error) {
            EXPECT_STREQ(error.what(), "bad conversion");
        }
    };
    // Overlong and beyond-U+10FFFF forms pass IsU8 but are no code points.
    expectBadConversion("overlong", [] { CharsetCvt::U8ToU16("\xC0\x80"); });
    expectBadConversion("beyond U+10FFFF", [] { CharsetCvt::U8ToU32("\xF4\x90\x80\x80"); });
    expectBadConversion("truncated", [] { CharsetCvt::U8ToW("ok\xE4\xB8"); });
    expectBadConversion("lone high surrogate", [] { CharsetCvt::U16ToU8(u"a\xD800"); });
    expectBadConversion("lone low surrogate", [] { CharsetCvt::U16ToU8(u"\xDC00z"); });
    expectBadConversion("surrogate code point", [] { CharsetCvt::U32ToU8(U"\xD800"); });
    expectBadConversion("above U+10FFFF", [] { CharsetCvt::U32ToU8(std::u32string(1, 0x110000)); });
    expectBadConversion("wide surrogate", [] { CharsetCvt::WToU8(std::wstring(1, 0xDC00)); });
    expectBadConversion("U8ToMb of overlong", [] { CharsetCvt::U8ToMb("\xC0\x80"); });
}

TEST(CharsetCvtTest, EmptyArgumentsAreReportedByTheirRoute) {
    FixedLogTime time;
    ConsoleCapture console;
    EXPECT_TRUE(CharsetCvt::U8ToW("").empty());
    EXPECT_TRUE(CharsetCvt::WToU8(L"").empty());
    EXPECT_TRUE(CharsetCvt::U8ToU16("").empty());
    EXPECT_TRUE(CharsetCvt::U16ToU8(u"").empty());
    EXPECT_TRUE(CharsetCvt::U8ToU32("").empty());
    EXPECT_TRUE(CharsetCvt::U32ToU8(U"").empty());
    const std::string before = std::locale().name();
    EXPECT_TRUE(CharsetCvt::U8ToMb("").empty());
    EXPECT_EQ(std::locale().name(), before) << "U8ToMb of \"\" leaves the locale alone";
    EXPECT_EQ(MaskLineNumbers(console.Text()),
              InfoLine("U8ToW", "Parameter is empty!") + InfoLine("WToU8", "Parameter is empty!") +
                  InfoLine("U8ToU16", "Parameter is empty!") +
                  InfoLine("U16ToU8", "Parameter is empty!") +
                  InfoLine("U8ToU32", "Parameter is empty!") +
                  InfoLine("U32ToU8", "Parameter is empty!") +
                  InfoLine("U8ToMb", "Parameter is Not a valid UTF-8 string!"));
}

TEST(CharsetCvtLocaleTest, OnlyTheConvertingPathsInstallTheUserLocale) {
    if (!UseUserLocale("C.UTF-8")) {
        GTEST_SKIP() << "C.UTF-8 is not installed";
    }
    ConsoleCapture console;
    ASSERT_EQ(std::locale().name(), "C");
    EXPECT_EQ(CharsetCvt::MbToU8("plain"), "plain");
    EXPECT_EQ(std::locale().name(), "C") << "UTF-8 input returns before the locale";
    EXPECT_EQ(CharsetCvt::MbToU8(""), "");
    EXPECT_EQ(std::locale().name(), "C.UTF-8") << "\"\" is no UTF-8, so it converts";
    EXPECT_EQ(console.Text(), "");
}

TEST(CharsetCvtLocaleTest, U8ToMbOfAsciiInstallsTheUserLocale) {
    if (!UseUserLocale("C.UTF-8")) {
        GTEST_SKIP() << "C.UTF-8 is not installed";
    }
    EXPECT_EQ(CharsetCvt::U8ToMb("plain"), "plain");
    EXPECT_EQ(std::locale().name(), "C.UTF-8");
    EXPECT_EQ(CharsetCvt::U8ToMb(kMixedUtf8), kMixedUtf8);
}

TEST(CharsetCvtLocaleTest, UndecodableBytesLogAndLeaveNulPadding) {
    if (!UseUserLocale("C.UTF-8")) {
        GTEST_SKIP() << "C.UTF-8 is not installed";
    }
    FixedLogTime time;
    ConsoleCapture console;
    // "ab" decodes, 0xFF does not: three input bytes leave a buffer of three wide characters.
    EXPECT_EQ(CharsetCvt::MbToU8("ab\xFF"), std::string("ab\0", 3));
    EXPECT_EQ(MaskLineNumbers(console.Text()), InfoLine("MbToU8", "Convert error: 2"));
}

TEST(CharsetCvtLocaleTest, Latin1LocaleConvertsBothWaysAndCaseFoldingFollows) {
    const char* const names[] = {"de_DE.ISO-8859-1", "en_US.ISO-8859-1", "fr_FR.ISO-8859-1",
                                 "de_DE.iso88591", "en_US.iso88591"};
    const char* found = nullptr;
    for (const char* name : names) {
        if (UseUserLocale(name)) {
            found = name;
            break;
        }
    }
    if (found == nullptr) {
        GTEST_SKIP() << "no Latin-1 locale is installed";
    }
    SCOPED_TRACE(found);
    const std::string latin1 =
        "Gr\xFC\xDF"
        "e \xC4";  // "Grüße Ä"
    const std::string utf8 =
        "Gr\xC3\xBC\xC3\x9F"
        "e \xC3\x84";
    EXPECT_EQ(CharsetCvt::MbToU8(latin1), utf8);
    EXPECT_EQ(CharsetCvt::U8ToMb(utf8), latin1);
    EXPECT_EQ(StringUtils::ToLowerCase("\xC4"), "\xE4") << "the installed locale folds case";

    FixedLogTime time;
    ConsoleCapture console;
    EXPECT_EQ(CharsetCvt::U8ToMb("\xE4\xB8\x96"), std::string(1, '\0')) << "no Latin-1 form";
    EXPECT_EQ(MaskLineNumbers(console.Text()), InfoLine("U8ToMb", "Convert error: 2"));
}

TEST(CharsetCvtEnvTest, ReadsUtf8ValuesWithinTheLimits) {
    ConsoleCapture console;
    const std::wstring name = L"ORVIK_CHARSET_TEST";
    ASSERT_TRUE(platform::SetEnvironmentVariable(name, std::nullopt));
    EXPECT_EQ(CharsetCvt::GetEnv(name, "ignored"), "");

    ASSERT_TRUE(platform::SetEnvironmentVariable(name, L"Gr\u00FC\u00DFe \U0001F30D"));
    EXPECT_EQ(CharsetCvt::GetEnv(name, ""),
              "Gr\xC3\xBC\xC3\x9F"
              "e \xF0\x9F\x8C\x8D");
    EXPECT_EQ(CharsetCvt::GetEnv(name + std::wstring(1, L'\0') + L"tail", "x"),
              "Gr\xC3\xBC\xC3\x9F"
              "e \xF0\x9F\x8C\x8D")
        << "the name ends at its first NUL";

    const struct {
        std::wstring value;
        std::string expected;
    } cases[] = {
        {L"", ""},
        {std::wstring(254, L'a'), std::string(254, 'a')},
        {std::wstring(255, L'a'), ""},                            // 255 UTF-8 bytes
        {std::wstring(127, L'\u00E9'), Repeat("\xC3\xA9", 127)},  // 254 UTF-8 bytes
        {std::wstring(128, L'\u00E9'), ""},                       // 256 UTF-8 bytes
        {std::wstring(300, L'a'), ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.value.size());
        ASSERT_TRUE(platform::SetEnvironmentVariable(name, c.value));
        EXPECT_EQ(CharsetCvt::GetEnv(name, ""), c.expected);
    }
    EXPECT_EQ(console.Text(), "");
}

}  // namespace
}  // namespace orvik
