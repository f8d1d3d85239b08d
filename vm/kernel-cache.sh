#!/bin/sh
# Downloads the Debian kernel image package for KVER with `apt-get download` and
# unpacks it into the cache folder (never into /boot), with its module index.
# Prints the unpacked tree: <tree>/boot/vmlinuz-KVER and <tree>/lib/modules/KVER.
# usage: vm/kernel-cache.sh      (KVER and VY_KERNEL_CACHE as in env.sh)
set -eu
. "$(dirname "$0")/env.sh"
vm_kver

tree=$VY_KERNEL_CACHE/$KVER
if [ -f "$tree/.ready" ]; then
	echo "$tree"
	exit 0
fi

mkdir -p "$VY_KERNEL_CACHE"
work=$(mktemp -d "$VY_KERNEL_CACHE/.fetch.XXXXXX")
trap 'rm -rf "$work"' EXIT INT TERM
echo "kernel-cache: fetching linux-image-$KVER into $VY_KERNEL_CACHE" >&2
# apt warns when root downloads outside _apt's reach; the download is fine.
(cd "$work" && apt-get download -q "linux-image-$KVER" 2>&1 | grep -v 'unsandboxed' >&2) || true
deb=$(ls "$work"/linux-image-"$KVER"_*.deb 2>/dev/null | head -n 1)
[ -n "$deb" ] || { echo "kernel-cache: apt-get download linux-image-$KVER failed (apt-get update?)" >&2; exit 1; }
dpkg-deb -x "$deb" "$work/tree"
rm -f "$deb"
rm -rf "$work/tree/usr"
[ -f "$work/tree/boot/vmlinuz-$KVER" ] && [ -d "$work/tree/lib/modules/$KVER/kernel" ] ||
	{ echo "kernel-cache: unexpected package layout" >&2; exit 1; }
# The package ships no modules.dep: the post-install step would make it.
depmod -b "$work/tree" "$KVER"
rm -rf "$tree"
mv "$work/tree" "$tree"
touch "$tree/.ready"
echo "$tree"
