#!/bin/sh
# Runs a C stub and a C proxy, each its own process with its own GMainLoop, and checks what each
# logged. Also checks that the program loads the platform libraries from `libdir`.
# Usage: c_api_test.sh PEER_PROGRAM LIBDIR
set -eu
peer=$1
libdir=$2

work=$(mktemp -d)
stub_pid=
cleanup() {
  if [ -n "$stub_pid" ]; then
    kill -9 "$stub_pid" 2>/dev/null || true
    wait "$stub_pid" 2>/dev/null || true
  fi
  rm -rf "$work"
}
trap cleanup EXIT
fail() {
  echo "FAIL: $*" >&2
  [ -f "$work/dlog" ] && sed 's/^/  dlog: /' "$work/dlog" >&2
  exit 1
}

# Three separate shared objects, each from `libdir`.
for lib in librpc-port.so.1 libdlog.so.1 libcapi-base-common.so.1; do
  resolved=$(ldd "$peer" | awk -v lib="$lib" '$1 == lib { print $3 }')
  [ -n "$resolved" ] || fail "$peer does not load $lib"
  [ "$(readlink -f "$resolved")" = "$(readlink -f "$libdir/$lib")" ] ||
    fail "$lib resolves to $resolved, not to $libdir"
done

export RPC_PORT_RUNTIME_DIR="$work/run"
export DLOG_FILE="$work/dlog"
mkfifo "$work/ready"
RPC_PORT_APPID=org.oxa.cstub "$peer" stub >"$work/ready" &
stub_pid=$!
ready=$(timeout 10 head -n 1 "$work/ready") || fail "stub did not start"
[ "$ready" = ready ] || fail "stub said '$ready'"

RPC_PORT_APPID=org.oxa.cproxy timeout 20 "$peer" proxy org.oxa.cstub || fail "proxy failed ($?)"
stub_status=0
timeout 10 sh -c "while kill -0 $stub_pid 2>/dev/null; do sleep 0.01; done" || fail "stub did not exit"
wait "$stub_pid" || stub_status=$?
stub_pid=
[ "$stub_status" -eq 0 ] || fail "stub failed ($stub_status)"

# What each side saw, in the platform log format.
for expected in \
  'I/CPEER\([0-9]+\): connected org\.oxa\.cproxy' \
  'I/CPEER\([0-9]+\): request 41 ping' \
  'I/CPEER\([0-9]+\): connected to org\.oxa\.cstub/CPeerPort' \
  'I/CPEER\([0-9]+\): reply 42 pong:ping' \
  'I/CPEER\([0-9]+\): event 7 welcome' \
  'I/CPEER\([0-9]+\): disconnected org\.oxa\.cproxy'; do
  grep -Eqx "$expected" "$work/dlog" || fail "no log line matching $expected"
done
logged_pid() {
  sed -n "s/^I\/CPEER(\([0-9]*\)): $1.*/\1/p" "$work/dlog"
}
[ "$(logged_pid request)" != "$(logged_pid reply)" ] || fail "stub and proxy share a process"
echo "c api peers: ok"
