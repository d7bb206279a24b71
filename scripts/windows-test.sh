#!/usr/bin/env bash
# Builds orvik-common for 64-bit Windows with Debian's mingw-w64 cross compiler and runs the
# whole test suite under Wine.
#
#   bash scripts/windows-test.sh
#
# Installs what is missing (the cross compiler, Wine, the tools to fetch Debian sources), then
# builds libcrypto from Debian's OpenSSL sources and GoogleTest from Debian's googletest
# sources with the same compiler. Both are kept in ORVIK_COMMON_CACHE (default
# /var/cache/orvik-common), outside the clone, so later runs on the same machine reuse them.
# The build goes to build/windows; Wine keeps its prefix there too.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build="$root/build/windows"
cache=${ORVIK_COMMON_CACHE:-/var/cache/orvik-common}
jobs=$(nproc 2>/dev/null || echo 2)
host=x86_64-w64-mingw32
started=$SECONDS

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"

# --- Packages --------------------------------------------------------------------------------
packages=(cmake make g++-mingw-w64-x86-64-posix wine64 googletest nlohmann-json3-dev dpkg-dev perl)
missing=()
for package in "${packages[@]}"; do
    dpkg -s "$package" >/dev/null 2>&1 || missing+=("$package")
done
apt_updated=""
if [ ${#missing[@]} -gt 0 ]; then
    echo "Installing: ${missing[*]}"
    $sudo apt-get update -qq
    apt_updated=1
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends \
        "${missing[@]}"
fi

# --- libcrypto for Windows, from Debian's OpenSSL sources --------------------------------------
# Any libcrypto already built here is reused; remove the folder to build the current one.
openssl_dir=$(find "$cache" -maxdepth 1 -name 'openssl-mingw64-*' ! -name '*.tmp' -type d 2>/dev/null |
    sort -V | tail -n 1 || true)
if [ -z "$openssl_dir" ] || [ ! -f "$openssl_dir/lib/libcrypto.a" ]; then
    # apt-get source needs source entries for the same suites as the binary ones.
    src_list=/etc/apt/sources.list.d/orvik-common-deb-src.sources
    if [ ! -f "$src_list" ]; then
        if [ -f /etc/apt/sources.list.d/debian.sources ]; then
            sed 's/^Types:.*/Types: deb-src/' /etc/apt/sources.list.d/debian.sources |
                $sudo tee "$src_list" >/dev/null
        else
            grep -h '^deb ' /etc/apt/sources.list 2>/dev/null | sed 's/^deb /deb-src /' |
                $sudo tee "${src_list%.sources}.list" >/dev/null
        fi
        apt_updated=""
    fi
    [ -n "$apt_updated" ] || $sudo apt-get update -qq

    # The newest source first; a mirror may lack it (some serve no security sources), and
    # then the next older version is taken.
    work=$(mktemp -d)
    chmod 755 "$work"
    for wanted in openssl $(apt-cache showsrc openssl | awk '/^Version:/ { print "openssl=" $2 }' |
        sort -V -r); do
        (cd "$work" && apt-get source -qq "$wanted" >/dev/null 2>&1) && break
        rm -rf "${work:?}"/*
    done
    source_dir=$(find "$work" -maxdepth 1 -name 'openssl-*' -type d | head -n 1)
    if [ -z "$source_dir" ]; then
        echo "apt-get source openssl failed" >&2
        exit 1
    fi
    version=${source_dir##*/openssl-}
    echo "Building libcrypto $version for Windows"
    if ! (
        cd "$source_dir"
        ./Configure mingw64 no-shared no-tests no-asm --cross-compile-prefix=$host-
        make -j "$jobs" build_libs
    ) >"$work/build.log" 2>&1; then
        tail -n 50 "$work/build.log" >&2
        exit 1
    fi
    target="$cache/openssl-mingw64-$version"
    $sudo mkdir -p "$cache"
    $sudo rm -rf "$target.tmp"
    $sudo mkdir -p "$target.tmp/lib"
    $sudo cp -r "$source_dir/include" "$target.tmp/include"
    $sudo cp "$source_dir/libcrypto.a" "$target.tmp/lib/"
    $sudo rm -rf "$target"
    $sudo mv "$target.tmp" "$target"
    rm -rf "$work"
    openssl_dir=$target
fi

# --- GoogleTest for Windows, from Debian's googletest sources ----------------------------------
gtest_version=$(dpkg-query -W -f='${Version}' googletest)
gtest_dir="$cache/googletest-mingw64-$gtest_version"
if [ ! -f "$gtest_dir/lib/cmake/GTest/GTestConfig.cmake" ]; then
    echo "Building GoogleTest $gtest_version for Windows"
    work=$(mktemp -d)
    cmake -S /usr/src/googletest -B "$work" \
        -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-w64-x86_64.cmake" \
        -DCMAKE_BUILD_TYPE=Release -DBUILD_GMOCK=OFF -Dgtest_disable_pthreads=OFF >/dev/null
    cmake --build "$work" -j "$jobs" >/dev/null
    $sudo rm -rf "$gtest_dir.tmp"
    $sudo cmake --install "$work" --prefix "$gtest_dir.tmp" >/dev/null
    $sudo rm -rf "$gtest_dir"
    $sudo mv "$gtest_dir.tmp" "$gtest_dir"
    rm -rf "$work"
fi

# --- nlohmann-json for Windows: Debian's headers, seen through a prefix of their own -----------
# The library is headers alone, but its CMake package names /usr/include, which would put the
# host's C headers in front of the cross compiler's. A prefix in the build holding only the
# library's own header folder, with Debian's package files beside it, gives the same target.
json_config=$(dpkg -L nlohmann-json3-dev | grep '/nlohmann_jsonConfig.cmake$' | head -n 1)
json_prefix="$build/nlohmann-json"
mkdir -p "$json_prefix/include" "$json_prefix/share/cmake"
ln -sfn /usr/include/nlohmann "$json_prefix/include/nlohmann"
rm -rf "$json_prefix/share/cmake/nlohmann_json"
cp -r "$(dirname "$json_config")" "$json_prefix/share/cmake/nlohmann_json"

# --- Wine ------------------------------------------------------------------------------------
# A prefix of our own, and one wineserver kept alive for the whole run, so that each test
# process starts without bringing a server up and down. It is shut down however the run ends.
export WINEPREFIX="$build/wineprefix"
export WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml="
wineserver=/usr/lib/wine/wineserver
mkdir -p "$WINEPREFIX"
# A server left running on this prefix (by an earlier run or by hand) is used as it is.
"$wineserver" -p 2>/dev/null || true
trap '"$wineserver" -k >/dev/null 2>&1 || true' EXIT
# Wine's first program starts its background services, which keep the standard streams they
# inherit open for as long as the server lives. Starting them here, with the streams closed,
# lets ctest see each test's output end when the test ends.
/usr/lib/wine/wine64 wineboot --init </dev/null >/dev/null 2>&1

# --- A Japanese locale for Wine ----------------------------------------------------------------
# One test starts Wine in ja_JP.UTF-8, so that programs see the multibyte ANSI code page 932.
# The locale is built into the build's own folder (the test points LOCPATH at it), from the
# sources of the C library's locales, and kept there.
if [ ! -d "$build/locales/ja_JP.UTF-8" ]; then
    mkdir -p "$build/locales"
    localedef -i ja_JP -f UTF-8 "$build/locales/ja_JP.UTF-8"
fi

# --- This project ----------------------------------------------------------------------------
# The linker flags are taken afresh from the toolchain file: builds from before the runtime
# became DLLs keep "-static" in their cache.
cmake -S "$root" -B "$build" \
    -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-w64-x86_64.cmake" \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -UCMAKE_EXE_LINKER_FLAGS -UCMAKE_SHARED_LINKER_FLAGS \
    -DORVIK_COMMON_BUILD_BENCHMARKS=OFF -DORVIK_COMMON_BUILD_EXAMPLES=OFF \
    -DOPENSSL_USE_STATIC_LIBS=ON -DOPENSSL_INCLUDE_DIR="$openssl_dir/include" \
    -DLIB_EAY="$openssl_dir/lib/libcrypto.a" \
    -DGTest_DIR="$gtest_dir/lib/cmake/GTest" \
    -Dnlohmann_json_DIR="$json_prefix/share/cmake/nlohmann_json" >/dev/null
cmake --build "$build" -j "$jobs"
ctest --test-dir "$build" --output-on-failure -j "$jobs"
echo "Windows build and tests under Wine took $((SECONDS - started)) s"
