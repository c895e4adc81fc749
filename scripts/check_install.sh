#!/usr/bin/env bash
# Installs KeLoComm from a plain configure (no developer settings) into a temporary prefix, moves
# the installation elsewhere (both package files must find their own prefix), then builds the C
# and C++ examples from the installed documentation as consumers: with find_package and with
# pkg-config, and runs all four against the installed kelo-emulator.
# Usage: scripts/check_install.sh [BUILD-DIR]   (default build/check-install)
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
build=${1:-build/check-install}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

echo "== plain configure, build and install =="
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build"
cmake --install "$build" --prefix "$work/staged" >/dev/null
mv "$work/staged" "$work/prefix"
prefix=$work/prefix

missing=0
for file in lib/libkelocomm.so lib/libkelocomm.so.2 include/kelocomm/KeLoComm.h \
  include/kelocomm/CommunicationLib.h include/kelocomm/kelocomm_export.h \
  lib/cmake/KeLoComm/KeLoCommConfig.cmake lib/cmake/KeLoComm/KeLoCommConfigVersion.cmake \
  lib/cmake/KeLoComm/KeLoCommTargets.cmake lib/pkgconfig/kelocomm.pc bin/kelo-emulator \
  bin/kelo-gen-fibex bin/kelo-gen-autosar share/doc/KeLoComm/LICENSE \
  share/doc/KeLoComm/examples/demo_c.c share/doc/KeLoComm/examples/demo_cpp.cpp; do
  [ -e "$prefix/$file" ] || { echo "check_install: $file was not installed" >&2; missing=1; }
done
[ "$missing" -eq 0 ]
examples=$prefix/share/doc/KeLoComm/examples
strict=(-Wall -Wextra -Wpedantic -Werror)

echo "== CMake consumers (find_package(KeLoComm), KeLoComm::kelocomm) =="
cmake -S tests/consumer -B "$work/cmake-consumer" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
  -DKELO_EXAMPLES="$examples"
cmake --build "$work/cmake-consumer"

echo "== pkg-config consumers =="
export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
echo "pkg-config --cflags --libs kelocomm: $(pkg-config --cflags --libs kelocomm)"
mkdir -p "$work/pc-consumer"
# shellcheck disable=SC2046  # the flags are meant to split into words
cc -std=c99 "${strict[@]}" "$examples/demo_c.c" $(pkg-config --cflags --libs kelocomm) \
  -o "$work/pc-consumer/demo_c"
# shellcheck disable=SC2046
c++ -std=c++17 "${strict[@]}" "$examples/demo_cpp.cpp" $(pkg-config --cflags --libs kelocomm) \
  -o "$work/pc-consumer/demo_cpp"

echo "== the four consumers against the installed emulator =="
# Each consumer must load the installed library: the CMake ones through their RPATH, the
# pkg-config ones through LD_LIBRARY_PATH, as a user of a non-system prefix would run them.
for program in "$work"/cmake-consumer/consumer_c "$work"/cmake-consumer/consumer_cpp; do
  ldd "$program" | grep -q "$prefix/lib/libkelocomm.so.2" ||
    { echo "check_install: $program does not load $prefix/lib/libkelocomm.so.2" >&2; exit 1; }
done
bash scripts/run_examples.sh "$prefix/bin/kelo-emulator" 127.0.0.212 \
  "$work/cmake-consumer/consumer_c" "$work/cmake-consumer/consumer_cpp"
LD_LIBRARY_PATH=$prefix/lib bash scripts/run_examples.sh "$prefix/bin/kelo-emulator" 127.0.0.212 \
  "$work/pc-consumer/demo_c" "$work/pc-consumer/demo_cpp"
echo "check_install: installed, moved, and four consumers built and ran against the emulator"
