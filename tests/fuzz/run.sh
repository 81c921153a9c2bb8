#!/bin/sh
# Runs every fuzz target for SECONDS each, JOBS at a time, on its committed seeds
# (tests/fuzz/corpus/<target>) plus a working corpus in BUILD_DIR/fuzz-corpus/<target>. A target
# stops at its first finding: the crashing, leaking, hanging or memory-hungry input lands in
# BUILD_DIR/fuzz-artifacts/<target>/, and the exit status is non-zero if any target left one
# there. (In-process rather than fork mode: forking a child per batch ran the reply readers
# twenty times slower.)
#   tests/fuzz/run.sh BUILD_DIR SECONDS [JOBS]
set -u
cd "$(dirname "$0")/../.."
build=$1
seconds=$2
jobs=${3:-2}
targets=${FUZZ_TARGETS:-"event_dispatch reply_readers frame_reader sim_request"}
status=0
# A call whose reply read fails leaves its request parcel undestroyed by design; the tests
# suppress that one leak, and so do the fuzzers.
export LSAN_OPTIONS="suppressions=$(pwd)/tests/lsan.supp${LSAN_OPTIONS:+:$LSAN_OPTIONS}"

run_one() {
  target=$1
  artifacts="$build/fuzz-artifacts/$target"
  mkdir -p "$build/fuzz-corpus/$target" "$artifacts"
  # Leaks are checked; inputs stay small (a frame reader stream must fit a socket buffer).
  "$build/tests/fuzz/fuzz_$target" \
    -max_total_time="$seconds" -max_len=65536 -rss_limit_mb=2048 -timeout=5 \
    -artifact_prefix="$artifacts/" \
    "$build/fuzz-corpus/$target" "tests/fuzz/corpus/$target" \
    >"$build/fuzz-$target.log" 2>&1
  # libFuzzer reports "#<executions> <event> ..." as it goes and "Done <executions> runs" at the
  # end; the last of them counts.
  execs=$(sed -n 's/^Done \([0-9]*\) runs.*/\1/p; s/^#\([0-9]*\).*/\1/p' "$build/fuzz-$target.log" |
    tail -1)
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
