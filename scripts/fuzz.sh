#!/usr/bin/env bash
# Builds the libFuzzer harnesses of native-libs/orvik-common/fuzz (clang 14, ASan+UBSan) into
# build/fuzz and runs each for the given number of seconds (default 30) on a copy of its seed
# corpus, so that no new corpus file lands in the tree. Fails if any harness fails; a failing
# input stays in build/fuzz/run/<family>/ as crash-*, leak-* or timeout-*.
#
#   bash scripts/fuzz.sh        every harness, 30 seconds each
#   bash scripts/fuzz.sh 600    every harness, ten minutes each
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-30}
build="$root/build/fuzz"
jobs=$(nproc 2>/dev/null || echo 2)
fuzz_source="$root/native-libs/orvik-common/fuzz"

bash "$root/scripts/install-deps.sh"

# clang with libFuzzer and the sanitizer runtimes, and llvm-symbolizer for readable reports.
bash "$root/scripts/install-deps.sh" clang-14 libclang-rt-14-dev llvm-14

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_CXX_COMPILER=clang++-14 -DORVIK_COMMON_BUILD_FUZZERS=ON \
    -DORVIK_COMMON_BUILD_TESTS=OFF -DORVIK_COMMON_BUILD_BENCHMARKS=OFF \
    -DORVIK_COMMON_BUILD_EXAMPLES=OFF >/dev/null
cmake --build "$build" -j "$jobs"

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1}
export ASAN_SYMBOLIZER_PATH=${ASAN_SYMBOLIZER_PATH:-$(command -v llvm-symbolizer-14 || true)}

failed=()
for seeds in "$fuzz_source"/corpus/*/; do
    family=$(basename "$seeds")
    binary="$build/native-libs/orvik-common/fuzz/${family}_fuzzer"
    work="$build/run/$family"
    rm -rf "$work"
    mkdir -p "$work/corpus"
    cp -R "$seeds." "$work/corpus/"
    echo "== $family: ${seconds}s"
    if (cd "$work" && "$binary" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
            -max_len=4096 -print_final_stats=1 -artifact_prefix="$work/" corpus \
            >"$work/log" 2>&1); then
        # The last status line: executions, coverage (cov) and features (ft).
        grep -E '^#[0-9]+' "$work/log" | tail -n 1
        grep -E '^stat::(number_of_executed_units|average_exec_per_sec)' "$work/log"
    else
        tail -n 60 "$work/log"
        echo "== $family FAILED (log: $work/log)"
        failed+=("$family")
    fi
done

if [ ${#failed[@]} -gt 0 ]; then
    echo "Fuzzing failed: ${failed[*]}"
    exit 1
fi
echo "Fuzzing passed: every harness ran ${seconds}s without a finding"
