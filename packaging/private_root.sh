# Functions for the package tests, to be sourced: a private root directory. It is an overlay over
# this system whose changes stay in memory, with a new /proc, /dev, /run and /tmp.

# Waits at most 20 seconds until a command succeeds. Returns 1 on timeout.
await() {
  tries=200
  until "$@"; do
    tries=$((tries - 1))
    [ "$tries" -gt 0 ] || return 1
    sleep 0.1
  done
}

# Makes the root with FILE... in its /test, and changes to it. The caller must be in mount, PID,
# network, IPC and UTS namespaces of its own.
make_root() {
  mount --make-rprivate /
  mount -t tmpfs -o mode=755 tmpfs /mnt
  mkdir /mnt/upper /mnt/work /mnt/root
  mount -t overlay -o lowerdir=/,upperdir=/mnt/upper,workdir=/mnt/work overlay /mnt/root
  mkdir /mnt/root/test
  cp "$@" /mnt/root/test
  cd /mnt/root || return
  mount -t proc proc proc
  for directory in dev run tmp; do mount -t tmpfs -o mode=755 tmpfs $directory; done
  for device in null zero full random urandom tty; do
    : >dev/$device
    mount --bind /dev/$device dev/$device
  done
  mkdir dev/pts
  mount -t devpts -o newinstance,ptmxmode=0666 devpts dev/pts
  ln -s pts/ptmx dev/ptmx
  ln -s /proc/self/fd dev/fd
  busybox ip link set lo up
}

# Makes the directory that make_root changed to the root.
enter_root() {
  pivot_root . mnt
  umount -l /mnt
}
