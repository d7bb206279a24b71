#include "common/reporter.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <system_error>
#include <utility>
#include <vector>

#include "common/path.h"
#include "common/thread_pool.h"
#include "internal/internal_log.h"
#include "internal/library_frame.h"
#include "internal/never_destroyed.h"
#include "internal/report_batch.h"

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

// Records queued for delivery and not yet taken up by the pool's worker. Raised before a record
// is queued and lowered when its task begins (or when it could not be queued), so it never
// counts a record that will not come.
std::atomic<long long> reportsQueued{0};

// Output that engines hold back until the queue goes idle. Never destroyed: the reporter
// thread may still be delivering while the process exits.
struct HeldOutputs {
    std::mutex mutex;
    std::vector<std::weak_ptr<detail::HeldOutput>> outputs;  // guarded by mutex
};
detail::NeverDestroyed<HeldOutputs> heldOutputs;

// One record on its way to the engine, packed into one piece of text on the caller's thread
// and unpacked into a fresh map on the reporter's. The nodes of a map never pass between the
// threads: reading them on the other core and freeing them there cost more than packing and
// rebuilding, and the caller's allocations stay on its own thread. Records are reused (see
// RecordStore), and the task that carries one holds only its address, so the pool copies no
// more than a pointer.
class QueuedReport {
public:
    // Packs the record; the text keeps the capacity of the record's earlier uses.
    void Fill(std::shared_ptr<ReportEngine> engine, const std::map<std::string, std::string>& data,
              const std::string& tag) {
        std::size_t size = Measure(tag);
        for (const auto& [key, value] : data) {
            size += Measure(key) + Measure(value);
        }
        packed_.clear();
        if (packed_.capacity() > kLongestKeptText && size <= kLongestKeptText) {
            packed_.shrink_to_fit();  // one long record does not pin its memory for good
        }
        packed_.reserve(size);
        Pack(tag);
        for (const auto& [key, value] : data) {
            Pack(key);
            Pack(value);
        }
        fields_ = data.size();
        engine_ = std::move(engine);
    }

    // Hands the record to the engine; called once per Fill. Keeps neither the report nor the
    // engine.
    void Deliver() {
        const std::shared_ptr<ReportEngine> engine = std::move(engine_);
        std::size_t at = 0;
        std::string tag = Unpack(at);
        std::map<std::string, std::string> data;
        for (std::size_t i = 0; i < fields_; ++i) {
            std::string key = Unpack(at);
            data.emplace_hint(data.end(), std::move(key), Unpack(at));  // packed in key order
        }
        packed_.clear();  // a spare record holds no report
        engine->Report(std::move(data), std::move(tag));
    }

    // Empties a record that will not be delivered.
    void Drop() {
        engine_.reset();
        packed_.clear();
    }

    // RecordStore's links.
    QueuedReport* next = nullptr;
    std::size_t slot = 0;

private:
    static constexpr std::size_t kLongestKeptText = 64 * 1024;

    static std::size_t Measure(const std::string& text) {
        return sizeof(std::size_t) + text.size();
    }

    void Pack(const std::string& text) {
        const std::size_t length = text.size();
        packed_.append(reinterpret_cast<const char*>(&length), sizeof length);
        packed_.append(text);
    }

    std::string Unpack(std::size_t& at) const {
        std::size_t length;
        std::memcpy(&length, packed_.data() + at, sizeof length);
        at += sizeof length;
        std::string text(packed_, at, length);
        at += length;
        return text;
    }

    // Keeps the engine alive until the record has been delivered.
    std::shared_ptr<ReportEngine> engine_;
    std::size_t fields_ = 0;
    std::string packed_;  // the tag, then each key and value, each after its length
};

// Owns every record, queued or spare. A delivered record comes back through a lock-free
// stack and is filled again by a later Report: a record's memory is allocated and freed on
// the callers' side only, never freed by the reporter's thread, whose frees of memory that
// another thread allocated would contend with that thread's allocations for the allocator's
// lock. A task that the pool drops unrun (at unload) leaves its record here, still holding its
// engine, until ReleaseUndelivered. Never destroyed, as the reporter thread may still give a
// record back while the process exits.
class RecordStore {
public:
    // A spare record, or a new one. Thread-safe; Give may run at the same time.
    QueuedReport* Take() {
        std::lock_guard<std::mutex> lock(mutex);
        if (spare == nullptr) {
            ReclaimReturned();
        }
        if (spare != nullptr) {
            QueuedReport* record = spare;
            spare = record->next;
            --spareCount;
            return record;
        }
        owned.push_back(std::make_unique<QueuedReport>());
        owned.back()->slot = owned.size() - 1;
        return owned.back().get();
    }

    // Hands a record back for reuse. Lock-free: called by the reporter's thread after delivery,
    // and by Report for a record it could not fill or queue.
    void Give(QueuedReport* record) {
        record->next = returned.load(std::memory_order_relaxed);
        while (!returned.compare_exchange_weak(record->next, record, std::memory_order_release,
                                               std::memory_order_relaxed)) {
        }
    }

    // Empties every record: called once no delivery runs and none will be queued, so the
    // records still filled are those whose tasks were dropped.
    void ReleaseUndelivered() {
        std::lock_guard<std::mutex> lock(mutex);
        for (const auto& record : owned) {
            record->Drop();
        }
    }

private:
    // Spare records beyond this many are freed: a burst does not keep its records for good.
    static constexpr std::size_t kMostSpare = 1024;

    // Takes over every record given back; frees those beyond kMostSpare. Under `mutex`.
    void ReclaimReturned() {
        spare = returned.exchange(nullptr, std::memory_order_acquire);
        for (QueuedReport* record = spare; record != nullptr; record = record->next) {
            ++spareCount;
        }
        while (spareCount > kMostSpare) {
            QueuedReport* record = spare;
            spare = record->next;
            --spareCount;
            Free(record);
        }
    }

    void Free(QueuedReport* record) {
        const std::size_t slot = record->slot;
        owned[slot].swap(owned.back());
        owned[slot]->slot = slot;
        owned.pop_back();
    }

    std::mutex mutex;
    std::vector<std::unique_ptr<QueuedReport>> owned;  // guarded by mutex
    QueuedReport* spare = nullptr;                      // guarded by mutex; linked by `next`
    std::size_t spareCount = 0;                         // guarded by mutex
    // Given back since the latest ReclaimReturned, linked by `next`.
    std::atomic<QueuedReport*> returned{nullptr};
};
detail::NeverDestroyed<RecordStore> recordStore;

// The report task: runs on the reporter pool's worker, outside every lock of Reporter.
void DeliverReport(QueuedReport& record) {
    reportsQueued.fetch_sub(1, std::memory_order_acq_rel);
    {
        struct Marker {
            Marker() { deliveringReport = true; }
            ~Marker() { deliveringReport = false; }
        } marker;
        try {
            record.Deliver();
        } catch (...) {
            // An engine's failure is its own; the next record is still delivered.
        }
    }
    recordStore->Give(&record);
    if (reportsQueued.load(std::memory_order_acquire) <= 0) {
        detail::WriteHeldOutputs();
    }
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

namespace detail {

bool ReportsQueuedBehind() {
    return deliveringReport && reportsQueued.load(std::memory_order_acquire) > 0;
}

void ReleaseUndeliveredReports() {
    recordStore->ReleaseUndelivered();
}

void WriteWhenIdle(std::weak_ptr<HeldOutput> output) {
    std::lock_guard<std::mutex> lock(heldOutputs->mutex);
    heldOutputs->outputs.push_back(std::move(output));
}

void WriteHeldOutputs() {
    std::vector<std::weak_ptr<HeldOutput>> outputs;
    {
        std::lock_guard<std::mutex> lock(heldOutputs->mutex);
        outputs.swap(heldOutputs->outputs);
    }
    for (const auto& output : outputs) {
        if (const std::shared_ptr<HeldOutput> held = output.lock()) {
            held->WriteHeld();
        }
    }
}

}  // namespace detail

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
        detail::WriteHeldOutputs();
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
        QueuedReport* record = recordStore->Take();
        try {
            record->Fill(engine, data, tag);
        } catch (...) {
            record->Drop();
            recordStore->Give(record);
            throw;
        }
        reportsQueued.fetch_add(1, std::memory_order_acq_rel);
        bool queued = false;
        try {
            // Delivery failures stay inside the task; nothing of it reaches the caller.
            queued = SubmitToReporterPool([record] { DeliverReport(*record); });
        } catch (...) {
            // Perhaps queued after all: the record is not reused, and stays owned by the store.
            reportsQueued.fetch_sub(1, std::memory_order_acq_rel);
            throw;
        }
        if (!queued) {
            reportsQueued.fetch_sub(1, std::memory_order_acq_rel);
            record->Drop();
            recordStore->Give(record);
        }
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
        // Output held back for records behind the marker is written before it reports.
        auto marker = std::make_shared<std::promise<void>>();
        delivered = marker->get_future();
        if (!SubmitToReporterPool([marker] {
                detail::WriteHeldOutputs();
                marker->set_value();
            })) {
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
