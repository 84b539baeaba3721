#!/bin/sh
# Compares the daemon with general serial-to-TCP relays on one bench and prints a table.
#   ./bench.sh [--quick | --long] [--readme]
# With --readme the table in README.md and docs/pictures/bench.svg are replaced. Peers that cannot
# be installed are left out.
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
