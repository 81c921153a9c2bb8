#!/bin/sh
# Runs every fuzz target for SECONDS each, JOBS at a time, on its committed seeds
# (tests/fuzz/corpus/<target>) plus a working corpus in BUILD_DIR/fuzz-corpus/<target>. A target
# goes on after a finding (fork mode), so one run collects them all: crashing, leaking, hanging
# or memory-hungry inputs land in BUILD_DIR/fuzz-artifacts/<target>/, and the exit status is
# non-zero if any target left one there.
#   tests/fuzz/run.sh BUILD_DIR SECONDS [JOBS]
set -u
cd "$(dirname "$0")/../.."
build=$1
seconds=$2
jobs=${3:-2}
targets=${FUZZ_TARGETS:-"event_dispatch reply_readers frame_reader sim_request"}
status=0

run_one() {
  target=$1
  artifacts="$build/fuzz-artifacts/$target"
  mkdir -p "$build/fuzz-corpus/$target" "$artifacts"
  # Leaks are checked; inputs stay small (a frame reader stream must fit a socket buffer).
  "$build/tests/fuzz/fuzz_$target" -fork=1 -ignore_crashes=1 -ignore_timeouts=1 -ignore_ooms=1 \
    -max_total_time="$seconds" -max_len=65536 -rss_limit_mb=2048 -timeout=5 \
    -artifact_prefix="$artifacts/" \
    "$build/fuzz-corpus/$target" "tests/fuzz/corpus/$target" \
    >"$build/fuzz-$target.log" 2>&1
  # Fork mode reports "#<executions>: cov: ... crash/timeout/oom..." as it goes; the last counts.
  execs=$(grep -o '^#[0-9]*:' "$build/fuzz-$target.log" | tail -1 | tr -d '#:')
  findings=$(ls "$artifacts" | wc -l)
  echo "fuzz_$target: ${execs:-?} executions in ${seconds} s, $findings inputs in $artifacts"
  [ "$findings" -eq 0 ]
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
