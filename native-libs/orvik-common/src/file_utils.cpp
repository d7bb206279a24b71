#include "common/file_utils.h"

#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "common/path.h"
#include "internal/internal_log.h"
#include "internal/library_frame.h"
#include "internal/never_destroyed.h"
#include "internal/windows_path_syntax.h"
#include "platform/platform.h"

namespace orvik {
namespace {

// The access tests of the C runtime.
constexpr int kAccessExists = 0;
constexpr int kAccessWrite = 2;
constexpr int kAccessRead = 4;

std::ios_base::openmode OpenMode(int extraBits, std::ios_base::openmode direction) {
    return static_cast<std::ios_base::openmode>(extraBits) | direction;
}

// Serialises the writes to one file, and only to that file: a write that blocks (a pipe
// without a reader, a hung share) holds up later writes to the same path, never writes to
// others. Paths are compared as the absolute text WriteFile opens; the table holds a file only
// while someone writes it. Never destroyed: a thread may still write while the process exits.
class FileWriteLock {
public:
    explicit FileWriteLock(std::wstring path) {
        {
            std::lock_guard<std::mutex> lock(detail::fileWriteMutex);
            entry_ = Files().try_emplace(std::move(path)).first;
            ++entry_->second.writers;
        }
        entry_->second.mutex.lock();
    }
    ~FileWriteLock() {
        entry_->second.mutex.unlock();
        std::lock_guard<std::mutex> lock(detail::fileWriteMutex);
        if (--entry_->second.writers == 0) {
            Files().erase(entry_);
        }
    }
    FileWriteLock(const FileWriteLock&) = delete;
    FileWriteLock& operator=(const FileWriteLock&) = delete;

private:
    struct Entry {
        std::mutex mutex;  // held while the file is written
        int writers = 0;   // guarded by fileWriteMutex: holders and waiters of `mutex`
    };
    using Table = std::map<std::wstring, Entry>;  // guarded by fileWriteMutex

    static Table& Files() {
        static detail::NeverDestroyed<Table> files;
        return *files;
    }

    Table::iterator entry_;
};

}  // namespace

bool FileUtils::CanRead(const std::string& path) {
    return platform::AccessNarrow(path, kAccessExists) && platform::AccessNarrow(path, kAccessRead);
}

bool FileUtils::CanWrite(const std::string& path) {
    return platform::AccessNarrow(path, kAccessExists) &&
           platform::AccessNarrow(path, kAccessWrite);
}

bool FileUtils::IsDirExist(const std::string& path) {
    return platform::AccessNarrow(path, kAccessExists);
}

bool FileUtils::IsFileExist(const std::string& path) {
    return platform::AccessNarrow(path, kAccessExists);
}

bool FileUtils::CheckDirOrFileExists(const std::string& path) {
    return Path(Path(path).Wstr(Path::PATH_TYPE_WINDOWS)).Exists();
}

bool FileUtils::MakeDir(const std::string& path) {
    if (path.empty()) {
        return false;
    }
    std::string prefix;
    prefix.reserve(path.size());
    for (const char c : path) {
        prefix.push_back(c);
        if (detail::IsSeparator(c) && !CheckDirOrFileExists(prefix) &&
            !platform::MakeDirectoryNarrow(prefix)) {
            return false;
        }
    }
    return true;
}

bool FileUtils::RemoveDir(const std::string& path) {
    return platform::RemoveDirectoryNarrow(path);
}

bool FileUtils::RemoveFile(const std::string& path) {
    return platform::RemoveFileNarrow(path);
}

std::string FileUtils::NormalizedFilePath(const std::string& path) {
    if (!path.empty()) {
        ORVIK_LOG(LOG_LEVEL_WARN, "NormalizedFilePath _WIN32 error");
    }
    return std::string();
}

FileOptRet FileUtils::ReadFile(const std::string& path, std::string& content, int mode) {
    const Path file(path);
    if (!file.Exists() || !file.IsFile()) {
        return FILE_OPT_NOT_FILE;
    }
    const std::size_t size = file.FileSize();
    if (size == 0) {
        return FILE_OPT_NO_CONTENT;
    }
    std::ifstream stream;
    if (!platform::OpenFileStream(stream, file.Wstr(Path::PATH_TYPE_WINDOWS),
                                  OpenMode(mode, std::ios_base::in))) {
        return FILE_OPT_NO_CONTENT;
    }

    // Read the expected size in one go, then whatever the file may have grown by since.
    std::string bytes(size, '\0');
    stream.read(&bytes[0], static_cast<std::streamsize>(size));
    bytes.resize(static_cast<std::size_t>(stream.gcount()));
    if (bytes.size() == size) {
        char more[4096];
        while (stream.read(more, sizeof more), stream.gcount() > 0) {
            bytes.append(more, static_cast<std::size_t>(stream.gcount()));
        }
    }
    content = std::move(bytes);
    stream.close();

    if (content.size() == size) {
        return FILE_OPT_SUCCESS;
    }
    content.clear();
    return FILE_OPT_SIZE_MISMATCH;
}

FileOptRet FileUtils::WriteFile(const std::string& content, const std::string& path, int mode) {
    const Path file(path);
    if (file.Exists() && file.IsDirectory()) {
        return FILE_OPT_IS_DIRECTORY;
    }
    if (!file.ParentPath().IsDirectory()) {
        return FILE_OPT_NO_PARENT;
    }

    const std::wstring wide = file.Wstr(Path::PATH_TYPE_WINDOWS);
    const FileWriteLock lock(file.Absolute().Wstr(Path::PATH_TYPE_WINDOWS));
    std::ofstream stream;
    if (!platform::OpenFileStream(stream, wide, OpenMode(mode, std::ios_base::out))) {
        return FILE_OPT_OPEN_FAILED;
    }
    stream.write(content.data(), static_cast<std::streamsize>(content.size()));
    stream.close();
    return FILE_OPT_SUCCESS;
}

}  // namespace orvik
