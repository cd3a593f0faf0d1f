#!/usr/bin/env bash
# libflairize.so.0 keeps the ABI recorded in libflairize/abi/libflairize.so.0.abi:
# abidiff compares the recorded dump with the freshly built library. Functions
# or types added are reported and pass; anything removed or changed in an
# incompatible way fails. After an intended incompatible change, raise the
# SONAME (SOVERSION in libflairize/CMakeLists.txt, the version node in
# exports.map, the package libflairize0) and record the dump again with
#   tests/library_abi.sh --update RECORDED_DUMP LIBRARY
# usage: library_abi.sh [--update] RECORDED_DUMP LIBRARY
set -euo pipefail
update=0
if [ "${1:-}" = --update ]; then update=1; shift; fi
recorded=$1 library=$2
for tool in abidw abidiff; do
  command -v $tool >/dev/null || { echo "skipped: $tool is missing (Debian package abigail-tools)"; exit 77; }
done

# No paths of the machine that made it: neither the library's nor the sources'.
# The sources' paths are written from the source folder down (libflairize/render.cpp).
dump() {
  abidw --no-corpus-path --no-comp-dir-path --no-show-locs --drop-undefined-syms "$1" |
    sed -E "s#path='[^']*/(libflairize/[^/']+)'#path='\\1'#" >"$2"
}
if [ $update -eq 1 ]; then
  dump "$library" "$recorded"
  echo "recorded $recorded"
  exit 0
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
dump "$library" "$work/fresh.abi"
grep -q '<function-decl name=.flairize_' "$work/fresh.abi" ||
  { echo "no flairize_* functions with their types in $library (built without debug information?)"; exit 1; }
arch() { grep -o -m1 "architecture='[^']*'" "$1" || true; }
if [ "$(arch "$recorded")" != "$(arch "$work/fresh.abi")" ]; then
  echo "skipped: the recorded dump is for $(arch "$recorded"), this build for $(arch "$work/fresh.abi")"
  exit 77
fi
status=0
abidiff "$recorded" "$work/fresh.abi" || status=$?
# abidiff's status is a bit set: 1 error, 2 usage, 4 a change, 8 an incompatible change.
if [ $((status & 11)) -ne 0 ]; then
  echo "libflairize.so.0's ABI is not compatible with $recorded (status $status)"
  exit 1
fi
if [ $((status & 4)) -ne 0 ]; then
  echo "compatible additions to the ABI: record them with --update"
fi
echo "libflairize.so.0 keeps its recorded ABI"
