// Logging beside spdlog, each through its process-wide entry point:
//   - a message below the threshold: Log::GetInstance().DoLog against spdlog::debug on a default
//     logger at level info (its runtime level check);
//   - one formatted line to the console writer against spdlog's pattern formatter with the same
//     fields (both levels, date-time with milliseconds, file, line, function, message) on the same
//     sink: std::cout, flushed after each line.
// While a line benchmark runs, std::cout writes into a buffer that drops the bytes, so both sides
// pay the formatting and the stream, not the terminal.
#include <benchmark/benchmark.h>
#include <spdlog/sinks/ostream_sink.h>
#include <spdlog/spdlog.h>

#include <iostream>
#include <memory>
#include <streambuf>

#include "common/log.h"

namespace {

// Accepts everything and keeps nothing.
class DiscardingBuffer : public std::streambuf {
protected:
    int_type overflow(int_type c) override { return traits_type::not_eof(c); }
    std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
};

// Points std::cout at a DiscardingBuffer for its lifetime.
class DiscardConsole {
public:
    DiscardConsole() : previous_(std::cout.rdbuf(&discard_)) {}
    ~DiscardConsole() { std::cout.rdbuf(previous_); }
    DiscardConsole(const DiscardConsole&) = delete;
    DiscardConsole& operator=(const DiscardConsole&) = delete;

private:
    DiscardingBuffer discard_;
    std::streambuf* previous_;
};

// spdlog's default logger writing to std::cout, flushing each line, with the fields of our line.
void InstallSpdlogConsoleLogger() {
    static const bool installed = [] {
        auto sink = std::make_shared<spdlog::sinks::ostream_sink_mt>(std::cout, true);
        auto logger = std::make_shared<spdlog::logger>("bench", std::move(sink));
        logger->set_pattern("OV_LOG:[%l][%Y-%m-%d %H:%M:%S.%e][%l][%s:%#][%!] %v");
        logger->set_level(spdlog::level::info);
        spdlog::set_default_logger(std::move(logger));
        return true;
    }();
    benchmark::DoNotOptimize(installed);
}

void BM_Log_BelowThreshold_Orvik(benchmark::State& state) {
    for (auto _ : state) {
        orvik::Log::GetInstance().DoLog(orvik::LOG_LEVEL_DEBUG, __FILE__, __LINE__, "bench",
                                        "value %d", 42);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Log_BelowThreshold_Orvik)->Name("BM_Log_BelowThreshold/orvik");

void BM_Log_BelowThreshold_Spdlog(benchmark::State& state) {
    InstallSpdlogConsoleLogger();
    for (auto _ : state) {
        spdlog::debug("value {}", 42);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Log_BelowThreshold_Spdlog)->Name("BM_Log_BelowThreshold/spdlog");

void BM_Log_ConsoleLine_Orvik(benchmark::State& state) {
    DiscardConsole console;
    for (auto _ : state) {
        orvik::Log::GetInstance().DoLog(orvik::LOG_LEVEL_INFO, __FILE__, __LINE__, "bench",
                                        "value %d of %s", 42, "a short message");
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Log_ConsoleLine_Orvik)->Name("BM_Log_ConsoleLine/orvik");

void BM_Log_ConsoleLine_Spdlog(benchmark::State& state) {
    InstallSpdlogConsoleLogger();
    DiscardConsole console;
    for (auto _ : state) {
        spdlog::log(spdlog::source_loc{__FILE__, __LINE__, "bench"}, spdlog::level::info,
                    "value {} of {}", 42, "a short message");
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Log_ConsoleLine_Spdlog)->Name("BM_Log_ConsoleLine/spdlog");

// OvLog's line handed to a caller's sink, which drops it; no peer.
void DiscardLine(const char* text) {
    benchmark::DoNotOptimize(text);
}

void BM_Log_FormattedLineToSink(benchmark::State& state) {
    for (auto _ : state) {
        orvik::OvLog(orvik::LOG_LEVEL_INFO, &DiscardLine, nullptr, __FILE__, __LINE__, "bench",
                     "value %d of %s", 42, "a short message");
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Log_FormattedLineToSink);

}  // namespace

BENCHMARK_MAIN();
