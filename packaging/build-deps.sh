#!/bin/sh
# Installs missing build dependencies on Debian and Ubuntu when run as root or with sudo; otherwise
# lists the missing packages.
#   build-deps.sh [--cross armhf|arm64] [PACKAGE...]
# PACKAGE: further packages that the caller needs. --cross selects the compiler and the libraries of
# another processor, and the emulator for its programs.
set -eu

case "${1:-}" in
  -h | --help) sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0"; exit 0 ;;
esac
architecture=""
triplet=""
if [ "${1:-}" = "--cross" ]; then
  architecture="$2"
  shift 2
  case "$architecture" in
    armhf) triplet="arm-linux-gnueabihf" ;;
    arm64) triplet="aarch64-linux-gnu" ;;
    *) echo "build-deps: unknown architecture '$architecture'" >&2; exit 2 ;;
  esac
fi

packages="g++ cmake ninja-build libgtest-dev libcli11-dev libjson-c-dev libncurses-dev gnuplot-nox"
if [ -n "$architecture" ]; then
  packages="g++-$triplet cmake ninja-build libcli11-dev gnuplot-nox qemu-user"
  for library in libgtest-dev libjson-c-dev libstdc++6; do
    packages="$packages $library:$architecture"
  done
fi
packages="$packages $*"

if ! command -v dpkg-query >/dev/null 2>&1; then
  echo "build-deps: no Debian or Ubuntu; the build needs what these packages hold: $packages" >&2
  exit 0
fi

# A package may be installed for another architecture than the wanted one.
is_installed() {
  wanted="$(dpkg --print-architecture)|all"
  [ "$1" = "${1#*:}" ] || wanted="${1#*:}"
  dpkg-query -W -f '${Architecture} ${Status}\n' "$1" 2>/dev/null |
    grep -qE "^($wanted) install ok installed$"
}

missing=""
for package in $packages; do
  is_installed "$package" || missing="$missing $package"
done
[ -n "$missing" ] || exit 0

foreign=""
if [ -n "$architecture" ] && [ "$architecture" != "$(dpkg --print-architecture)" ] &&
  ! dpkg --print-foreign-architectures | grep -qx "$architecture"; then
  foreign="$architecture"
fi

as_root=""
if [ "$(id -u)" -ne 0 ]; then
  if command -v sudo >/dev/null 2>&1 && { [ -t 0 ] || sudo -n true 2>/dev/null; }; then
    as_root="sudo"
  else
    echo "build-deps: missing packages; as root:" \
      "${foreign:+dpkg --add-architecture $foreign; apt-get update; }apt-get install$missing" >&2
    exit 1
  fi
fi

echo "build-deps: installing$missing"
export DEBIAN_FRONTEND=noninteractive
[ -z "$foreign" ] || $as_root dpkg --add-architecture "$foreign"
# If a package list cannot be updated, the present one may do.
$as_root apt-get update -qq || true
# shellcheck disable=SC2086  # a list of words
if ! $as_root apt-get install -y -qq --no-install-recommends $missing >/dev/null; then
  echo "build-deps: could not install$missing" >&2
  [ -z "$architecture" ] ||
    echo "build-deps: packages of $architecture need a source that has them (Ubuntu:" \
      "ports.ubuntu.com)" >&2
  exit 1
fi
