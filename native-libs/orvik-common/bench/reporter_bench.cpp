// Records per second through Reporter into FileReportEngine, beside spdlog's asynchronous file
// logger writing the same JSON lines, both with one background thread:
//   - without sync: each record is handed to the system, flushing is left to it (spdlog's
//     basic file sink, buffered, closed at the end);
//   - with sync: each record reaches the disk before the next is written. spdlog has no such
//     sink, so its logger gets one that appends and syncs through the same file primitive as
//     FileReportEngine.
// A run times the hand-over of a batch of records and the wait until the last one is written.
#include <benchmark/benchmark.h>
#include <spdlog/async.h>
#include <spdlog/async_logger.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/basic_file_sink.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "common/file_report_engine.h"
#include "common/reporter.h"
#include "platform/platform.h"
#include "support/temp_directory.h"

namespace {

using Clock = std::chrono::steady_clock;
using Fields = std::map<std::string, std::string>;

constexpr int kRecordsUnsynced = 10000;
constexpr int kRecordsSynced = 50;

// The fields of a typical record, as the caller hands them over.
const Fields& RecordFields() {
    static const Fields fields = {{"bytes", "1048576"},
                                  {"device", "desktop-x64"},
                                  {"duration_ms", "2317"},
                                  {"event", "upload_finished"},
                                  {"os", "Windows 10.0.19045"},
                                  {"retries", "0"},
                                  {"session", "5f1c9e2a-7d43-4b8e"},
                                  {"success", "true"}};
    return fields;
}

orvik::testing::TempDirectory& Directory() {
    static orvik::testing::TempDirectory directory;
    return directory;
}

// FileReportEngine that tells the benchmark when the last record of a batch is written.
class BatchEngine : public orvik::FileReportEngine {
public:
    void Report(Fields data, std::string tag) override {
        FileReportEngine::Report(std::move(data), std::move(tag));
        if (written_.fetch_add(1, std::memory_order_acq_rel) + 1 == expected_) {
            std::lock_guard<std::mutex> lock(mutex_);
            done_.notify_all();
        }
    }
    long long Written() const { return written_.load(std::memory_order_acquire); }
    void Expect(long long total) { expected_ = total; }
    void AwaitWritten(long long total) {
        std::unique_lock<std::mutex> lock(mutex_);
        done_.wait(lock, [&] { return written_.load(std::memory_order_acquire) >= total; });
    }

private:
    std::atomic<long long> written_{0};
    std::atomic<long long> expected_{-1};
    std::mutex mutex_;
    std::condition_variable done_;
};

// Reporter is enabled once per process; each benchmark then re-initialises the engine, which
// switches it to a new file with the sync option of that benchmark.
BatchEngine& EnabledEngine() {
    static const std::shared_ptr<BatchEngine> engine = [] {
        auto made = std::make_shared<BatchEngine>();
        orvik::SetReportEngine(made);
        orvik::Reporter::GetInstance().Enable(true, false, "", "bench", "1.0", "", "",
                                              Directory().Windows("orvik"));
        return made;
    }();
    return *engine;
}

void RunOrvik(benchmark::State& state, bool sync, int records) {
    BatchEngine& engine = EnabledEngine();
    const std::string directory = Directory().Windows("orvik");
    const std::filesystem::path file = Directory().Native() / "orvik" / "records.jsonl";
    orvik::Reporter& reporter = orvik::Reporter::GetInstance();
    const Fields& fields = RecordFields();
    // The engine counts every record of the process; this run waits for its own.
    long long total = engine.Written();
    for (auto _ : state) {
        std::filesystem::remove(file);
        if (!engine.Init("records", sync, "1.0", "", "", directory)) {
            state.SkipWithError("engine not ready");
            return;
        }
        total += records;
        engine.Expect(total);
        const Clock::time_point start = Clock::now();
        for (int i = 0; i < records; ++i) {
            reporter.Report(fields, "bench");
        }
        engine.AwaitWritten(total);
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
    }
    state.SetItemsProcessed(state.iterations() * records);
}

// The JSON line FileReportEngine writes for `fields` (which need no escaping) under `tag`,
// with the two fields Reporter stamps in.
void AppendJsonLine(fmt::memory_buffer& line, const Fields& fields, const std::string& tag) {
    Fields stamped = fields;
    stamped["sdk_name"] = "orvik";
    stamped["sdk_type"] = "QxRR";
    line.clear();
    auto out = std::back_inserter(line);
    fmt::format_to(out, "{{\"tag\":\"{}\",\"fields\":{{", tag);
    const char* comma = "";
    for (const auto& [key, value] : stamped) {
        fmt::format_to(out, "{}\"{}\":\"{}\"", comma, key, value);
        comma = ",";
    }
    fmt::format_to(out, "}}}}");
}

// Appends each record and syncs it to the disk before taking the next.
class SyncedFileSink : public spdlog::sinks::base_sink<std::mutex> {
public:
    explicit SyncedFileSink(const std::string& windowsPath)
        : file_(orvik::platform::OpenAppendOnlyFile(orvik::platform::Utf8ToWide(windowsPath))) {}

protected:
    void sink_it_(const spdlog::details::log_msg& message) override {
        spdlog::memory_buf_t formatted;
        formatter_->format(message, formatted);
        if (file_) {
            file_->Append({formatted.data(), formatted.size()});
            file_->SyncToDisk();
        }
    }
    void flush_() override {}

private:
    std::unique_ptr<orvik::platform::AppendOnlyFile> file_;
};

void RunSpdlog(benchmark::State& state, bool sync, int records) {
    const std::filesystem::path file = Directory().Native() / "spdlog.jsonl";
    fmt::memory_buffer line;
    for (auto _ : state) {
        std::filesystem::remove(file);
        auto pool = std::make_shared<spdlog::details::thread_pool>(8192, 1);
        spdlog::sink_ptr sink;
        if (sync) {
            sink = std::make_shared<SyncedFileSink>(Directory().Windows("spdlog.jsonl"));
        } else {
            sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(file.string(), true);
        }
        auto logger = std::make_shared<spdlog::async_logger>("records", std::move(sink), pool,
                                                             spdlog::async_overflow_policy::block);
        logger->set_pattern("%v");
        const Clock::time_point start = Clock::now();
        for (int i = 0; i < records; ++i) {
            // The caller builds its line from the record, as Reporter's caller hands it over.
            AppendJsonLine(line, RecordFields(), "bench");
            logger->log(spdlog::level::info, spdlog::string_view_t(line.data(), line.size()));
        }
        // The pool's destructor drains the queue and joins its thread; the sink closes its file.
        logger.reset();
        pool.reset();
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
    }
    state.SetItemsProcessed(state.iterations() * records);
}

// Each pair runs the same number of records per iteration. The synced pair runs first: after
// the unsynced runs, its syncs would also wait for the megabytes those left the system to write.
const bool registered = [] {
    const struct {
        const char* name;
        void (*run)(benchmark::State&, bool, int);
        bool sync;
        int records;
    } cases[] = {
        {"BM_Report_ToFileSynced/orvik/records:50", RunOrvik, true, kRecordsSynced},
        {"BM_Report_ToFileSynced/spdlog_async/records:50", RunSpdlog, true, kRecordsSynced},
        {"BM_Report_ToFile/orvik/records:10000", RunOrvik, false, kRecordsUnsynced},
        {"BM_Report_ToFile/spdlog_async/records:10000", RunSpdlog, false, kRecordsUnsynced},
    };
    for (const auto& c : cases) {
        benchmark::RegisterBenchmark(c.name, c.run, c.sync, c.records)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
    }
    return true;
}();

}  // namespace

BENCHMARK_MAIN();
