#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test, stage by stage:
#   native      the plain build and its whole suite
#   armhf       the same suite built for the panels' 32-bit ARM, under qemu-arm
#   symbols     the symbol versions the driver asks of the system, native and armhf
#   build-types every build type with GCC and clang
#   install     an install, and the example host built against it
#   packages    the Debian packages, amd64 and armhf, under lintian
#   asan        the suite under AddressSanitizer with UndefinedBehaviorSanitizer
#   tsan        the concurrent tests under ThreadSanitizer
#   fuzz        a short bounded run of every fuzzer
# ./test.sh runs them all; ./test.sh STAGE... runs those named (a stage
# builds what it needs of an earlier one when that is missing). Each stage's
# time is printed at the end.
set -euo pipefail
cd "$(dirname "$0")"
scripts/install-deps.sh test

here=$(pwd)
fuzz_seconds=${LOGO_FUZZ_SECONDS:-30}
all_stages=(native armhf symbols build-types install packages asan tsan fuzz)

# The test builds are unity builds, a third quicker on two cores; the
# other build types and the armhf build compile every file on its own, so
# a file that leans on another's includes is still caught there.
configure() {  # configure DIR [cmake options...]
  local dir=$1; shift
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DLOGO_WERROR=ON -DCMAKE_UNITY_BUILD=ON "$@" >/dev/null
}

stage_native() {
  configure build -DLOGO_BUILD_TESTS=ON
  cmake --build build -j2
  ctest --test-dir build -j2 --output-on-failure --timeout 300
}

stage_armhf() {
  scripts/armhf.sh
}

stage_symbols() {
  [ -f build/liblogo_modbus_tcp.so ] || stage_native
  [ -f build-armhf/liblogo_modbus_tcp.so ] || stage_armhf
  # The armhf driver must load beside a Qt 4.8 panel's C++ runtime (GCC 4.4)
  # and glibc; cmake/CxxRuntime.cmake, docs/decisions.md.
  scripts/check-symbol-floor.sh build/liblogo_modbus_tcp.so GLIBC=2.14 GLIBCXX=3.4.13 CXXABI=1.3.3
  scripts/check-symbol-floor.sh --objdump arm-linux-gnueabihf-objdump build-armhf/liblogo_modbus_tcp.so \
    GLIBC=2.4 GLIBCXX=3.4.13 CXXABI=1.3.3
}

stage_build-types() {
  scripts/build-types.sh
}

stage_install() {
  [ -f build/logohost ] || stage_native
  scripts/install-check.sh build
}

stage_packages() {
  [ -d build-gcc-release ] || stage_build-types
  [ -d build-armhf ] || stage_armhf
  scripts/packages.sh build-gcc-release build-armhf
}

# With clang, which also gives the host and the tests a second compiler's
# warnings (the build types compile only the driver with both), and builds
# this in half GCC's time.
stage_asan() {
  CC=clang CXX=clang++ configure build-asan -DLOGO_BUILD_TESTS=ON -DLOGO_SANITIZER=address -DCMAKE_BUILD_TYPE=Debug
  cmake --build build-asan -j2
  ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
    ctest --test-dir build-asan -j2 --output-on-failure --timeout 300
}

# The tests whose threads meet: the driver under busy host threads, the
# soak and every link fault, the session and model the panel's threads
# share, the history's writer, the Modbus proxy's clients, and the MQTT
# bridge's threads against a real broker.
stage_tsan() {
  configure build-tsan -DLOGO_BUILD_TESTS=ON -DLOGO_SANITIZER=thread -DCMAKE_BUILD_TYPE=Debug
  local targets=(logo_modbus_tcp driver_stress_test reliability_tests panel_unit_test history_test proxy_test mqtt_test)
  cmake --build build-tsan -j2 --target "${targets[@]}"
  TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1 suppressions=$here/tests/tsan.supp" \
    ctest --test-dir build-tsan -j2 --output-on-failure --timeout 300 \
    -R "Stress|Soak|LinkFault|ControllerOutage|ModelTest|History|^Proxy\.|^Bridge|^Mqtt"
}

stage_fuzz() {
  CC=clang CXX=clang++ configure build-fuzz -DLOGO_BUILD_FUZZERS=ON -DLOGO_BUILD_TOOLS=OFF -DLOGO_BUILD_TESTS=OFF
  cmake --build build-fuzz -j2
  fuzz/run.sh build-fuzz "$fuzz_seconds"
}

stages=("$@")
[ ${#stages[@]} -gt 0 ] || stages=("${all_stages[@]}")
for stage in "${stages[@]}"; do
  declare -F "stage_$stage" >/dev/null || { echo "test.sh: unknown stage '$stage' (expected ${all_stages[*]})" >&2; exit 2; }
done
times=()
started=$SECONDS
for stage in "${stages[@]}"; do
  echo "== $stage"
  begin=$SECONDS
  "stage_$stage"
  times+=("$(printf '%-12s %3d min %02d s' "$stage" $(((SECONDS - begin) / 60)) $(((SECONDS - begin) % 60)))")
done
echo "== Times"
printf '%s\n' "${times[@]}"
printf '%-12s %3d min %02d s\n' total $(((SECONDS - started) / 60)) $(((SECONDS - started) % 60))
echo "All tests passed."
