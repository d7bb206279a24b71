#include "common/reporter.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <system_error>
#include <utility>

#include "common/path.h"
#include "common/thread_pool.h"
#include "internal/internal_log.h"
#include "internal/library_frame.h"
#include "internal/never_destroyed.h"

namespace orvik {
namespace {

const char kSdkTypeKey[] = "sdk_type";
const char kSdkTypeValue[] = "QxRR";
const char kSdkNameKey[] = "sdk_name";
const char kSdkNameValue[] = "orvik";

// Set once the process-wide Reporter has done its unload work; from then on every call drops
// its record, as a Reporter without engine does. Written and read under Reporter's mutex.
std::atomic<bool> reporterUnloaded{false};

// True on the reporter pool's thread while it delivers: a Flush from inside an engine would
// wait for its own delivery.
thread_local bool deliveringReport = false;

// The report task: runs on the reporter pool's worker, outside every lock of Reporter. The
// engine pointer keeps the engine alive until the task has ended.
void DeliverReport(const std::shared_ptr<ReportEngine>& engine,
                   const std::map<std::string, std::string>& data, const std::string& tag) {
    struct Marker {
        Marker() { deliveringReport = true; }
        ~Marker() { deliveringReport = false; }
    } marker;
    engine->Report(data, tag);
}

// Queues `task` on the reporter pool. A refused thread start does not reach the caller: the
// task stays queued, and the next submission tries to start the thread again. False when the
// task was not queued.
bool SubmitToReporterPool(std::function<void()> task) {
    try {
        return detail::reporterPool->SubmitTask(task);
    } catch (const std::system_error&) {
        return true;  // queued before the thread start failed
    }
}

}  // namespace

ReporterData::ReporterData() = default;
ReporterData::~ReporterData() = default;

void ReporterData::AddReportInfo(std::string key, std::string value) {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    if (value.empty()) {
        return;
    }
    reportInfo[std::move(key)] = std::move(value);
}

void ReporterData::AddReportInfo(std::string key, long long value) {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    reportInfo[std::move(key)] = std::to_string(std::max(value, 0LL));
}

std::map<std::string, std::string> ReporterData::GetReportData() {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    return reportInfo;
}

ReportEngine::~ReportEngine() = default;

Reporter::Reporter() : enabled(false) {}

Reporter::~Reporter() {
    ORVIK_LOG(LOG_LEVEL_INFO, "Reporter destructor!");
}

Reporter& Reporter::GetInstance() {
    // Never destroyed, so that threads that still report while the process exits find a live
    // object. Its unload work runs where the destructor would have run: the line, then the
    // engine released; every later call drops its record.
    static detail::NeverDestroyed<Reporter> instance(detail::kBuildInPlace,
                                                     [](void* where) { new (where) Reporter(); });
    static detail::UnloadHook teardown([] {
        Reporter& reporter = *instance;
        std::lock_guard<std::recursive_mutex> lock(reporter.mutex);
        Log::GetInstance().DoLog(LOG_LEVEL_INFO, __FILE__, __LINE__, "orvik::Reporter::~Reporter",
                                 "Reporter destructor!");
        reporterUnloaded.store(true);
        reporter.storedText.clear();
        reporter.engine.reset();
    });
    return *instance;
}

bool SetReportEngine(std::shared_ptr<ReportEngine> engine) {
    if (!engine) {
        return false;
    }
    Reporter& reporter = Reporter::GetInstance();
    std::lock_guard<std::recursive_mutex> lock(reporter.mutex);
    if (reporter.enabled || reporterUnloaded.load()) {
        return false;
    }
    reporter.engine = std::move(engine);
    return true;
}

void Reporter::Enable(bool enable, bool engineOption, std::string newStoredText,
                      std::string engineName, std::string engineTextA, std::string engineTextB,
                      std::string engineTextC, std::string enginePath) {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    const Path path(enginePath);
    storedText = std::move(newStoredText);
    if (!enable || !engine || enabled) {
        return;
    }
    const std::string absolutePath = path.Absolute().Str(Path::PATH_TYPE_WINDOWS);
    if (engine->Init(engineName, engineOption, std::move(engineTextA), std::move(engineTextB),
                     std::move(engineTextC), absolutePath)) {
        ORVIK_LOG(LOG_LEVEL_INFO, "ReportEngine Init ok %s", engineName.c_str());
        enabled = true;
    }
}

void Reporter::Report(std::map<std::string, std::string> data, std::string tag) {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    if (!enabled || !engine) {
        return;
    }
    try {
        data[kSdkTypeKey] = kSdkTypeValue;
        data[kSdkNameKey] = kSdkNameValue;
        // Delivery failures stay inside the task; nothing of it reaches the caller.
        SubmitToReporterPool([engine = engine, data = std::move(data), tag = std::move(tag)] {
            try {
                DeliverReport(engine, data, tag);
            } catch (...) {
                // An engine's failure is its own; the next record is still delivered.
            }
        });
    } catch (const std::exception&) {
        // Out of memory while copying the record: it is lost, as a record the engine refused.
    }
}

bool Reporter::Flush(unsigned long long timeoutMs) {
    std::future<void> delivered;
    {
        std::lock_guard<std::recursive_mutex> lock(mutex);
        if (!enabled || !engine || reporterUnloaded.load()) {
            return !reporterUnloaded.load();
        }
        if (deliveringReport) {
            return false;
        }
        // The pool runs one task at a time in submission order: once this marker has run,
        // every record queued before it has been handed to the engine.
        auto marker = std::make_shared<std::promise<void>>();
        delivered = marker->get_future();
        if (!SubmitToReporterPool([marker] { marker->set_value(); })) {
            return false;
        }
        if (detail::reporterPool->GetRunningThreadNumber() == 0) {
            return false;  // the system refuses the thread that would deliver
        }
    }
    // Beyond about 34 years a time-out is no limit; the cap keeps the deadline from overflowing.
    constexpr unsigned long long kLongestWaitMs = 1ULL << 40;
    if (timeoutMs == 0 || timeoutMs > kLongestWaitMs) {
        delivered.wait();
    } else if (delivered.wait_for(std::chrono::milliseconds(timeoutMs)) !=
               std::future_status::ready) {
        return false;
    }
    try {
        delivered.get();
        return true;
    } catch (const std::future_error&) {
        return false;  // the marker was discarded: the library is unloading
    }
}

}  // namespace orvik
