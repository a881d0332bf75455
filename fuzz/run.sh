#!/usr/bin/env bash
# Runs every fuzzer for a bounded time from its seed corpus.
#   fuzz/run.sh BUILD_DIR SECONDS_EACH
# The seeds stay as committed: new inputs go to a scratch copy. Any crash,
# sanitizer report or time-out makes the script fail, and the input that
# caused it is kept in the scratch folder it names.
set -euo pipefail
build=$(cd "${1:?usage: fuzz/run.sh BUILD_DIR SECONDS_EACH}" && pwd)
seconds=${2:?usage: fuzz/run.sh BUILD_DIR SECONDS_EACH}
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d "${TMPDIR:-/tmp}/logo-fuzz.XXXXXX")

status=0
for fuzzer in "$build"/fuzz/*_fuzzer; do
  name=$(basename "$fuzzer")
  mkdir -p "$work/$name"
  cp "$here/corpus/$name"/* "$work/$name"/ 2>/dev/null || true
  echo "== $name for ${seconds}s"
  if ! (cd "$work" && "$fuzzer" -max_total_time="$seconds" -max_len=512 -timeout=30 -rss_limit_mb=2048 \
          -print_final_stats=1 "$work/$name" >"$work/$name.log" 2>&1); then
    echo "!! $name failed; log and reproducer in $work" >&2
    tail -n 40 "$work/$name.log" >&2
    status=1
    continue
  fi
  runs=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$work/$name.log" | grep -o '[0-9]*$')
  cov=$(grep -o 'cov: [0-9]*' "$work/$name.log" | tail -n 1 | grep -o '[0-9]*')
  echo "   $runs executions, coverage $cov edges, 0 crashes"
done
[ $status -eq 0 ] && rm -rf "$work"
exit $status
