#!/usr/bin/env bash
# The end-to-end comparison, side by side in one run on this machine:
#   1. the reference host's path (driver + TCP link) reading COUNT registers
#      from the simulator over loopback, FRAMES times;
#   2. a plain libmodbus client issuing the same reads to the same simulator;
#   3. a raw TCP ping-pong of the same frame sizes: the machine's limit.
# Usage: bench/e2e.sh [FRAMES] [COUNT]      (defaults 50000 and 10)
set -euo pipefail
cd "$(dirname "$0")/.."
frames=${1:-50000}
count=${2:-10}
scripts/install-deps.sh test
cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=RelWithDebInfo -DLOGO_BUILD_BENCHMARKS=ON -DLOGO_BUILD_TOOLS=ON -DLOGO_BUILD_TESTS=OFF >/dev/null
cmake --build build-bench -j2 --target logohost logo_modbus_tcp host_loop_bench libmodbus_client pingpong driver_bench >/dev/null

log=$(mktemp)
build-bench/logohost sim --listen 127.0.0.1:0 >"$log" 2>&1 </dev/null &
sim=$!
trap 'kill $sim 2>/dev/null; rm -f "$log"' EXIT
for _ in $(seq 50); do grep -q listening "$log" && break; sleep 0.1; done
port=$(grep -o '[0-9]*$' "$log" | head -n 1)

echo "machine: $(nproc) cores, $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ //'), $(uname -r)"
echo "frames: $frames reads of $count registers ($((9 + 2 * count))-byte replies) over loopback"
results=$(
  for round in 1 2 3; do
    build-bench/bench/host_loop_bench build-bench/liblogo_modbus_tcp.so "$port" "$frames" "$count"
    build-bench/bench/libmodbus_client "$port" "$frames" 0 "$count"
    build-bench/bench/pingpong "$frames" 12 $((9 + 2 * count))
  done
)
echo "$results"
# The best of three rounds of each, so that a busy moment of the machine
# does not decide the comparison.
awk '
  { for (i = 2; i <= NF; ++i) { split($i, kv, "="); v[$1, kv[1]] = kv[2] }
    if (v[$1, "fps"] > best[$1]) { best[$1] = v[$1, "fps"]; p50[$1] = v[$1, "p50_us"]; p99[$1] = v[$1, "p99_us"] } }
  END {
    printf "\n%-12s %10s %9s %9s\n", "", "frames/s", "p50 us", "p99 us"
    n = split("host+driver libmodbus pingpong", names, " ")
    for (k = 1; k <= n; ++k) printf "%-12s %10d %9.1f %9.1f\n", names[k], best[names[k]], p50[names[k]], p99[names[k]]
    printf "\nhost+driver / libmodbus client: %.2f (target at least 1.10)\n", best["host+driver"] / best["libmodbus"]
    printf "host+driver / raw ping-pong:    %.2f (target at least 0.80)\n", best["host+driver"] / best["pingpong"]
  }' <<<"$results"
