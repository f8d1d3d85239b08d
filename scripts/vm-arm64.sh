#!/bin/sh
# Boots Debian's arm64 kernel (the image fetched by scripts/arm64-tree.sh)
# under qemu-system-aarch64 with an initramfs of busybox (arm64), the two
# modules from `make module ARCH=arm64` and veyra-mknodes, and runs
# scripts/vm-arm64-guest.sh as its init: load, a station joining and
# leaving through umac, both dumps, a command, unload.
#
# usage: scripts/vm-arm64.sh MODULE_DIR OUT_DIR
#   MODULE_DIR  holds umac.ko and veyra.ko built for ARM64_KVER
#   OUT_DIR     gets initramfs.cpio.gz and console.log
# Environment: ARM64_KVER, VY_CACHE as in scripts/arm64-tree.sh;
#   VM_TIMEOUT (seconds, default 600: TCG emulation is slow).
# Installs qemu-system-arm and cpio when missing.
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
prog=vm-arm64
[ $# -eq 2 ] || { echo "usage: $0 MODULE_DIR OUT_DIR" >&2; exit 2; }
mods=$1 out=$2
cache=${VY_CACHE:-$root/.cache}
kver=${ARM64_KVER:-$("$root/scripts/kver.sh" | sed 's/-amd64$/-arm64/')}
kernel=$cache/arm64/$kver/pkg/boot/vmlinuz-$kver
timeout_s=${VM_TIMEOUT:-600}

for f in "$mods/umac.ko" "$mods/veyra.ko" "$kernel"; do
	[ -f "$f" ] || { echo "$prog: $f missing (make module ARCH=arm64 first)" >&2; exit 1; }
done
"$root/scripts/ensure-pkgs.sh" qemu-system-arm cpio

# busybox for arm64, unpacked from Debian's package, once.
bb=$cache/arm64/busybox/bin/busybox
if [ ! -x "$bb" ]; then
	work=$(mktemp -d)
	(cd "$work" && apt-get download -q busybox-static:arm64 2>&1 | grep -v unsandboxed >&2) || true
	deb=$(ls "$work"/busybox-static_*_arm64.deb 2>/dev/null | head -n 1)
	[ -n "$deb" ] || { echo "$prog: apt-get download busybox-static:arm64 failed" >&2; rm -rf "$work"; exit 1; }
	dpkg -x "$deb" "$work/x"
	mkdir -p "$(dirname "$bb")"
	cp "$work/x/bin/busybox" "$bb"
	rm -rf "$work"
fi

mkdir -p "$out"
out=$(cd "$out" && pwd)
rd=$(mktemp -d)
trap 'rm -rf "$rd"' EXIT INT TERM
mkdir -p "$rd/bin" "$rd/sbin" "$rd/lib/modules" "$rd/proc" "$rd/sys" "$rd/dev" "$rd/tmp"
cp "$bb" "$rd/bin/busybox"
ln -s busybox "$rd/bin/sh"
cp "$root/scripts/vm-arm64-guest.sh" "$rd/init"
cp "$root/scripts/veyra-mknodes" "$rd/sbin/veyra-mknodes"
cp "$mods/umac.ko" "$mods/veyra.ko" "$rd/lib/modules/"
chmod 0755 "$rd/init" "$rd/sbin/veyra-mknodes"
(cd "$rd" && find . | cpio -o -H newc --quiet | gzip -1) >"$out/initramfs.cpio.gz"

echo "$prog: booting $kver under qemu-system-aarch64 (console in $out/console.log)"
rc=0
timeout "$timeout_s" qemu-system-aarch64 -M virt -cpu cortex-a57 -smp 2 -m 512 \
	-accel tcg -nographic -no-reboot \
	-kernel "$kernel" -initrd "$out/initramfs.cpio.gz" \
	-append "console=ttyAMA0 panic=-1 quiet" \
	</dev/null >"$out/console.log" 2>&1 || rc=$?
grep '^VM-ARM64:' "$out/console.log" | tr -d '\r' || true
if grep -q '^VM-ARM64: PASS' "$out/console.log"; then
	echo "$prog: PASS"
	exit 0
fi
[ "$rc" -eq 124 ] && echo "$prog: timed out after ${timeout_s}s" >&2
tail -n 40 "$out/console.log" >&2
echo "$prog: FAIL" >&2
exit 1
