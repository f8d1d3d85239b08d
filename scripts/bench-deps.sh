#!/bin/sh
# Installs what the benchmarks need on Debian 12, through sudo when not root.
# Quick when everything is already there.
#   bench-deps.sh host   Google Benchmark, the two DNS parsers compared
#                        against (ldns, c-ares), and valgrind, whose callgrind
#                        counts the parsers' instructions (its client
#                        requests, valgrind/callgrind.h, come with it)
#   bench-deps.sh vm     iperf3, which the throughput run starts inside the VM
#                        from the host's own root filesystem
#   bench-deps.sh        both
set -eu
here=$(dirname "$0")
host_pkgs="libbenchmark-dev libldns-dev libc-ares-dev pkg-config python3 valgrind"

# shellcheck disable=SC2086 # host_pkgs is a list of package names
case "${1:-all}" in
host) exec "$here/ensure-pkgs.sh" $host_pkgs ;;
vm) exec "$here/ensure-pkgs.sh" iperf3 ;;
all) exec "$here/ensure-pkgs.sh" $host_pkgs iperf3 ;;
*)
	echo "usage: $0 [host|vm|all]" >&2
	exit 2
	;;
esac
