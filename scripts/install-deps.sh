#!/bin/sh
# Installs the Debian packages this project needs, and only those that are missing.
# Usage: scripts/install-deps.sh [build|lint|docs|deb|fuzz]...   (default: build)
set -eu

build_pkgs="cmake ninja-build g++ pkgconf libglib2.0-dev libgtest-dev libgmock-dev
            libbenchmark-dev nlohmann-json3-dev libcli11-dev
            valgrind"
lint_pkgs="clang-format clang-tidy"
# The reference (man pages and HTML) from the headers, and man to check the pages.
docs_pkgs="doxygen python3 man-db groff-base"
# The Debian packages.
deb_pkgs="debhelper dpkg-dev fakeroot lintian"
fuzz_pkgs="clang-14 libfuzzer-14-dev"

[ $# -eq 0 ] && set -- build
wanted=""
for group in "$@"; do
  case "$group" in
    build) wanted="$wanted $build_pkgs" ;;
    lint) wanted="$wanted $lint_pkgs" ;;
    docs) wanted="$wanted $docs_pkgs" ;;
    deb) wanted="$wanted $deb_pkgs $docs_pkgs" ;;
    fuzz) wanted="$wanted $fuzz_pkgs" ;;
    *) echo "install-deps: unknown group '$group'" >&2; exit 2 ;;
  esac
done

missing=""
for pkg in $wanted; do
  if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed"; then
    missing="$missing $pkg"
  fi
done

[ -z "$missing" ] && exit 0

if [ "$(id -u)" -ne 0 ]; then
  echo "install-deps: missing packages:$missing" >&2
  echo "install-deps: run 'apt-get install$missing' as root, then try again" >&2
  exit 1
fi

echo "install-deps: installing$missing"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
# shellcheck disable=SC2086
apt-get install -y -qq --no-install-recommends $missing
