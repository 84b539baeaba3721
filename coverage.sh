#!/bin/sh
# Builds the daemon's code with gcov's counters in build-coverage, runs every test, and prints for
# each file of src/ how much of it ran: lines and branches.
#   ./coverage.sh [CTEST-OPTION...]     without options the whole suite, e.g. -R '^unit_tests'
# The injected failures are left out: they would hit the writing of the counters.
# Status 1 when less than 95 % of the lines or 85 % of the branches ran. What did not run is shown
# by build-coverage/report/index.html, and why it did not by docs/test-coverage.md.
set -eu
cd "$(dirname "$0")"

case "${1:-}" in
  -h | --help) sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0"; exit 0 ;;
esac

./packaging/build-deps.sh gcovr
cmake --preset coverage >/dev/null
cmake --build --preset coverage
find build-coverage -name '*.gcda' -delete
ctest --preset coverage --parallel "$((2 * $(nproc)))" -E '^faults' "$@"
if [ -z "$(find build-coverage -name '*.gcda' -print -quit)" ]; then
  echo "coverage.sh: no test ran" >&2
  exit 1
fi

# Without what no test could take: the ways of exceptions, and of blocks that never begin.
mkdir -p build-coverage/report
gcovr --root . --object-directory build-coverage --filter src/ --exclude-throw-branches \
  --exclude-unreachable-branches --csv build-coverage/report/files.csv \
  --html-details build-coverage/report/index.html build-coverage/src
awk -F, '
  function row(name, lines, ran, branches, taken) {
    printf "%-32s %5d %6.1f %% %7d %6.1f %%\n", name, lines, lines ? 100 * ran / lines : 100,
      branches, branches ? 100 * taken / branches : 100
  }
  NR == 1 { printf "%-32s %5s %8s %7s %8s\n", "file", "lines", "ran", "branches", "taken"; next }
  { row($1, $2, $3, $5, $6); lines += $2; ran += $3; branches += $5; taken += $6 }
  END {
    row("all", lines, ran, branches, taken)
    exit !(ran >= 0.95 * lines && taken >= 0.85 * branches)
  }' build-coverage/report/files.csv
