#!/bin/sh
# Profiles the module's hot paths with callgrind: each scenario runs one
# benchmark under valgrind, collecting only inside the module's entry point
# for that path, and keeps the functions with the largest own cost.
#
# usage: scripts/bench-profile.sh BENCH_BIN_DIR OUT_DIR
# Writes OUT_DIR/profile-<scenario>.txt (callgrind_annotate's text, exclusive
# cost) and OUT_DIR/callgrind.<scenario>.out; scripts/bench-report.py puts the
# top of each into BENCHMARKS.md.
set -eu

bin=${1:?usage: $0 BENCH_BIN_DIR OUT_DIR}
out=${2:?usage: $0 BENCH_BIN_DIR OUT_DIR}
command -v valgrind > /dev/null || { echo "bench-profile: valgrind is not installed" >&2; exit 1; }
mkdir -p "$out"

# scenario binary filter entry-point...
profile() {
	name=$1 binary=$2 filter=$3
	shift 3
	toggles=
	for fn in "$@"; do toggles="$toggles --toggle-collect=$fn"; done
	echo "== $name"
	# shellcheck disable=SC2086
	valgrind --tool=callgrind --callgrind-out-file="$out/callgrind.$name.out" \
		--collect-atstart=no $toggles \
		"$bin/$binary" --benchmark_filter="$filter" --benchmark_min_time=0.02 \
		> "$out/profile-$name.log" 2>&1 ||
		{ tail -n 20 "$out/profile-$name.log" >&2; return 1; }
	callgrind_annotate --inclusive=no --threshold=99 "$out/callgrind.$name.out" \
		> "$out/profile-$name.txt"
}

profile ignore_non_udp veyra_bench '^ignore\.non_udp\.hook$' vy_br_pre_routing_hook
profile ignore_wired veyra_bench '^ignore\.wired_to_wired\.hook$' vy_br_pre_routing_hook
profile dns_noop_sink veyra_bench_parsers '^dns\.corpus\.veyra_noop_sink$' vy_parse_dns
profile dns_station_table veyra_bench '^dns\.corpus\.veyra_station_table$' vy_parse_dns
profile dhcp_exchange veyra_bench '^dhcp\.dora\.veyra_hook_path$' \
	vy_br_pre_routing_hook vy_br_post_routing_hook
profile periodic_update_1024 veyra_bench '^scale\.periodic_update/1024$' vy_sta_periodic_update
profile dump_pass_256 veyra_bench '^scale\.dump_pass/256$' vy_dump_dev_read
