#!/bin/sh
# Builds the project and runs every test.
#   ./test.sh [PRESET [CMAKE-OPTION...]]
# PRESET: release (default), debug, asan, asan-clang, tsan; armhf and arm64 build for a board and
# run under an emulator.
set -eu
cd "$(dirname "$0")"

case "${1:-}" in
  -h | --help) sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0"; exit 0 ;;
esac
preset="${1:-release}"
[ $# -eq 0 ] || shift

case "$preset" in
  asan-clang | tsan) ./packaging/build-deps.sh clang ;;
  armhf | arm64) ./packaging/build-deps.sh --cross "$preset" ;;
  *) ./packaging/build-deps.sh ;;
esac
cmake --preset "$preset" "$@" >/dev/null
# The daemon ends at the first report, and the test with it.
export TSAN_OPTIONS="halt_on_error=1${TSAN_OPTIONS:+:$TSAN_OPTIONS}"
# Some kernels scatter addresses more widely than ThreadSanitizer knows.
together=""
if [ "$preset" = tsan ] && setarch -R true 2>/dev/null; then together="setarch -R"; fi
# shellcheck disable=SC2086  # none or two words; the build asks the tests for their names
$together cmake --build --preset "$preset"
# Some tests wait for real processes: twice as many at once as there are processors.
# shellcheck disable=SC2086
$together ctest --preset "$preset" --parallel "$((2 * $(nproc)))"
