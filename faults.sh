#!/bin/sh
# Builds the project and injects failures into the daemon's libc calls, one at a
# time; then kills it at every call and at 500 random times of a start and of a
# save.
#   ./faults.sh [PRESET]     PRESET: release (default), asan, ...
set -eu
cd "$(dirname "$0")"

case "${1:-}" in
  -h | --help) sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0"; exit 0 ;;
esac
preset="${1:-release}"
./packaging/build-deps.sh
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" --target faults
build="build"
[ "$preset" = release ] || build="build-$preset"
"$build/tests/faults" matrix
"$build/tests/faults" kills
