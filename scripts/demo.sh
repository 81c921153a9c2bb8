#!/bin/sh
# The example application against the simulated agent and its built-in world, on a private
# runtime directory: discovery, device data, a command and a simple message to the echo peer,
# their outcomes and the echo peer's answers. Exits non-zero when any step fails.
# Usage: scripts/demo.sh BUILD_DIR
# OXA_DEMO_SIM and OXA_DEMO_EXAMPLE run other builds of the two programs (an installed package's).
set -eu

build=$(cd "${1:-build}" && pwd)
sim="${OXA_DEMO_SIM:-$build/tools/agent-sim/oxa-agent-sim}"
example="${OXA_DEMO_EXAMPLE:-$build/examples/oxa_example}"
echo_peer="A0:00:00:00:00:03"

runtime=$(mktemp -d "${TMPDIR:-/tmp}/oxa-demo.XXXXXX")
sim_log="$runtime/agent-sim.log"
sim_pid=""

stop_sim() {
  if [ -n "$sim_pid" ]; then
    kill -TERM "$sim_pid" 2>/dev/null || true
    wait "$sim_pid" || sim_status=$?
    sim_pid=""
  fi
}
trap 'stop_sim; rm -rf "$runtime"' EXIT INT TERM

fail() {
  echo "demo: $*" >&2
  [ -f "$sim_log" ] && sed 's/^/  | /' "$sim_log" >&2
  exit 1
}

echo "== Starting the simulated agent (built-in world) in $runtime"
"$sim" --runtime-dir "$runtime" --trace >"$sim_log" 2>&1 &
sim_pid=$!

# Up to 10 s for the ready line.
tries=0
until grep -qs '^oxa-agent-sim: listening on ' "$sim_log"; do
  kill -0 "$sim_pid" 2>/dev/null || fail "the simulated agent exited before it was ready"
  tries=$((tries + 1))
  [ "$tries" -le 100 ] || fail "the simulated agent did not get ready within 10 s"
  sleep 0.1
done
head -n 1 "$sim_log"

echo
echo "== Running the example: oxa_example $echo_peer (the echo peer)"
example_status=0
RPC_PORT_RUNTIME_DIR="$runtime" RPC_PORT_APPID=org.oxa.demo DLOG_LEVEL=W \
  "$example" "$echo_peer" || example_status=$?

sim_status=0
stop_sim

echo
echo "== What the simulated agent received (<-), answered (->) and sent as events (=>)"
grep '^trace: ' "$sim_log" | sed 's/^trace: //'
tail -n 1 "$sim_log"

echo
if [ "$example_status" -ne 0 ]; then
  fail "the example failed (exit status $example_status)"
fi
if [ "$sim_status" -ne 0 ]; then
  fail "the simulated agent did not stop cleanly (exit status $sim_status)"
fi
echo "== Demo finished: every step succeeded"
