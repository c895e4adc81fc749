#!/usr/bin/env bash
# Builds the library and runs the example programs (C++ object interface, the flat C interface,
# then the FlexRay node driven from the FIBEX file examples/powertrain-flexray.xml and from the
# AUTOSAR file examples/chassis-flexray-4.2.arxml) against the built-in device emulator; for the
# two database examples the emulator also plays the other ECUs of their database (--database).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake --preset default >/dev/null
export KELO_DEMO_DATABASE="$PWD/examples/powertrain-flexray.xml"
export KELO_DEMO_AUTOSAR="$PWD/examples/chassis-flexray-4.2.arxml"
cmake --build --preset default --target kelo-emulator kelo_demo_cpp kelo_demo_c kelo_demo_database \
  kelo_demo_autosar
build=build/default
emulator="$build/emulator/kelo-emulator"
bash scripts/run_examples.sh "$emulator" 127.0.0.1 "$build/examples/kelo_demo_cpp" \
  "$build/examples/kelo_demo_c"
# The database examples against an emulator that also plays the other ECUs of their database.
KELO_EMULATOR_ARGS="--database $KELO_DEMO_DATABASE" \
  bash scripts/run_examples.sh "$emulator" 127.0.0.1 "$build/examples/kelo_demo_database"
KELO_EMULATOR_ARGS="--database $KELO_DEMO_AUTOSAR" \
  bash scripts/run_examples.sh "$emulator" 127.0.0.1 "$build/examples/kelo_demo_autosar"
