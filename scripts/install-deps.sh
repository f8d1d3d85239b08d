#!/bin/sh
# Installs what the build and the tests need on Debian 12, through sudo
# when not root. Quick when everything is already there.
#   install-deps.sh host     compilers, CMake, GoogleTest, Google Benchmark
#   install-deps.sh module   kernel headers for the Debian 6.1 kernel (KVER)
set -eu

SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"

missing=""
need() {
	for p in "$@"; do
		dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "ok installed" ||
			missing="$missing $p"
	done
}

case "${1:-host}" in
host)
	need build-essential g++ cmake libgtest-dev googletest libbenchmark-dev \
		python3 clang libclang-rt-14-dev libldns-dev libc-ares-dev
	;;
module)
	need build-essential kmod
	KVER=${KVER:-$(scripts/kver.sh)}
	need "linux-headers-$KVER"
	;;
*)
	echo "usage: $0 host|module" >&2
	exit 2
	;;
esac

if [ -n "$missing" ]; then
	echo "installing:$missing"
	export DEBIAN_FRONTEND=noninteractive
	$SUDO apt-get update -qq
	# shellcheck disable=SC2086
	$SUDO apt-get install -y -qq --no-install-recommends $missing
fi
