// A small client of orvik-common: it "downloads" a file in chunks at a paced rate, hashes the
// chunks on a thread pool, shows progress from a repeating timer, stores and re-reads the file,
// and reports what happened to a JSON-lines file.
//
//   orvik-demo [output-directory]        (default: orvik-demo-output, under the working directory)
//
// Paths are Windows path text; on Linux the file system is the drive C:, so relative paths and
// "C:\home\me\out" both work.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <future>
#include <ios>
#include <string>
#include <thread>
#include <vector>

#include "common/orvik_common.h"

namespace {

using namespace orvik;

constexpr long long kFileSize = 256 * 1024;
constexpr long long kChunkSize = 16 * 1024;
constexpr long long kBytesPerSecond = 512 * 1024;

// The host's log function. The demo's own lines use the tagged form, which reaches this callback
// whatever the console switch says; the library's warnings go to the console.
void HostLog(int hostLevel, const char* tag, const char* text) {
    std::printf("host[%d] %s: %s\n", hostLevel, tag, text);
}

#define DEMO_LOG(...) \
    Log::GetInstance().DoLog(LOG_LEVEL_INFO, "demo", __FILE__, __LINE__, "main", __VA_ARGS__)

std::string RandomChunk(long long size) {
    std::string chunk(static_cast<std::size_t>(size), '\0');
    EncryptUtils::RandomByte(reinterpret_cast<unsigned char*>(&chunk[0]), static_cast<int>(size));
    return chunk;
}

// Waits, up to two seconds, until the report file holds `lines` lines: the reporter writes on
// its own thread.
std::string WaitForReportLines(const std::string& path, std::size_t lines) {
    std::string content;
    for (int attempt = 0; attempt < 200; ++attempt) {
        content.clear();
        if (FileUtils::ReadFile(path, content, std::ios_base::binary) == FILE_OPT_SUCCESS &&
            static_cast<std::size_t>(std::count(content.begin(), content.end(), '\n')) >= lines) {
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return content;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string outputDir = argc > 1 ? argv[1] : "orvik-demo-output";

    // 1. The host wires up logging once: its callback, the console switch and threshold.
    NetworkGlobalOption::SetLoggerCallback(&HostLog);
    NetworkGlobalOption::SetOrvikLog(true, LOG_PRIORITY_WARN);

    // 2. Reports go to a JSON-lines file under the output directory; each run starts it afresh.
    const std::string reportFile = outputDir + "/reports/demo-client.jsonl";
    FileUtils::RemoveFile(reportFile);
    auto engine = std::make_shared<FileReportEngine>();
    SetReportEngine(engine);
    Reporter::GetInstance().Enable(true, false, "", "demo-client", "1.0", "chunked-download", "",
                                   outputDir + "/reports");
    DEMO_LOG("reports go to %s", engine->FilePath().c_str());

    ReporterData started;
    started.AddReportInfo("event", "transfer_started");
    started.AddReportInfo("bytes_expected", kFileSize);
    started.AddReportInfo("started_utc", TimeUtils::GetUtcFormatTime());
    Reporter::GetInstance().Report(started.GetReportData(), "transfer");

    // 3. A repeating timer shows progress while the transfer runs.
    std::atomic<long long> received{0};
    auto progress = std::make_shared<OvTimer>(100, true);
    progress->Init(
        [&received] { DEMO_LOG("progress %lld/%lld bytes", received.load(), kFileSize); });
    progress->Start();

    // 4. The transfer: each chunk is paced by the token bucket and hashed on a pool.
    auto hashers = std::make_shared<ThreadPool>("demo-hash", 2, 2);
    TokenBucketSpeedLimiter limiter(kBytesPerSecond);
    std::vector<std::future<void>> hashed;
    std::vector<std::string> chunkHashes(kFileSize / kChunkSize);
    std::string file;
    const unsigned long long begin = TimeUtils::GetEpochTimeMills();
    for (std::size_t index = 0; index < chunkHashes.size(); ++index) {
        limiter.AcquireSync(kChunkSize);
        std::string chunk = RandomChunk(kChunkSize);
        file += chunk;
        hashed.push_back(hashers->SubmitWithFuture(
            [&chunkHashes, index](const std::string& data) {
                chunkHashes[index] = StringUtils::GetHashText(data.data(), data.size());
            },
            std::move(chunk)));
        received += kChunkSize;
    }
    for (auto& done : hashed) {
        done.wait();
    }
    const unsigned long long elapsedMs = TimeUtils::GetEpochTimeMills() - begin;
    progress->Stop();
    hashers->Shutdown(ThreadPool::SHUTDOWN_AFTER_DRAIN);
    DEMO_LOG("received %lld bytes in %llu ms; first chunk sha256 %s", received.load(), elapsedMs,
             chunkHashes.front().c_str());

    // 5. Store the file, read it back and compare.
    const std::string path = outputDir + "/download.bin";
    FileUtils::MakeDir(outputDir + "/");
    const FileOptRet written = FileUtils::WriteFile(file, path, std::ios_base::binary);
    std::string readBack;
    const FileOptRet read = FileUtils::ReadFile(path, readBack, std::ios_base::binary);
    const bool intact = written == FILE_OPT_SUCCESS && read == FILE_OPT_SUCCESS && readBack == file;
    DEMO_LOG("stored %s: write %d, read %d, %s", path.c_str(), written, read,
             intact ? "intact" : "DAMAGED");

    ReporterData finished;
    finished.AddReportInfo("event", "transfer_finished");
    finished.AddReportInfo("bytes", received.load());
    finished.AddReportInfo("elapsed_ms", static_cast<long long>(elapsedMs));
    finished.AddReportInfo("chunks", static_cast<long long>(chunkHashes.size()));
    finished.AddReportInfo("stored", intact ? "yes" : "no");
    Reporter::GetInstance().Report(finished.GetReportData(), "transfer");

    // 6. Show what the reporter wrote: a metadata line and the two records.
    std::printf("--- %s\n%s", engine->FilePath().c_str(),
                WaitForReportLines(reportFile, 3).c_str());
    return intact ? 0 : 1;
}
