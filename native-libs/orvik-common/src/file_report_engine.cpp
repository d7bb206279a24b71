#include "common/file_report_engine.h"

#include <string_view>
#include <utility>

#include "common/native_path.h"
#include "common/path.h"
#include "common/time_utils.h"
#include "internal/unicode.h"
#include "platform/platform.h"

namespace orvik {
namespace {

// Appends `text` as a JSON string: quotes, backslashes and control characters escaped, valid
// UTF-8 passed through, each invalid sequence replaced by U+FFFD.
void AppendEscapedJsonString(std::string_view text, std::string& out) {
    static const char kHex[] = "0123456789abcdef";
    out.push_back('"');
    std::size_t i = 0;
    while (i < text.size()) {
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
            default:
                if (byte < 0x20) {
                    const char escaped[] = {'\\', 'u', '0', '0', kHex[byte >> 4], kHex[byte & 0xF]};
                    out.append(escaped, sizeof escaped);
                } else {
                    out.push_back(static_cast<char>(byte));
                }
        }
    }
    out.push_back('"');
}

}  // namespace

class FileReportEngine::OpenFile {
public:
    explicit OpenFile(std::unique_ptr<platform::AppendOnlyFile> handle)
        : handle_(std::move(handle)) {}
    platform::AppendOnlyFile& Handle() { return *handle_; }

private:
    std::unique_ptr<platform::AppendOnlyFile> handle_;
};

FileReportEngine::FileReportEngine() : syncEachRecord(false), writeFailures(0) {}

FileReportEngine::~FileReportEngine() = default;

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
    if (!handle->Append(metadata) || (engineOption && !handle->SyncToDisk())) {
        ++writeFailures;
        return false;
    }
    file = std::make_unique<OpenFile>(std::move(handle));
    filePath = path.Str(Path::PATH_TYPE_WINDOWS);
    syncEachRecord = engineOption;
    return true;
}

void FileReportEngine::Report(std::map<std::string, std::string> data, std::string tag) {
    std::string line = "{\"tag\":";
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
    AppendLine(line);
}

bool FileReportEngine::AppendLine(const std::string& line) {
    std::lock_guard<std::mutex> lock(fileMutex);
    if (!file || !file->Handle().Append(line) || (syncEachRecord && !file->Handle().SyncToDisk())) {
        ++writeFailures;
        return false;
    }
    return true;
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
