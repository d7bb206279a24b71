// A small client of orvik-common: it "downloads" a file in chunks at a paced rate, hashes the
// chunks on a thread pool, shows progress from a repeating timer, stores and re-reads the file,
// and reports what happened to a JSON-lines file.
//
//   orvik-demo [output-directory]        (default: orvik-demo-output, under the working directory)
//
// The output directory is this system's own path text ("/tmp/out" on Linux); the demo turns it
// into a Path with PathFromNative and prints every path the library gives back as native text.
#include <atomic>
#include <cstdio>
#include <future>
#include <ios>
#include <string>
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

const char* ResultName(FileOptRet result) {
    switch (result) {
        case FILE_OPT_SUCCESS:
            return "FILE_OPT_SUCCESS";
        case FILE_OPT_NOT_FILE:
            return "FILE_OPT_NOT_FILE";
        case FILE_OPT_NO_CONTENT:
            return "FILE_OPT_NO_CONTENT";
        case FILE_OPT_SIZE_MISMATCH:
            return "FILE_OPT_SIZE_MISMATCH";
        case FILE_OPT_OPEN_FAILED:
            return "FILE_OPT_OPEN_FAILED";
        case FILE_OPT_NO_PARENT:
            return "FILE_OPT_NO_PARENT";
        case FILE_OPT_IS_DIRECTORY:
            return "FILE_OPT_IS_DIRECTORY";
    }
    return "unknown FileOptRet";
}

std::string RandomChunk(long long size) {
    std::string chunk(static_cast<std::size_t>(size), '\0');
    EncryptUtils::RandomByte(reinterpret_cast<unsigned char*>(&chunk[0]), static_cast<int>(size));
    return chunk;
}

}  // namespace

int main(int argc, char** argv) {
    const Path outputDir = PathFromNative(argc > 1 ? argv[1] : "orvik-demo-output");

    // 1. The host wires up logging once: its callback, the console switch and threshold.
    NetworkGlobalOption::SetLoggerCallback(&HostLog);
    NetworkGlobalOption::SetOrvikLog(true, LOG_PRIORITY_WARN);

    // 2. Reports go to a JSON-lines file under the output directory; each run starts it afresh.
    const Path reportDir = outputDir / Path("reports");
    FileUtils::RemoveFile((reportDir / Path("demo-client.jsonl")).Str(Path::PATH_TYPE_WINDOWS));
    auto engine = std::make_shared<FileReportEngine>();
    SetReportEngine(engine);
    Reporter::GetInstance().Enable(true, false, "", "demo-client", "1.0", "chunked-download", "",
                                   reportDir.Str(Path::PATH_TYPE_WINDOWS));
    ORVIK_LOG_TAGGED(LOG_LEVEL_INFO, "demo", "reports go to %s", engine->NativeFilePath().c_str());

    ReporterData started;
    started.AddReportInfo("event", "transfer_started");
    started.AddReportInfo("bytes_expected", kFileSize);
    started.AddReportInfo("started_utc", TimeUtils::GetUtcFormatTime());
    Reporter::GetInstance().Report(started.GetReportData(), "transfer");

    // 3. A repeating timer shows progress while the transfer runs.
    std::atomic<long long> received{0};
    auto progress = std::make_shared<OvTimer>(100, true);
    progress->Init([&received] {
        ORVIK_LOG_TAGGED(LOG_LEVEL_INFO, "demo", "progress %lld/%lld bytes", received.load(),
                         kFileSize);
    });
    progress->Start();

    // 4. The transfer: each chunk is paced by the token bucket and hashed on a pool, which
    //    hands each digest back through a future.
    auto hashers = std::make_shared<ThreadPool>("demo-hash", 2, 2);
    TokenBucketSpeedLimiter limiter(kBytesPerSecond);
    std::vector<std::future<std::string>> chunkHashes;
    std::string file;
    const unsigned long long begin = TimeUtils::GetEpochTimeMills();
    for (long long offset = 0; offset < kFileSize; offset += kChunkSize) {
        limiter.AcquireSync(kChunkSize);
        std::string chunk = RandomChunk(kChunkSize);
        file += chunk;
        chunkHashes.push_back(hashers->Submit([data = std::move(chunk)] {
            return EncryptUtils::Sha256Hex(data.data(), data.size());
        }));
        received += kChunkSize;
    }
    std::vector<std::string> digests;
    for (auto& hash : chunkHashes) {
        digests.push_back(hash.get());
    }
    const unsigned long long elapsedMs = TimeUtils::GetEpochTimeMills() - begin;
    progress->Stop();
    hashers->Shutdown(ThreadPool::SHUTDOWN_AFTER_DRAIN);
    ORVIK_LOG_TAGGED(LOG_LEVEL_INFO, "demo",
                     "received %lld bytes in %llu ms; first chunk sha256 %s", received.load(),
                     elapsedMs, digests.front().c_str());

    // 5. Store the file, read it back and compare.
    const Path stored = outputDir / Path("download.bin");
    const FileOptRet written =
        FileUtils::WriteFile(file, stored.Str(Path::PATH_TYPE_WINDOWS), std::ios_base::binary);
    std::string readBack;
    const FileOptRet read =
        FileUtils::ReadFile(stored.Str(Path::PATH_TYPE_WINDOWS), readBack, std::ios_base::binary);
    const bool intact = written == FILE_OPT_SUCCESS && read == FILE_OPT_SUCCESS && readBack == file;
    ORVIK_LOG_TAGGED(LOG_LEVEL_INFO, "demo", "stored %s: write %s, read %s, %s",
                     PathToNative(stored).c_str(), ResultName(written), ResultName(read),
                     intact ? "intact" : "DAMAGED");

    ReporterData finished;
    finished.AddReportInfo("event", "transfer_finished");
    finished.AddReportInfo("bytes", received.load());
    finished.AddReportInfo("elapsed_ms", static_cast<long long>(elapsedMs));
    finished.AddReportInfo("chunks", static_cast<long long>(digests.size()));
    finished.AddReportInfo("stored", intact ? "yes" : "no");
    Reporter::GetInstance().Report(finished.GetReportData(), "transfer");

    // 6. Wait until both records have reached the engine, then show what it wrote: a metadata
    //    line and the two records.
    const bool flushed = Reporter::GetInstance().Flush(5000);
    std::string reports;
    FileUtils::ReadFile(engine->FilePath(), reports, std::ios_base::binary);
    std::printf("--- %s%s\n%s", engine->NativeFilePath().c_str(),
                flushed ? "" : " (flush timed out)", reports.c_str());
    return intact && flushed ? 0 : 1;
}
