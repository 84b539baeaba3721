#!/bin/sh
# Builds the project and runs the daemon under random mixed traffic, each mode in a private world of
# its own, all at once. Prints a line for whatever is wrong, then a table; status 1 when something was.
#   ./soak.sh [--seed SEED] [SECONDS] [MODE...]     SECONDS: 300 without; MODE: relay, sd, hd, lens
set -eu
cd "$(dirname "$0")"

seed=""
if [ "${1:-}" = --seed ]; then
  seed="--seed $2"
  shift 2
fi
case "${1:-}" in
  -h | --help) sed -n '2,4s/^# \{0,1\}//p' "$0"; exit 0 ;;
esac
seconds="${1:-300}"
[ $# -eq 0 ] || shift

./packaging/build-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release --target soaks
build/tests/soaks $seed "$seconds" "$@"
