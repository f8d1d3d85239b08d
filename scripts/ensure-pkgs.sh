#!/bin/sh
# Installs the Debian packages named on the command line that are not
# installed yet (through sudo when not root); quick when all are there.
# usage: scripts/ensure-pkgs.sh PACKAGE...
set -eu
missing=""
for p in "$@"; do
	dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "ok installed" ||
		missing="$missing $p"
done
[ -n "$missing" ] || exit 0

SUDO=""
if [ "$(id -u)" -ne 0 ]; then
	command -v sudo >/dev/null 2>&1 ||
		{ echo "ensure-pkgs: need root or sudo to install:$missing" >&2; exit 1; }
	SUDO="sudo"
fi
echo "installing:$missing" >&2
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq >&2
# shellcheck disable=SC2086
$SUDO apt-get install -y -qq --no-install-recommends $missing >&2
