#!/usr/bin/env bash
# The panel under many viewers and slow clients (bench/panel_load.py): builds
# what it needs into build-bench/, then runs every part. Arguments go to the
# script, e.g. `bench/panel_load.sh --parts viewers --rounds 20`.
# Everything runs on 127.0.0.1; the script stops the processes it starts.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=RelWithDebInfo -DLOGO_BUILD_BENCHMARKS=ON -DLOGO_BUILD_TESTS=OFF >/dev/null
cmake --build build-bench -j2 --target logohost logo_modbus_tcp >/dev/null
# What else was busy: the figures share two cores with it.
echo "busiest processes before the run:"
ps -eo pcpu,etime,comm --sort=-pcpu | head -n 6
exec /usr/bin/python3 bench/panel_load.py --logohost build-bench/logohost "$@"
