#!/usr/bin/env bash
# Builds the library and runs the example program against the built-in device emulator.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake --preset default >/dev/null
cmake --build --preset default --target kelo-emulator kelo_demo_cpp
build=build/default
address=127.0.0.1

"$build/emulator/kelo-emulator" --address "$address" &
emulator=$!
trap 'kill "$emulator" 2>/dev/null || true; wait "$emulator" 2>/dev/null || true' EXIT
"$build/examples/kelo_demo_cpp" "$address"
