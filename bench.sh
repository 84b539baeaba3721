#!/bin/sh
# Compares the daemon with general serial-to-TCP relays and prints a table.
#   ./bench.sh [--install-peers] [--quick | --long] [--docs]
# Skips relays (ser2net, socat) that are not installed.
# --install-peers installs them; the ser2net package then also starts a service.
# --docs updates docs/benchmarks.md and its chart.
set -eu
cd "$(dirname "$0")"

peers=""
case "${1:-}" in
  -h | --help) sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0"; exit 0 ;;
  --install-peers) peers="ser2net socat"; shift ;;
esac

./packaging/build-deps.sh
for package in $peers; do
  ./packaging/build-deps.sh "$package" || true # reported below
done
for peer in /usr/sbin/ser2net /usr/bin/socat; do
  [ -x $peer ] || echo "bench.sh: skipping $peer, which is not installed (use --install-peers)" >&2
done
cmake --preset release >/dev/null
cmake --build --preset release --target serial_bench
exec build/serial_bench "$@"
