// A ready report engine that appends records to a file of JSON lines.
//
// Init creates the directory `enginePath` with all missing levels (an existing one is fine),
// opens "<enginePath>/<engineName>.jsonl" for appending and writes one metadata line:
//
//   {"engine":"client","texts":["1.0","",""],"opened":"20240722195848007"}
//
// Each Report then appends one line, the tag and the fields in key order:
//
//   {"tag":"session","fields":{"event":"login","sdk_name":"orvik","sdk_type":"QxRR"}}
//
// Texts are escaped so that every line parses with a standard JSON parser: quotes,
// backslashes and control characters are escaped, valid UTF-8 passes through, and each
// invalid byte sequence becomes U+FFFD. With `engineOption` true every record reaches the disk
// before Report returns; with false, flushing is left to the system, and while Reporter has
// more records queued behind the one it delivers, their lines are gathered and written
// together: by the time Reporter's queue goes idle or Reporter::Flush returns, every line
// delivered so far has been handed to the system.
//
// Thread-safety: all members may be called from any thread; one mutex serialises the file.
// Write failures never throw: they are counted (WriteFailures).
#ifndef ORVIK_COMMON_FILE_REPORT_ENGINE_H
#define ORVIK_COMMON_FILE_REPORT_ENGINE_H

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "common/export.h"
#include "common/reporter.h"

namespace orvik {

class ORVIK_COMMON_API FileReportEngine : public ReportEngine {
public:
    FileReportEngine();
    ~FileReportEngine() override;

    // Appends one record line. Before a successful Init, or when the write fails, the record is
    // counted as a failure and dropped.
    void Report(std::map<std::string, std::string> data, std::string tag) override;

    // Creates the directory, opens the file for appending and writes the metadata line. False
    // when the directory cannot be made or the file cannot be opened or written; a later Init
    // may try again. A second successful Init switches to the new file.
    bool Init(std::string engineName, bool engineOption, std::string engineTextA,
              std::string engineTextB, std::string engineTextC, std::string enginePath) override;

    // The file's path as Init opened it, or empty before a successful Init.
    std::string FilePath() const;

    // The same path as the system's own text, for other programs: "/tmp/r/client.jsonl" for
    // "C:\tmp\r\client.jsonl" on POSIX, FilePath() on Windows (see common/native_path.h).
    // Empty before a successful Init.
    std::string NativeFilePath() const;

    // How many records (and metadata lines) could not be written so far.
    std::uint64_t WriteFailures() const;

private:
    class OpenFile;

    mutable std::mutex fileMutex;    // guards file and filePath
    std::shared_ptr<OpenFile> file;  // guarded by fileMutex
    std::string filePath;            // guarded by fileMutex
    // Counted under fileMutex or the open file's own lock, read without either: an atomic, so
    // a reader gets a count that was true at some moment.
    std::atomic<std::uint64_t> writeFailures;
};

}  // namespace orvik

#endif  // ORVIK_COMMON_FILE_REPORT_ENGINE_H
