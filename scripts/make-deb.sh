#!/bin/sh
# Builds the Debian packages (without the test suite) into OUT_DIR and checks them with lintian,
# which must report no error. The source tree is copied first, since dpkg-buildpackage writes its
# results next to the tree it builds.
# Usage: scripts/make-deb.sh OUT_DIR
set -eu
out=$1
top=$(cd "$(dirname "$0")/.." && pwd)
mkdir -p "$out"
out=$(cd "$out" && pwd)

work=$(mktemp -d "${TMPDIR:-/tmp}/oxa-deb.XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir "$work/liboxa"
# Tracked and new files, without what .gitignore leaves out (build directories).
(cd "$top" && git ls-files -z --cached --others --exclude-standard) |
  (cd "$top" && xargs -0 tar -cf - --no-recursion) | tar -xf - -C "$work/liboxa"

(cd "$work/liboxa" &&
  DEB_BUILD_OPTIONS="nocheck parallel=$(nproc)" dpkg-buildpackage -b -us -uc >"$work/build.log" 2>&1) ||
  { tail -n 50 "$work/build.log" >&2; echo "make-deb: dpkg-buildpackage failed" >&2; exit 1; }

rm -f "$out"/*.deb "$out"/*.changes "$out"/*.buildinfo
cp "$work"/*.deb "$work"/*.changes "$work"/*.buildinfo "$out"/
echo "make-deb: packages in $out:"
(cd "$out" && ls -1 ./*.deb)

# Errors fail the build; warnings and notes are shown.
lintian --fail-on error --no-tag-display-limit "$out"/*.changes
