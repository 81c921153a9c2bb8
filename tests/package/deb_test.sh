#!/bin/sh
# Checks the Debian packages in DEB_DIR (made by scripts/make-deb.sh): what each one holds, then
# unpacks them all into a temporary root with dpkg -x (nothing is installed on this machine),
# builds the C example against that root with pkg-config, runs it against the packaged
# simulator, and builds the CMake consumer project against the root too.
# Usage: tests/package/deb_test.sh DEB_DIR
set -eu
deb_dir=$(cd "$1" && pwd)
top=$(cd "$(dirname "$0")/../.." && pwd)
arch=$(dpkg-architecture -qDEB_HOST_MULTIARCH)

work=$(mktemp -d "${TMPDIR:-/tmp}/oxa-deb-test.XXXXXX")
trap 'rm -rf "$work"' EXIT

fail() {
  echo "FAIL: $*" >&2
  exit 1
}

package() {
  found=$(find "$deb_dir" -maxdepth 1 -name "$1_*.deb" | head -n 1)
  [ -n "$found" ] || fail "no package $1 in $deb_dir"
  echo "$found"
}

# holds PACKAGE PATH...: each path is in the package.
holds() {
  deb=$(package "$1")
  shift
  dpkg -c "$deb" | awk '{print $6}' | sed 's#^\./#/#; s#/$##' >"$work/contents"
  for path in "$@"; do
    grep -qx "$path" "$work/contents" || fail "$(basename "$deb") lacks $path"
  done
}

lib=/usr/lib/$arch
holds liboxa3 "$lib/liboxa.so.3" "$lib/liboxa.so.3.0.5"
holds liboxa-dev /usr/include/oxa.h /usr/include/oxa.hpp "$lib/liboxa.so" \
  "$lib/pkgconfig/oxa.pc" "$lib/cmake/oxa/oxaConfig.cmake" "$lib/cmake/oxa/oxaConfigVersion.cmake" \
  /usr/share/man/man7/oxa.7.gz
for function in $(sed -n 's/^int \(oxa_[a-z_]*\)(.*/\1/p' "$top/include/oxa.h"); do
  holds liboxa-dev "/usr/share/man/man3/$function.3.gz"
done
holds oxa-tools /usr/bin/oxa-agent-sim
for page in "$top"/docs/man/*.1; do
  holds oxa-tools "/usr/share/man/man1/$(basename "$page").gz"
done
holds liboxa-host-platform "$lib/librpc-port.so.1" "$lib/libdlog.so.1" \
  "$lib/libcapi-base-common.so.1" "$lib/pkgconfig/rpc-port.pc" /usr/include/rpc-port.h
dpkg-deb -f "$(package liboxa-host-platform)" Description | grep -q "for development hosts" ||
  fail "the host platform package does not say that it is for development hosts"
for deb in "$deb_dir"/*.deb; do
  dpkg -x "$deb" "$work/root"
done
echo "package contents as expected"

# Log lines name the library's sources as the build gives them: src/<file>.
strings "$work/root$lib/liboxa.so.3" | grep -qx 'src/oxa.cc' ||
  fail "the packaged liboxa does not log its sources as src/<file>"

MANWIDTH=100 man -l "$work/root/usr/share/man/man3/oxa_send_command.3.gz" |
  grep -q '^SYNOPSIS' || fail "oxa_send_command.3 does not render"

root_lib="$work/root$lib"
export PKG_CONFIG_PATH="$root_lib/pkgconfig"
export LD_LIBRARY_PATH="$root_lib"
[ "$(cd "$(pkg-config --variable=includedir oxa)" && pwd -P)" = "$(cd "$work/root/usr/include" && pwd -P)" ] ||
  fail "oxa.pc does not point into the unpacked root"
# shellcheck disable=SC2046
cc -std=c99 -Wall -Wextra -Werror -pedantic -o "$work/oxa_example" "$top/examples/oxa_example.c" \
  $(pkg-config --cflags --libs oxa glib-2.0)
ldd "$work/oxa_example" | grep -q "liboxa.so.3 => $root_lib/" || fail "the example does not load the packaged liboxa"

OXA_DEMO_SIM="$work/root/usr/bin/oxa-agent-sim" OXA_DEMO_EXAMPLE="$work/oxa_example" \
  sh "$top/scripts/demo.sh" "$work" >"$work/demo.log" 2>&1 ||
  { cat "$work/demo.log" >&2; fail "the example did not run through against the packaged simulator"; }
grep -qx done "$work/demo.log" || { cat "$work/demo.log" >&2; fail "the example did not finish"; }
echo "the C example built against the unpacked packages and ran against the packaged simulator"

cmake -S "$top/tests/package/consumer" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$work/root/usr" \
  >"$work/consumer.log" 2>&1 && cmake --build "$work/consumer" >>"$work/consumer.log" 2>&1 ||
  { cat "$work/consumer.log" >&2; fail "the CMake consumer does not build against the packages"; }
[ "$("$work/consumer/consumer_c")" = "command to 02:00:00:00:00:01: 3 bytes, last 3" ] ||
  fail "the CMake consumer built against the packages does not run"
echo "the CMake consumer built against the unpacked packages and ran"
