#!/bin/sh
# Boots a board in an emulator (Debian's ARM kernel, BusyBox, the armhf package)
# and tests what a pseudo-terminal cannot: a real serial driver, USB adapters,
# reboots, power cuts.
#   ./board.sh [--quick | --long] [TEST...]
#   ./board.sh --shell [MODEL]
# TEST: settings, drain, break, idle, stop, unbound, usb, update, cuts; default:
# all. Prints a line for each test; exits with status 1 if one failed.
# --quick: settings, stop and 3 power cuts, in about a minute
# --long: 100 power cuts instead of 20
# --shell: a console on the board, with the far end of MODEL on its line. MODEL:
# QB-620 (default, a PTZ head), QB-210, QB-310 (camera modules), QB-420 (a lens),
# ... Exit with `poweroff`.
set -eu
cd "$(dirname "$0")"

usage() { sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0"; }

refuse() {
  echo "board.sh: invalid argument '$1'; --help prints the usage" >&2
  exit 2
}

fail() {
  echo "board.sh: $*" >&2
  exit 1
}

tests="settings drain break idle stop unbound usb update cuts"
case "${1:-}" in
  -h | --help) usage; exit 0 ;;
  --shell)
    [ $# -le 2 ] || refuse "$3"
    case "${2:-}" in -*) refuse "$2" ;; esac
    ;;
  *)
    for word in "$@"; do
      case " --quick --long $tests " in
        *" $word "*) ;;
        *) refuse "$word" ;;
      esac
    done
    ;;
esac

# --- The parts of the board --------------------------------------------------------------------

out=$PWD/build-board

# Downloads a package for the board and unpacks it in $out/packages without installing it.
fetch_package() {
  place=$out/packages/$1
  [ ! -d "$place" ] || return 0
  rm -rf "$out/download"
  mkdir -p "$out/download" "$out/packages"
  (cd "$out/download" && apt-get -o APT::Sandbox::User=root download -qq "$1:armhf" 2>/dev/null) ||
    fail "cannot download $1:armhf (needs the package sources of Debian 12 or later)"
  dpkg-deb -x "$out"/download/*.deb "$out/download/files"
  mv "$out/download/files" "$place"
  rm -rf "$out/download"
}

fetch_packages() {
  kernel=$(apt-cache depends linux-image-armmp:armhf 2>/dev/null |
    sed -n 's/^ *Depends: \(linux-image-[^:]*\).*/\1/p' | head -n 1)
  # Without package lists, use the packages of an earlier run.
  [ -n "$kernel" ] || kernel=$(cd "$out/packages" 2>/dev/null && echo linux-image-*) || true
  case "$kernel" in
    '' | *'*'*) fail "package linux-image-armmp:armhf not found (needs Debian's package sources)" ;;
  esac
  for package in "$kernel" busybox-static libc6 libgcc-s1 libstdc++6 libjson-c5; do
    fetch_package "$package"
  done
}

build() {
  cmake --preset release >/dev/null
  cmake --build --preset release --target far_end
  cmake --preset armhf >/dev/null
  cmake --build --preset armhf --target installables
  (cd build-armhf && cpack -G DEB >/dev/null)
}

./packaging/build-deps.sh
./packaging/build-deps.sh --cross armhf qemu-system-arm cpio e2fsprogs python3
fetch_packages
build
board/make_root.sh "$out" build-armhf/rs232d_*_armhf.deb
exec python3 -B board/board_tests.py "$out" build/tests/far_end "$@"
