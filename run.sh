#!/usr/bin/env bash
# Installs what is missing, builds the driver, the reference host and the
# simulator, and runs the host. Without arguments it watches a few variables
# of the built-in LOGO! simulator for 20 seconds; with arguments they go to
# the host unchanged, e.g. ./run.sh --plc 192.168.0.3 read VW0:4 AI1:2, or
# ./run.sh panel for the operator panel in the browser.
set -euo pipefail
cd "$(dirname "$0")"
scripts/install-deps.sh run
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DLOGO_BUILD_TESTS=OFF >/dev/null
cmake --build build -j2 --target logohost logo_modbus_tcp
if [ $# -eq 0 ]; then
  set -- watch --duration 20 --interval 0.5 VW0:4 AI1:4 I1:4 Q1:4 AM1:2
fi
exec build/logohost "$@"
