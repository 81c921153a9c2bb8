#!/bin/sh
# Installs the platform component into a temporary prefix, builds the C peer against the
# installed headers and libraries using nothing but pkg-config, and runs it (c_api_test.sh).
# Usage: install_test.sh CMAKE BUILD_DIR CC PEER_SOURCE C_API_TEST [EXTRA_CFLAGS...]
set -eu
cmake=$1
build_dir=$2
cc=$3
source=$4
c_api_test=$5
shift 5

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$cmake" --install "$build_dir" --prefix "$work/prefix" --component platform >/dev/null
pc_file=$(find "$work/prefix" -name rpc-port.pc)
[ -n "$pc_file" ] || { echo "FAIL: rpc-port.pc not installed" >&2; exit 1; }
export PKG_CONFIG_PATH="$(dirname "$pc_file")"
for header in rpc-port.h rpc-port-parcel.h dlog.h capi-base-common.h; do
  [ -f "$(pkg-config --variable=includedir rpc-port)/$header" ] ||
    { echo "FAIL: $header not installed" >&2; exit 1; }
done
libdir=$(pkg-config --variable=libdir rpc-port)

# shellcheck disable=SC2046
"$cc" -std=c11 -Wall -Wextra -Werror "$@" -o "$work/c_api_peer" "$source" \
  $(pkg-config --cflags --libs rpc-port dlog capi-base-common glib-2.0) -Wl,-rpath,"$libdir"
sh "$c_api_test" "$work/c_api_peer" "$libdir"
