#!/usr/bin/env bash
# Builds the fuzz targets with clang and libFuzzer and runs each for SECONDS, two
# at a time.
#   ./fuzz.sh SECONDS [TARGET...]
# TARGET: a directory of fuzz/corpus; default: all
# Prints a table; status 1 if a target found a fault. The input is saved in
# build-fuzz/findings/TARGET; `build-fuzz/targets/TARGET FILE` runs it again. New
# corpus inputs are kept in build-fuzz/corpus/TARGET for the next run.
set -euo pipefail
cd "$(dirname "$0")"

usage() {
  sed -n '2,6s/^# \{0,1\}//p' "$0"
  exit "$1"
}

case "${1:-}" in
  -h | --help) usage 0 ;;
  '' | *[!0-9]*) usage 2 >&2 ;;
esac
seconds="$1"
shift

./packaging/build-deps.sh clang
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz
[ $# -gt 0 ] || set -- $(ls fuzz/corpus)

# Relative paths stay valid in the private world, which hides /tmp and /var.
run_target() {
  local target="$1" log="build-fuzz/logs/$1.log"
  local -a dictionary=() seeds=("build-fuzz/corpus/$1")
  mkdir -p build-fuzz/logs "build-fuzz/corpus/$target" "build-fuzz/findings/$target"
  [ ! -f "fuzz/dictionaries/$target.dict" ] || dictionary=("-dict=fuzz/dictionaries/$target.dict")
  for directory in "fuzz/corpus/$target" "fuzz/regressions/$target"; do
    [ ! -d "$directory" ] || seeds+=("$directory")
  done
  ASAN_OPTIONS=quarantine_size_mb=16 \
    "build-fuzz/targets/$target" -max_total_time="$seconds" -timeout=20 -max_len=2048 -close_fd_mask=3 \
    -print_final_stats=1 -artifact_prefix="build-fuzz/findings/$target/" \
    "${dictionary[@]}" "${seeds[@]}" >"$log" 2>&1 || echo "finding" >>"$log"
}

# Prints a row of the table from the target's log.
report() {
  local target="$1" log="build-fuzz/logs/$1.log"
  local executions speed counters finding="none"
  executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  speed=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")
  counters=$(grep -o 'cov: [0-9]* ft: [0-9]*' "$log" | tail -1 || true)
  if [ "$(tail -1 "$log")" = "finding" ]; then
    finding=$(grep -m1 -E '^FINDING|^SUMMARY|ERROR: |runtime error' "$log" || echo "see $log")
  fi
  printf '%-16s %12s %8s   %-22s %s\n' "$target" "${executions:-?}" "${speed:-?}" \
    "${counters:-?}" "$finding"
}

for target in "$@"; do
  [ -x "build-fuzz/targets/$target" ] || { echo "fuzz.sh: no target '$target'" >&2; exit 2; }
done
running=0
for target in "$@"; do
  run_target "$target" &
  running=$((running + 1))
  [ "$running" -lt 2 ] || { wait -n; running=$((running - 1)); }
done
wait

printf '%-16s %12s %8s   %-22s %s\n' target executions exec/s coverage findings
status=0
for target in "$@"; do
  report "$target"
  [ "$(tail -1 "build-fuzz/logs/$target.log")" != "finding" ] || status=1
done
exit "$status"
