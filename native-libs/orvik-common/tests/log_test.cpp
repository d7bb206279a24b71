#include "common/log.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "internal_log.h"
#include "support/console_capture.h"
#include "support/fake_clock.h"

namespace orvik {

// A log site of the library's own form; it returns the line of its ORVIK_LOG.
struct MacroProbe {
    // clang-format off
    static int Emit(int value) { ORVIK_LOG(LOG_LEVEL_WARN, "probe %d", value); return __LINE__; }
    // clang-format on
};

namespace {

using testing::ConsoleCapture;
using testing::FakeClock;

struct CallbackCall {
    int hostLevel;
    std::string tag;
    std::string text;
};
std::vector<CallbackCall> callbackCalls;
void RecordCallback(int hostLevel, const char* tag, const char* text) {
    callbackCalls.push_back({hostLevel, tag != nullptr ? tag : "(null)", text});
}
void OtherCallback(int, const char*, const char*) {}

std::vector<std::string> sinkLines;
void RecordSink(const char* text) {
    sinkLines.push_back(text);
}
LOG_LEVEL VerboseThreshold() {
    return LOG_LEVEL_VERBOSE;
}
LOG_LEVEL FatalThreshold() {
    return LOG_LEVEL_FATAL;
}

const char kWorkedLine[] =
    "[2024-07-22 19:58:48.7][ERROR][sys_info:37][orvik::SysInfo::GetClientOsInfo] "
    "GetOSManufacturingModel Failed";

class LogTest : public ::testing::Test {
protected:
    void SetUp() override {
        callbackCalls.clear();
        sinkLines.clear();
    }
    // 7 ms into 2024-07-22 19:58:48 local time.
    FakeClock clock_{FakeClock::AtMillis(FakeClock::LocalMillis(2024, 7, 22, 19, 58, 48, 7))};
};

TEST_F(LogTest, WorkedExampleReachesConsoleAndCallbackByteForByte) {
    Log& log = Log::GetInstance();
    log.SetLoggerCallback(&RecordCallback);
    ConsoleCapture console;

    log.DoLog(LOG_LEVEL_ERROR, "host-tag", "src\\sys_info", 37, "orvik::SysInfo::GetClientOsInfo",
              "GetOSManufacturingModel Failed");

    EXPECT_EQ(console.Text(), std::string("OV_LOG:[ERROR]") + kWorkedLine + "\n");
    ASSERT_EQ(callbackCalls.size(), 1u);
    EXPECT_EQ(callbackCalls[0].hostLevel, 4);
    EXPECT_EQ(callbackCalls[0].tag, "host-tag");
    EXPECT_EQ(callbackCalls[0].text, kWorkedLine);
}

TEST_F(LogTest, MillisecondsArePrintedUnpadded) {
    const std::int64_t second = FakeClock::LocalMillis(2024, 7, 22, 19, 58, 48, 0);
    const struct {
        int millis;
        const char* expected;
    } cases[] = {{0, "[2024-07-22 19:58:48.0]"},
                 {45, "[2024-07-22 19:58:48.45]"},
                 {120, "[2024-07-22 19:58:48.120]"},
                 {999, "[2024-07-22 19:58:48.999]"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.millis);
        clock_.Set(FakeClock::AtMillis(second + c.millis));
        sinkLines.clear();
        OvLog(LOG_LEVEL_INFO, &RecordSink, nullptr, "f", 1, "fn", "m");
        ASSERT_EQ(sinkLines.size(), 1u);
        EXPECT_EQ(sinkLines[0], std::string(c.expected) + "[INFO][f:1][fn] m");
    }
}

TEST_F(LogTest, LineOf2047BytesArrivesWholeAndLongerLinesArriveEmpty) {
    const std::string prefix = "[2024-07-22 19:58:48.7][INFO][f:1][fn] ";
    const std::string fits(2047 - prefix.size(), 'x');
    const std::string tooLong(fits.size() + 1, 'x');

    OvLog(LOG_LEVEL_INFO, &RecordSink, nullptr, "f", 1, "fn", "%s", fits.c_str());
    OvLog(LOG_LEVEL_INFO, &RecordSink, nullptr, "f", 1, "fn", "%s", tooLong.c_str());
    ASSERT_EQ(sinkLines.size(), 2u);
    EXPECT_EQ(sinkLines[0], prefix + fits);
    EXPECT_EQ(sinkLines[0].size(), 2047u);
    EXPECT_EQ(sinkLines[1], "");

    // A line that does not fit still reaches the receivers, as the empty text.
    Log::GetInstance().SetLoggerCallback(&RecordCallback);
    ConsoleCapture console;
    Log::GetInstance().DoLog(LOG_LEVEL_WARN, "t", "f", 1, "fn", "%s", tooLong.c_str());
    EXPECT_EQ(console.Text(), "OV_LOG:[WARN]\n");
    ASSERT_EQ(callbackCalls.size(), 1u);
    EXPECT_EQ(callbackCalls[0].text, "");
}

TEST_F(LogTest, GateSwitchAndCallbackDecideWhoReceivesEachEntrance) {
    Log& log = Log::GetInstance();
    ConsoleCapture console;

    log.DoLog(LOG_LEVEL_INFO, "f", 1, "fn", "at threshold");
    EXPECT_NE(console.Text().find("at threshold"), std::string::npos);

    console.Clear();
    log.SetLevel(LOG_LEVEL_DEBUG);  // stored as INFO
    log.DoLog(LOG_LEVEL_DEBUG, "f", 1, "fn", "debug");
    log.DoLog(LOG_LEVEL_DEBUG, "finished debug line");
    EXPECT_EQ(console.Text(), "");

    log.SetLoggerCallback(&RecordCallback);
    log.DoLog(LOG_LEVEL_ERROR, "f", 1, "fn", "plain form");
    EXPECT_TRUE(callbackCalls.empty()) << "the plain form never feeds the callback";

    console.Clear();
    log.SetLogEnabled(false);
    log.DoLog(LOG_LEVEL_VERBOSE, "t", "f", 1, "fn", "verbose");
    log.DoLog(LOG_LEVEL_FATAL, "t", "f", 1, "fn", "fatal");
    log.DoLog(LOG_LEVEL_FATAL, "f", 1, "fn", "plain while off");
    log.DoLog(LOG_LEVEL_FATAL, "text while off");
    EXPECT_EQ(console.Text(), "");
    ASSERT_EQ(callbackCalls.size(), 2u);
    EXPECT_EQ(callbackCalls[0].hostLevel, 0);
    EXPECT_NE(callbackCalls[0].text.find("[VERBOSE]"), std::string::npos);
    EXPECT_EQ(callbackCalls[1].hostLevel, 5);

    log.SetLogEnabled(true);
    log.DoLog(LOG_LEVEL_ERROR, "finished line");
    EXPECT_EQ(console.Text(), "OV_LOG:[ERROR]finished line\n");
}

TEST_F(LogTest, HostLevelsAndConsolePrefixesFollowTheLevelTable) {
    Log& log = Log::GetInstance();
    log.SetLoggerCallback(&RecordCallback);
    ConsoleCapture console;
    const struct {
        LOG_LEVEL level;
        int hostLevel;
        const char* name;
        const char* consolePrefix;
    } cases[] = {{LOG_LEVEL_FATAL, 5, "FATAL", "OV_LOG:[FATAL]"},
                 {LOG_LEVEL_ERROR, 4, "ERROR", "OV_LOG:[ERROR]"},
                 {LOG_LEVEL_WARN, 3, "WARN", "OV_LOG:[WARN]"},
                 {LOG_LEVEL_INFO, 2, "INFO", "OV_LOG:[INFO]"},
                 {static_cast<LOG_LEVEL>(-1), 0, "", "OV_LOG:[FATAL]"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        callbackCalls.clear();
        console.Clear();
        log.DoLog(c.level, "t", "f", 1, "fn", "m");
        ASSERT_EQ(callbackCalls.size(), 1u);
        EXPECT_EQ(callbackCalls[0].hostLevel, c.hostLevel);
        EXPECT_NE(callbackCalls[0].text.find(std::string("][") + c.name + "][f:1]"),
                  std::string::npos);
        if (c.level >= 0) {
            EXPECT_EQ(console.Text(), c.consolePrefix + callbackCalls[0].text + "\n");
        }
    }
    // Values outside the table have no console prefix; -1 passes the gate but is not written.
    console.Clear();
    log.DoLog(static_cast<LOG_LEVEL>(-1), "f", 1, "fn", "m");
    log.DoLog(static_cast<LOG_LEVEL>(9), "t", "f", 1, "fn", "m");
    EXPECT_EQ(console.Text(), "");
    EXPECT_EQ(callbackCalls.back().hostLevel, 0);
}

TEST_F(LogTest, FileNameIsCutAtTheLastBackslashOnly) {
    const struct {
        const char* file;
        const char* shown;
    } cases[] = {
        {"a\\b\\c", "[c:1]"}, {"a/b/c", "[a/b/c:1]"}, {"x\\", "[:1]"}, {nullptr, "[(null):1]"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.shown);
        sinkLines.clear();
        OvLog(LOG_LEVEL_INFO, &RecordSink, nullptr, c.file, 1, nullptr, "m");
        ASSERT_EQ(sinkLines.size(), 1u);
        EXPECT_NE(sinkLines[0].find(std::string(c.shown) + "[(null)] m"), std::string::npos)
            << sinkLines[0];
    }
}

TEST_F(LogTest, FirstNonNullCallbackStaysForGood) {
    Log& log = Log::GetInstance();
    log.SetLoggerCallback(nullptr);
    log.SetLoggerCallback(&RecordCallback);
    log.SetLoggerCallback(&OtherCallback);
    log.SetLoggerCallback(nullptr);
    log.DoLog(LOG_LEVEL_INFO, "t", "f", 1, "fn", "m");
    EXPECT_EQ(callbackCalls.size(), 1u);
}

TEST_F(LogTest, OvLogThresholdComesFromGetterOnlyWithBothSinkAndGetter) {
    Log& log = Log::GetInstance();
    log.SetLevel(LOG_LEVEL_FATAL);

    OvLog(LOG_LEVEL_INFO, &RecordSink, nullptr, "f", 1, "fn", "info");
    OvLog(LOG_LEVEL_DEBUG, &RecordSink, nullptr, "f", 1, "fn", "debug");
    OvLog(LOG_LEVEL_VERBOSE, &RecordSink, &VerboseThreshold, "f", 1, "fn", "verbose");
    OvLog(LOG_LEVEL_ERROR, &RecordSink, &FatalThreshold, "f", 1, "fn", "error");
    ASSERT_EQ(sinkLines.size(), 2u);
    EXPECT_NE(sinkLines[0].find("] info"), std::string::npos);
    EXPECT_NE(sinkLines[1].find("[VERBOSE]"), std::string::npos);

    // With no sink the line goes to Log's text form, which applies Log's gate once more.
    ConsoleCapture console;
    OvLog(LOG_LEVEL_INFO, nullptr, &VerboseThreshold, "f", 1, "fn", "stopped by Log");
    OvLog(LOG_LEVEL_FATAL, nullptr, nullptr, "f", 1, "fn", "passes");
    EXPECT_EQ(console.Text(), "OV_LOG:[FATAL][2024-07-22 19:58:48.7][FATAL][f:1][fn] passes\n");
}

class BracketLogger : public Logger {
public:
    void VFormat(LOG_LEVEL, std::string& out, const char*, int, const char*, const char* fmt,
                 va_list args) override {
        char text[64];
        std::vsnprintf(text, sizeof text, fmt, args);
        out = std::string("<") + text + ">";
    }
};

TEST_F(LogTest, DerivedLoggerChangesDoLogButNotOvLog) {
    Log& log = Log::GetInstance();
    log.SetLogger(std::make_unique<BracketLogger>());
    log.SetLoggerCallback(&RecordCallback);
    ConsoleCapture console;

    log.DoLog(LOG_LEVEL_WARN, "f", 1, "fn", "n=%d", 5);
    log.DoLog(LOG_LEVEL_WARN, "t", "f", 1, "fn", "tagged");
    OvLog(LOG_LEVEL_WARN, &RecordSink, nullptr, "f", 1, "fn", "ov");

    EXPECT_EQ(console.Text(), "OV_LOG:[WARN]<n=5>\nOV_LOG:[WARN]<tagged>\n");
    ASSERT_EQ(sinkLines.size(), 1u);
    EXPECT_EQ(sinkLines[0], "[2024-07-22 19:58:48.7][WARN][f:1][fn] ov");
}

TEST_F(LogTest, LibraryLogSitesNameTheirQualifiedFunctionAndRelativeFile) {
    ConsoleCapture console;
    const int line = MacroProbe::Emit(7);
    EXPECT_EQ(console.Text(),
              "OV_LOG:[WARN][2024-07-22 19:58:48.7][WARN][native-libs/orvik-common/tests/"
              "log_test.cpp:" +
                  std::to_string(line) + "][orvik::MacroProbe::Emit] probe 7\n");
}

TEST(QualifiedFunctionNameTest, CutsTheNameOutOfEachCompilersSignature) {
    static constexpr auto gcc = detail::QualifiedFunctionName(
        "bool orvik::BlockingQueue<T>::Push(const T&, int) [with T = std::function<void()>]");
    static constexpr auto clang = detail::QualifiedFunctionName(
        "std::vector<std::basic_string<char> > orvik::StringUtils::SplitString(const "
        "std::string &, const std::string &)");
    static constexpr auto msvc = detail::QualifiedFunctionName(
        "orvik::BlockingQueue<class std::function<void __cdecl(void)> >::Push");
    static constexpr auto lambda =
        detail::QualifiedFunctionName("orvik::ThreadPool::RunTask(const int&)::<lambda()>");
    EXPECT_STREQ(gcc.text, "orvik::BlockingQueue::Push");
    EXPECT_STREQ(clang.text, "orvik::StringUtils::SplitString");
    EXPECT_STREQ(msvc.text, "orvik::BlockingQueue::Push");
    EXPECT_STREQ(lambda.text, "orvik::ThreadPool::RunTask");
}

}  // namespace
}  // namespace orvik
