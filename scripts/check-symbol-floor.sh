#!/usr/bin/env bash
# Fails if a shared library asks the system for a symbol version above a
# floor: the newest version of each family it may need, e.g.
#
#   scripts/check-symbol-floor.sh --objdump arm-linux-gnueabihf-objdump \
#       build-armhf/liblogo_modbus_tcp.so GLIBC=2.4 GLIBCXX=3.4.13 CXXABI=1.3.3
#
# Families not named (GCC_ of libgcc_s, Qt_5) are not checked. Reads
# `objdump -T`, whose lines end in the version and the symbol's name.
set -euo pipefail
objdump=objdump
if [ "${1:-}" = "--objdump" ]; then objdump=$2; shift 2; fi
if [ $# -lt 2 ]; then
  echo "usage: $0 [--objdump PROGRAM] LIBRARY FAMILY=VERSION..." >&2
  exit 2
fi
library=$1; shift

# One line per needed symbol: family, version, name.
needed=$("$objdump" -T "$library" |
  awk '{ for (i = 1; i < NF; i++) { v = $i; gsub(/[()]/, "", v)
           if (v ~ /^[A-Z]+_[0-9][0-9.]*$/) { split(v, p, "_"); print p[1], p[2], $NF } } }')

above() { [ "$1" != "$2" ] && [ "$(printf '%s\n%s\n' "$1" "$2" | sort -V | tail -n1)" = "$1" ]; }

status=0
summary=""
for limit in "$@"; do
  family=${limit%%=*} floor=${limit#*=}
  highest=$(awk -v f="$family" '$1 == f { print $2 }' <<<"$needed" | sort -V | tail -n1)
  summary+="${summary:+, }${family} ${highest:-none} (floor $floor)"
  while read -r fam version name; do
    if [ "$fam" = "$family" ] && above "$version" "$floor"; then
      echo "$library needs ${family}_$version ($name), above the floor ${family}_$floor" >&2
      status=1
    fi
  done <<<"$needed"
done
echo "$library: highest versions needed: $summary"
exit $status
