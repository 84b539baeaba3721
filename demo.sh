#!/bin/sh
# Builds the project and runs the real daemon on a virtual device.
#   ./demo.sh [MODEL] [--once]
# MODEL: QB-620 (default), QB-210, QB-310, QB-420, ...
# Runs a short demonstration, then lets you drive the device. With --once it exits
# after the demonstration, with status 0 if it succeeded.
set -eu
cd "$(dirname "$0")"

model="QB-620"
once=""
for argument in "$@"; do
  case "$argument" in
    --once) once="--once" ;;
    -h | --help) sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0"; exit 0 ;;
    -*) echo "demo.sh: unknown option '$argument' (usage: ./demo.sh [MODEL] [--once])" >&2; exit 2 ;;
    *) model="$argument" ;;
  esac
done

./packaging/build-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release --target rs232d vdev rs232ctl
# shellcheck disable=SC2086  # empty or one word
exec build/vdev run "$model" --demo $once
