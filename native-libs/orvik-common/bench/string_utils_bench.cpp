// Text: the three splits against Abseil's StrSplit on one text of 10 000 fields, and building a
// flat JSON object of 10 fields against nlohmann::json. Each pair runs on the same input in
// this one binary, so the ratio comes from one run.
#include <absl/strings/str_split.h>
#include <benchmark/benchmark.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "common/json_object.h"
#include "common/string_utils.h"

namespace {

constexpr int kFields = 10000;

// "0,1,,3,4,5,,7,..." : short fields, every fourth one empty, no trailing separator.
const std::string& FieldText() {
    static const std::string text = [] {
        std::string built;
        for (int i = 0; i < kFields; ++i) {
            if (i > 0) {
                built += ',';
            }
            if (i % 4 != 2) {
                built += std::to_string(i);
            }
        }
        return built;
    }();
    return text;
}

template <class Split>
void RunSplit(benchmark::State& state, Split split) {
    const std::string& text = FieldText();
    for (auto _ : state) {
        std::vector<std::string> fields = split(text);
        benchmark::DoNotOptimize(fields.data());
    }
    state.SetItemsProcessed(state.iterations() * kFields);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}

void BM_Split_SplitString_10000Fields(benchmark::State& state) {
    RunSplit(state,
             [](const std::string& text) { return orvik::StringUtils::SplitString(text, ","); });
}
void BM_Split_SplitAllByString_10000Fields(benchmark::State& state) {
    RunSplit(state, [](const std::string& text) {
        return orvik::StringUtils::SplitAllByString(text, ",");
    });
}
void BM_Split_AbslStrSplit_10000Fields(benchmark::State& state) {
    RunSplit(state, [](const std::string& text) {
        return std::vector<std::string>(absl::StrSplit(text, ","));
    });
}
// The first split only: the two pieces of the whole text.
void BM_Split_SplitFirstByString_10000Fields(benchmark::State& state) {
    RunSplit(state, [](const std::string& text) {
        return orvik::StringUtils::SplitFirstByString(text, ",");
    });
}
void BM_Split_AbslStrSplitMaxSplits1_10000Fields(benchmark::State& state) {
    RunSplit(state, [](const std::string& text) {
        return std::vector<std::string>(absl::StrSplit(text, absl::MaxSplits(",", 1)));
    });
}
BENCHMARK(BM_Split_SplitString_10000Fields)->Name("BM_Split_All/orvik_SplitString/fields:10000");
BENCHMARK(BM_Split_SplitAllByString_10000Fields)
    ->Name("BM_Split_All/orvik_SplitAllByString/fields:10000");
BENCHMARK(BM_Split_AbslStrSplit_10000Fields)->Name("BM_Split_All/absl_StrSplit/fields:10000");
BENCHMARK(BM_Split_SplitFirstByString_10000Fields)
    ->Name("BM_Split_First/orvik_SplitFirstByString/fields:10000");
BENCHMARK(BM_Split_AbslStrSplitMaxSplits1_10000Fields)
    ->Name("BM_Split_First/absl_StrSplit_MaxSplits1/fields:10000");

// A flat object of 10 fields as a report would carry: six texts, three integers, one bool. The
// texts exist before the loop on both sides, so only building and writing are measured.
struct ReportFields {
    std::string keys[10] = {"sdk_name", "sdk_version", "device",      "os",      "session",
                            "event",    "bytes",       "duration_ms", "retries", "success"};
    std::string texts[6] = {"orvik-transfer",     "3.14.159",           "desktop-x64",
                            "Windows 10.0.19045", "5f1c9e2a-7d43-4b8e", "upload_finished"};
    int numbers[3] = {1048576, 2317, -1};
};

void BM_Json_JsonObject_Flat10Fields(benchmark::State& state) {
    const ReportFields f;
    const std::string empty;
    for (auto _ : state) {
        orvik::JsonObject object;
        for (int i = 0; i < 6; ++i) {
            object.AddNodeIfNeed(f.keys[i], f.texts[i], empty);
        }
        for (int i = 0; i < 3; ++i) {
            object.AddNodeIfNeed(f.keys[6 + i], f.numbers[i], 0);
        }
        object.AddNodeIfNeed(f.keys[9], true, false);
        std::string text = object.ToString();
        benchmark::DoNotOptimize(text.data());
    }
    state.SetItemsProcessed(state.iterations());
}
void BM_Json_NlohmannJson_Flat10Fields(benchmark::State& state) {
    const ReportFields f;
    for (auto _ : state) {
        nlohmann::json object;
        for (int i = 0; i < 6; ++i) {
            object[f.keys[i]] = f.texts[i];
        }
        for (int i = 0; i < 3; ++i) {
            object[f.keys[6 + i]] = f.numbers[i];
        }
        object[f.keys[9]] = true;
        std::string text = object.dump();
        benchmark::DoNotOptimize(text.data());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Json_JsonObject_Flat10Fields)->Name("BM_Json_Flat10Fields/orvik_JsonObject");
BENCHMARK(BM_Json_NlohmannJson_Flat10Fields)->Name("BM_Json_Flat10Fields/nlohmann_json");

}  // namespace

BENCHMARK_MAIN();
