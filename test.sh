#!/bin/sh
# Builds the project and runs every test.
#   ./test.sh [PRESET [CMAKE-OPTION...]]     PRESET: release (default), debug, asan, asan-clang, tsan
set -eu
cd "$(dirname "$0")"

preset="${1:-release}"
[ $# -eq 0 ] || shift

case "$preset" in
  asan-clang) ./packaging/build-deps.sh clang ;;
  *) ./packaging/build-deps.sh ;;
esac
cmake --preset "$preset" "$@" >/dev/null
cmake --build --preset "$preset"
# Most tests wait for something to happen: twice as many at once as there are processors.
ctest --preset "$preset" --parallel "$((2 * $(nproc)))"
