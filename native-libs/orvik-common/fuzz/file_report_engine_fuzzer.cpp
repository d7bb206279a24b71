// FileReportEngine's line text. One engine serves every input; each input removes the file,
// calls Init again (a second Init switches to the new file), so the file holds only the
// metadata line and this input's records and never grows across inputs. Properties
// (common/file_report_engine.h), with fuzzed engine texts, tags, keys and values:
//   - The file is one metadata line and one line per Report, each ended by "\n", and every line
//     parses with nlohmann::json.
//   - Texts round-trip: valid UTF-8 comes back as it went in, and each maximal invalid
//     subsequence as one U+FFFD (Expected below). Fields come in key order.
//   - Nothing is counted as a write failure.
#include <fuzzer/FuzzedDataProvider.h>
#include <stdlib.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "common/file_report_engine.h"
#include "fuzz_check.h"

using Json = nlohmann::ordered_json;

namespace {

std::string directory;  // a POSIX temporary directory, removed at exit
orvik::FileReportEngine* engine;

// `text` with each maximal invalid UTF-8 subsequence (Unicode 3.9, table 3-7) as U+FFFD.
std::string Expected(const std::string& text) {
    std::string out;
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        std::size_t length = lead < 0x80                    ? 1
                             : lead >= 0xC2 && lead <= 0xDF ? 2
                             : lead >= 0xE0 && lead <= 0xEF ? 3
                             : lead >= 0xF0 && lead <= 0xF4 ? 4
                                                            : 0;
        const unsigned char low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
        const unsigned char high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
        std::size_t good = length == 0 ? 0 : 1;  // bytes of the sequence seen valid so far
        while (good > 0 && good < length && i + good < text.size()) {
            const auto next = static_cast<unsigned char>(text[i + good]);
            if (next < (good == 1 ? low : 0x80) || next > (good == 1 ? high : 0xBF)) {
                break;
            }
            ++good;
        }
        if (length > 0 && good == length) {
            out.append(text, i, length);
            i += length;
        } else {
            out.append("\xEF\xBF\xBD");
            i += good > 0 ? good : 1;
        }
    }
    return out;
}

void RemoveDirectory() {
    delete engine;
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
}

std::vector<std::string> ReadLines(const std::string& file, bool& endsWithNewline) {
    std::ifstream in(file, std::ios::binary);
    const std::string content((std::istreambuf_iterator<char>(in)),
                              std::istreambuf_iterator<char>());
    endsWithNewline = !content.empty() && content.back() == '\n';
    std::vector<std::string> lines;
    std::istringstream stream(content);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

Json ParseLine(const std::string& line) {
    try {
        return Json::parse(line);
    } catch (const Json::parse_error& error) {
        std::fprintf(stderr, "%s\nline: %s\n", error.what(), line.c_str());
        FUZZ_CHECK(!"every line parses as JSON");
    }
    return Json();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    QuietLibraryLog();
    std::string pattern = (std::filesystem::temp_directory_path() / "orvik-fuzz-XXXXXX").string();
    FUZZ_CHECK(mkdtemp(pattern.data()) != nullptr);
    directory = pattern;
    engine = new orvik::FileReportEngine();
    std::atexit(RemoveDirectory);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider provider(data, size);
    std::string texts[3];
    for (std::string& text : texts) {
        text = provider.ConsumeRandomLengthString(24);
    }
    const std::string file = directory + "/fuzz.jsonl";
    unlink(file.c_str());
    // The library reads Windows path text: the system's root is the drive C:.
    FUZZ_CHECK(engine->Init("fuzz", false, texts[0], texts[1], texts[2], "C:" + directory));

    std::vector<std::pair<std::map<std::string, std::string>, std::string>> records;
    while (provider.remaining_bytes() > 0 && records.size() < 8) {
        std::map<std::string, std::string> fields;
        for (int n = provider.ConsumeIntegralInRange(0, 4); n > 0; --n) {
            std::string key = provider.ConsumeRandomLengthString(16);
            fields[key] = provider.ConsumeRandomLengthString(32);
        }
        records.emplace_back(fields, provider.ConsumeRandomLengthString(16));
        engine->Report(records.back().first, records.back().second);
    }
    FUZZ_CHECK(engine->WriteFailures() == 0);

    bool endsWithNewline = false;
    const std::vector<std::string> lines = ReadLines(file, endsWithNewline);
    FUZZ_CHECK(endsWithNewline && lines.size() == records.size() + 1);
    Json metadata = ParseLine(lines[0]);  // not const: [] on a missing key gives null
    FUZZ_CHECK(metadata["engine"] == "fuzz" && metadata["opened"].is_string());
    FUZZ_CHECK(metadata["texts"] ==
               Json::array({Expected(texts[0]), Expected(texts[1]), Expected(texts[2])}));

    for (std::size_t r = 0; r < records.size(); ++r) {
        Json line = ParseLine(lines[r + 1]);
        FUZZ_CHECK(line["tag"] == Expected(records[r].second));
        // Keys in map order; keys that become equal after replacement keep the first place
        // and the last value, as a parser of duplicate keys keeps them.
        Json fields = Json::object();
        for (const auto& [key, value] : records[r].first) {
            fields[Expected(key)] = Expected(value);
        }
        FUZZ_CHECK(line["fields"] == fields);  // ordered_json: the order counts too
    }
    return 0;
}
