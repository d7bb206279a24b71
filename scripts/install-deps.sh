#!/usr/bin/env bash
# Installs, from Debian's packages, whatever a fresh machine lacks to build orvik-common and
# run its tests. Packages already present are left alone; nothing is downloaded otherwise.
#
#   bash scripts/install-deps.sh              everything the build and the tests need
#   bash scripts/install-deps.sh PACKAGE...   only the packages named (the demo's few)
set -euo pipefail

if [ $# -gt 0 ]; then
    packages=("$@")
else
    packages=(cmake g++ make pkg-config libssl-dev libgtest-dev libbenchmark-dev binutils nlohmann-json3-dev)
fi

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"

missing=()
for package in "${packages[@]}"; do
    dpkg -s "$package" >/dev/null 2>&1 || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
    echo "Installing: ${missing[*]}"
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

[ $# -eq 0 ] || exit 0

# A single-byte locale, so that the charset tests convert through a real non-UTF-8 encoding.
if ! locale -a 2>/dev/null | grep -qix 'de_DE.iso88591'; then
    if ! command -v localedef >/dev/null 2>&1; then
        DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends locales
    fi
    $sudo localedef -i de_DE -f ISO-8859-1 de_DE.ISO-8859-1 || echo "note: no Latin-1 locale; one charset test will skip"
fi
