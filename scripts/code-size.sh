#!/usr/bin/env bash
# Lines of tests and fuzzers against every other line of code, as the
# project counts them: all lines of its C++, Python, shell, JavaScript, CSS,
# HTML and CMake files that git tracks, the fuzzers' seed corpus aside.
#   scripts/code-size.sh          the two totals and their ratio
#   scripts/code-size.sh --by-folder
set -euo pipefail
cd "$(dirname "$0")/.."
files=$(git ls-files | grep -E '\.(cpp|h|py|sh|js|css|html|cmake)$|CMakeLists.txt$' | grep -v '^fuzz/corpus/')
count() { [ -n "$1" ] && echo "$1" | xargs cat | wc -l || echo 0; }
tests=$(count "$(echo "$files" | grep -E '^(tests|fuzz)/' || true)")
code=$(count "$(echo "$files" | grep -vE '^(tests|fuzz)/' || true)")
if [ "${1:-}" = --by-folder ]; then
  echo "$files" | while read -r f; do echo "$(cut -d/ -f1-2 <<<"$f") $(wc -l <"$f")"; done |
    awk '{n[$1]+=$2} END {for (d in n) print n[d], d}' | sort -rn
fi
awk -v t="$tests" -v c="$code" 'BEGIN { printf "tests and fuzzers %d, other code %d, ratio %.2f\n", t, c, t / c }'
