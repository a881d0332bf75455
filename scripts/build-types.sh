#!/usr/bin/env bash
# Builds the driver library in every CMake build type with GCC and with
# clang, warnings as errors, and checks each driver's symbol versions against
# the native floor. logohost (with the simulator inside) is built here with
# GCC in Release, where the optimiser's warnings show (GCC 12's
# -Warray-bounds has fired on host code only at -O3); its other builds are
# ./test.sh's: GCC RelWithDebInfo (build/, reused here) and Debug (the
# ThreadSanitizer build), clang Debug (the AddressSanitizer build, which
# brings clang's warnings on the host and the tests). Building the host in
# all eight took longer than the rest of this stage together.
#
# Build directories: build-gcc-debug, build-gcc-release, ..., build-clang-minsizerel.
# build-gcc-release is configured for the Debian packages (prefix /usr),
# which scripts/packages.sh makes from it.
set -euo pipefail
cd "$(dirname "$0")/.."

for compiler in gcc clang; do
  if [ "$compiler" = gcc ]; then cc=gcc cxx=g++; else cc=clang cxx=clang++; fi
  for type in Debug Release RelWithDebInfo MinSizeRel; do
    dir=build-$compiler-${type,,}
    options=(-DCMAKE_BUILD_TYPE="$type" -DLOGO_WERROR=ON)
    case $compiler:$type in
      gcc:RelWithDebInfo) dir=build ;;
      gcc:Release) options+=(-DCMAKE_INSTALL_PREFIX=/usr -DLOGO_BUILD_TESTS=OFF) ;;
      *) options+=(-DLOGO_BUILD_TESTS=OFF) ;;
    esac
    targets=(logo_modbus_tcp)
    [ "$compiler:$type" = gcc:Release ] && targets+=(logohost)
    start=$SECONDS
    CC=$cc CXX=$cxx cmake -S . -B "$dir" "${options[@]}" >/dev/null
    if ! cmake --build "$dir" -j2 --target "${targets[@]}" >"$dir/build-types.log" 2>&1; then
      cat "$dir/build-types.log" >&2
      echo "build-types.sh: $compiler $type does not build" >&2
      exit 1
    fi
    floor=$(scripts/check-symbol-floor.sh "$dir/liblogo_modbus_tcp.so" GLIBC=2.14 GLIBCXX=3.4.13 CXXABI=1.3.3)
    printf '%-5s %-14s %-25s %3ss  %s\n' "$compiler" "$type" "${targets[*]}" $((SECONDS - start)) "${floor#*: }"
  done
done
