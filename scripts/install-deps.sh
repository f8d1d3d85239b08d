#!/bin/sh
# Installs what the build and the tests need on Debian 12, through sudo
# when not root. Quick when everything is already there.
#   install-deps.sh host     compilers, CMake, GoogleTest, Google Benchmark
#   install-deps.sh module   kernel headers for the Debian 6.1 kernel (KVER)
set -eu
here=$(dirname "$0")

case "${1:-host}" in
host)
	exec "$here/ensure-pkgs.sh" build-essential g++ cmake libgtest-dev googletest \
		libbenchmark-dev python3 clang libclang-rt-14-dev libldns-dev libc-ares-dev
	;;
module)
	KVER=${KVER:-$("$here/kver.sh")}
	exec "$here/ensure-pkgs.sh" build-essential kmod "linux-headers-$KVER"
	;;
*)
	echo "usage: $0 host|module" >&2
	exit 2
	;;
esac
