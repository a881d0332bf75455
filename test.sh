#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test: the plain build,
# the same suite built for the panels' 32-bit ARM and run under qemu-arm,
# the driver's symbol versions, every build type with GCC and clang, an
# install with the example host built against it, the Debian packages under
# lintian, the suite under AddressSanitizer with UndefinedBehaviorSanitizer,
# the concurrency tests (stress, soak, link faults) under ThreadSanitizer,
# and a short bounded run of every fuzzer.
set -euo pipefail
cd "$(dirname "$0")"
scripts/install-deps.sh test

here=$(pwd)
fuzz_seconds=${LOGO_FUZZ_SECONDS:-30}

configure() {  # configure DIR [cmake options...]
  local dir=$1; shift
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DLOGO_WERROR=ON "$@" >/dev/null
}

echo "== Build and tests"
configure build -DLOGO_BUILD_TESTS=ON
cmake --build build -j2
ctest --test-dir build -j2 --output-on-failure --timeout 300

echo "== The same suite for armhf, under qemu-arm"
scripts/armhf.sh

echo "== Symbol versions the driver asks of the system, native and armhf"
# The armhf driver must load beside a Qt 4.8 panel's C++ runtime (GCC 4.4)
# and glibc; cmake/CxxRuntime.cmake, docs/decisions.md.
scripts/check-symbol-floor.sh build/liblogo_modbus_tcp.so GLIBC=2.14 GLIBCXX=3.4.13 CXXABI=1.3.3
scripts/check-symbol-floor.sh --objdump arm-linux-gnueabihf-objdump build-armhf/liblogo_modbus_tcp.so \
  GLIBC=2.4 GLIBCXX=3.4.13 CXXABI=1.3.3

echo "== Every build type with GCC and clang: the driver, logohost and the simulator"
scripts/build-types.sh

echo "== Installed into a temporary prefix, with the example host built against it"
scripts/install-check.sh build

echo "== Debian packages, amd64 and armhf, under lintian"
scripts/packages.sh build-gcc-release build-armhf

echo "== Tests under AddressSanitizer and UndefinedBehaviorSanitizer"
configure build-asan -DLOGO_BUILD_TESTS=ON -DLOGO_SANITIZER=address -DCMAKE_BUILD_TYPE=Debug
cmake --build build-asan -j2
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build-asan -j2 --output-on-failure --timeout 300

echo "== Concurrency tests under ThreadSanitizer"
configure build-tsan -DLOGO_BUILD_TESTS=ON -DLOGO_SANITIZER=thread -DCMAKE_BUILD_TYPE=Debug
cmake --build build-tsan -j2 --target logo_modbus_tcp driver_stress_test reliability_tests
TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1 suppressions=$here/tests/tsan.supp" \
  ctest --test-dir build-tsan -j2 --output-on-failure --timeout 300 -R "Stress|Soak|LinkFault|ControllerOutage"

echo "== Fuzzers, ${fuzz_seconds}s each"
CC=clang CXX=clang++ configure build-fuzz -DLOGO_BUILD_FUZZERS=ON -DLOGO_BUILD_TOOLS=OFF -DLOGO_BUILD_TESTS=OFF
cmake --build build-fuzz -j2
fuzz/run.sh build-fuzz "$fuzz_seconds"
echo "All tests passed."
