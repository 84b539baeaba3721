#!/bin/sh
# Compares the daemon with general serial-to-TCP relays on one bench.
#   ./bench.sh [--quick | --long] [--readme] [OPTION...]   options: those of build/serial_bench
# Prints a table, writes build/bench.json and build/bench.svg. With --readme the table in README.md
# and docs/pictures/bench.svg are replaced. Peers that cannot be installed are left out.
set -eu
cd "$(dirname "$0")"

readme=""
micro_time=0.1
for argument in "$@"; do
  shift
  case "$argument" in
    --readme) readme="--readme README.md --svg docs/pictures/bench.svg" ;;
    -h | --help) sed -n '2,5s/^# \{0,1\}//p' "$0"; exit 0 ;;
    *) set -- "$@" "$argument" ;;
  esac
  [ "$argument" != "--quick" ] || micro_time=0.01
done

./packaging/build-deps.sh
for package in ser2net socat libbenchmark-dev; do
  ./packaging/build-deps.sh "$package" || echo "bench.sh: goes on without $package" >&2
done
cmake --preset release >/dev/null
cmake --build --preset release --target benches

micro=""
if [ -x build/micro_bench ]; then
  build/micro_bench --benchmark_min_time="$micro_time" --benchmark_format=json >build/micro.json
  micro="--micro build/micro.json"
fi
# shellcheck disable=SC2086  # lists of words
exec build/serial_bench $micro $readme "$@"
