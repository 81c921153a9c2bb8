#!/bin/sh
# Installs the build into a temporary prefix, compiles the example against the installed header
# and library using nothing but pkg-config (as an application would), and runs it where no agent
# listens: it must report that it cannot connect and exit with 1, well before its own timeout.
# Usage: example_build_test.sh CMAKE BUILD_DIR CC SOURCE [EXTRA_CFLAGS...]
set -eu
cmake=$1
build_dir=$2
cc=$3
source=$4
shift 4

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$cmake" --install "$build_dir" --prefix "$work/prefix" >/dev/null
pc_file=$(find "$work/prefix" -name oxa.pc)
[ -n "$pc_file" ] || { echo "FAIL: oxa.pc not installed" >&2; exit 1; }
export PKG_CONFIG_PATH="$(dirname "$pc_file")"
libdir=$(pkg-config --variable=libdir oxa)
[ -f "$(pkg-config --variable=includedir oxa)/oxa.h" ] || { echo "FAIL: oxa.h not installed" >&2; exit 1; }

# As for any library installed outside the default paths, the linker and the loader find
# liboxa's own dependencies (the platform libraries next to it) through LD_LIBRARY_PATH.
export LD_LIBRARY_PATH="$libdir"

# shellcheck disable=SC2046
"$cc" -std=c99 -Wall -Wextra -Werror -pedantic "$@" -o "$work/oxa_example" "$source" \
  $(pkg-config --cflags --libs oxa glib-2.0)

mkdir "$work/run"
status=0
RPC_PORT_RUNTIME_DIR="$work/run" DLOG_LEVEL=F \
  timeout 20 "$work/oxa_example" >"$work/out" 2>"$work/err" || status=$?
if [ "$status" -ne 1 ]; then
  echo "FAIL: the example exited with $status instead of 1" >&2
  cat "$work/out" "$work/err" >&2
  exit 1
fi
expected="cannot connect: -1073741825"
if ! grep -qx "$expected" "$work/err"; then
  echo "FAIL: no line '$expected' on stderr" >&2
  cat "$work/err" >&2
  exit 1
fi
if [ "$(cat "$work/out")" != "failed" ]; then
  echo "FAIL: unexpected output" >&2
  cat "$work/out" >&2
  exit 1
fi
echo "example built from the installed package and refused without an agent, as expected"
