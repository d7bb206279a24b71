// Cost of a log call that the gate stops, and of a full line handed to a sink.
#include <benchmark/benchmark.h>

#include "common/log.h"

namespace {

void DiscardLine(const char* text) {
    benchmark::DoNotOptimize(text);
}

void BM_Log_StoppedAtGate(benchmark::State& state) {
    orvik::Log& log = orvik::Log::GetInstance();
    for (auto _ : state) {
        log.DoLog(orvik::LOG_LEVEL_VERBOSE, __FILE__, __LINE__, "bench", "value %d", 42);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Log_StoppedAtGate);

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
