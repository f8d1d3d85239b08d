#!/bin/sh
# Builds a debug kernel for the VM harness from Debian's linux-source-6.1:
# Debian's own configuration cut down to the modules the guest loads
# (make localmodconfig), without debug info or module signing, plus the
# kernel's runtime checkers: KASAN, lockdep (PROVE_LOCKING), DEBUG_ATOMIC_SLEEP,
# kmemleak and the timer/work debug objects.
#
# The result is a kernel tree laid out like the harness's kernel cache
# (boot/vmlinuz-REL, lib/modules/REL), so vm/run.sh boots it with
# KVER=REL, and the build folder is the KDIR veyra and umac are built against.
#
# usage: scripts/debug-kernel.sh          builds (or reuses) the kernel; prints REL
# Environment:
#   VY_DEBUG_KERNEL_DIR   work folder (default .cache/debug-kernel in the source tree)
#   JOBS                  parallel compile jobs (default: the number of CPUs)
# About 40 minutes on two cores; needs about 6 GB of disk.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/.." && pwd)
work=${VY_DEBUG_KERNEL_DIR:-$root/.cache/debug-kernel}
jobs=${JOBS:-$(nproc)}
localversion=-vydebug

# Debian's configuration comes with the distribution kernel the harness uses.
base_kver=$("$root/scripts/kver.sh")
base_tree=$(KVER=$base_kver "$root/vm/kernel-cache.sh")
base_config=$base_tree/boot/config-$base_kver
[ -f "$base_config" ] || { echo "debug-kernel: no $base_config" >&2; exit 1; }

tarball=/usr/src/linux-source-6.1.tar.xz
if [ ! -f "$tarball" ]; then
	[ "$(id -u)" -eq 0 ] || { echo "debug-kernel: install linux-source-6.1 (as root)" >&2; exit 1; }
	apt-get install -y -q linux-source-6.1 bc bison flex libelf-dev libssl-dev cpio rsync >&2
fi
for tool in bc bison flex; do
	command -v "$tool" >/dev/null || apt-get install -y -q bc bison flex libelf-dev libssl-dev >&2
done

src=$work/linux-source-6.1
if [ ! -f "$src/Makefile" ]; then
	echo "debug-kernel: unpacking $tarball" >&2
	mkdir -p "$work"
	rm -rf "$src.tmp"
	mkdir "$src.tmp"
	tar -xJf "$tarball" -C "$src.tmp"
	mv "$src.tmp/linux-source-6.1" "$src"
	rmdir "$src.tmp"
fi

# The modules the guest loads, with what they need, in lsmod's format: the
# initramfs's (virtio, 9p, overlay), the scenarios' (hwsim and the Wi-Fi
# stack, bridge, VLANs, veth, dummy) and the ciphers WPA2 asks for.
guest_modules="virtio_pci 9pnet_virtio 9p overlay virtio_rng mac80211_hwsim
	bridge veth 8021q dummy ccm gcm ctr cmac aesni_intel libarc4 michael_mic
	ghash_generic sha512_generic crc32_generic"
lsmod_file=$work/guest-modules.lsmod
echo "Module Size Used by" > "$lsmod_file"
for m in $guest_modules; do
	modprobe -d "$base_tree" -S "$base_kver" --show-depends "$m" |
		awk '$1 == "insmod" { n = $2; sub(/.*\//, "", n); sub(/\.ko.*/, "", n); gsub(/-/, "_", n); print n " 0 0" }'
done | sort -u >> "$lsmod_file"

config_stamp=$work/config.stamp
if [ ! -f "$src/.config" ] || [ ! -f "$config_stamp" ] || [ "$0" -nt "$config_stamp" ]; then
	echo "debug-kernel: configuring from $base_config" >&2
	cp "$base_config" "$src/.config"
	cfg() { "$src/scripts/config" --file "$src/.config" "$@"; }
	cfg --set-str LOCALVERSION "$localversion" --disable LOCALVERSION_AUTO
	# Debian's signing keys are not in the source package.
	cfg --set-str SYSTEM_TRUSTED_KEYS "" --set-str SYSTEM_REVOCATION_KEYS "" \
		--disable MODULE_SIG --disable MODULE_SIG_ALL --disable SECURITY_LOCKDOWN_LSM \
		--disable MODULE_SIG_FORCE
	# No DWARF or BTF: a third of the build time; the reports need only kallsyms.
	cfg --disable DEBUG_INFO --disable DEBUG_INFO_DWARF_TOOLCHAIN_DEFAULT \
		--disable DEBUG_INFO_DWARF4 --disable DEBUG_INFO_DWARF5 \
		--disable DEBUG_INFO_BTF --disable DEBUG_INFO_BTF_MODULES --enable DEBUG_INFO_NONE
	(cd "$src" && make -s LSMOD="$lsmod_file" localmodconfig < /dev/null >/dev/null 2>&1) ||
		{ echo "debug-kernel: localmodconfig failed" >&2; exit 1; }
	# The checkers. KASAN outline keeps the code small; kmemleak is on from
	# boot with a pool large enough for the boot's allocations.
	cfg --enable KASAN --enable KASAN_GENERIC --enable KASAN_OUTLINE --disable KASAN_INLINE \
		--enable KASAN_STACK --enable KASAN_VMALLOC \
		--enable PROVE_LOCKING --enable DEBUG_LOCKDEP --enable DEBUG_ATOMIC_SLEEP \
		--enable DEBUG_SPINLOCK --enable DEBUG_MUTEXES --enable DEBUG_RWSEMS \
		--enable DEBUG_KMEMLEAK --disable DEBUG_KMEMLEAK_DEFAULT_OFF \
		--set-val DEBUG_KMEMLEAK_MEM_POOL_SIZE 64000 --enable DEBUG_KMEMLEAK_AUTO_SCAN \
		--enable DEBUG_OBJECTS --enable DEBUG_OBJECTS_TIMERS --enable DEBUG_OBJECTS_WORK \
		--enable DEBUG_OBJECTS_FREE --enable DEBUG_OBJECTS_RCU_HEAD \
		--set-val DEBUG_OBJECTS_ENABLE_DEFAULT 1 \
		--enable KPROBES --enable KALLSYMS_ALL
	# Bridge-family netfilter hooks exist only with a bridge netfilter user
	# (Debian's comes with ebtables, which no guest module pulls in).
	cfg --module NETFILTER_XTABLES --module BRIDGE_NF_EBTABLES
	(cd "$src" && make -s olddefconfig < /dev/null >/dev/null)
	for opt in KASAN PROVE_LOCKING DEBUG_ATOMIC_SLEEP DEBUG_KMEMLEAK DEBUG_OBJECTS_TIMERS \
		MAC80211_HWSIM BRIDGE VLAN_8021Q VETH NET_9P_VIRTIO OVERLAY_FS NETFILTER_FAMILY_BRIDGE; do
		grep -Eq "^CONFIG_$opt=(y|m)" "$src/.config" ||
			{ echo "debug-kernel: CONFIG_$opt did not stay on" >&2; exit 1; }
	done
	touch "$config_stamp"
fi

rel=$(cd "$src" && make -s kernelrelease)
tree=$work/tree/$rel
if [ ! -f "$tree/.ready" ] || [ "$config_stamp" -nt "$tree/.ready" ]; then
	echo "debug-kernel: building $rel with $jobs jobs (log: $work/build.log)" >&2
	if ! (cd "$src" && make -j"$jobs" bzImage modules) > "$work/build.log" 2>&1; then
		tail -n 30 "$work/build.log" >&2
		echo "debug-kernel: build failed (log: $work/build.log)" >&2
		exit 1
	fi
	rm -rf "$tree"
	mkdir -p "$tree/boot"
	(cd "$src" && make -s INSTALL_MOD_PATH="$tree" INSTALL_MOD_STRIP=1 modules_install) >> "$work/build.log" 2>&1
	cp "$src/arch/x86/boot/bzImage" "$tree/boot/vmlinuz-$rel"
	cp "$src/.config" "$tree/boot/config-$rel"
	cp "$src/System.map" "$tree/boot/System.map-$rel"
	# Modules are built against the source tree itself.
	rm -f "$tree/lib/modules/$rel/build" "$tree/lib/modules/$rel/source"
	depmod -b "$tree" "$rel"
	touch "$tree/.ready"
fi
echo "$rel"
