#!/bin/sh
# Unpacks Debian's linux-source-6.1 into the cache folder and prints the
# tree. The package is installed (through sudo when not root) when missing
# or not at the wanted version; the tree is unpacked again only when the
# package's version changes. It stays clean: builds use it with O=.
# usage: scripts/linux-source.sh [VERSION]
#   VERSION   the Debian package version the tree must have (e.g. the one
#             of the kernel image whose modules are built against it);
#             default: whatever is installed, or the candidate
# Environment: VY_CACHE (default .cache in the source tree).
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
cache=${VY_CACHE:-$root/.cache}
tree=$cache/linux-source-6.1
tarball=/usr/src/linux-source-6.1.tar.xz
want=${1:-}

installed() {
	dpkg-query -W -f='${Status} ${Version}\n' linux-source-6.1 2>/dev/null |
		sed -n 's/^install ok installed //p'
}
have=$(installed)
if [ -f "$tree/.ready" ] && [ "$(cat "$tree/.ready")" = "${want:-$have}" ] &&
	[ -n "$have" ]; then
	echo "$tree"
	exit 0
fi

SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
if [ -z "$have" ] || { [ -n "$want" ] && [ "$have" != "$want" ]; }; then
	echo "linux-source: installing linux-source-6.1${want:+ $want}" >&2
	export DEBIAN_FRONTEND=noninteractive
	$SUDO apt-get update -qq >&2
	$SUDO apt-get install -y -qq --no-install-recommends \
		"linux-source-6.1${want:+=$want}" >&2
	have=$(installed)
fi
[ -f "$tarball" ] || { echo "linux-source: $tarball missing" >&2; exit 1; }
if [ -f "$tree/.ready" ] && [ "$(cat "$tree/.ready")" = "$have" ]; then
	echo "$tree"
	exit 0
fi

mkdir -p "$cache"
work=$(mktemp -d "$cache/.linux-source.XXXXXX")
trap 'rm -rf "$work"' EXIT INT TERM
echo "linux-source: unpacking $tarball into $tree" >&2
tar -xJf "$tarball" -C "$work"
rm -rf "$tree"
mv "$work/linux-source-6.1" "$tree"
echo "$have" >"$tree/.ready"
echo "$tree"
