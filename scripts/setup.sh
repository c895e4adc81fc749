#!/usr/bin/env bash
# Installs what the build needs on Debian 12 (run as root), only when something is missing.
set -euo pipefail

# clang-14 and libclang-rt-14-dev (only a recommendation of clang-14's packages, so named here: it
# holds the libFuzzer and sanitizer runtimes) build the fuzz targets.
packages=(build-essential cmake ninja-build pkg-config qtbase5-dev libpugixml-dev
          libgtest-dev libgmock-dev libbenchmark-dev clang-format binutils libcli11-dev
          clang-14 libclang-rt-14-dev)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "setup: installing ${missing[*]}"
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
