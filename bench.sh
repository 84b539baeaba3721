#!/bin/sh
# Compares the daemon with general serial-to-TCP relays on one bench and prints a table.
#   ./bench.sh [--quick | --long] [--docs]
# --docs replaces the report in docs/benchmarks.md and its chart. Peers that cannot be installed are
# skipped.
set -eu
cd "$(dirname "$0")"

case "${1:-}" in
  -h | --help) sed -n '2,5s/^# \{0,1\}//p' "$0"; exit 0 ;;
esac

./packaging/build-deps.sh
for package in ser2net socat; do
  ./packaging/build-deps.sh "$package" || echo "bench.sh: goes on without $package" >&2
done
cmake --preset release >/dev/null
cmake --build --preset release --target serial_bench
exec build/serial_bench "$@"
