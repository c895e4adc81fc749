#!/usr/bin/env bash
# Builds the libFuzzer targets (preset 'fuzz', Clang 14, ASan + UBSan, in build/fuzz), runs every
# saved reproducer in tests/fuzz/regressions/<target>/ once, then fuzzes each target for a fixed
# time on its corpus with its dictionary. Fails when a reproducer or a fuzzing run reports
# anything (crash, sanitizer report, leak, time-out, out of memory). Prints per target the
# executions, coverage (cov/ft) and exec/s of libFuzzer's final status line.
#
# Usage: scripts/fuzz.sh [SECONDS_PER_TARGET] [TARGET...]
#   SECONDS_PER_TARGET  default 60
#   TARGET              fuzz_receive fuzz_fibex fuzz_autosar fuzz_codec (default: all four)
# Environment:
#   FUZZ_PARALLEL  targets fuzzed at the same time, one core each (default: the number of cores)
#   FUZZ_ARGS      extra libFuzzer options for every run, e.g. "-jobs=4 -workers=2"
#
# The corpus of each target is build/fuzz/corpus/<target>: the seeds are copied there and
# libFuzzer adds what it finds; after a clean run it is reduced to the inputs that still add
# coverage, and later runs start from there (delete the folder to start over). Logs are in
# build/fuzz/logs, crash inputs in build/fuzz/artifacts/<target>/.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

all_targets=(fuzz_receive fuzz_fibex fuzz_autosar fuzz_codec)
seconds=${1:-60}
[[ $seconds =~ ^[0-9]+$ ]] || { echo "fuzz: SECONDS_PER_TARGET must be a number" >&2; exit 2; }
shift $(($# > 0 ? 1 : 0))
targets=("$@")
((${#targets[@]})) || targets=("${all_targets[@]}")
for t in "${targets[@]}"; do
  [[ " ${all_targets[*]} " == *" $t "* ]] || { echo "fuzz: unknown target '$t'" >&2; exit 2; }
done

bash scripts/setup.sh
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

build=$root/build/fuzz
bin=$build/tests/fuzz
seeds=$bin/seeds
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}

# Longest input per target: a few datagrams; a small database file; header, name and payload.
max_len() {
  case $1 in
    fuzz_receive) echo 4096 ;;
    fuzz_fibex | fuzz_autosar) echo 65536 ;;
    fuzz_codec) echo 1024 ;;
  esac
}

seed_files() {
  case $1 in
    fuzz_receive) ls "$seeds"/fuzz_receive/* ;;
    fuzz_fibex) ls tests/data/fibex/*.xml examples/*.xml "$seeds"/fuzz_fibex/* ;;
    fuzz_autosar) ls tests/data/autosar/*.arxml examples/*.arxml "$seeds"/fuzz_autosar/* ;;
    fuzz_codec) ls "$seeds"/fuzz_codec/* ;;
  esac
}

failed=()

# Saved reproducers: each file is run once and must pass.
for t in "${targets[@]}"; do
  dir=tests/fuzz/regressions/$t
  [[ -d $dir ]] || continue
  mapfile -t files < <(find "$dir" -maxdepth 1 -type f ! -name '.*' ! -name '*.md' | sort)
  ((${#files[@]})) || continue
  echo "fuzz: $t: running ${#files[@]} reproducer(s) from $dir"
  mkdir -p "$build/logs"
  if ! "$bin/$t" "${files[@]}" >"$build/logs/$t-regressions.log" 2>&1; then
    echo "fuzz: $t: a reproducer fails; see $build/logs/$t-regressions.log" >&2
    grep -E -A12 '^(==[0-9]+==ERROR|.*runtime error:)' "$build/logs/$t-regressions.log" >&2 || true
    failed+=("$t (regressions)")
  fi
done

run_target() {
  local t=$1
  local corpus=$build/corpus/$t
  mkdir -p "$corpus" "$build/artifacts/$t" "$build/logs"
  seed_files "$t" | xargs cp -t "$corpus"
  # Run from the log folder: with -jobs, libFuzzer writes its per-job logs into the current one.
  local rc=0
  # shellcheck disable=SC2086  # FUZZ_ARGS is a list of options
  (cd "$build/logs" && "$bin/$t" -max_total_time="$seconds" -max_len="$(max_len "$t")" \
    -dict="$root/tests/fuzz/$t.dict" -error_exitcode=77 -timeout=25 -rss_limit_mb=3072 \
    -print_final_stats=1 -artifact_prefix="$build/artifacts/$t/" ${FUZZ_ARGS:-} "$corpus" \
    >"$build/logs/$t.log" 2>&1) || rc=$?
  # Keep only the inputs that still add coverage, so the next run loads its corpus quickly.
  if ((rc == 0)) && rm -rf "$corpus.min" && mkdir "$corpus.min" &&
    "$bin/$t" -merge=1 -max_len="$(max_len "$t")" -timeout=25 -rss_limit_mb=3072 \
      "$corpus.min" "$corpus" >"$build/logs/$t-merge.log" 2>&1; then
    rm -rf "$corpus" && mv "$corpus.min" "$corpus"
  fi
  rm -rf "$corpus.min"
  echo "$rc" >"$build/logs/$t.rc"
}

parallel=${FUZZ_PARALLEL:-$(nproc)}
((parallel >= 1)) || parallel=1
((parallel <= ${#targets[@]})) || parallel=${#targets[@]}
echo "fuzz: ${targets[*]}: $seconds s each, $parallel at a time"
mkdir -p "$build/logs"
for t in "${targets[@]}"; do
  rm -f "$build/logs/$t.rc"
  while (($(jobs -rp | wc -l) >= parallel)); do
    wait -n || true
  done
  run_target "$t" &
done
wait

printf '\n%-14s %12s %9s %7s %8s  %s\n' target execs exec/s cov ft result
for t in "${targets[@]}"; do
  rc=$(cat "$build/logs/$t.rc" 2>/dev/null || echo "no result")
  log=$build/logs/$t.log
  # The last status line ("#N DONE cov: C ft: F corp: ... exec/s: E ..."; fork mode differs).
  status=$(grep -E '^#[0-9]+.*cov: [0-9]+ ft: [0-9]+' "$log" | tail -n 1 || true)
  execs=$(sed -nE 's/^#([0-9]+).*/\1/p' <<<"$status")
  cov=$(sed -nE 's/.*cov: ([0-9]+).*/\1/p' <<<"$status")
  ft=$(sed -nE 's/.*ft: ([0-9]+).*/\1/p' <<<"$status")
  rate=$(sed -nE 's/.*exec\/s:? ([0-9]+).*/\1/p' <<<"$status")
  avg=$(sed -nE 's/^stat::average_exec_per_sec: *([0-9]+)/\1/p' "$log" | tail -n 1)
  result=ok
  if [[ $rc != 0 ]]; then
    result="FAILED (exit $rc)"
    failed+=("$t")
  fi
  printf '%-14s %12s %9s %7s %8s  %s\n' "$t" "${execs:--}" "${avg:-${rate:--}}" "${cov:--}" \
    "${ft:--}" "$result"
done

for t in "${targets[@]}"; do
  [[ " ${failed[*]} " == *" $t "* ]] || continue
  log=$build/logs/$t.log
  echo
  echo "== $t: $log =="
  grep -E -A25 '^(==[0-9]+==ERROR|.*runtime error:|.*ERROR: libFuzzer)' "$log" | head -n 60 || tail -n 40 "$log"
  find "$build/artifacts/$t" -type f -printf "reproducer: %p\n"
done

if ((${#failed[@]})); then
  echo "fuzz: FAILED: ${failed[*]}" >&2
  echo "fuzz: save a small reproducer under tests/fuzz/regressions/<target>/ (docs/testing.md)" >&2
  exit 1
fi
echo "fuzz: ${targets[*]}: nothing found in $seconds s each"
