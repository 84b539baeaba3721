#!/bin/sh
# Builds the project and runs every test.
#   ./test.sh [PRESET [CMAKE-OPTION...]]
# PRESET: release (default), debug, asan, asan-clang, tsan; armhf or arm64: a
# cross build, tested under an emulator.
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
# The first report ends the daemon, so the test fails.
export TSAN_OPTIONS="halt_on_error=1${TSAN_OPTIONS:+:$TSAN_OPTIONS}"
# Disable address randomization if possible: ThreadSanitizer does not support that of some kernels.
together=""
if [ "$preset" = tsan ] && setarch -R true 2>/dev/null; then together="setarch -R"; fi
# shellcheck disable=SC2086  # no word or two; the build runs the tests to list their names
$together cmake --build --preset "$preset"
# Some tests wait for real processes, so run twice as many jobs as there are processors.
$together ctest --preset "$preset" --parallel "$((2 * $(nproc)))"
