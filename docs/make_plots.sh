#!/bin/sh
# Draws the curves of the lens guide anew, from the built-in tables.
#   docs/make_plots.sh [BUILD-DIRECTORY]     default: build
#
# docs/pictures/lens-fit.svg is not drawn here. It was made by `rs232ctl lens fit LOG --svg` from
# what the daemon printed while it searched the focus of a simulated OSPREY lens: 8 searches at
# every entry of its curve, focus measures up to 1 % of the peak off, a tenth of the searches
# disturbed.
set -eu
cd "$(dirname "$0")/.."

build="${1:-build}"
cmake --build "$build" --target rs232ctl
"$build/rs232ctl" lens plot --svg docs/pictures/lens-curves.svg
