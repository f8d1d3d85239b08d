#!/bin/sh
# Prepares, once, a kernel build tree for cross-building modules for
# Debian's arm64 kernel ARM64_KVER, and prints it. Nothing is installed for
# arm64: the tree is Debian's linux-source-6.1 configured with the arm64
# image's own configuration (olddefconfig, modules_prepare) and given the
# arm64 headers package's Module.symvers, so that modpost checks every
# imported symbol and records the CRCs that kernel expects.
#
# usage: scripts/arm64-tree.sh
# Environment:
#   ARM64_KVER     the arm64 kernel ABI (default: the amd64 one of
#                  scripts/kver.sh with -arm64: Debian builds both from
#                  one source upload)
#   CROSS_COMPILE  default aarch64-linux-gnu-
#   VY_CACHE       default .cache in the source tree
#
# Layout under $VY_CACHE/arm64/$ARM64_KVER:
#   pkg/boot/      the image package's config, System.map and vmlinuz
#   pkg/headers/   the headers package's Module.symvers and .config
#   build/         the prepared tree (KDIR), an O= tree of the sources
#   build/.ready   written last; its presence means the tree is complete
#
# Installs (through sudo when not root) the cross compilers and the kernel
# build tools when missing, and adds the arm64 architecture to dpkg so that
# `apt-get download` can fetch the two arm64 packages.
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
cache=${VY_CACHE:-$root/.cache}
export CROSS_COMPILE=${CROSS_COMPILE:-aarch64-linux-gnu-}
kver=${ARM64_KVER:-$("$root/scripts/kver.sh" | sed 's/-amd64$/-arm64/')}
case "$kver" in
*-arm64) ;;
*) echo "arm64-tree: '$kver' is not an arm64 kernel ABI (set ARM64_KVER)" >&2; exit 1 ;;
esac
base=$cache/arm64/$kver
tree=$base/build
if [ -f "$tree/.ready" ]; then
	echo "$tree"
	exit 0
fi
say() { echo "arm64-tree: $*" >&2; }

SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"

# ---- tools ---------------------------------------------------------------
"$root/scripts/ensure-pkgs.sh" gcc-aarch64-linux-gnu g++-aarch64-linux-gnu \
	make bc bison flex libssl-dev libelf-dev xz-utils

# ---- Debian's arm64 image and headers packages ----------------------------
if ! dpkg --print-foreign-architectures | grep -qx arm64; then
	say "adding the arm64 architecture to dpkg"
	$SUDO dpkg --add-architecture arm64
fi
if ! apt-cache show "linux-image-$kver:arm64" >/dev/null 2>&1; then
	$SUDO apt-get update -qq >&2
fi

mkdir -p "$base"
work=$(mktemp -d "$base/.prepare.XXXXXX")
trap 'rm -rf "$work"' EXIT INT TERM
say "fetching linux-image-$kver and linux-headers-$kver (arm64)"
# apt warns when root downloads outside _apt's reach; the download is fine.
(cd "$work" && apt-get download -q "linux-image-$kver:arm64" \
	"linux-headers-$kver:arm64" 2>&1 | grep -v unsandboxed >&2) || true
img=$(ls "$work"/linux-image-"$kver"_*_arm64.deb 2>/dev/null | head -n 1)
hdr=$(ls "$work"/linux-headers-"$kver"_*_arm64.deb 2>/dev/null | head -n 1)
if [ -z "$img" ] || [ -z "$hdr" ]; then
	say "apt-get download of the $kver packages failed (is $kver still in the archive? apt-get update?)"
	exit 1
fi
version=$(dpkg-deb -f "$img" Version)

# Only the image's boot/ is needed (its modules are not).
mkdir -p "$work/pkg/boot" "$work/pkg/headers" "$work/x"
dpkg-deb --fsys-tarfile "$img" | tar -x -C "$work/x" ./boot
mv "$work/x/boot/"* "$work/pkg/boot/"
dpkg -x "$hdr" "$work/x"
cp "$work/x/usr/src/linux-headers-$kver/Module.symvers" \
	"$work/x/usr/src/linux-headers-$kver/.config" "$work/pkg/headers/"
rm -rf "$work/x" "$img" "$hdr"
[ -f "$work/pkg/boot/config-$kver" ] && [ -s "$work/pkg/headers/Module.symvers" ] ||
	{ say "unexpected package layout"; exit 1; }

# ---- the sources of the same upload ----------------------------------------
src=$("$root/scripts/linux-source.sh" "$version")

# ---- configure and prepare ---------------------------------------------------
say "preparing $kver in $tree (a few minutes)"
rm -rf "$base/pkg" "$tree"
mv "$work/pkg" "$base/pkg"
config=$base/pkg/boot/config-$kver
mkdir -p "$tree"
cp "$config" "$tree/.config"
kmake() {
	make -s -C "$src" O="$tree" ARCH=arm64 CROSS_COMPILE="$CROSS_COMPILE" "$@"
}
kmake olddefconfig >&2
# What olddefconfig changed from Debian's configuration: only options that
# depend on the build host's tools (the compiler's name, the compat vDSO's
# 32-bit compiler, pahole for BTF), none that changes what a module sees.
diff "$config" "$tree/.config" >"$base/config.diff" || true
# KERNELRELEASE names the ABI in vermagic (utsrelease.h); the release file
# is what Debian's headers packages carry too.
kmake -j"$(nproc)" modules_prepare KERNELRELEASE="$kver" >&2
echo "$kver" >"$tree/include/config/kernel.release"
grep -q "\"$kver\"" "$tree/include/generated/utsrelease.h" ||
	{ say "utsrelease.h does not name $kver"; exit 1; }
cp "$base/pkg/headers/Module.symvers" "$tree/Module.symvers"
echo "$version" >"$tree/.ready"
say "ready: $tree (Debian $version)"
echo "$tree"
