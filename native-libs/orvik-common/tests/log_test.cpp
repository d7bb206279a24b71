#include "common/log.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "internal/internal_log.h"
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
using Lines = std::vector<std::string>;

Lines calls;  // one "hostLevel|tag|text" per callback call
Lines sunk;   // the lines OvLog handed to kSink
void RecordCallback(int hostLevel, const char* tag, const char* text) {
    calls.push_back(std::to_string(hostLevel) + "|" + tag + "|" + text);
}
const LogTextSink kSink = [](const char* text) { sunk.push_back(text); };
const LogLevelGetter kVerbose = [] { return LOG_LEVEL_VERBOSE; };
const LogLevelGetter kFatal = [] { return LOG_LEVEL_FATAL; };

// The standard line of a message logged from "f", line 1, function "fn" at the fixed time.
std::string Line(const std::string& level, const std::string& message) {
    return "[2024-07-22 19:58:48.7][" + level + "][f:1][fn] " + message;
}

class LogTest : public ::testing::Test {
protected:
    FakeClock clock_{FakeClock::AtMillis(FakeClock::LocalMillis(2024, 7, 22, 19, 58, 48, 7))};
};

// Only the first callback other than null is kept, for good.
TEST_F(LogTest, WorkedExampleReachesConsoleAndTheFirstCallbackByteForByte) {
    const std::string line =
        "[2024-07-22 19:58:48.7][ERROR][sys_info:37][orvik::SysInfo::GetClientOsInfo] "
        "GetOSManufacturingModel Failed";
    Log& log = Log::GetInstance();
    log.SetLoggerCallback(nullptr);
    log.SetLoggerCallback(&RecordCallback);
    log.SetLoggerCallback([](int, const char*, const char*) {});
    log.SetLoggerCallback(nullptr);
    ConsoleCapture console;
    log.DoLog(LOG_LEVEL_ERROR, "host-tag", "src\\sys_info", 37, "orvik::SysInfo::GetClientOsInfo",
              "GetOSManufacturingModel Failed");
    EXPECT_EQ(console.Text(), "OV_LOG:[ERROR]" + line + "\n");
    EXPECT_EQ(calls, Lines{"4|host-tag|" + line});
}

// The date-time text follows the clock from line to line, into the next second and back.
TEST_F(LogTest, MillisecondsAreUnpaddedAndTheFileIsCutAtTheLastBackslash) {
    const std::int64_t second = FakeClock::LocalMillis(2024, 7, 22, 19, 58, 48, 0);
    const std::int64_t lastOfYear = FakeClock::LocalMillis(2024, 12, 31, 23, 59, 59, 0);
    const std::tuple<std::int64_t, const char*, const char*, const char*> cases[] = {
        {second, nullptr, "(null)", "2024-07-22 19:58:48.0"},
        {second + 45, "a\\b\\c", "c", "2024-07-22 19:58:48.45"},
        {second + 120, "a/b/c", "a/b/c", "2024-07-22 19:58:48.120"},
        {second + 999, "x\\", "", "2024-07-22 19:58:48.999"},
        {second + 1007, "f", "f", "2024-07-22 19:58:49.7"},
        {second + 7, "f", "f", "2024-07-22 19:58:48.7"},
        {lastOfYear + 999, "f", "f", "2024-12-31 23:59:59.999"},
        {lastOfYear + 1000, "f", "f", "2025-01-01 00:00:00.0"},
    };
    for (const auto& [millis, file, shown, time] : cases) {
        SCOPED_TRACE(time);
        clock_.Set(FakeClock::AtMillis(millis));
        sunk.clear();
        OvLog(LOG_LEVEL_INFO, kSink, nullptr, file, 1, nullptr, "m");
        EXPECT_EQ(sunk, Lines{"[" + std::string(time) + "][INFO][" + shown + ":1][(null)] m"});
    }
}

TEST_F(LogTest, LineOf2047BytesArrivesWholeAndLongerLinesArriveEmpty) {
    const std::string fits(2047 - Line("WARN", "").size(), 'x');
    const std::string tooLong = fits + "x";
    OvLog(LOG_LEVEL_WARN, kSink, nullptr, "f", 1, "fn", "%s", fits.c_str());
    OvLog(LOG_LEVEL_WARN, kSink, nullptr, "f", 1, "fn", "%s", tooLong.c_str());
    EXPECT_EQ(sunk, (Lines{Line("WARN", fits), ""}));

    Log::GetInstance().SetLoggerCallback(&RecordCallback);
    ConsoleCapture console;
    Log::GetInstance().DoLog(LOG_LEVEL_WARN, "t", "f", 1, "fn", "%s", tooLong.c_str());
    EXPECT_EQ(console.Text(), "OV_LOG:[WARN]\n");
    EXPECT_EQ(calls, Lines{"3|t|"});
}

TEST_F(LogTest, SwitchGateAndCallbackDecideWhoReceivesEachEntrance) {
    Log& log = Log::GetInstance();
    log.SetLoggerCallback(&RecordCallback);
    log.SetLevel(LOG_LEVEL_DEBUG);  // stored as INFO
    ConsoleCapture console;
    for (int level : {0, 1, 2, 3, 4, 5, -1, 9}) {
        log.DoLog(static_cast<LOG_LEVEL>(level), "t", "f", 1, "fn", "m");
    }
    log.DoLog(LOG_LEVEL_ERROR, "f", 1, "fn", "plain");  // the plain form never feeds the callback
    log.DoLog(LOG_LEVEL_DEBUG, "f", 1, "fn", "plain");
    log.DoLog(LOG_LEVEL_DEBUG, "finished debug line");
    EXPECT_EQ(calls, (Lines{"5|t|" + Line("FATAL", "m"), "4|t|" + Line("ERROR", "m"),
                            "3|t|" + Line("WARN", "m"), "2|t|" + Line("INFO", "m"),
                            "1|t|" + Line("DEBUG", "m"), "0|t|" + Line("VERBOSE", "m"),
                            "0|t|" + Line("", "m"), "0|t|" + Line("", "m")}));
    std::string written;  // down to the threshold, and never -1
    for (std::string name : {"FATAL", "ERROR", "WARN", "INFO"}) {
        written += "OV_LOG:[" + name + "]" + Line(name, "m") + "\n";
    }
    EXPECT_EQ(console.Text(), written + "OV_LOG:[ERROR]" + Line("ERROR", "plain") + "\n");

    // Switched off, only the callback of the tagged form still receives.
    console.Clear();
    calls.clear();
    log.SetLogEnabled(false);
    log.DoLog(LOG_LEVEL_FATAL, "t", "f", 1, "fn", "x");
    log.DoLog(LOG_LEVEL_FATAL, "f", 1, "fn", "plain while off");
    log.DoLog(LOG_LEVEL_FATAL, "text while off");
    EXPECT_EQ(console.Text(), "");
    EXPECT_EQ(calls, Lines{"5|t|" + Line("FATAL", "x")});
    log.SetLogEnabled(true);
    log.DoLog(LOG_LEVEL_ERROR, "finished line");
    EXPECT_EQ(console.Text(), "OV_LOG:[ERROR]finished line\n");
    // A finished line has no length limit of its own.
    console.Clear();
    const std::string longLine(5000, 'y');
    log.DoLog(LOG_LEVEL_ERROR, longLine.c_str());
    EXPECT_EQ(console.Text(), "OV_LOG:[ERROR]" + longLine + "\n");
}

// Writes the bare format, so its lines show where it was used.
class FormatLogger : public Logger {
public:
    void VFormat(LOG_LEVEL, std::string& out, const char*, int, const char*, const char* fmt,
                 va_list) override {
        out = fmt;
    }
};

// A derived Logger changes the two formatting DoLog forms only. OvLog keeps the standard line
// and takes its threshold from the getter only when it has both sink and getter, else INFO.
TEST_F(LogTest, OvLogIgnoresLogsLoggerAndThreshold) {
    Log& log = Log::GetInstance();
    log.SetLogger(std::make_unique<FormatLogger>());
    log.SetLevel(LOG_LEVEL_FATAL);
    ConsoleCapture console;
    log.DoLog(LOG_LEVEL_FATAL, "f", 1, "fn", "n=%d", 5);
    log.DoLog(LOG_LEVEL_FATAL, "t", "f", 1, "fn", "tagged");
    EXPECT_EQ(console.Text(), "OV_LOG:[FATAL]n=%d\nOV_LOG:[FATAL]tagged\n");

    OvLog(LOG_LEVEL_INFO, kSink, nullptr, "f", 1, "fn", "info");
    OvLog(LOG_LEVEL_DEBUG, kSink, nullptr, "f", 1, "fn", "debug");
    OvLog(LOG_LEVEL_VERBOSE, kSink, kVerbose, "f", 1, "fn", "verbose");
    OvLog(LOG_LEVEL_ERROR, kSink, kFatal, "f", 1, "fn", "error");
    EXPECT_EQ(sunk, (Lines{Line("INFO", "info"), Line("VERBOSE", "verbose")}));

    // With no sink the line goes to Log's text form, which applies Log's gate once more.
    console.Clear();
    OvLog(LOG_LEVEL_INFO, nullptr, kVerbose, "f", 1, "fn", "stopped by Log");
    OvLog(LOG_LEVEL_FATAL, nullptr, nullptr, "f", 1, "fn", "passes");
    EXPECT_EQ(console.Text(), "OV_LOG:[FATAL]" + Line("FATAL", "passes") + "\n");
}

TEST_F(LogTest, LibraryLogSitesNameTheirQualifiedFunctionAndRelativeFile) {
    ConsoleCapture console;
    const int line = MacroProbe::Emit(7);
    EXPECT_EQ(console.Text(),
              "OV_LOG:[WARN][2024-07-22 19:58:48.7][WARN][native-libs/orvik-common/"
              "tests/log_test.cpp:" +
                  std::to_string(line) + "][orvik::MacroProbe::Emit] probe 7\n");
}

template <std::size_t N>
std::string Cut(const char (&signature)[N]) {
    return detail::QualifiedFunctionName(signature).text;
}

TEST(QualifiedFunctionNameTest, CutsTheNameOutOfEachCompilersSignature) {
    EXPECT_EQ(
        Cut("bool orvik::BlockingQueue<T>::Push(const T&, int) [with T = std::function<void()>]"),
        "orvik::BlockingQueue::Push");
    EXPECT_EQ(Cut("std::vector<std::basic_string<char> > orvik::StringUtils::SplitString(const "
                  "std::string &, const std::string &)"),
              "orvik::StringUtils::SplitString");
    EXPECT_EQ(Cut("orvik::BlockingQueue<class std::function<void __cdecl(void)> >::Push"),
              "orvik::BlockingQueue::Push");
    EXPECT_EQ(Cut("orvik::ThreadPool::RunTask(const int&)::<lambda()>"),
              "orvik::ThreadPool::RunTask");
}

}  // namespace
}  // namespace orvik
