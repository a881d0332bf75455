#!/usr/bin/env bash
# Runs the fuzzers for a bounded time from their seed corpora.
#   fuzz/run.sh BUILD_DIR SECONDS_EACH [RUNS_EACH [TARGET...]]
# Each target stops after SECONDS_EACH, or after RUNS_EACH executions if
# given first (0: no limit); TARGETs narrow the run to those fuzzers.
# The seeds stay as committed: new inputs go to a scratch copy. Any crash,
# sanitizer report or time-out makes the script fail, and the input that
# caused it is kept in the scratch folder it names.
set -euo pipefail
usage="usage: fuzz/run.sh BUILD_DIR SECONDS_EACH [RUNS_EACH [TARGET...]]"
build=$(cd "${1:?$usage}" && pwd)
seconds=${2:?$usage}
runs=${3:-0}
shift $(($# < 3 ? $# : 3))
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d "${TMPDIR:-/tmp}/logo-fuzz.XXXXXX")

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for fuzzer in "$build"/fuzz/*_fuzzer; do targets+=("$(basename "$fuzzer")"); done
fi

status=0
for name in "${targets[@]}"; do
  fuzzer="$build/fuzz/$name"
  mkdir -p "$work/$name"
  cp "$here/corpus/$name"/* "$work/$name"/ 2>/dev/null || true
  echo "== $name for ${seconds}s$([ "$runs" -gt 0 ] && echo " or $runs executions")"
  start=$(date +%s)
  if ! (cd "$work" && "$fuzzer" -max_total_time="$seconds" -runs="$([ "$runs" -gt 0 ] && echo "$runs" || echo -1)" \
          -max_len=512 -timeout=30 -rss_limit_mb=2048 -print_final_stats=1 "$work/$name" >"$work/$name.log" 2>&1); then
    echo "!! $name failed; log and reproducer in $work" >&2
    tail -n 40 "$work/$name.log" >&2
    status=1
    continue
  fi
  elapsed=$(( $(date +%s) - start ))
  executed=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$work/$name.log" | grep -o '[0-9]*$')
  cov=$(grep -o 'cov: [0-9]*' "$work/$name.log" | tail -n 1 | grep -o '[0-9]*')
  echo "   $executed executions in ${elapsed}s ($(( executed / (elapsed > 0 ? elapsed : 1) )) a second), coverage $cov edges, 0 crashes"
done
[ $status -eq 0 ] && rm -rf "$work"
exit $status
