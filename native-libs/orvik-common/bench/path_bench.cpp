// Parsing a path and writing its text, against std::filesystem::path (construct + string()).
// Each case gives both the same path: Path its Windows text, std::filesystem the same names in
// the form it splits on this system, so that both break the text into the same components.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <string>

#include "common/path.h"

namespace {

struct Input {
    std::string windows;
    std::string native;
};

std::string Deep(char separator) {
    std::string text;
    for (int level = 0; level < 10; ++level) {
        text += separator;
        text += "directory_level_" + std::to_string(level) + "_of_a_deep_tree";
    }
    return text;
}

Input InputFor(int kind) {
    switch (kind) {
        case 0:
            return {"C:\\Users\\alice\\Documents\\reports\\2024\\summary.txt",
                    "/c/Users/alice/Documents/reports/2024/summary.txt"};
        case 1:
            return {"cache\\images\\thumbs\\0001.png", "cache/images/thumbs/0001.png"};
        case 2:
            return {"\\\\fileserver\\shared\\team\\plans\\q3.docx",
                    "//fileserver/shared/team/plans/q3.docx"};
        default:
            return {"C:" + Deep('\\'), "/c" + Deep('/')};
    }
}

void Label(benchmark::State& state) {
    static const char* const names[] = {"drive", "relative", "share", "long"};
    state.SetLabel(names[state.range(0)]);
    state.SetItemsProcessed(state.iterations());
}

void BM_Path_ParseAndStr(benchmark::State& state) {
    const Input input = InputFor(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        const orvik::Path path(input.windows);
        std::string text = path.Str(orvik::Path::PATH_TYPE_WINDOWS);
        benchmark::DoNotOptimize(text);
    }
    Label(state);
}
BENCHMARK(BM_Path_ParseAndStr)->Name("BM_Path_ParseAndString/orvik")->DenseRange(0, 3);

void BM_StdFilesystem_ConstructAndString(benchmark::State& state) {
    const Input input = InputFor(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        const std::filesystem::path path(input.native);
        std::string text = path.string();
        benchmark::DoNotOptimize(text);
    }
    Label(state);
}
BENCHMARK(BM_StdFilesystem_ConstructAndString)
    ->Name("BM_Path_ParseAndString/std_filesystem")
    ->DenseRange(0, 3);

}  // namespace

BENCHMARK_MAIN();
