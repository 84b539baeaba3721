# shellcheck shell=sh
# A root directory of its own for the scripts that try packages out: an overlay over this system,
# whose changes are in memory only, with a new /proc, /dev, /run and /tmp. Sourced.

# Waits until a command succeeds, 20 seconds at most. Returns 1 when it never did.
await() {
  tries=200
  until "$@"; do
    tries=$((tries - 1))
    [ "$tries" -gt 0 ] || return 1
    sleep 0.1
  done
}

# Makes the root, with the files FILE... in its /test, and goes there. It takes a process that has
# mount, pid, net, ipc and uts namespaces of its own.
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

# Makes the directory in which make_root was left the root.
enter_root() {
  pivot_root . mnt
  umount -l /mnt
}
