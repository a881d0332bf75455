#!/usr/bin/env bash
# Installs a build into a temporary prefix as a vendor would, builds the
# example host (examples/host) against that installed tree alone, and runs
# it once against the installed simulator: the example must read back the
# values that the installed logohost wrote first.
#   scripts/install-check.sh [BUILD_DIR]     (default: build)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
work=$(mktemp -d)
sim_pid=""
cleanup() {
  if [ -n "$sim_pid" ]; then kill "$sim_pid" 2>/dev/null || true; wait "$sim_pid" 2>/dev/null || true; fi
  rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "install-check.sh: $*" >&2; exit 1; }

prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >/dev/null
echo "Installed into a temporary prefix: $(cd "$prefix" && find . -type f -o -type l | sort | tr '\n' ' ')"

pcdir=$(dirname "$(find "$prefix" -name logo-modbus-tcp.pc)")
driver=$(PKG_CONFIG_PATH=$pcdir pkg-config --variable=driver logo-modbus-tcp)
[ -f "$driver" ] || fail "pkg-config names the driver $driver, which is not there"

# Only the installed tree: no path into this checkout or its builds.
cmake -S examples/host -B "$work/example" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_CXX_FLAGS="-Wall -Wextra -Werror" >/dev/null
cmake --build "$work/example" -j2 >/dev/null
echo "Example host built against the installed CMake package"

"$prefix/bin/logohost" sim --listen 127.0.0.1:0 </dev/null >"$work/sim.out" 2>&1 &
sim_pid=$!
for _ in $(seq 100); do
  grep -q "listening on" "$work/sim.out" && break
  kill -0 "$sim_pid" 2>/dev/null || fail "the simulator did not start: $(cat "$work/sim.out")"
  sleep 0.1
done
port=$(sed -n 's/.*listening on 127\.0\.0\.1:\([0-9]*\).*/\1/p' "$work/sim.out")
[ -n "$port" ] || fail "the simulator named no port: $(cat "$work/sim.out")"

"$prefix/bin/logohost" --plc "127.0.0.1:$port" write VW0=1234 VW2=4321
"$work/example/logo_example_host" 127.0.0.1 "$port" | tee "$work/example.out"
grep -qx "driver: $prefix/.*/liblogo_modbus_tcp.so" "$work/example.out" || fail "the example did not load the installed driver"
grep -qx "VW0 = 1234" "$work/example.out" && grep -qx "VW2 = 4321" "$work/example.out" ||
  fail "the example did not read back the values written"
echo "The installed example host read back what the installed logohost wrote"
