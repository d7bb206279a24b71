#!/usr/bin/env bash
# Builds and runs every benchmark, each with its peer library side by side in one binary, and
# ends with one table of ours/peer ratios from this run (medians of the repetitions; above 1.00
# means ours is ahead). Installs the peers (Boost.Asio, Abseil, nlohmann::json, spdlog) from
# Debian's packages when missing.
#
#   bash scripts/bench.sh                 all benchmarks
#   bash scripts/bench.sh thread_pool     only the binaries whose name contains the word
#   BENCH_REPETITIONS=9 bash scripts/bench.sh   more repetitions (default 5)
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build="$root/build/bench"
jobs=$(nproc 2>/dev/null || echo 2)
filter=${1:-}

bash "$root/scripts/install-deps.sh"
peers=(libboost-dev libabsl-dev nlohmann-json3-dev libspdlog-dev python3)
missing=()
for package in "${peers[@]}"; do
    dpkg -s "$package" >/dev/null 2>&1 || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
    sudo=""
    [ "$(id -u)" -eq 0 ] || sudo="sudo"
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DORVIK_COMMON_BUILD_TESTS=OFF \
    -DORVIK_COMMON_BUILD_EXAMPLES=OFF -DORVIK_COMMON_BUILD_BENCHMARKS=ON >/dev/null
cmake --build "$build" -j "$jobs"
# The build's output reaches the disk now, not during the benchmarks that sync their files.
sync
# Keep large result buffers on the heap: otherwise each fresh multi-megabyte vector is mapped anew
# and its page faults swamp whichever side of a comparison happens to meet them.
export GLIBC_TUNABLES=${GLIBC_TUNABLES:-glibc.malloc.mmap_threshold=4194304:glibc.malloc.trim_threshold=16777216}
repetitions=${BENCH_REPETITIONS:-5}
results="$build/results"
rm -rf "$results"
mkdir -p "$results"
for binary in "$build"/native-libs/orvik-common/bench/*_bench; do
    name=$(basename "$binary")
    case "$name" in *"$filter"*) ;; *) continue ;; esac
    echo "== $name"
    # Each family (the benchmarks a ratio compares) runs in a process of its own: the heap, the
    # caches and the threads a family leaves behind would otherwise weigh on whichever side
    # happens to run next. Within a family the repetitions run in random order, so neither side
    # always runs first.
    families=$("$binary" --benchmark_list_tests=true | cut -d/ -f1 | sort -u)
    for family in $families; do
        "$binary" --benchmark_filter="^$family(/|$)" --benchmark_counters_tabular=true \
            --benchmark_repetitions="$repetitions" --benchmark_enable_random_interleaving=true \
            --benchmark_report_aggregates_only=true \
            --benchmark_out="$results/$name.$family.json" --benchmark_out_format=json
    done
done
echo
echo "== ours/peer, $repetitions repetitions, load average at the end: $(cut -d' ' -f1-3 /proc/loadavg)"
python3 "$root/scripts/bench-ratios.py" "$results"
