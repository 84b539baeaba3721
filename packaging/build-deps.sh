#!/bin/sh
# Sees to it that what the build needs is installed: installs it on Debian and Ubuntu when run
# as root or with sudo, otherwise says exactly what is missing.
# Arguments are further packages that the caller needs.
set -eu

packages="g++ cmake ninja-build libgtest-dev libcli11-dev libjson-c-dev libncurses-dev $*"

if ! command -v dpkg-query >/dev/null 2>&1; then
  echo "build-deps: no Debian or Ubuntu; the build needs what these packages hold: $packages" >&2
  exit 0
fi

missing=""
for package in $packages; do
  state=$(dpkg-query -W -f '${Status}' "$package" 2>/dev/null || true)
  [ "$state" = "install ok installed" ] || missing="$missing $package"
done
[ -n "$missing" ] || exit 0

as_root=""
if [ "$(id -u)" -ne 0 ]; then
  if command -v sudo >/dev/null 2>&1 && { [ -t 0 ] || sudo -n true 2>/dev/null; }; then
    as_root="sudo"
  else
    echo "build-deps: missing packages; as root: apt-get install$missing" >&2
    exit 1
  fi
fi

echo "build-deps: installing$missing"
export DEBIAN_FRONTEND=noninteractive
$as_root apt-get update -qq
# shellcheck disable=SC2086  # a list of words
$as_root apt-get install -y -qq --no-install-recommends $missing >/dev/null
