#!/usr/bin/env bash
# Builds orvik-common with its example programs and runs the demo client.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build="$root/build/release"
jobs=$(nproc 2>/dev/null || echo 2)

bash "$root/scripts/install-deps.sh"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j "$jobs" --target orvik-demo
# The demo writes its files under the build folder: relative paths resolve against the working
# directory, as on Windows.
cd "$build"
./examples/orvik-demo "${1:-demo-output}"
