#!/bin/bash
# Boots systemd in a private root, installs the packages of a build tree there, and tests every mode
# of the daemon under the restrictions of its unit, and these restrictions themselves.
#   test_unit.sh [BUILD-DIRECTORY]     as root; needs systemd, busybox, and tests/far_end built
# The private root is an overlay over this system in new namespaces and a new control group: no
# change is visible outside or outlives the script.
set -Eeuo pipefail

sources=$(dirname "$0")
. "$sources/private_root.sh"

fail() {
  echo "test_unit: $*" >&2
  for log in /run/rs232d.log /run/far_end.log /run/syslog /var/nvt/probe /var/nvt/probe.*; do
    [ ! -s "$log" ] || { echo "--- $log" >&2; tail -n 30 "$log" >&2; }
  done
  [ ! -d /test ] || systemctl status --no-pager rs232d >&2
  exit 1
}

# Checks that a command succeeds soon: WHAT COMMAND...
check() {
  await "${@:2}" || fail "failed: $1 (${*:2})"
  printf 'ok: %2d s %s\n' $SECONDS "$1"
}

# Checks that a command succeeds at once: WHAT COMMAND...
now() {
  "${@:2}" || fail "failed: $1 (${*:2})"
  printf 'ok: %2d s %s\n' $SECONDS "$1"
}

# --- Outside ------------------------------------------------------------------------------------

world=
init=
group=

leave_world() {
  if [ -n "$world" ]; then
    kill -KILL "$world" || true
    wait "$world" || true
  fi 2>/dev/null
  [ -n "$group" ] || return 0
  # The group is empty only when every process in the world has exited.
  await remove_group || echo "test_unit: cannot remove $group" >&2
}

remove_group() {
  find "$group" -depth -type d -exec rmdir {} \; 2>/dev/null
  [ ! -d "$group" ]
}

# Finds the pid of the world's systemd as seen from outside.
find_init() {
  init=$(tr -d ' ' <"/proc/$world/task/$world/children")
  [ -n "$init" ]
}

in_world() { nsenter -t "$init" -m -p -n -i -u -C "$@"; }
is_booted() { in_world systemctl is-active --quiet multi-user.target 2>/dev/null; }

run_in_world() {
  [ "$(id -u)" -eq 0 ] || fail "needs root"
  command -v busybox >/dev/null || fail "needs busybox"
  [ -x /lib/systemd/systemd ] || fail "needs systemd"
  local build
  build=$(cd "${1:-build}" && pwd)
  [ -x "$build/tests/far_end" ] || fail "needs $build/tests/far_end"
  trap leave_world EXIT
  trap 'exit 1' INT TERM
  local groups
  groups=$(findmnt -n -o TARGET -t cgroup2 | head -n 1)
  [ -n "$groups" ] || fail "needs the unified hierarchy of control groups"
  mkdir "$groups/rs232d-test-$$" || fail "cannot make a control group"
  group=$groups/rs232d-test-$$
  (
    echo "$BASHPID" >"$group/cgroup.procs"
    exec unshare --mount --pid --net --ipc --uts --cgroup --fork --kill-child \
      bash "$0" --root "$build" </dev/null
  ) &
  world=$!
  await find_init || fail "cannot make namespaces"
  await is_booted || fail "systemd does not boot"
  in_world bash /test/test_unit.sh --inside
}

# Makes only the targets that the unit refers to, without the services of this system.
make_targets() {
  local name
  mount -t tmpfs -o mode=755 tmpfs usr/lib/systemd/system
  mount -t tmpfs -o mode=755 tmpfs usr/lib/systemd/system-generators
  for name in sysinit basic local-fs multi-user network; do
    printf '[Unit]\nDefaultDependencies=no\n' >usr/lib/systemd/system/$name.target
  done
  # A reboot up to the point where all services are stopped.
  printf '[Unit]\nDefaultDependencies=no\n' >usr/lib/systemd/system/shutdown.target
  printf '[Unit]\nDefaultDependencies=no\nRequires=shutdown.target down.service\n' \
    >usr/lib/systemd/system/reboot.target
  printf '[Unit]\nDefaultDependencies=no\nAfter=shutdown.target\n
    [Service]\nType=oneshot\nExecStart=/bin/touch /run/down\n' >usr/lib/systemd/system/down.service
}

boot_in_root() {
  make_root "$0" "$sources/private_root.sh" "$1"/*.deb "$1/tests/far_end"
  mount -t sysfs sysfs sys
  mount -t cgroup2 cgroup2 sys/fs/cgroup
  # A device that the daemon may open, although it has no driver, and one that it may not.
  mknod dev/ttyS40 c 4 104
  mknod dev/kmsg c 1 11
  rm -rf etc/systemd/system usr/sbin/policy-rc.d var/nvt
  mkdir etc/systemd/system
  make_targets
  enter_root
  cd /
  exec env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin container=private \
    /lib/systemd/systemd --unit=multi-user.target --show-status=no
}

# --- The device ---------------------------------------------------------------------------------

PTZ_PORT=400 # below 1024
UDP_PORT=10020
far_end=

is_bound() { grep -q ": [0-9A-F]*:$(printf %04X "$2") " "/proc/net/$1"; }
is_serving() { is_bound udp $UDP_PORT && is_bound udp 10017 && is_bound tcp $PTZ_PORT; }
saw() { grep -qa -- "$1" /run/far_end.log; }
said() { grep -qa -- "$1" /run/rs232d.log; }
logged() { grep -qa -- "$1" /run/syslog; }
state_is() { [ "$(systemctl show -P "$1" rs232d)" = "$2" ]; }
daemon_pid() { systemctl show -P MainPID rs232d; }
status_is() { grep -q "^$1:[[:space:]]*$2\$" "/proc/$(daemon_pid)/status"; }
shows() { systemctl show -P StatusText rs232d | grep -qx -- "$1"; }
is_up() { state_is ActiveState active && is_serving; }
# More restarts than the default start limit allows.
is_tried_again() { [ "$(systemctl show -P NRestarts rs232d)" -ge 8 ]; }
has_reported() { ! state_is WatchdogTimestampMonotonic "$1"; }
file_is() { [ "$(stat -c "$1" "$2" 2>/dev/null)" = "$3" ]; }
holds() { grep -q -- "$2" "$1" 2>/dev/null; }
has_ended() { ! kill -0 "$1" 2>/dev/null; }

# Makes a device of MODEL and starts the daemon.
start_device() {
  : >/run/rs232d.log
  rm -f /run/to_line /var/nvt/camera.info
  mkfifo /run/to_line
  /test/far_end "$1" $PTZ_PORT </run/to_line >/run/far_end.log 2>&1 &
  far_end=$!
  exec 4>/run/to_line
  await saw "ready: $1" || fail "no device $1"
  systemctl start rs232d
  now "$1: serves when its start has returned" is_serving
}

# Stops the daemon within LIMIT seconds and removes the device.
stop_device() {
  local begin=$SECONDS
  systemctl stop rs232d
  check "$1: stopped, status 0, in less than $2 s" stopped_well
  [ $((SECONDS - begin)) -lt "$2" ] || fail "$1: the stop took $((SECONDS - begin)) s"
  check "$1: no error was printed" no_failures
  drop_device
}

drop_device() {
  exec 4>&-
  kill "$far_end"
  wait "$far_end" 2>/dev/null || true
}

stopped_well() {
  state_is ActiveState inactive && state_is Result success && state_is ExecMainStatus 0
}
# The messages of the start about a port without a server do not count.
no_failures() { ! said "reason(\|can't\|fail in"; }

# --- Restrictions of the unit -------------------------------------------------------------------

# Replaces /bin/micom_reset, which the daemon's shell runs: tries what the unit allows or forbids,
# writes NAME yes|no for each to /var/nvt/probe, and its own state to /var/nvt/probe.self.
make_probe() {
  cat >/bin/micom_reset <<'PROBE'
#!/bin/bash
exec 2>/var/nvt/probe.err >/var/nvt/probe.new
tries() {
  echo "--- $1" >&2
  if timeout 5 "${@:2}" >&2; then echo "$1 yes"; else echo "$1 no"; fi
}
makes() { tries "write:$1" touch "$1/probe"; }
makes /etc
makes /var/nvt
makes /usr
makes /home
makes /root
makes /tmp
makes /run
makes /var/lib
tries read:/tmp cat /tmp/handed
tries write:/sys test -w /sys/class/net/lo/mtu
tries write:cgroup mkdir -p /sys/fs/cgroup/probe
tries open:ttyS bash -c '{ : </dev/ttyS40; } 2>&1 | grep -v "not permitted"'
tries open:kmsg bash -c 'exec 5<>/dev/kmsg'
tries open:null bash -c 'exec 5<>/dev/null'
tries socket:inet bash -c 'exec 5<>/dev/udp/127.0.0.1/9'
tries socket:inet6 bash -c 'exec 5<>/dev/udp/::1/9'
tries socket:unix logger -u /dev/log probe
tries socket:netlink busybox ip link show lo
tries socket:packet busybox arping -q -D -c 1 -w 1 -I lo 127.0.0.9
tries kill:other kill -0 "$(cat /run/other)"
tries namespace unshare --user true
tries mount mount -t tmpfs tmpfs /mnt
tries mount:namespace unshare --mount true
tries setuid:file install -m 4755 /bin/true /var/nvt/setuid
tries realtime chrt -f 1 true
tries hostname hostname probed
tries personality setarch --addr-no-randomize true
tries kernel:log dmesg
tries setuid:user setpriv --reuid=65534 true
sed -n 's/^\(NoNewPrivs\|Seccomp\|CapBnd\|CapEff\|Umask\):[[:space:]]*/\1 /p' /proc/self/status \
  >/var/nvt/probe.self
echo "NOTIFY_SOCKET ${NOTIFY_SOCKET-none}" >>/var/nvt/probe.self
readlink /proc/$$/fd/* >/var/nvt/probe.fds
mv /var/nvt/probe.new /var/nvt/probe
PROBE
  chmod +x /bin/micom_reset
}

# The actions of the probe, and whether the unit allows them.
allowed() {
  cat <<'ALLOWED'
write:/etc yes
write:/var/nvt yes
write:/usr no
write:/home no
write:/root no
write:/tmp no
write:/run yes
write:/var/lib no
read:/tmp yes
write:/sys yes
write:cgroup no
open:ttyS yes
open:kmsg no
open:null yes
socket:inet yes
socket:inet6 no
socket:unix yes
socket:netlink no
socket:packet no
kill:other yes
namespace no
mount no
mount:namespace no
setuid:file no
realtime no
hostname no
personality no
kernel:log no
setuid:user no
ALLOWED
}

# Outside the unit every action must succeed, or the probe would prove nothing.
check_probe() {
  echo handed >/tmp/handed
  echo $$ >/run/other
  /bin/micom_reset
  umount /mnt
  rmdir /sys/fs/cgroup/probe
  ! grep " no\$" /var/nvt/probe || fail "the probe fails even outside the unit"
  rm /var/nvt/probe*
}

inherits_nothing() {
  [ -s /var/nvt/probe.fds ] &&
    ! grep -v "^/dev/null\$\|^/run/rs232d.log\$\|^/var/nvt/probe\|/micom_reset\$" /var/nvt/probe.fds
}

check_confinement() {
  local line
  while read -r line; do
    check "unit: $line" holds /var/nvt/probe "^$line\$"
  done < <(allowed)
  for line in "NoNewPrivs 1" "Seccomp 2" "CapBnd 0000000000000420" "CapEff 0000000000000420" \
    "Umask 0022" "NOTIFY_SOCKET none"; do
    check "unit: $line" holds /var/nvt/probe.self "^$line\$"
  done
  check "HD: the daemon's shell has none of its descriptors" inherits_nothing
}

# --- Modes --------------------------------------------------------------------------------------

test_relay() {
  start_device QB-620
  exec 3<>/dev/tcp/127.0.0.1/$PTZ_PORT
  printf 'to-line' >&3
  check "relay: client to line, port $PTZ_PORT" saw "raw: to-line"
  check "relay: status line" shows "QB-620, relay; /dev/ttyS1 open; PTZ clients: 1"
  printf 'from-line' >&4
  local words=
  read -r -t 10 -N 9 -u 3 words || true
  check "relay: line to client" [ "$words" = from-line ]
  check "relay: line to UDP port 1860" saw "data: .*line"
  exec 3>&-
  check "relay: status line without a client" shows "QB-620, relay; /dev/ttyS1 open; PTZ clients: 0"
  rs232ctl write --text by-udp
  check "relay: datagram to line" saw "raw: by-udp"
  rs232ctl ptz pan-left
  check "relay: command to Pelco-D frame" saw "head: pan left"
  check "relay: no new privileges" status_is NoNewPrivs 1
  check "relay: system calls are filtered" status_is Seccomp 2
  local killed
  killed=$(daemon_pid)
  kill -KILL "$killed"
  check "relay: restarted after SIGKILL" is_restarted "$killed"
  rs232ctl write --text once-more
  check "relay: serves after the restart" saw "raw: once-more"
  stop_device QB-620 5
}

is_restarted() {
  [ "$(daemon_pid)" != "$1" ] && [ "$(daemon_pid)" != 0 ] && is_serving
}

# Tests the restarts after an exit of the daemon and after failed starts.
test_restarts() {
  start_device QB-620
  local ended
  ended=$(daemon_pid)
  setpriv --reuid=65534 --clear-groups rs232ctl stop >/run/said
  check "restart: after a stop datagram from any user" is_restarted "$ended"
  now "restart: rs232ctl recommends systemctl stop" holds /run/said "systemctl stop rs232d"

  systemctl stop rs232d
  rs232d >/run/by_hand 2>&1 </dev/null &
  ended=$!
  check "restart: a daemon started by hand has the ports" is_serving
  ! systemctl start rs232d 2>/dev/null || fail "started next to another daemon"
  check "restart: retried while the ports are in use" is_tried_again
  rs232ctl stop >/run/said
  wait "$ended"
  check "restart: serves when the ports are free" is_up

  systemctl stop rs232d
  mv /dev/ttyS1 /dev/away
  ! systemctl start rs232d 2>/dev/null || fail "started without a line"
  check "restart: retried while there is no line" is_tried_again
  now "restart: not active meanwhile" state_is ActiveState activating
  mv /dev/away /dev/ttyS1
  check "restart: serves when there is a line" is_up

  set_watchdog 3
  systemctl restart rs232d
  check "watchdog: reports" has_reported "$(systemctl show -P WatchdogTimestampMonotonic rs232d)"
  ended=$(daemon_pid)
  kill -STOP "$ended"
  check "watchdog: restarts a frozen daemon" is_restarted "$ended"
  now "watchdog: exactly one restart" state_is NRestarts 1
  set_watchdog 60
  stop_device QB-620 5
}

set_watchdog() {
  printf '[Service]\nWatchdogSec=%d\n' "$1" >/etc/systemd/system/rs232d.service.d/watchdog.conf
  systemctl daemon-reload
}

test_sd() {
  start_device QB-210
  rs232ctl ptz zoom-tele
  check "SD: command to frame" saw "module: .*zoom"
  check "SD: camera information" holds /var/nvt/camera.info "RESOLUTION=sd"
  rs232ctl info
  check "SD: readable for all" file_is %a:%U /var/nvt/camera.info 644:root
  stop_device QB-210 5
}

test_hd() {
  start_device QB-310
  now "HD: camera information" holds /var/nvt/camera.info "RESOLUTION="
  check "HD: readable for all" file_is %a:%U /var/nvt/camera.info 644:root
  rs232ctl ptz zoom-tele
  check "HD: command to frame" saw "micom: .*zoom"

  cp /bin/sleep /run/killed
  cp /bin/sleep /run/ended
  setpriv --reuid=65534 --clear-groups /run/killed 600 &
  local killed=$!
  setpriv --reuid=65534 --clear-groups /run/ended 600 &
  local ended=$!
  echo /run/killed >/etc/killList
  echo /run/ended >/etc/termList
  setpriv --reuid=65534 --clear-groups sleep 600 &
  local other=$!
  echo $other >/run/other
  mkdir -p /mnt/sd
  head -c 2064 /dev/urandom >/run/image
  rs232ctl firmware-update --yes /run/image >/dev/null 2>&1 &
  local update=$!
  check "HD: firmware read from /tmp and written" saw "loader: all bytes received"
  check "HD: notice to the system manager" saw "manager: 53 59 53 50"
  check "HD: /bin/micom_reset is run" test -s /var/nvt/probe
  check_confinement
  check "HD: another user's process is killed" has_ended $killed
  check "HD: another user's process is terminated" has_ended $ended
  check "HD: syslog reports it" logged "kill\[/run/killed\]"
  check "HD: /sbin/reboot reaches systemd, which stops the services" test -e /run/down
  check "HD: which stops the daemon, too" state_is ActiveState inactive
  kill $other
  wait $update $killed $ended $other || true
  drop_device
}

test_lens() {
  start_device QB-420
  now "lens: camera information" holds /var/nvt/camera.info "VERSION="
  check "lens: readable for all" file_is %a:%U /var/nvt/camera.info 644:root
  check "lens: positions are read" said "restored posZoom=700, posFocus=590"
  check "lens: P-iris thread" status_is Threads 2
  local inode
  inode=$(stat -c %i /etc/mfz.conf)
  rs232ctl ptz focus-near --for 300ms
  check "lens: positions are saved" said "saved"
  check "lens: positions are replaced with a rename" is_replaced /etc/mfz.conf "$inode"
  check "lens: readable for all" file_is %a:%U /etc/mfz.conf 644:root
  check "lens: no temporary file is left" test ! -e /etc/temp.conf
  rs232ctl ptz af-start
  check "lens: queries the camera daemon" saw "camera: focus measure"
  stop_device QB-420 30
}

is_replaced() { [ "$(stat -c %i "$1")" != "$2" ]; }

# A temporary file of settings is removed at boot, and at no other time.
test_leftover() {
  : >/etc/temp.conf
  systemd-tmpfiles --create --remove rs232d.conf
  now "temp.conf: stays while the system runs" test -e /etc/temp.conf
  systemd-tmpfiles --create --remove --boot rs232d.conf
  now "temp.conf: removed at boot" test ! -e /etc/temp.conf
}

# --- Inside -------------------------------------------------------------------------------------

test_inside() {
  trap 'fail "line $LINENO failed"' ERR
  busybox syslogd -n -O /run/syslog &
  ln -sf /bin/systemctl /sbin/reboot
  make_probe
  mkdir -p /var/nvt
  mkdir -p /etc/systemd/system/rs232d.service.d
  # Write messages to a file, because no journal runs here, and shorten the pause before a restart.
  printf '[Service]\nStandardOutput=append:/run/rs232d.log\nStandardError=inherit\n
    RestartSec=100ms\n' >/etc/systemd/system/rs232d.service.d/test.conf
  dpkg -i /test/*.deb >/run/dpkg.log 2>&1 || { cat /run/dpkg.log; fail "dpkg -i"; }
  check_probe
  check "installed: enabled" systemctl is-enabled --quiet rs232d
  check "installed: not started without a device" state_is ConditionResult no
  test_leftover
  test_relay
  test_restarts
  test_sd
  test_lens
  test_hd
  systemd-analyze verify --man=no rs232d.service || fail "systemd-analyze rejects the unit"
  systemd-analyze security --no-pager --offline=true rs232d.service | grep Overall
  echo "test_unit: passed in $SECONDS s"
}

case "${1:-}" in
  --root) boot_in_root "$2" ;;
  --inside) test_inside ;;
  *) run_in_world "$@" ;;
esac
