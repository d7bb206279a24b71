#!/usr/bin/env bash
# Builds orvik-common with its demo client and runs it. Installs only what the demo needs (a
# compiler, CMake and OpenSSL's headers) and builds quietly: the compiler's output shows only
# when the build fails.
#
#   bash scripts/demo.sh [output-directory]    (default: build/demo/demo-output)
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build="$root/build/demo"
jobs=$(nproc 2>/dev/null || echo 2)

bash "$root/scripts/install-deps.sh" cmake g++ make libssl-dev
log="$build/build.log"
mkdir -p "$build"
if ! { cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DORVIK_COMMON_BUILD_TESTS=OFF -DORVIK_COMMON_BUILD_BENCHMARKS=OFF &&
    cmake --build "$build" -j "$jobs" --target orvik-demo; } >"$log" 2>&1; then
    cat "$log"
    echo "demo build failed" >&2
    exit 1
fi
# A relative output directory lands under the build folder.
cd "$build"
./examples/orvik-demo "${1:-demo-output}"
