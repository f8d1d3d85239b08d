# Bridge throughput between the two wired veth ports of br0 (iperf3 from the
# "wired" namespace to the "lan" one, TCP and UDP) in three module states:
#   unloaded   neither veyra nor umac loaded
#   unhooked   both loaded, no station followed and force_listen off, so the
#              bridge hooks are not registered
#   hooked     force_listen 1: both hooks registered, every bridged frame
#              passes veyra's classification (and is ignored: wired to wired)
# The states alternate within each round, in a rotated order, and the report
# compares each state with the unloaded figure of the same round: the
# emulated machine's speed drifts with the host's load, and a round's
# measurements lie close together in time.
#
# Results: $OUT/bench-throughput.tsv (round, state, protocol, bits per second
# received) and $OUT/bench-throughput.meta; scripts/bench-report.py turns
# them into ratios to the unloaded figure. A goal missed is reported there,
# not failed here: under software emulation the figures move with the host's
# load. A measurement that did not complete is a failure.
ROUNDS=${VY_BENCH_ROUNDS:-6}
SECS=${VY_BENCH_SECONDS:-4}
SERVER=$NET.2
TSV=$OUT/bench-throughput.tsv
PORT=5201

printf 'round\tstate\tprotocol\tbits_per_second\n' > "$TSV"
{
	echo "kernel $(uname -r)"
	echo "vcpus $(nproc)"
	echo "rounds $ROUNDS"
	echo "seconds $SECS"
	echo "date $(date -u +%Y-%m-%dT%H:%M:%SZ)"
	echo "iperf3 $(iperf3 --version 2>/dev/null | head -n 1)"
	if [ -n "${VY_ICOUNT:-}" ]; then
		echo "clock icount $VY_ICOUNT"
	else
		echo "clock host"
	fi
} > "$OUT/bench-throughput.meta"

step iperf3_present command -v iperf3
step hooktrace_ready hooktrace_start
ip netns exec lan iperf3 -s -D -p "$PORT" --pidfile "$RUN/iperf3.pid" -B "$SERVER" > /dev/null 2>&1
step iperf3_server wait_for 10 sh -c "ip netns exec lan ss -ltn | grep -q ':$PORT '"
# The bridge learns both ends before the first measurement.
ip netns exec wired busybox ping -c 2 -W 2 "$SERVER" > /dev/null 2>&1

state_unloaded() { unload_all && hooks_are 0; }
state_unhooked() {
	load_veyra || return 1
	vy_cmd "force_listen 0" || return 1
	wait_for 30 hooks_are 0
}
state_hooked() {
	load_veyra || return 1
	vy_nodes || return 1
	vy_cmd "force_listen 1" || return 1
	wait_for 30 hooks_are 1
}

# measure ROUND STATE PROTO: one iperf3 run; appends the received rate.
measure() {
	_opts="-t $SECS -J -p $PORT -c $SERVER"
	[ "$3" = udp ] && _opts="$_opts -u -b 0 -l 1400"
	# shellcheck disable=SC2086
	ip netns exec wired iperf3 $_opts > "$RUN/iperf3.json" 2> "$RUN/iperf3.err" || {
		cat "$RUN/iperf3.err"; return 1; }
	_bps=$(python3 -c 'import json,sys; print(json.load(open(sys.argv[1]))["end"]["sum_received"]["bits_per_second"])' "$RUN/iperf3.json") || return 1
	printf '%s\t%s\t%s\t%s\n' "$1" "$2" "$3" "$_bps" >> "$TSV"
	say "round $1 $2 $3: $_bps bit/s"
}

r=1
while [ "$r" -le "$ROUNDS" ]; do
	case $((r % 3)) in
	1) order="unloaded unhooked hooked" ;;
	2) order="unhooked hooked unloaded" ;;
	0) order="hooked unloaded unhooked" ;;
	esac
	for s in $order; do
		step "state_${s}_r$r" "state_$s"
		for p in tcp udp; do
			step "throughput_${s}_${p}_r$r" measure "$r" "$s" "$p"
		done
	done
	r=$((r + 1))
done

vy_cmd "force_listen 0" > /dev/null 2>&1
[ -s "$RUN/iperf3.pid" ] && kill "$(cat "$RUN/iperf3.pid")" 2> /dev/null
