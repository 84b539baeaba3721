#!/bin/sh
# Creates the boot files of the board: kernel, root image, and an ext4 image of /etc and /var.
#   make_root.sh DIRECTORY DEB
# Reads the unpacked packages in DIRECTORY/packages; writes vmlinuz, root.cpio and disk.ext4 to
# DIRECTORY.
set -eu

sources=$(cd "$(dirname "$0")" && pwd)
out=$1
deb=$2
root=$out/root
kernel=$(echo "$out"/packages/linux-image-*)

# In load order.
modules="virtio_mmio virtio_blk crc16 crc32c_generic mbcache jbd2 ext4
  usb-common usbcore xhci-hcd xhci-pci usbserial ftdi_sio"
libraries="ld-linux-armhf.so.3 libc.so.6 libm.so.6 libgcc_s.so.1 libstdc++.so.6 libjson-c.so.5"
disk_size=16M

rm -rf "$root"
mkdir -p "$root"
dpkg-deb -x "$deb" "$root"
for directory in bin sbin lib/modules etc/init.d var/nvt var/run proc sys dev tmp data root; do
  mkdir -p "$root/$directory"
done

cp "$(find "$out/packages/busybox-static" -path '*bin/busybox' | head -n 1)" "$root/bin/busybox"
ln -s busybox "$root/bin/sh"
for library in $libraries; do
  cp -L "$(find "$out/packages" -name "$library" | head -n 1)" "$root/lib/$library"
done
for module in $modules; do
  # Some kernels have it built in.
  found=$(find "$kernel" -name "$module.ko")
  [ -z "$found" ] || cp "$found" "$root/lib/modules/"
done
# shellcheck disable=SC2086  # a list of words
echo $modules >"$root/lib/modules/order"
cp "$sources/init" "$root/init"
cp "$sources/inittab" "$root/etc/inittab"
ln -s /usr/share/doc/rs232d/examples/S60rs232d "$root/etc/init.d/S60rs232d"

cp "$kernel"/boot/vmlinuz-* "$out/vmlinuz"
(cd "$root" && find . | cpio --quiet -o -H newc -R 0:0) >"$out/root.cpio"

rm -rf "$out/disk" "$out/disk.ext4"
mkdir "$out/disk"
cp -R "$root/etc" "$root/var" "$out/disk"
mke2fs -q -t ext4 -d "$out/disk" "$out/disk.ext4" $disk_size
rm -rf "$root" "$out/disk"
