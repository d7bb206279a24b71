#!/usr/bin/env bash
# Installs, from Debian's packages, whatever a fresh machine lacks to build orvik-common and
# run its tests. Packages already present are left alone; nothing is downloaded otherwise.
set -euo pipefail

packages=(cmake g++ make pkg-config libssl-dev libgtest-dev libbenchmark-dev binutils nlohmann-json3-dev)

missing=()
for package in "${packages[@]}"; do
    dpkg -s "$package" >/dev/null 2>&1 || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
