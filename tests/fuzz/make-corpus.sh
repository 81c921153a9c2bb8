#!/bin/sh
# Regenerates the fuzz targets' seed corpora from real traffic: the simulator, with the capture
# library preloaded, serves the example client (discovery, device data, messages and commands to
# the echo peer, the timeline's events) and two clients that exchange messages.
#   tests/fuzz/make-corpus.sh [BUILD_DIR]      (default build; needs `make build` first)
set -eu
cd "$(dirname "$0")/../.."
build=${1:-build}
corpus=tests/fuzz/corpus
for target in frame_reader event_dispatch reply_readers sim_request; do
  mkdir -p "$corpus/$target"
done
dir=$(mktemp -d)
trap 'kill "$sim" 2>/dev/null || true; rm -rf "$dir"' EXIT INT TERM
OXA_FUZZ_CAPTURE_DIR="$PWD/$corpus" LD_PRELOAD="$PWD/$build/tests/fuzz/liboxa_fuzz_capture.so" \
  "$build/tools/agent-sim/oxa-agent-sim" --runtime-dir "$dir" >"$dir/sim.log" &
sim=$!
until grep -q "listening on" "$dir/sim.log"; do sleep 0.1; done
export RPC_PORT_RUNTIME_DIR="$dir"
export DLOG_FILE="$dir/dlog.txt"
RPC_PORT_APPID=org.example.seed "$build/examples/oxa_example" A0:00:00:00:00:03 >/dev/null
# Two clients that see each other as devices; how their exchange ends does not matter here.
RPC_PORT_APPID=org.example.alice "$build/examples/oxa_example" 02:00:00:00:00:03 >/dev/null &
alice=$!
RPC_PORT_APPID=org.example.bob "$build/examples/oxa_example" 02:00:00:00:00:02 >/dev/null || true
wait "$alice" || true
kill "$sim"
wait "$sim" || true
for target in frame_reader event_dispatch reply_readers sim_request; do
  echo "$target: $(ls "$corpus/$target" | wc -l) seeds"
done
