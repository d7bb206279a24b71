#include "common/reporter.h"

#include <algorithm>
#include <utility>

#include "common/path.h"
#include "common/thread_pool.h"
#include "internal_log.h"
#include "library_frame.h"

namespace orvik {
namespace {

const char kSdkTypeKey[] = "sdk_type";
const char kSdkTypeValue[] = "QxRR";
const char kSdkNameKey[] = "sdk_name";
const char kSdkNameValue[] = "orvik";

// The report task: runs on the reporter pool's worker, outside every lock of Reporter. The
// engine pointer keeps the engine alive until the task has ended.
void DeliverReport(const std::shared_ptr<ReportEngine>& engine,
                   const std::map<std::string, std::string>& data, const std::string& tag) {
    engine->Report(data, tag);
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
    static Reporter instance;
    return instance;
}

bool SetReportEngine(std::shared_ptr<ReportEngine> engine) {
    if (!engine) {
        return false;
    }
    Reporter& reporter = Reporter::GetInstance();
    std::lock_guard<std::recursive_mutex> lock(reporter.mutex);
    if (reporter.enabled) {
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
    data[kSdkTypeKey] = kSdkTypeValue;
    data[kSdkNameKey] = kSdkNameValue;
    // The future is dropped at once: delivery failures stay inside the task.
    detail::reporterPool->SubmitWithFuture(&DeliverReport, engine, std::move(data), std::move(tag));
}

}  // namespace orvik
