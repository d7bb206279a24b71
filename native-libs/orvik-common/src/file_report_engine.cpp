#include "common/file_report_engine.h"

#include <new>
#include <string_view>
#include <utility>

#include "common/native_path.h"
#include "common/path.h"
#include "common/time_utils.h"
#include "internal/report_batch.h"
#include "internal/unicode.h"
#include "platform/platform.h"

namespace orvik {
namespace {

// For each byte, whether a JSON string carries it unchanged: printable ASCII but quote and
// backslash.
struct UnchangedBytes {
    constexpr UnchangedBytes() : table() {
        for (int byte = 0x20; byte < 0x80; ++byte) {
            table[byte] = byte != '"' && byte != '\\';
        }
    }
    bool table[256];
};
constexpr UnchangedBytes kUnchanged;

// Appends `text` as a JSON string: quotes, backslashes and control characters escaped, valid
// UTF-8 passed through, each invalid sequence replaced by U+FFFD.
void AppendEscapedJsonString(std::string_view text, std::string& out) {
    static const char kHex[] = "0123456789abcdef";
    out.push_back('"');
    std::size_t i = 0;
    while (i < text.size()) {
        // A run of bytes that pass unchanged goes over in one piece.
        std::size_t end = i;
        while (end < text.size() && kUnchanged.table[static_cast<unsigned char>(text[end])]) {
            ++end;
        }
        out.append(text, i, end - i);
        i = end;
        if (i == text.size()) {
            break;
        }
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte >= 0x80) {
            const std::size_t start = i;
            char32_t codePoint;
            if (detail::DecodeUtf8(text, i, codePoint)) {
                out.append(text, start, i - start);
            } else {
                out.append("\xEF\xBF\xBD");
            }
            continue;
        }
        ++i;
        switch (byte) {
            case '"':
                out.append("\\\"");
                break;
            case '\\':
                out.append("\\\\");
                break;
            case '\n':
                out.append("\\n");
                break;
            case '\r':
                out.append("\\r");
                break;
            case '\t':
                out.append("\\t");
                break;
            default: {
                const char escaped[] = {'\\', 'u', '0', '0', kHex[byte >> 4], kHex[byte & 0xF]};
                out.append(escaped, sizeof escaped);
            }
        }
    }
    out.push_back('"');
}

// Record lines held back for one write stay below this size; a longer run is written in parts.
constexpr std::size_t kMostHeldBytes = 64 * 1024;

}  // namespace

// The open file and the record lines held back for it. While the reporter thread has more
// records queued, lines collect here and go out in one write when the queue goes idle (or
// the held text grows long); with per-record sync, or on any other thread, each line is
// written at once. Shared with the reporter's registry of held output, which may write it
// from another thread, so it has a lock of its own.
class FileReportEngine::OpenFile final : public detail::HeldOutput,
                                         public std::enable_shared_from_this<OpenFile> {
public:
    OpenFile(std::unique_ptr<platform::AppendOnlyFile> handle, bool syncEachRecord,
             std::atomic<std::uint64_t>& failures)
        : handle_(std::move(handle)), syncEachRecord_(syncEachRecord), failures_(&failures) {}

    // Writes what is held; then the engine's counter is no longer reached.
    void Close() {
        std::lock_guard<std::mutex> lock(mutex_);
        WriteHeldLocked();
        failures_ = nullptr;
    }

    void WriteHeld() override {
        std::lock_guard<std::mutex> lock(mutex_);
        WriteHeldLocked();
    }

    // Appends the line that `format` adds to its text, then writes it now or holds it back.
    template <class Format>
    void AddRecord(const Format& format) {
        std::lock_guard<std::mutex> lock(mutex_);
        const std::size_t before = held_.size();
        try {
            format(held_);
        } catch (...) {
            held_.resize(before);  // no fragment of a line stays behind
            throw;
        }
        ++heldLines_;
        if (syncEachRecord_ || held_.size() >= kMostHeldBytes || !Hold()) {
            WriteHeldLocked();
        }
    }

private:
    // Leaves the held lines for the reporter to write when its queue goes idle; false when
    // they must go out now.
    bool Hold() {
        if (!detail::ReportsQueuedBehind()) {
            return false;
        }
        if (!registered_) {
            try {
                detail::WriteWhenIdle(weak_from_this());
            } catch (const std::bad_alloc&) {
                return false;
            }
            registered_ = true;
        }
        return true;
    }

    void WriteHeldLocked() {
        registered_ = false;
        if (held_.empty()) {
            return;
        }
        std::uint64_t failed = 0;
        if (!handle_->Append(held_)) {
            // The run did not fit as a whole (a full disk, say): each line gets a try of its
            // own, as when every record was written by itself.
            failed = heldLines_ == 1 ? 1 : AppendLineByLine();
        } else if (syncEachRecord_ && !handle_->SyncToDisk()) {
            failed = heldLines_;
        }
        if (failed != 0 && failures_ != nullptr) {
            *failures_ += failed;
        }
        held_.clear();
        heldLines_ = 0;
    }

    // Appends the held lines one by one; how many failed.
    std::uint64_t AppendLineByLine() {
        std::uint64_t failed = 0;
        std::string_view rest(held_);
        while (!rest.empty()) {
            const std::size_t length = rest.find('\n') + 1;  // escaped text holds no raw "\n"
            failed += handle_->Append(rest.substr(0, length)) ? 0 : 1;
            rest.remove_prefix(length);
        }
        return failed;
    }

    std::mutex mutex_;  // guards the handle's writes and everything below the two constants
    const std::unique_ptr<platform::AppendOnlyFile> handle_;
    const bool syncEachRecord_;
    std::atomic<std::uint64_t>* failures_;  // null once the engine has let go
    std::string held_;                      // complete lines, each ended by "\n"
    std::uint64_t heldLines_ = 0;
    bool registered_ = false;  // WriteWhenIdle knows this file since the last write
};

FileReportEngine::FileReportEngine() : writeFailures(0) {}

FileReportEngine::~FileReportEngine() {
    std::lock_guard<std::mutex> lock(fileMutex);
    if (file) {
        file->Close();
    }
}

bool FileReportEngine::Init(std::string engineName, bool engineOption, std::string engineTextA,
                            std::string engineTextB, std::string engineTextC,
                            std::string enginePath) {
    const Path directory(enginePath);
    if (!directory.IsDirectory() && !MakeDirs(directory) && !directory.IsDirectory()) {
        return false;  // MakeDirs refuses an existing directory, which another thread may make
    }
    const Path path = directory / Path(engineName + ".jsonl");
    std::unique_ptr<platform::AppendOnlyFile> handle =
        platform::OpenAppendOnlyFile(path.Wstr(Path::PATH_TYPE_WINDOWS));
    if (!handle) {
        return false;
    }

    std::string metadata = "{\"engine\":";
    AppendEscapedJsonString(engineName, metadata);
    metadata.append(",\"texts\":[");
    AppendEscapedJsonString(engineTextA, metadata);
    metadata.push_back(',');
    AppendEscapedJsonString(engineTextB, metadata);
    metadata.push_back(',');
    AppendEscapedJsonString(engineTextC, metadata);
    metadata.append("],\"opened\":");
    AppendEscapedJsonString(TimeUtils::GetUtcFormatTime(), metadata);
    metadata.append("}\n");

    std::lock_guard<std::mutex> lock(fileMutex);
    if (file) {
        file->WriteHeld();  // the earlier file's lines go out before the new file begins
    }
    if (!handle->Append(metadata) || (engineOption && !handle->SyncToDisk())) {
        ++writeFailures;
        return false;
    }
    if (file) {
        file->Close();
    }
    file = std::make_shared<OpenFile>(std::move(handle), engineOption, writeFailures);
    filePath = path.Str(Path::PATH_TYPE_WINDOWS);
    return true;
}

void FileReportEngine::Report(std::map<std::string, std::string> data, std::string tag) {
    // The line is built straight into the file's held text.
    const auto format = [&](std::string& line) {
        line.append("{\"tag\":");
        AppendEscapedJsonString(tag, line);
        line.append(",\"fields\":{");
        bool first = true;
        for (const auto& [key, value] : data) {
            if (!first) {
                line.push_back(',');
            }
            first = false;
            AppendEscapedJsonString(key, line);
            line.push_back(':');
            AppendEscapedJsonString(value, line);
        }
        line.append("}}\n");
    };
    std::lock_guard<std::mutex> lock(fileMutex);
    if (!file) {
        ++writeFailures;
        return;
    }
    file->AddRecord(format);
}

std::string FileReportEngine::FilePath() const {
    std::lock_guard<std::mutex> lock(fileMutex);
    return filePath;
}

std::string FileReportEngine::NativeFilePath() const {
    return PathToNative(Path(FilePath()));
}

std::uint64_t FileReportEngine::WriteFailures() const {
    // No lock: a count that a concurrent write is about to raise is as good as the next one.
    return writeFailures.load();
}

}  // namespace orvik
