#!/usr/bin/env bash
# Builds the library and runs the example programs (C++ object interface, then the flat C
# interface) against the built-in device emulator.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake --preset default >/dev/null
cmake --build --preset default --target kelo-emulator kelo_demo_cpp kelo_demo_c
build=build/default
address=127.0.0.1

# Start the emulator and wait for its ready line before the examples talk to it.
log=$(mktemp)
"$build/emulator/kelo-emulator" --address "$address" >"$log" 2>&1 &
emulator=$!
trap 'kill "$emulator" 2>/dev/null || true; wait "$emulator" 2>/dev/null || true; rm -f "$log"' EXIT
for _ in $(seq 100); do
  grep -q "serving on" "$log" && break
  kill -0 "$emulator" 2>/dev/null || { cat "$log"; echo "demo: the emulator did not start" >&2; exit 1; }
  sleep 0.05
done
cat "$log"

echo "== C++ example (CommunicationLib) =="
"$build/examples/kelo_demo_cpp" "$address"
echo
echo "== C example (flat exports) =="
"$build/examples/kelo_demo_c" "$address"
