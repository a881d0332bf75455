#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test: the plain build,
# then the same suite under AddressSanitizer with UndefinedBehaviorSanitizer,
# and the concurrency tests under ThreadSanitizer.
set -euo pipefail
cd "$(dirname "$0")"
scripts/install-deps.sh test

jobs=2
build() {  # build DIR [cmake options...]
  local dir=$1; shift
  echo "== Building $dir"
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
  cmake --build "$dir" -j"$jobs"
}

build build -DLOGO_BUILD_TESTS=ON
echo "== Tests"
ctest --test-dir build -j"$jobs" --output-on-failure --timeout 300

build build-asan -DLOGO_BUILD_TESTS=ON -DLOGO_SANITIZER=address -DCMAKE_BUILD_TYPE=Debug
echo "== Tests under AddressSanitizer and UndefinedBehaviorSanitizer"
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build-asan -j"$jobs" --output-on-failure --timeout 300

build build-tsan -DLOGO_BUILD_TESTS=ON -DLOGO_SANITIZER=thread -DCMAKE_BUILD_TYPE=Debug
echo "== Concurrency tests under ThreadSanitizer"
TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" \
  ctest --test-dir build-tsan -j"$jobs" --output-on-failure --timeout 300 -R "Stress|Concurrency"
