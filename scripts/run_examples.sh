#!/usr/bin/env bash
# Starts the device emulator on an address, waits until it serves, then runs each example program
# against that address in turn. Exits non-zero when the emulator does not start or an example
# fails. Used by scripts/demo.sh and by the test suite.
# Usage: [KELO_EMULATOR_ARGS="--database FILE ..."] scripts/run_examples.sh EMULATOR ADDRESS PROGRAM...
# KELO_EMULATOR_ARGS holds further emulator options (split at blanks).
set -euo pipefail
emulator_program=$1
address=$2
shift 2

log=$(mktemp)
read -r -a emulator_args <<<"${KELO_EMULATOR_ARGS:-}"
"$emulator_program" --address "$address" "${emulator_args[@]}" >"$log" 2>&1 &
emulator=$!
trap 'kill "$emulator" 2>/dev/null || true; wait "$emulator" 2>/dev/null || true; rm -f "$log"' EXIT

# Wait for the emulator's ready line rather than for a fixed time.
for _ in $(seq 200); do
  grep -q "serving on" "$log" && break
  kill -0 "$emulator" 2>/dev/null || { cat "$log"; echo "examples: the emulator did not start" >&2; exit 1; }
  sleep 0.05
done
grep -q "serving on" "$log" || { cat "$log"; echo "examples: the emulator did not get ready" >&2; exit 1; }
cat "$log"

status=0
for program in "$@"; do
  echo "== $(basename "$program") =="
  "$program" "$address" || { echo "examples: $(basename "$program") failed" >&2; status=1; }
  echo
done
exit "$status"
