#!/bin/sh
# Installs the build into a temporary prefix, then configures and builds the consumer project
# against it through find_package(oxa 3) alone, runs both programs, and checks that the version
# file makes find_package refuse other major versions, naming the version it found.
# Usage: cmake_package_test.sh CMAKE BUILD_DIR CONSUMER_DIR [EXTRA_FLAGS...]
set -eu
cmake=$1
build_dir=$2
consumer=$3
shift 3
flags="$*"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$cmake" --install "$build_dir" --prefix "$work/prefix" >/dev/null

configure() {
  "$cmake" -S "$1" -B "$2" -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_C_FLAGS="$flags" \
    -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="$flags"
}

configure "$consumer" "$work/build" >"$work/configure.log" 2>&1 ||
  { cat "$work/configure.log" >&2; echo "FAIL: the consumer does not configure" >&2; exit 1; }
"$cmake" --build "$work/build" >"$work/build.log" 2>&1 ||
  { cat "$work/build.log" >&2; echo "FAIL: the consumer does not build" >&2; exit 1; }

# The platform libraries sit next to liboxa in the prefix, outside the loader's paths.
libdir=$(dirname "$(find "$work/prefix" -name 'liboxa.so.3' | head -n 1)")
export LD_LIBRARY_PATH="$libdir"
expected="command to 02:00:00:00:00:01: 3 bytes, last 3"
out=$("$work/build/consumer_c")
[ "$out" = "$expected" ] || { echo "FAIL: consumer_c printed '$out'" >&2; exit 1; }
out=$("$work/build/consumer_cpp")
[ "$out" = "$expected
refused: -22 A missing or invalid argument" ] || { echo "FAIL: consumer_cpp printed '$out'" >&2; exit 1; }

for version in 2 4; do
  mkdir -p "$work/v$version"
  printf 'cmake_minimum_required(VERSION 3.25)\nproject(v LANGUAGES C)\nfind_package(oxa %s REQUIRED)\n' \
    "$version" >"$work/v$version/CMakeLists.txt"
  if configure "$work/v$version" "$work/v$version/build" >"$work/v$version.log" 2>&1; then
    echo "FAIL: find_package(oxa $version) accepted version 3" >&2
    exit 1
  fi
  grep -q "oxaConfig.cmake, version: 3\." "$work/v$version.log" ||
    { cat "$work/v$version.log" >&2; echo "FAIL: not refused by the version file" >&2; exit 1; }
done
echo "the C and C++ consumers built against the installed package and ran"
