#!/usr/bin/env bash
# Builds the library, the emulator and every test suite, then runs all tests (fast and slow).
# Usage: scripts/test.sh [default|asan|tsan]
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-default}"
bash scripts/setup.sh
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
ctest --preset "$preset" -j "$(nproc)"
