#include "common/log.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "support/console_capture.h"
#include "support/library_log_lines.h"

namespace orvik {

namespace {

using Lines = std::vector<std::string>;

Lines calls, sunk;  // one "hostLevel|tag|text" per callback call; the lines OvLog hands kSink
void RecordCallback(int hostLevel, const char* tag, const char* text) {
    calls.push_back(std::to_string(hostLevel) + "|" + tag + "|" + text);
}
const LogTextSink kSink = [](const char* text) { sunk.push_back(text); };
const LogLevelGetter kVerbose = [] { return LOG_LEVEL_VERBOSE; };
const LogLevelGetter kFatal = [] { return LOG_LEVEL_FATAL; };

std::string Line(const std::string& level, const std::string& message) {
    return "[2024-07-22 19:58:48.7][" + level + "][f:1][fn] " + message;
}

struct LogTest : ::testing::Test {
    testing::FixedLogTime clock_;
    testing::ConsoleCapture console_;
};

// While logging is on the console takes levels down to the threshold (DEBUG is stored as INFO);
// the tagged form feeds the first callback other than null kept at every level, also while off.
TEST_F(LogTest, SwitchGateAndCallbackDecideWhoReceivesEachEntrance) {
    Log& log = Log::GetInstance();
    log.SetLoggerCallback(nullptr);
    log.SetLoggerCallback(&RecordCallback);
    log.SetLoggerCallback([](int, const char*, const char*) {});
    log.SetLogEnabled(false);
    log.DoLog(LOG_LEVEL_FATAL, "t", "f", 1, "fn", "x");
    log.DoLog(LOG_LEVEL_FATAL, "f", 1, "fn", "plain while off");
    log.DoLog(LOG_LEVEL_FATAL, "text while off");
    log.SetLogEnabled(true);
    log.SetLevel(LOG_LEVEL_DEBUG);
    for (int level : {0, 1, 2, 3, 4, 5, -1, 9}) {
        log.DoLog(static_cast<LOG_LEVEL>(level), "t", "f", 1, "fn", "m");
    }
    log.DoLog(LOG_LEVEL_ERROR, "f", 1, "fn", "plain");  // the plain form never feeds the callback
    log.DoLog(LOG_LEVEL_DEBUG, "f", 1, "fn", "plain");
    log.DoLog(LOG_LEVEL_DEBUG, "finished debug line");
    const std::string longLine(5000, 'y');
    log.DoLog(LOG_LEVEL_ERROR, longLine.c_str());
    EXPECT_EQ(calls, (Lines{"5|t|" + Line("FATAL", "x"), "5|t|" + Line("FATAL", "m"),
                            "4|t|" + Line("ERROR", "m"), "3|t|" + Line("WARN", "m"),
                            "2|t|" + Line("INFO", "m"), "1|t|" + Line("DEBUG", "m"),
                            "0|t|" + Line("VERBOSE", "m"), "0|t|" + Line("", "m"),
                            "0|t|" + Line("", "m")}));
    std::string written;  // down to the threshold, and never -1
    for (std::string name : {"FATAL", "ERROR", "WARN", "INFO"})
        written += "OV_LOG:[" + name + "]" + Line(name, "m") + "\n";
    EXPECT_EQ(console_.Text(), written + "OV_LOG:[ERROR]" + Line("ERROR", "plain") +
                                   "\nOV_LOG:[ERROR]" + longLine + "\n");
}

// Writes the bare format, so its lines show where it was used.
struct FormatLogger : Logger {
    void VFormat(LOG_LEVEL, std::string& out, const char*, int, const char*, const char* fmt,
                 va_list) override {
        out = fmt;
    }
};

// A derived Logger changes the two formatting DoLog forms only; OvLog keeps the standard line
// (unpadded milliseconds, file cut at the last backslash, longer than 2047 bytes: empty). Its
// threshold is the getter's given sink and getter, else INFO; with no sink Log's gate applies.
TEST_F(LogTest, OvLogWritesTheStandardLineWhateverLogsLoggerAndThreshold) {
    Log& log = Log::GetInstance();
    log.SetLogger(std::make_unique<FormatLogger>());
    log.SetLevel(LOG_LEVEL_FATAL);
    log.DoLog(LOG_LEVEL_FATAL, "f", 1, "fn", "n=%d", 5);
    log.DoLog(LOG_LEVEL_FATAL, "t", "f", 1, "fn", "tagged");
    const long long second = testing::FakeClock::LocalMillis(2024, 7, 22, 19, 58, 48, 0);
    const std::tuple<long long, const char*, const char*, const char*> cases[] = {
        {second, nullptr, "(null)", "2024-07-22 19:58:48.0"},
        {second + 45, "a\\b\\c", "c", "2024-07-22 19:58:48.45"},
        {second + 999, "a\\b/c", "b/c", "2024-07-22 19:58:48.999"},
        {second + 1007, "f", "f", "2024-07-22 19:58:49.7"},
        {second + 7, "f", "f", "2024-07-22 19:58:48.7"},  // back into the second before
    };
    for (const auto& [millis, file, shown, time] : cases) {
        clock_.Set(testing::FakeClock::AtMillis(millis));
        OvLog(LOG_LEVEL_INFO, kSink, nullptr, file, 1, nullptr, "m");
        EXPECT_EQ(sunk.back(), "[" + std::string(time) + "][INFO][" + shown + ":1][(null)] m");
    }
    sunk.clear();
    const std::string fits(2047 - Line("WARN", "").size(), 'x');
    OvLog(LOG_LEVEL_WARN, kSink, nullptr, "f", 1, "fn", "%s", fits.c_str());
    OvLog(LOG_LEVEL_WARN, kSink, nullptr, "f", 1, "fn", "%s", (fits + "x").c_str());
    OvLog(LOG_LEVEL_DEBUG, kSink, nullptr, "f", 1, "fn", "debug");
    OvLog(LOG_LEVEL_VERBOSE, kSink, kVerbose, "f", 1, "fn", "verbose");
    OvLog(LOG_LEVEL_ERROR, kSink, kFatal, "f", 1, "fn", "error");
    EXPECT_EQ(sunk, (Lines{Line("WARN", fits), "", Line("VERBOSE", "verbose")}));
    OvLog(LOG_LEVEL_INFO, nullptr, kVerbose, "f", 1, "fn", "stopped by Log");
    OvLog(LOG_LEVEL_FATAL, nullptr, nullptr, "f", 1, "fn", "passes");
    EXPECT_EQ(console_.Text(), "OV_LOG:[FATAL]n=%d\nOV_LOG:[FATAL]tagged\nOV_LOG:[FATAL]" +
                                   Line("FATAL", "passes") + "\n");
}

}  // namespace
}  // namespace orvik
