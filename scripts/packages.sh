#!/usr/bin/env bash
# Makes the Debian packages of each build directory given with CPack and
# checks them with lintian, which fails on any error and lists its
# warnings. The build directories must be configured with
# CMAKE_INSTALL_PREFIX=/usr (scripts/build-types.sh makes build-gcc-release
# so, scripts/armhf.sh build-armhf) and built.
#   scripts/packages.sh build-gcc-release build-armhf
set -euo pipefail
cd "$(dirname "$0")/.."
count=0
for build in "$@"; do
  rm -f "$build"/*.deb
  if ! (cd "$build" && cpack -G DEB) >"$build/cpack.log" 2>&1; then
    cat "$build/cpack.log" >&2
    echo "packages.sh: CPack failed in $build" >&2
    exit 1
  fi
  debs=("$build"/*.deb)
  for deb in "${debs[@]}"; do
    printf '%-40s %7s bytes  Depends: %s\n' "$(basename "$deb")" "$(stat -c %s "$deb")" "$(dpkg-deb -f "$deb" Depends)"
  done
  status=0
  lintian --fail-on error "${debs[@]}" >"$build/lintian.log" 2>&1 || status=$?
  echo "lintian on $build:"
  grep -v 'running with root privileges' "$build/lintian.log" | sed 's/^/  /' || true
  if [ $status -ne 0 ]; then
    echo "packages.sh: lintian found errors in the packages of $build (exit status $status)" >&2
    exit 1
  fi
  count=$((count + ${#debs[@]}))
done
echo "No lintian errors in $count packages"
