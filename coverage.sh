#!/bin/sh
# Builds the daemon with gcov counters in build-coverage, runs every test, and
# prints the line and branch coverage of each file in src/.
#   ./coverage.sh [CTEST-OPTION...]     e.g. -R '^unit_tests'; default: all tests
# The fault injection is excluded, because it would also disturb the writing of
# the counters. Status 1 if less than 95 % of the lines or 85 % of the branches
# ran.
# build-coverage/report/index.html shows the code that did not run;
# docs/test-coverage.md explains why it did not.
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

# Without unreachable code: branches of exceptions, and blocks that never begin.
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
