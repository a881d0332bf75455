#!/usr/bin/env bash
# Installs what the build needs and is missing, with apt-get.
#   scripts/install-deps.sh run    compiler, CMake, Qt 5 core, libmodbus, and for
#                                  the panel cpp-httplib and nlohmann-json
#   scripts/install-deps.sh test   the above plus GoogleTest, Google Benchmark,
#                                  valgrind, clang (sanitizers, libFuzzer), what
#                                  makes and checks Debian packages, and Chromium,
#                                  its driver and Selenium (the panel's browser tests)
#   scripts/install-deps.sh armhf  the run set plus GoogleTest, the armhf cross
#                                  compiler and qemu-arm
set -euo pipefail

run_packages=(g++ make cmake pkg-config binutils qtbase5-dev libmodbus-dev libcpp-httplib-dev nlohmann-json3-dev)
test_packages=(libgtest-dev libbenchmark-dev valgrind clang libclang-rt-14-dev
               dpkg-dev file lintian  # the Debian packages: CPack, dpkg-shlibdeps, lintian
               chromium chromium-driver python3-selenium)  # the panel's browser tests
armhf_packages=(libgtest-dev g++-arm-linux-gnueabihf qemu-user file)

case "${1:-run}" in
  run) wanted=("${run_packages[@]}") ;;
  test) wanted=("${run_packages[@]}" "${test_packages[@]}") ;;
  armhf) wanted=("${run_packages[@]}" "${armhf_packages[@]}") ;;
  *) echo "install-deps.sh: unknown set '$1' (expected run, test or armhf)" >&2; exit 2 ;;
esac

missing=()
for package in "${wanted[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "install-deps.sh: need root or sudo to install: ${missing[*]}" >&2; exit 1; }
  sudo=sudo
fi
echo "Installing missing packages: ${missing[*]}"
# One index can fail while a mirror syncs; only a failed install counts.
$sudo apt-get update -qq || echo "apt-get update reported a problem; installing anyway" >&2
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
