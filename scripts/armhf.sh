#!/usr/bin/env bash
# Builds the driver, the reference host, the simulator and the whole test
# suite for the panels' 32-bit ARM (armhf, hard float, glibc), and runs the
# suite under qemu-arm. The end-to-end cases run twice: all-armhf under the
# emulator, and the armhf host under the emulator against this machine's
# native simulator.
#
# The sysroot (sysroot-armhf/, or $LOGO_ARMHF_SYSROOT) is made from Debian's
# armhf packages, fetched with apt-get download into a private package index
# and unpacked with dpkg -x, so the machine's own dpkg never learns of armhf.
# It is kept and reused while its package list is unchanged.
set -euo pipefail
cd "$(dirname "$0")/.."
here=$(pwd)
sysroot=${LOGO_ARMHF_SYSROOT:-$here/sysroot-armhf}
build=build-armhf
triplet=arm-linux-gnueabihf

# QtCore and what it links, the C and C++ runtimes the emulator loads, and
# what the tools and tests link.
packages=(libc6 libgcc-s1 libstdc++6
          libqt5core5a qtbase5-dev qt5-qmake
          zlib1g libzstd1 libdouble-conversion3 libicu72 libpcre2-16-0 libpcre2-8-0 libglib2.0-0
          libmodbus5 libmodbus-dev libgtest-dev libgmock-dev)

make_sysroot() {
  # The package list, and the layout of what is made from it.
  local wanted="${packages[*]} +dpkg-database"
  if [ -f "$sysroot/.packages" ] && [ "$(cat "$sysroot/.packages")" = "$wanted" ]; then
    echo "Reusing the armhf sysroot in $sysroot"
    return
  fi
  echo "Making the armhf sysroot in $sysroot from ${#packages[@]} Debian packages"
  local apt_dir
  apt_dir=$(mktemp -d)
  trap 'rm -rf "$apt_dir"' RETURN
  mkdir -p "$apt_dir/lists/partial" "$apt_dir/cache/archives/partial" "$apt_dir/debs"
  : >"$apt_dir/status"
  local apt=(-o "Dir::State::Lists=$apt_dir/lists" -o "Dir::Cache=$apt_dir/cache"
             -o "Dir::State::status=$apt_dir/status" -o APT::Architecture=armhf
             -o APT::Architectures::=armhf -o APT::Sandbox::User=root)
  # An index that lags behind (armhf security, typically) only costs its
  # updates; the download below fails if a package cannot be had at all.
  if ! apt-get "${apt[@]}" update -qq >"$apt_dir/update.log" 2>&1; then
    echo "apt-get update could not fetch every armhf index; downloading from the others. It said:" >&2
    grep '^E: Failed to fetch' "$apt_dir/update.log" | cut -d' ' -f5- | sed 's/^/  /' >&2 || cat "$apt_dir/update.log" >&2
  fi
  (cd "$apt_dir/debs" && apt-get "${apt[@]}" download -qq "${packages[@]}")
  rm -rf "$sysroot"
  mkdir -p "$sysroot"
  for deb in "$apt_dir"/debs/*.deb; do
    dpkg -x "$deb" "$sysroot"
  done
  make_package_database "$apt_dir"/debs/*.deb
  # Qt's CMake files insist that moc and rcc exist for the target; the
  # build machine's own serve, as nothing here needs them to run.
  mkdir -p "$sysroot/usr/lib/qt5/bin"
  for tool in moc rcc; do
    ln -sf "/usr/lib/qt5/bin/$tool" "$sysroot/usr/lib/qt5/bin/$tool"
  done
  echo "$wanted" >"$sysroot/.packages"
}

# A dpkg database of the unpacked packages, for dpkg-shlibdeps to learn
# which package provides each armhf library and from which version
# (DPKG_ADMINDIR, cmake/Packaging.cmake). It records the files under the
# sysroot's own path, where dpkg-shlibdeps finds them.
make_package_database() {
  local db=$sysroot/var/lib/dpkg deb name control file
  mkdir -p "$db/info" "$db/updates"
  : >"$db/status"
  control=$(mktemp -d)
  for deb in "$@"; do
    name=$(dpkg-deb -f "$deb" Package)  # one architecture only: no ":armhf" in file names
    { dpkg-deb -f "$deb"; echo "Status: install ok installed"; echo; } >>"$db/status"
    dpkg-deb -c "$deb" | awk '{ print $6 }' | sed -e "s|^\./|$sysroot/|" -e 's|/$||' >"$db/info/$name.list"
    rm -rf "${control:?}"/*
    dpkg-deb -e "$deb" "$control"
    for file in shlibs symbols; do
      if [ -f "$control/$file" ]; then cp "$control/$file" "$db/info/$name.$file"; fi
    done
  done
  rm -rf "$control"
}

scripts/install-deps.sh armhf
make_sysroot

echo "== Native end-to-end test, to drive the armhf host against a native simulator"
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DLOGO_BUILD_TESTS=ON -DLOGO_WERROR=ON >/dev/null
cmake --build build -j2 --target host_end_to_end_test logo_modbus_tcp

echo "== armhf build"
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_TOOLCHAIN_FILE=cmake/armhf-toolchain.cmake \
  -DLOGO_ARMHF_SYSROOT="$sysroot" -DLOGO_BUILD_TESTS=ON -DLOGO_WERROR=ON \
  -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_LIBDIR=lib/$triplet -DLOGO_DEB_TARGET_ADMINDIR="$sysroot/var/lib/dpkg" \
  -DLOGO_NATIVE_END_TO_END_TEST="$here/build/tests/host/host_end_to_end_test" >/dev/null
cmake --build "$build" -j2

library=$build/liblogo_modbus_tcp.so
file -b "$library"
defined_names() { "$1" -D --defined-only "$2" | awk '{print $3}' | sort; }
native_names=$(defined_names nm build/liblogo_modbus_tcp.so)
armhf_names=$(defined_names "$triplet-nm" "$library")
if [ "$native_names" != "$armhf_names" ]; then
  echo "armhf.sh: the armhf library exports other names than the native one (< native, > armhf):" >&2
  diff <(echo "$native_names") <(echo "$armhf_names") >&2 || true
  exit 1
fi
echo "Exports: the same $(echo "$native_names" | wc -l) names as the native library"
stripped=$(mktemp)
"$triplet-strip" -o "$stripped" "$library"
echo "Stripped size: $(stat -c %s "$stripped") bytes"
rm -f "$stripped"

echo "== armhf tests under qemu-arm"
ctest --test-dir "$build" -j2 --output-on-failure --timeout 300
