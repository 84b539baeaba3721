#!/bin/sh
# Installs the packages of a build tree in a private root, starts and stops the daemon there on a
# pseudo-terminal, removes and purges the packages, and checks that nothing is left. Then tests the
# archive for BusyBox boards in the same way, also under an init that respawns the daemon.
#   test_deb.sh [BUILD-DIRECTORY]     as root; needs busybox
# The private root is an overlay over this system in new namespaces: no change is visible outside or
# outlives the script.
set -eu

sources=$(dirname "$0")
. "$sources/private_root.sh"

fail() {
  [ ! -s init.log ] || tail -n 20 init.log >&2
  echo "test_deb: $*" >&2
  exit 1
}

expect() {
  await "$@" || fail "timeout: $*"
}

# --- Outside ------------------------------------------------------------------------------------

enter_namespaces() {
  [ "$(id -u)" -eq 0 ] || fail "needs root"
  command -v busybox >/dev/null || fail "needs busybox"
  build=$(cd "${1:-build}" && pwd)
  exec unshare --mount --pid --net --ipc --uts --fork --kill-child sh "$0" --root "$build"
}

run_in_root() {
  make_root "$0" "$sources/private_root.sh" "$1"/*.deb "$1"/*.tar.gz
  # No systemd runs in this root, so /run/systemd/system does not exist.
  enter_root
  cd /test
  exec sh "./${0##*/}" --inside
}

# --- The device ---------------------------------------------------------------------------------

PTZ_PORT=4001
UDP_PORT=10020

# Writes a 32-bit field of the parameter block: OFFSET VALUE.
put_word() {
  # shellcheck disable=SC2059  # the format is the bytes
  printf "$(printf '\\%03o\\%03o\\%03o\\%03o' $(($2 & 255)) $(($2 >> 8 & 255)) \
    $(($2 >> 16 & 255)) $(($2 >> 24 & 255)))" |
    dd of=/var/nvt/param.dat bs=1 seek="$1" conv=notrunc status=none
}

# Makes the device's files, and a pseudo-terminal whose output is logged in /run/line.out.
make_device() {
  script -qfc 'tty >/run/line; exec sleep 600' /run/line.out </dev/null >/dev/null &
  expect test -s /run/line
  mkdir -p /var/nvt
  printf 'QB-100' >/var/nvt/param.dat
  truncate -s 23972 /var/nvt/param.dat
  put_word 23728 2 # serial ports
  put_word 23764 9600
  put_word 23772 8
  put_word 23776 1
  put_word 23780 1 # PTZ server on
  put_word 23784 $PTZ_PORT
  echo "RS232_DAEMON_PORT=$UDP_PORT" >/etc/udp_port_table.conf
  echo "Serial.2.DevPath=$(cat /run/line)" >/etc/capabilities.conf
}

is_bound() { grep -q ": [0-9A-F]*:$(printf %04X "$2") " "/proc/net/$1"; }
is_serving() { is_bound udp $UDP_PORT && is_bound udp 10017 && is_bound tcp $PTZ_PORT; }
has_ended() { ! is_bound udp $UDP_PORT && ! is_bound udp 10017; }
has_reached_line() { grep -q "$1" /run/line.out; }

# Starts the daemon with an init script, sends bytes to the line, and stops it with the script and
# with rs232ctl: TEXT SCRIPT..., where TEXT is sent to the line and SCRIPT... is the call of the
# script.
exercise() {
  words=$1
  shift
  "$@" start
  expect is_serving
  bash -c "printf '%s' '$words' >/dev/tcp/127.0.0.1/$PTZ_PORT"
  expect has_reached_line "$words"
  "$@" stop
  has_ended || fail "still serving after stop"
  [ ! -e /var/run/rs232d.pid ] || fail "the pid file was not removed"
  "$@" start
  expect is_serving
  rs232ctl stop
  expect has_ended
  "$@" stop
}

# --- Inside -------------------------------------------------------------------------------------

# Lists every path where a package or the daemon writes, without the package manager's own records.
list_files() {
  find /etc /usr /var \( -path /var/lib/dpkg -o -path /var/log -o -path /var/cache \) \
    -prune -o -print | sort
}

is_installed() { [ "$(dpkg-query -W -f '${Status}' "$1" 2>&1)" = "install ok installed" ]; }

check_files() {
  for file in "$@"; do
    [ -s "$file" ] || fail "no $file"
  done
}

check_unit() {
  command -v systemd-analyze >/dev/null || return 0
  said=$(systemd-analyze verify --man=no rs232d.service 2>&1) || fail "unit: $said"
  [ -z "$said" ] || fail "unit: $said"
  systemd-analyze security --offline=true rs232d.service | grep Overall
}

test_packages() {
  list_files >before
  dpkg -i ./*.deb >dpkg.log 2>&1 || { cat dpkg.log; fail "dpkg -i"; }
  for package in rs232d rs232d-sim; do
    is_installed $package || fail "$package is not installed"
    dpkg -V $package || fail "$package differs from what it holds"
  done
  # libstdc++ would nearly double the daemon's memory.
  ! ldd /usr/sbin/rs232d | grep libstdc++ || fail "the daemon loads libstdc++"
  check_files /usr/sbin/rs232d /usr/bin/rs232ctl /usr/bin/vdev \
    /usr/lib/systemd/system/rs232d.service /usr/lib/tmpfiles.d/rs232d.conf \
    /usr/share/man/man8/rs232d.8.gz \
    /usr/share/doc/rs232d/copyright
  [ -L /etc/systemd/system/multi-user.target.wants/rs232d.service ] || fail "not enabled"
  check_unit
  has_ended || fail "started without systemd"

  exercise "by the package" sh /usr/share/doc/rs232d/examples/S60rs232d
  vdev run QB-620 --demo --once >vdev.log 2>&1 || { cat vdev.log; fail "vdev"; }

  # Reinstall, as in an upgrade.
  dpkg -i ./*.deb >dpkg.log 2>&1 || { cat dpkg.log; fail "dpkg -i over itself"; }
  dpkg --remove rs232d-sim rs232d >dpkg.log 2>&1 || { cat dpkg.log; fail "dpkg --remove"; }
  [ ! -e /usr/sbin/rs232d ] || fail "the daemon was not removed"
  dpkg --purge rs232d-sim rs232d >dpkg.log 2>&1 || { cat dpkg.log; fail "dpkg --purge"; }
  ! is_installed rs232d || fail "still installed"
  list_files >after
  diff before after >left || { cat left; fail "left behind"; }
}

# The first start after a boot removes a temporary settings file; later starts keep it.
test_leftover() {
  echo "another boot" >/var/run/rs232d.boot
  for is_left in false true; do
    : >/etc/temp.conf
    "$@" start
    expect is_serving
    "$@" stop
    if [ -e /etc/temp.conf ]; then found=true; else found=false; fi
    [ $found = $is_left ] || fail "temp.conf is left: $found, not $is_left"
  done
  rm /etc/temp.conf
}

test_archive() {
  busybox tar xzf ./*.tar.gz -C /
  mkdir applets
  busybox --install -s /test/applets
  exercise "by the archive" env PATH=/test/applets sh /etc/init.d/S60rs232d
  test_leftover env PATH=/test/applets sh /etc/init.d/S60rs232d
}

daemon_pid() { busybox pidof rs232d; }
# True if exactly one daemon runs and serves, with a pid other than PID.
is_respawned() { is_serving && [ "$(daemon_pid | wc -w)" = 1 ] && [ "$(daemon_pid)" != "$1" ]; }
# Runs the init script with WORD in the process tree of the init below, and expects TEXT in its
# output.
script_says() {
  nsenter -t "$init" -m -p env PATH=/test/applets sh /etc/init.d/S60rs232d "$1" >script.log
  grep -q "$2" script.log || { cat script.log; fail "S60rs232d $1"; }
}

test_respawn() {
  printf '::sysinit:/etc/init.d/S60rs232d start\n::respawn:/usr/sbin/rs232d\n' >/etc/inittab
  unshare --pid --fork --mount-proc --kill-child busybox init >init.log 2>&1 </dev/null &
  world=$!
  expect is_respawned none
  init=$(tr -d ' ' <"/proc/$world/task/$world/children")
  ended=$(daemon_pid)
  rs232ctl stop
  expect is_respawned "$ended"
  ended=$(daemon_pid)
  script_says start "left to init"
  is_respawned none || fail "a second daemon runs next to that of init"
  script_says stop "init starts it again"
  expect is_respawned "$ended"
  kill -KILL "$world"
}

test_inside() {
  make_device
  test_packages
  test_archive
  test_respawn
  echo "test_deb: passed"
}

case "${1:-}" in
  --root) run_in_root "$2" ;;
  --inside) test_inside ;;
  *) enter_namespaces "$@" ;;
esac
