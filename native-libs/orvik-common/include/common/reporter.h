// Event reporting: text records handed over asynchronously to a report engine.
//
// A caller fills a ReporterData, takes its map and calls Reporter::Report(map, tag); the call
// returns at once, and the record reaches the engine later, on the library's reporter thread,
// one record at a time and in the order of the Report calls. The engine is a back-end that the
// host supplies (or the ready FileReportEngine of common/file_report_engine.h); it is installed
// once with SetReportEngine and set up once with Reporter::Enable.
//
//   auto engine = std::make_shared<orvik::FileReportEngine>();
//   orvik::SetReportEngine(engine);
//   orvik::Reporter::GetInstance().Enable(true, false, "", "client", "1.0", "", "", "reports");
//
//   orvik::ReporterData data;
//   data.AddReportInfo("event", "login");
//   data.AddReportInfo("latency_ms", 42);
//   orvik::Reporter::GetInstance().Report(data.GetReportData(), "session");
//
// Nothing on this road reports a failure to the caller, and nothing on it throws: a record that
// cannot be delivered is lost without a trace. Reporter::Flush waits for the records queued so
// far to reach the engine. When the process exits, Reporter logs "Reporter destructor!" and
// releases its engine at the place of the exit sequence where a destructor built at its first
// use would run; from then on every record is dropped, so threads that still report while the
// process exits are safe.
#ifndef ORVIK_COMMON_REPORTER_H
#define ORVIK_COMMON_REPORTER_H

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "common/export.h"

namespace orvik {

// A thread-safe bag of report fields: text keys with text values, read out as a plain map.
// Every member may be called from any thread.
class ORVIK_COMMON_API ReporterData {
public:
    ReporterData();
    virtual ~ReporterData();

    // Stores `value` under `key`, replacing what was there; an empty `value` stores nothing
    // and leaves an earlier value in place. An empty key is a key.
    void AddReportInfo(std::string key, std::string value);
    // Stores the decimal text of `value` under `key`, always; negative numbers are stored as
    // "0", so no minus sign ever occurs.
    void AddReportInfo(std::string key, long long value);
    // A copy of the fields. Nothing is cleared; later additions do not reach a copy taken.
    std::map<std::string, std::string> GetReportData();

private:
    std::map<std::string, std::string> reportInfo;  // guarded by mutex
    std::recursive_mutex mutex;                     // guards reportInfo
};

// The back-end that receives the records. Implemented outside the library (or use
// FileReportEngine). Init is called once, on the thread that calls Reporter::Enable; Report is
// called on the library's reporter thread, one record at a time, with no lock of the library
// held, so an engine needs no lock between two reports. An exception from Report is swallowed.
class ORVIK_COMMON_API ReportEngine {
public:
    virtual ~ReportEngine();
    // Delivers one record: the fields (with "sdk_type" and "sdk_name" set) and the tag.
    virtual void Report(std::map<std::string, std::string> data, std::string tag) = 0;
    // Makes the engine ready; true when it is. `enginePath` arrives as an absolute path.
    virtual bool Init(std::string engineName, bool engineOption, std::string engineTextA,
                      std::string engineTextB, std::string engineTextC, std::string enginePath) = 0;
};

// The process-wide front of the reporter. Built at the first GetInstance; every member may be
// called from any thread (one recursive mutex guards the state).
class ORVIK_COMMON_API Reporter {
public:
    static Reporter& GetInstance();
    virtual ~Reporter();

    // Stores `storedText` (on every call), then, when `enable` is true, an engine is installed
    // and Reporter is not enabled yet, calls the engine's Init with `enginePath` made absolute.
    // Init returning true enables Reporter for good and logs "ReportEngine Init ok <name>";
    // false changes nothing, so a later Enable tries again. Enable(false, ...) never disables.
    // Exceptions from Init or from the path pass to the caller, with nothing changed.
    void Enable(bool enable, bool engineOption, std::string storedText, std::string engineName,
                std::string engineTextA, std::string engineTextB, std::string engineTextC,
                std::string enginePath);

    // Drops the record silently unless Reporter is enabled. Otherwise sets "sdk_type" to "QxRR"
    // and "sdk_name" to "orvik" (replacing the caller's values) and queues the record for the
    // engine; returns without waiting for the delivery, and never blocks for room.
    void Report(std::map<std::string, std::string> data, std::string tag);

    // Waits until every record that Report queued before this call has been handed to the
    // engine (the engine's Report has returned), so that a host can drain before it exits.
    // timeoutMs: milliseconds; 0 waits without limit. True at once when Reporter is not
    // enabled. False on time-out, when no thread can be started to deliver, when called from
    // inside the engine's Report, and once the library is unloading. Records reported while
    // Flush waits may or may not be waited for. Blocks; never holds a lock while it waits.
    bool Flush(unsigned long long timeoutMs);

private:
    Reporter();
    Reporter(const Reporter&) = delete;
    Reporter& operator=(const Reporter&) = delete;

    friend bool SetReportEngine(std::shared_ptr<ReportEngine> engine);

    bool enabled;                          // guarded by mutex
    std::recursive_mutex mutex;            // guards enabled, engine and storedText
    std::shared_ptr<ReportEngine> engine;  // guarded by mutex
    std::string storedText;                // guarded by mutex
};

// Installs the engine that Reporter holds. False, changing nothing, for an empty pointer or once
// Reporter is enabled; a later call before Enable replaces an earlier engine. Thread-safe.
// Declared after Reporter: a friend declaration that follows the exported one would drop the
// import attribute where the library is a DLL.
ORVIK_COMMON_API bool SetReportEngine(std::shared_ptr<ReportEngine> engine);

}  // namespace orvik

#endif  // ORVIK_COMMON_REPORTER_H
