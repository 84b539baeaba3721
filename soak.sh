#!/bin/sh
# Builds the project and runs the daemon through long random lives
# (tests/system/long_life_test.cpp), all modes in parallel, each in its own
# private world. Prints a line of figures for each mode, and any fault with its
# seed and time; status 1 if there was one.
#   ./soak.sh [--seed SEED] [SECONDS] [MODE...]
# SECONDS: real time, default 300. Completes a started round of three lives, which
# takes up to a minute.
# MODE: relay, sd, hd, lens; default: all
set -eu
cd "$(dirname "$0")"

usage() { sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0"; }

RS232_LIFE_SEED="$(od -An -N4 -tu4 /dev/urandom | tr -d ' ')"
if [ "${1:-}" = --seed ] && [ $# -ge 2 ]; then
  RS232_LIFE_SEED="$2"
  shift 2
fi
case "${1:-}" in
  -h | --help) usage; exit 0 ;;
esac
RS232_LIFE_SECONDS="${1:-300}"
[ $# -eq 0 ] || shift
[ $# -gt 0 ] || set -- relay sd hd lens
for word in "$RS232_LIFE_SEED" "$RS232_LIFE_SECONDS"; do
  case "$word" in
    '' | *[!0-9]*) usage >&2; exit 2 ;;
  esac
done
for mode in "$@"; do
  case "$mode" in
    relay | sd | hd | lens) ;;
    *) usage >&2; exit 2 ;;
  esac
done
export RS232_LIFE_SEED RS232_LIFE_SECONDS

./packaging/build-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release --target system_tests
lives=""
for mode in "$@"; do
  build/tests/system_tests --gtest_brief=1 --gtest_filter="Modes/LongLife.*/$mode" &
  lives="$lives $!"
done
status=0
for life in $lives; do
  wait "$life" || status=1
done
exit "$status"
