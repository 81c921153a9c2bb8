#!/bin/sh
# clang-format and clang-tidy over our own sources (not the generated ones).
# Usage: scripts/lint.sh BUILD_DIR
set -eu
build_dir=${1:-build}
files=$(git ls-files '*.c' '*.cc' '*.h' | grep -v '^platform/include/')

status=0
echo "lint: clang-format"
# shellcheck disable=SC2086
clang-format --dry-run -Werror $files || status=1

echo "lint: clang-tidy"
tidy_files=$(git ls-files 'src/*.cc' 'platform/src/*.c' 'platform/src/*.cc' 'tools/*.cc')
for f in $tidy_files; do
  clang-tidy -quiet -p "$build_dir" "$f" 2>/dev/null || status=1
done
exit $status
