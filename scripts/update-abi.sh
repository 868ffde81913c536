#!/usr/bin/env bash
# Lists the dynamic symbols libvell.so exports into abi/libvell.symbols, or with
# --check compares them with that list and fails on any difference.
#   scripts/update-abi.sh [build/libvell.so]           regenerate the list
#   scripts/update-abi.sh --check build/libvell.so     what the test suite runs
# One mangled name a line, sorted; c++filt turns a line back into its declaration.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
list=$root/abi/libvell.symbols
check=0
if [ "${1:-}" = --check ]; then check=1; shift; fi
library=${1:-$root/build/libvell.so}
if [ ! -f "$library" ]; then
  echo "update-abi.sh: no library at $library (build the target vell first)" >&2
  exit 2
fi

# Defined symbols of the dynamic table, without the version-script markers.
exported() {
  nm -D --defined-only "$library" | awk '$2 != "A" { print $3 }' | LC_ALL=C sort -u
}

if [ "$check" = 0 ]; then
  exported >"$list"
  echo "update-abi.sh: $(wc -l <"$list") symbols written to abi/libvell.symbols"
  exit 0
fi
if ! diff -u "$list" <(exported) >/tmp/vell-abi.$$.diff; then
  echo "update-abi.sh: the exported symbols of $library differ from abi/libvell.symbols:" >&2
  sed 1,2d /tmp/vell-abi.$$.diff | grep '^[-+]' | while read -r line; do
    echo "  ${line:0:1} $(echo "${line:1}" | c++filt)" >&2
  done
  rm -f /tmp/vell-abi.$$.diff
  echo "An intended change of the interface: run scripts/update-abi.sh and commit the list." >&2
  exit 1
fi
rm -f /tmp/vell-abi.$$.diff
echo "update-abi.sh: $(wc -l <"$list") exported symbols as listed"
