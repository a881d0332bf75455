#!/usr/bin/env bash
# Installs what the build needs and is missing, with apt-get.
#   scripts/install-deps.sh run    compiler, CMake, Qt 5 core, libmodbus, and for
#                                  the panel cpp-httplib, nlohmann-json, SQLite
#                                  (history) and libmosquitto (MQTT)
#   scripts/install-deps.sh test   the above plus GoogleTest, Google Benchmark,
#                                  valgrind, clang (sanitizers, libFuzzer), what
#                                  makes and checks Debian packages, Chromium, its
#                                  driver and Selenium (the panel's browser tests),
#                                  the mosquitto broker and clients, and pymodbus
#                                  (an independent Modbus client)
#   scripts/install-deps.sh armhf  the run set plus GoogleTest, the armhf cross
#                                  compiler and qemu-arm
set -euo pipefail

run_packages=(g++ make cmake pkg-config binutils qtbase5-dev libmodbus-dev libcpp-httplib-dev nlohmann-json3-dev
              libsqlite3-dev libmosquitto-dev)
test_packages=(libgtest-dev libbenchmark-dev valgrind clang libclang-rt-14-dev
               dpkg-dev file lintian  # the Debian packages: CPack, dpkg-shlibdeps, lintian
               chromium chromium-driver python3-selenium  # the panel's browser tests
               mosquitto mosquitto-clients  # a real broker
               python3-pymodbus python3-serial-asyncio)  # a second Modbus client; its client module needs the latter
armhf_packages=(libgtest-dev g++-arm-linux-gnueabihf qemu-user file)

case "${1:-run}" in
  run) wanted=("${run_packages[@]}") ;;
  test) wanted=("${run_packages[@]}" "${test_packages[@]}") ;;
  armhf) wanted=("${run_packages[@]}" "${armhf_packages[@]}") ;;
  *) echo "install-deps.sh: unknown set '$1' (expected run, test or armhf)" >&2; exit 2 ;;
esac

# What was installed must also work: a Python package installed without
# its recommended ones may not import.
check_installed() {
  [ "${1:-run}" = test ] || return 0
  /usr/bin/python3 -c "import selenium, pymodbus.client" ||
    { echo "install-deps.sh: python3-selenium or python3-pymodbus is installed but does not import" >&2; exit 1; }
  command -v mosquitto >/dev/null || [ -x /usr/sbin/mosquitto ] ||
    { echo "install-deps.sh: the mosquitto broker is installed but not found" >&2; exit 1; }
}

missing=()
for package in "${wanted[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
done
if [ ${#missing[@]} -eq 0 ]; then
  check_installed "${1:-run}"
  exit 0
fi

sudo=""
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "install-deps.sh: need root or sudo to install: ${missing[*]}" >&2; exit 1; }
  sudo=sudo
fi
echo "Installing missing packages: ${missing[*]}"
# One index can fail while a mirror syncs; only a failed install counts.
$sudo apt-get update -qq || echo "apt-get update reported a problem; installing anyway" >&2
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
check_installed "${1:-run}"
