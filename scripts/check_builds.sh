#!/usr/bin/env bash
# Builds the project the way a user configures it, once per compiler and build type, with every
# developer setting on (tests, benchmarks, warnings as errors): a warning that only an optimising
# build or only one compiler reports stops the check. The fast test suites then run on each build.
# Usage: scripts/check_builds.sh [COMPILER:TYPE ...]   (default: gcc:Release clang:Release;
#        COMPILER gcc or clang, TYPE a CMake build type). Installs Clang when it is missing.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
builds=("$@")
((${#builds[@]})) || builds=(gcc:Release clang:Release)

for build in "${builds[@]}"; do
  compiler=${build%%:*}
  type=${build#*:}
  case $compiler in
    gcc) cc=gcc cxx=g++ ;;
    clang) cc=clang cxx=clang++ ;;
    *) echo "check_builds: unknown compiler '$compiler' (gcc or clang)" >&2; exit 2 ;;
  esac
  if ! command -v "$cxx" >/dev/null; then
    SUDO=""
    [ "$(id -u)" -eq 0 ] || SUDO="sudo"
    export DEBIAN_FRONTEND=noninteractive
    $SUDO apt-get update -qq
    $SUDO apt-get install -y -qq --no-install-recommends "$compiler"
  fi
  dir=build/check-$compiler-${type,,}
  echo "== $compiler $type ($dir) =="
  CC=$cc CXX=$cxx cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE="$type" -DKELO_WERROR=ON \
    -DKELO_BUILD_TESTS=ON -DKELO_BUILD_BENCH=ON >/dev/null
  cmake --build "$dir"
  ctest --test-dir "$dir" -L fast -j "$(nproc)" --output-on-failure
done
echo "check_builds: ${builds[*]} built warning-free and passed the fast suites"
