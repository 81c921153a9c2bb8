#!/bin/sh
# Runs every fuzz target for SECONDS each, JOBS at a time, on its committed seeds
# (tests/fuzz/corpus/<target>) plus a working corpus in BUILD_DIR/fuzz-corpus/<target>. Crashing
# inputs land in BUILD_DIR/fuzz-artifacts/<target>/; the exit status is non-zero if any target
# found one.
#   tests/fuzz/run.sh BUILD_DIR SECONDS [JOBS]
set -u
cd "$(dirname "$0")/../.."
build=$1
seconds=$2
jobs=${3:-2}
targets="frame_reader event_dispatch reply_readers sim_request"
status=0

run_one() {
  target=$1
  mkdir -p "$build/fuzz-corpus/$target" "$build/fuzz-artifacts/$target"
  # Leaks are checked; inputs stay small (a frame reader stream must fit a socket buffer).
  "$build/tests/fuzz/fuzz_$target" -max_total_time="$seconds" -max_len=65536 \
    -rss_limit_mb=2048 -timeout=10 -print_final_stats=1 \
    -artifact_prefix="$build/fuzz-artifacts/$target/" \
    "$build/fuzz-corpus/$target" "tests/fuzz/corpus/$target" \
    >"$build/fuzz-$target.log" 2>&1
  result=$?
  execs=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$build/fuzz-$target.log" | grep -o '[0-9]*$')
  echo "fuzz_$target: exit $result, ${execs:-?} executions, $(ls "$build/fuzz-artifacts/$target" | wc -l) crash inputs"
  return $result
}

set -- $targets
while [ $# -gt 0 ]; do
  pids=""
  n=0
  while [ $# -gt 0 ] && [ $n -lt "$jobs" ]; do
    run_one "$1" &
    pids="$pids $!"
    n=$((n + 1))
    shift
  done
  for pid in $pids; do
    wait "$pid" || status=1
  done
done
exit $status
