#!/bin/sh
# Builds the guest's initramfs: busybox, the modules that reach the host's root
# filesystem (virtio PCI, 9p, overlayfs, in load order from the cached kernel's
# modules.dep) and vm/init as PID 1.
# usage: vm/mkinitramfs.sh KERNEL_TREE OUTPUT.cpio.gz
set -eu
. "$(dirname "$0")/env.sh"
vm_kver
tree=$1 out=$2
moddir=$tree/lib/modules/$KVER

w=$(mktemp -d)
trap 'rm -rf "$w"' EXIT INT TERM
mkdir -p "$w/bin" "$w/lib/modules" "$w/dev" "$w/proc" "$w/sys" "$w/newroot" "$w/ro" "$w/rw"

# busybox with the shared libraries it was linked against
bb=$(command -v busybox)
cp "$bb" "$w/bin/busybox"
ldd "$bb" 2>/dev/null | awk '/=> \// { print $3 } /^\t\/[^ ]+ \(/ { print $1 }' | while read -r lib; do
	mkdir -p "$w$(dirname "$lib")"
	cp -L "$lib" "$w$lib"
done
for a in sh mount umount insmod mkdir switch_root echo cat sleep poweroff sed; do
	ln -s busybox "$w/bin/$a"
done

# Modules in dependency order; the list file keeps that order for init.
: > "$w/lib/modules/order"
for m in virtio_pci 9pnet_virtio 9p overlay; do
	modprobe -d "$tree" -S "$KVER" --show-depends "$m" | awk '$1 == "insmod" { print $2 }'
done | awk '!seen[$0]++' | while read -r ko; do
	b=$(basename "$ko")
	cp "$ko" "$w/lib/modules/$b"
	echo "$b" >> "$w/lib/modules/order"
done
[ -s "$w/lib/modules/order" ] || { echo "mkinitramfs: no modules found in $moddir" >&2; exit 1; }

cp "$VM_DIR/init" "$w/init"
chmod +x "$w/init"
mkdir -p "$(dirname "$out")"
(cd "$w" && find . | cpio -o -H newc --quiet | gzip -1) > "$out.tmp"
mv "$out.tmp" "$out"
