#!/bin/sh
# Runs the C example and its C++ twin against the simulated agent's built-in world (through
# scripts/demo.sh) and checks that both succeed and print the very same lines.
# Usage: example_cpp_test.sh BUILD_DIR C_EXAMPLE CPP_EXAMPLE
set -eu
build_dir=$1
top=$(cd "$(dirname "$0")/.." && pwd)

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The example's own lines: from its first line to its last.
run() {
  OXA_DEMO_EXAMPLE="$2" sh "$top/scripts/demo.sh" "$build_dir" >"$work/$1.log" 2>&1 ||
    { cat "$work/$1.log" >&2; echo "FAIL: the $1 example failed" >&2; exit 1; }
  sed -n '/^connected to the agent$/,/^done$/p' "$work/$1.log" >"$work/$1.out"
}
run c "$2"
run cpp "$3"
[ "$(tail -n 1 "$work/cpp.out")" = done ] || { cat "$work/cpp.log" >&2; exit 1; }
diff "$work/c.out" "$work/cpp.out" || { echo "FAIL: the two examples differ" >&2; exit 1; }
echo "both examples printed the same $(wc -l <"$work/c.out") lines"
