#!/bin/sh
# The Debian 6.1 kernel ABI the module and the VM tests use: the one the
# linux-image-amd64 meta-package currently depends on (KVER overrides).
set -eu
if [ -n "${KVER:-}" ]; then
	echo "$KVER"
	exit 0
fi
v=$(apt-cache depends linux-image-amd64 2>/dev/null |
	sed -n 's/.*Depends: linux-image-\(6\.1\.[0-9.]*-[0-9]*-amd64\).*/\1/p' | head -n 1)
if [ -z "$v" ] && [ "$(id -u)" -eq 0 ]; then
	apt-get update -qq >/dev/null 2>&1 || true
	v=$(apt-cache depends linux-image-amd64 2>/dev/null |
		sed -n 's/.*Depends: linux-image-\(6\.1\.[0-9.]*-[0-9]*-amd64\).*/\1/p' | head -n 1)
fi
echo "${v:-6.1.0-56-amd64}"
