#!/bin/sh
# Lays out veyra's DKMS source tree: dkms.conf and a top Makefile
# (packaging/dkms/), the logic (src/), the platform header and kernel glue,
# and umac/. Build products lying in the work tree are left out.
# usage: scripts/dkms-stage.sh DEST VERSION
set -eu
[ $# -eq 2 ] || { echo "usage: $0 DEST VERSION" >&2; exit 2; }
dest=$1 version=$2
case "$version" in
''|*[!A-Za-z0-9.+~_-]*) echo "dkms-stage: bad version '$version'" >&2; exit 2 ;;
esac
cd "$(dirname "$0")/.."

copy() { # copy DIR FILE... (missing globs are skipped)
	d=$1; shift
	mkdir -p "$dest/$d"
	for f in "$@"; do
		case "$f" in *.mod.c) continue ;; esac
		[ -f "$f" ] && cp "$f" "$dest/$d/"
	done
	return 0
}
rm -rf "$dest"
copy src src/*.cpp src/*.h
copy platform platform/vy_platform.h
copy platform/kernel platform/kernel/Kbuild platform/kernel/Makefile \
	platform/kernel/*.c platform/kernel/*.h
copy umac umac/Kbuild umac/Makefile umac/*.c umac/*.h
cp packaging/dkms/Makefile "$dest/Makefile"
sed "s/@PACKAGE_VERSION@/$version/" packaging/dkms/dkms.conf >"$dest/dkms.conf"
