#!/bin/sh
# Installs what the benchmarks need on Debian 12, through sudo when not root.
# Quick when everything is already there.
#   bench-deps.sh host   Google Benchmark and the two DNS parsers compared
#                        against (ldns, c-ares)
#   bench-deps.sh vm     iperf3, which the throughput run starts inside the VM
#                        from the host's own root filesystem
#   bench-deps.sh        both
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

case "${1:-all}" in
host) need libbenchmark-dev libldns-dev libc-ares-dev pkg-config python3 ;;
vm) need iperf3 ;;
all) need libbenchmark-dev libldns-dev libc-ares-dev pkg-config python3 iperf3 ;;
*)
	echo "usage: $0 [host|vm|all]" >&2
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
