#!/bin/sh
# Installs the build into a temporary prefix and checks its man pages: every function that
# liboxa.so exports and every function that oxa.h declares has a section 3 page that man renders
# with its name; oxa(7) and every tool page render; the simulator's page names every option of
# its --help.
# Usage: man_pages_test.sh CMAKE BUILD_DIR LIBOXA OXA_H AGENT_SIM
set -eu
cmake=$1
build_dir=$2
liboxa=$3
header=$4
sim=$5

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$cmake" --install "$build_dir" --prefix "$work/prefix" >/dev/null
man_dir="$work/prefix/share/man"
status=0

# Renders a page and checks that its NAME section names `name`.
renders() {
  page=$1
  name=$2
  if [ ! -f "$page" ]; then
    echo "FAIL: no page $page" >&2
    return 1
  fi
  if ! MANWIDTH=100 man -l "$page" >"$work/out" 2>"$work/err" || [ -s "$work/err" ]; then
    echo "FAIL: man cannot render $page" >&2
    cat "$work/err" >&2
    return 1
  fi
  if ! sed -n '/^NAME/,/^[A-Z]/p' "$work/out" | grep -q -- "$name"; then
    echo "FAIL: $page does not name $name" >&2
    return 1
  fi
}

exported=$(nm -D --defined-only "$liboxa" | awk '$3 ~ /^oxa_/ {print $3}' | sort)
declared=$(sed -n 's/^int \(oxa_[a-z_]*\)(.*/\1/p' "$header" | sort)
[ -n "$exported" ] || { echo "FAIL: no exported function found in $liboxa" >&2; exit 1; }
for function in $(printf '%s\n%s\n' "$exported" "$declared" | sort -u); do
  renders "$man_dir/man3/$function.3" "$function" || status=1
done
echo "$(echo "$exported" | wc -l) exported functions, $(echo "$declared" | wc -l) declared"

renders "$man_dir/man7/oxa.7" "oxa" || status=1
for page in "$(dirname "$0")"/man/*.1; do
  renders "$man_dir/man1/$(basename "$page")" "$(basename "$page" .1)" || status=1
done

for option in $("$sim" --help | grep -o -- '--[a-z-]*' | sort -u); do
  if ! grep -q -- "$(echo "$option" | sed 's/-/\\\\-/g')" "$man_dir/man1/oxa-agent-sim.1"; then
    echo "FAIL: oxa-agent-sim.1 does not describe $option" >&2
    status=1
  fi
done
exit $status
