#!/usr/bin/env bash
# Builds orvik-common and runs every test.
#
#   bash scripts/test.sh            the release build: tests, exported symbols, and an installed
#                                   package consumed through CMake and pkg-config (C++20,
#                                   strict warnings)
#   bash scripts/test.sh address    the same tests under ASan+UBSan
#   bash scripts/test.sh thread     the same tests under TSan
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
sanitizer=${1:-}
build="$root/build/${sanitizer:-release}"
jobs=$(nproc 2>/dev/null || echo 2)

bash "$root/scripts/install-deps.sh"

options=(-DCMAKE_BUILD_TYPE=RelWithDebInfo "-DORVIK_COMMON_SANITIZER=$sanitizer")
if [ -n "$sanitizer" ]; then
    options+=(-DORVIK_COMMON_BUILD_BENCHMARKS=OFF -DORVIK_COMMON_BUILD_EXAMPLES=OFF)
fi
cmake -S "$root" -B "$build" "${options[@]}" >/dev/null
cmake --build "$build" -j "$jobs"
ctest --test-dir "$build" --output-on-failure -j "$jobs"

if [ -z "$sanitizer" ]; then
    # The installed package, as a consumer finds it: through CMake and through pkg-config, in
    # C++20 and with a strict warning set, so every published header must compile clean there.
    stage="$build/stage"
    rm -rf "$stage" "$build/consumer"
    cmake --install "$build" --prefix "$stage" >/dev/null
    cmake -S "$root/examples/consumer" -B "$build/consumer" -DCMAKE_PREFIX_PATH="$stage" >/dev/null
    cmake --build "$build/consumer" -j "$jobs" >/dev/null
    grep -q -- '-std=c++20' "$build/consumer/CMakeFiles/consumer.dir/flags.make" ||
        { echo "the CMake consumer lost its C++20"; exit 1; }
    LD_LIBRARY_PATH="$stage/lib" "$build/consumer/consumer"
    export PKG_CONFIG_PATH="$stage/lib/pkgconfig"
    # shellcheck disable=SC2046
    g++ -std=c++20 -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror \
        "$root/examples/consumer/main.cpp" -o "$build/consumer/consumer-pkgconfig" \
        $(pkg-config --cflags --libs orvik-common)
    LD_LIBRARY_PATH="$stage/lib" "$build/consumer/consumer-pkgconfig"
fi
