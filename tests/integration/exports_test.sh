#!/bin/sh
# The shared library exports exactly the functions that the public header declares: every
# declared function is defined, and nothing else is.
# Usage: exports_test.sh LIBRARY HEADER
set -eu
library=$1
header=$2

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Declarations start at the beginning of a line with their return type; typedefs and the
# documentation (whose lines start with a blank or a star) do not.
grep -E '^[A-Za-z_][A-Za-z0-9_ ]*[ *]oxa_[a-z0-9_]+\(' "$header" | grep -v '^typedef' |
  sed -E 's/^.*[ *](oxa_[a-z0-9_]+)\(.*$/\1/' | sort -u >"$work/declared"
nm -D --defined-only "$library" | awk '{ print $NF }' | sort -u >"$work/exported"

declared=$(wc -l <"$work/declared")
[ "$declared" -gt 0 ] || { echo "FAIL: no declaration found in $header" >&2; exit 1; }
if ! diff -u "$work/declared" "$work/exported" >"$work/diff"; then
  echo "FAIL: exports of $library differ from the declarations of $header" >&2
  echo "(- declared only, + exported only)" >&2
  cat "$work/diff" >&2
  exit 1
fi
echo "$declared functions declared and exported, nothing else exported"
