#!/bin/sh
# Renews the plot of the built-in tracking tables in the lens guide.
#   docs/make_plots.sh [BUILD-DIRECTORY]     default: build
#
# It does not renew docs/pictures/lens-fit.svg, which `rs232ctl lens fit LOG --svg` created from a
# simulated OSPREY lens: 8 searches at every entry of its curve, focus measures with an error of up
# to 1 % of the peak, one search in ten disturbed.
set -eu
cd "$(dirname "$0")/.."

build="${1:-build}"
cmake --build "$build" --target rs232ctl
"$build/rs232ctl" lens plot --svg docs/pictures/lens-curves.svg
