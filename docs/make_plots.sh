#!/bin/sh
# Draws the pictures of the lens guide anew, from the built-in curves and from a survey of a
# simulated lens by the real daemon (under a minute).
#   docs/make_plots.sh [BUILD-DIRECTORY]     default: build
set -eu
cd "$(dirname "$0")/.."

build="${1:-build}"
cmake --build "$build" --target rs232ctl lens_survey
log=$(mktemp)
trap 'rm -f "$log"' EXIT

"$build/rs232ctl" lens plot --svg docs/pictures/lens-curves.svg
"$build/lens_survey" osprey "$log" --worlds 14
"$build/rs232ctl" lens fit "$log" --svg docs/pictures/lens-fit.svg >/dev/null
