#!/bin/sh
# Installs what the VM harness (make demo, make vm-check) needs on a Debian 12
# host: QEMU, the AP and client tools the guest runs from the host's own root
# filesystem, and the headers of the kernel the guest boots, so that the
# modules are built for it. The kernel image itself is never installed: the
# harness downloads and unpacks it into a cache folder (vm/kernel-cache.sh).
#
# usage: scripts/vm-deps.sh            install what is missing (quick when all is there)
#        scripts/vm-deps.sh --check    only report what is missing (exit 1 if anything is)
# Environment: KVER  kernel ABI the guest boots (default: the one linux-image-amd64
#                    depends on). Runs apt-get through sudo when not root.
#              KDIR  a kernel build tree of one's own that the modules are built
#                    against (make vm-debug): no headers package then.
set -eu

# isc-dhcp-client and perl: the second DHCP client family and the log stamps
# of the many-station load (make vm-load).
PKGS="qemu-system-x86 hostapd wpasupplicant dnsmasq-base busybox iw tcpdump
iproute2 dnsutils kmod cpio gzip wireless-regdb util-linux procps make gcc
isc-dhcp-client perl"

as_root() {
	if [ "$(id -u)" -eq 0 ]; then "$@"
	elif sudo -n true 2>/dev/null; then sudo -n "$@"
	elif command -v sudo >/dev/null 2>&1; then sudo "$@"
	else echo "vm-deps: need root or sudo to run: $*" >&2; exit 1
	fi
}


apt_updated=
apt_update() {
	[ -n "$apt_updated" ] && return 0
	as_root env DEBIAN_FRONTEND=noninteractive apt-get update -qq
	apt_updated=1
}

# A fresh machine has no package lists: without them the kernel ABI is unknown.
if [ -z "${KVER:-}" ] && [ -z "$(apt-cache depends linux-image-amd64 2>/dev/null)" ] &&
	[ "${1:-}" != --check ]; then
	apt_update
fi
KVER=$("$(dirname "$0")/kver.sh")
headers="linux-headers-$KVER"
[ -z "${KDIR:-}" ] || headers=

# One dpkg-query for all: unknown names print nothing, so they count as missing.
have=$(dpkg-query -W -f='${Package} ${Status}\n' $PKGS $headers 2>/dev/null |
	awk '$NF == "installed" && $(NF-1) == "ok" { print $1 }')
missing=
for p in $PKGS $headers; do
	case " $(echo $have) " in *" $p "*) ;; *) missing="$missing $p" ;; esac
done
if [ -z "$missing" ]; then
	exit 0
fi
if [ "${1:-}" = --check ]; then
	echo "vm-deps: missing:$missing" >&2
	exit 1
fi
echo "vm-deps: installing:$missing"
# An old package list may no longer know the current ABI's headers.
if ! as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $missing; then
	apt_update
	as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $missing
fi
