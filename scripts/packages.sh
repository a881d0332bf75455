#!/usr/bin/env bash
# Makes the Debian packages of each build directory given with CPack and
# checks them with lintian, which fails on any error and lists its
# warnings. The build directories must be configured with
# CMAKE_INSTALL_PREFIX=/usr (scripts/build-types.sh makes build-gcc-release
# so, scripts/armhf.sh build-armhf) and built.
#   scripts/packages.sh build-gcc-release build-armhf
set -euo pipefail
cd "$(dirname "$0")/.."
debs=()
for build in "$@"; do
  rm -f "$build"/*.deb
  if ! (cd "$build" && cpack -G DEB) >"$build/cpack.log" 2>&1; then
    cat "$build/cpack.log" >&2
    echo "packages.sh: CPack failed in $build" >&2
    exit 1
  fi
  for deb in "$build"/*.deb; do
    printf '%-40s %7s bytes  Depends: %s\n' "$(basename "$deb")" "$(stat -c %s "$deb")" "$(dpkg-deb -f "$deb" Depends)"
    debs+=("$deb")
  done
done
status=0
lintian --fail-on error "${debs[@]}" >"$1/lintian.log" 2>&1 || status=$?
echo "lintian:"
grep -v 'running with root privileges' "$1/lintian.log" | sed 's/^/  /' || true
if [ $status -ne 0 ]; then
  echo "packages.sh: lintian found errors (exit status $status)" >&2
  exit 1
fi
echo "No lintian errors in ${#debs[@]} packages"
