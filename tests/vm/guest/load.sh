# A busy access point: 32 stations associate with two VAPs within seconds of
# each other, each with the DHCP client and resolver of its line below, while
# dnsmasq answers, says NXDOMAIN, passes on an upstream's SERVFAIL or never
# answers (slow.lan). Some stations leave and rejoin, one is reported on the
# other VAP without leaving. Every station's notifications, dump block and
# summary line are checked against the leases and the answers; a sampler
# checks the counts and hooks throughout. Figures go to $OUT/figures.md.
# Too long for every run: `make vm-load`.
. "$G/stations.sh"
. "$VY_SRC/bench/vm/load-figures.sh"
trap many_logs EXIT
trap 'exit 1' TERM
S=$NET.1
# station VAP(a|b) DHCP-client resolver then(-|rejoin|move) DNS-outcome names
cat > "$RUN/table" <<'TABLE'
1  a udhcpc   dig    -      OK   printer.lan,nas.lan
2  b dhclient getent -      OK   www.lan
3  a dhclient dig    -      OK   nosuch3.lan
4  b udhcpc   getent -      OK   files.lan,www.lan
5  a udhcpc   dig    move   OK   www.lan,files.lan
6  b dhclient dig    -      OK   a6.sf.lan
7  a dhclient dig    -      FAIL a7.slow.lan
8  b udhcpc   getent -      OK   nas.lan
9  a udhcpc   getent rejoin OK   www.lan
10 b dhclient dig    -      OK   printer.lan
11 a dhclient getent -      OK   nas.lan,printer.lan
12 b udhcpc   dig    -      OK   nosuch12.lan,nas.lan
13 a udhcpc   getent -      OK   a13.sf.lan
14 b dhclient dig    rejoin OK   files.lan
15 a dhclient dig    -      OK   www.lan,printer.lan
16 b udhcpc   getent -      FAIL a16.slow.lan
17 a udhcpc   dig    -      OK   nas.lan
18 b dhclient getent -      OK   www.lan,files.lan
19 a dhclient dig    rejoin OK   printer.lan
20 b udhcpc   dig    -      OK   www.lan
21 a udhcpc   getent -      OK   nosuch21.lan
22 b dhclient dig    -      OK   nas.lan,www.lan
23 a dhclient dig    -      FAIL a23.slow.lan,b23.slow.lan
24 b udhcpc   dig    -      OK   a24.sf.lan
25 a udhcpc   getent -      OK   files.lan
26 b dhclient dig    -      OK   nosuch26.lan,printer.lan
27 a dhclient getent -      OK   www.lan
28 b udhcpc   getent rejoin OK   nas.lan
29 a udhcpc   dig    -      OK   printer.lan,files.lan
30 b dhclient getent -      FAIL a30.slow.lan
31 a dhclient dig    -      OK   a31.sf.lan
32 b udhcpc   dig    -      OK   www.lan
TABLE
N=$(wc -l < "$RUN/table")
# What the dump shows for a name: its address, its RCODE, or the timeout
# (a second unanswered name is reset instead when its station's failure
# released the last listener and listening stopped before it timed out).
dump_wants() {
	case $1 in
	*.slow.lan) printf '%s\n' '(latency: 15 sec timeout)' 'No IP answer before listening stop.' ;; *.sf.lan) echo ' rcode 2 ' ;; nosuch*) echo ' rcode 3 ' ;;
	printer.lan) echo " $NET.50 " ;; www.lan) echo " $NET.52 " ;; *) echo " $NET.51 " ;;
	esac
}
vyc() { flock "$RUN/dev.lock" sh -c "printf '%s' '$1' > /dev/vy_summary"; }
vyread() { flock "$RUN/dev.lock" cat "/dev/vy_$1"; }
header() { vyread dump | awk -v k="$1:" '$0 ~ "^" k { print $NF; exit }'; }
header_is() { [ "$(header "$1")" = "$2" ]; }
nnotes() { notes | wc -l; }
ktime() { tail -n +"$((KLOG_MARK + 1))" "$KMSG" | grep -E "$1" | sed 's/^<[0-9]*>\[ *\([0-9.]*\)\].*/\1/'; }
# One sample: the hooks, the dump twice around the summary, the hooks again;
# when nothing moved meanwhile the counts and the hooks must agree.
sample() {
	_h=$(hooks_registered)
	flock "$RUN/dev.lock" sh -c "cat /dev/vy_dump > $RUN/d1 && cat /dev/vy_summary > $RUN/s && cat /dev/vy_dump > $RUN/d2" 2>/dev/null || return 0
	cmp -s "$RUN/d1" "$RUN/d2" && [ "$(hooks_registered)" = "$_h" ] || return 0
	awk -v t="$(uptime_s)" -v h="$_h" -v s="$(($(wc -l < "$RUN/s") - 1))" '
		/^Current Listeners:/ { cur = $3 } /^STA Number:/ { n = $3 } /^STA: / { b++ } /^Listeners:/ { sum += $2 }
		END { print t, n, b + 0, s, cur, sum + 0, h }' "$RUN/d1" >> "$LOADLOG/samples"
}
nothing_left() { wait_for 10 hooks_are 0 && [ ! -d /sys/veyra ] && grep -q '^monitors 0$' "$UMAC_COUNTERS"; }
samples_consistent() {
	awk '$2 != $3 || $2 != $4 || $5 != $6 || $7 < 0 || $7 > 1 || ($5 > 0 && pc > 0 && $7 != 1) { print; bad = 1 }
		{ pc = $5 } END { exit bad }' "$LOADLOG/samples"
}
mac() { awk -v n="$1" '$1 == n { print $2 }' "$RUN/macs"; }
# A station's arrival once the AP lists it: lease, lookups (after the move, if any).
arrive() { # arrive N VAP CLIENT RESOLVER THEN NAMES ROUND
	st_dhcp "$1" "$3" "h$1" "$7" || echo "st$1: no lease"
	[ "$5" = move ] && umac_event join "$(mac "$1")" "$VAP_B"
	echo "$1 $7 $(uptime_s)" >> "$RUN/queried"
	st_lookup "$1" "$4" "$6" "$7"
}
# onboard ROUND FILE: the stations of FILE (table lines) start within a few
# seconds; meanwhile one watcher starts each one's arrival as soon as the AP
# lists it (not once all have started: that took up to 40 s, past the first
# ones' listening windows).
onboard() {
	awk 'NR == FNR { m[$1] = $2; next } { print m[$1], $0 }' "$RUN/macs" "$2" > "$RUN/waiting"
	(while read -r n v rest; do st_start "$n" "$v"; sleep 0.2; done < "$2") & _p=$! _t=300
	while [ -s "$RUN/waiting" ] && [ "$_t" -gt 0 ]; do
		ap_stations | tr A-F a-f > "$RUN/at-ap"
		grep -F -f "$RUN/at-ap" "$RUN/waiting" > "$RUN/go"
		grep -vF -f "$RUN/at-ap" "$RUN/waiting" > "$RUN/waiting.next"
		mv "$RUN/waiting.next" "$RUN/waiting"
		while read -r m n v c r t d names; do
			arrive "$n" "$v" "$c" "$r" "$t" "$names" "$1" > "$LOADLOG/arrive-st$n.$1" 2>&1 & _p="$_p $!"
		done < "$RUN/go"
		sleep 1; _t=$((_t - 1))
	done
	wait $_p
	[ ! -s "$RUN/waiting" ] || { echo "never associated:"; cat "$RUN/waiting"; return 1; }
}
check_station() { # the table's line
	_m=$(mac "$1") _h=h$1 _v=$VAP_A _r=1 _s=1
	[ "$2" = b ] && _v=$VAP_B
	[ "$5" = rejoin ] && _r=2
	[ "$6" = FAIL ] && _s=2
	_dv=$_v; [ "$5" = move ] && _dv=$VAP_B
	_ip=$(awk -v m="$_m" '$2 == m { print $3 }' "$RUN/dnsmasq-wired.leases")
	[ -n "$_ip" ] && [ "$_ip" = "$(st_ip "$1")" ] || { echo "lease '$_ip', address '$(st_ip "$1")'"; return 1; }
	grep " sta=$_m " "$RUN/notes" > "$RUN/mine"
	[ "$(wc -l < "$RUN/mine")" = $((2 * _r)) ] &&
		[ "$(grep -Ec "^notify_sta_dhcp vap=$_v sta=$_m status=1 reason=0 hostname=\"h$1\" hostname_len=${#_h} ip=$_ip type=5 server=$S gateway=$S latency=[0-9]+$" "$RUN/mine")" = $_r ] &&
		[ "$(grep -Ec "^notify_sta_dns vap=$_dv sta=$_m status=$_s dns_server=$S latency=[0-9]+$" "$RUN/mine")" = $_r ] ||
		{ echo "notifications:"; cat "$RUN/mine"; return 1; }
	grep -Eq "^$_m +$_ip +$6$" "$RUN/summary" || { echo "summary:"; grep "^$_m" "$RUN/summary"; return 1; }
	awk -v m="$_m" '/^STA: / { on = ($2 == m) } on' "$RUN/dump" > "$RUN/block"
	for l in "Hostname: h$1" "STA IP: $_ip" "DHCP Status: OK" "DHCP Server: $S" "Gateway: $S" "DNS Status: $6" "DNS: $S" "Listeners: 0"; do
		grep -qx "$l" "$RUN/block" || { echo "dump lacks '$l':"; cat "$RUN/block"; return 1; }
	done
	for n in $(echo "$7" | tr , ' '); do
		dump_wants "$n" > "$RUN/wants"
		awk -v n="$n" '$1 == n' "$RUN/block" | grep -qF -f "$RUN/wants" || { echo "dump line of $n:"; cat "$RUN/block"; return 1; }
	done
	[ "$_s" = 1 ] || for t in $(ktime "Send TALMA_MSG_DNS event \(sta $_m, $_dv, status 2"); do
		awk -v t="$t" -v q="$(awk -v n="$1" '$1 == n { print $3; exit }' "$RUN/queried")" 'BEGIN { exit !(t - q >= 15) }' ||
			{ echo "DNS FAIL at $t, query at $(grep "^$1 " "$RUN/queried")"; return 1; }
	done
	[ "$5" != move ] || klog_has "STA $_m is already added. \(old VAP = $VAP_A, new VAP = $VAP_B\)"
}

check load_topology many_setup "$N"
# dnsmasq again, with sf.lan forwarded to an upstream (on the lan host) that
# answers every query with SERVFAIL, and room for every station.
kill "$(cat "$RUN/dnsmasq-wired.pid")"; wait_for 10 sh -c "! pidof dnsmasq"
ip netns exec lan perl -MIO::Socket::INET -e '$s = IO::Socket::INET->new(LocalAddr => "'"$NET.2"':53", Proto => "udp") or die;
	while ($s->recv($m, 512)) { substr($m, 2, 2) = pack("n", (unpack("n", substr($m, 2, 2)) & 0x7900) | 0x8082); $s->send($m) }' &
check dns_server ip netns exec wired dnsmasq -u root --no-resolv --no-hosts --bind-interfaces --interface=veth-w \
	--no-ping --dhcp-authoritative --dhcp-range="$NET.100,$NET.199,255.255.255.0,1h" \
	--dhcp-option=option:router,"$S" --dhcp-option=option:dns-server,"$S" --dhcp-leasefile="$RUN/dnsmasq-wired.leases" \
	--local=/lan/ --address=/printer.lan/"$NET.50" --host-record=nas.lan,"$NET.51" --host-record=www.lan,"$NET.52" \
	--cname=files.lan,nas.lan --server=/slow.lan/10.99.0.1 --server=/sf.lan/"$NET.2" --dns-forward-max=500 \
	--log-queries --log-dhcp --log-facility="$LOADLOG/dnsmasq.log" --pid-file="$RUN/dnsmasq-wired.pid"
check hooktrace_ready hooktrace_start
check programs_read many_warm
check load_modules load_veyra
check device_nodes vy_nodes
vyc "debug_level 2"
notes_clear
klog_mark
check bridge_started "$BRIDGE" -p "$HOSTAPD_CTRL" -B -P "$RUN/bridge.pid" -l "$LOADLOG/bridge.log" "$VAP_A" "$VAP_B"
(while [ ! -e "$RUN/sampler.stop" ]; do sample; sleep 2; done) &

phase load_arrivals
i=1; while [ "$i" -le "$N" ]; do echo "$i $(st_mac "$i")"; i=$((i + 1)); done > "$RUN/macs"
check all_associate onboard 1 "$RUN/table"
check arrivals_notified wait_for 120 sh -c "[ \$(cat $UMAC_NOTES | wc -l) -ge $((2 * N)) ]"
t_last=$(ktime 'Send TALMA_MSG_' | tail -n 1)
check listening_windows_end wait_for 120 header_is "Current Listeners" 0

phase load_rejoins
M5=$(mac 5)
umac_event leave "$M5" "$VAP_A"
survives() { klog_has "Do not delete STA $M5 due to different vaps" && vyread summary | grep -q "^$M5 "; }
check move_survives_stale_leave survives
grep ' rejoin ' "$RUN/table" > "$RUN/rejoiners"
rejoins=$(wc -l < "$RUN/rejoiners")
while read -r n rest; do st_leave "$n"; done < "$RUN/rejoiners"
gone() { ap_stations > "$RUN/at-ap"; vyread summary > "$RUN/s2"; while read -r n rest; do ! grep -qi "$(mac "$n")" "$RUN/at-ap" "$RUN/s2" || return 1; done < "$RUN/rejoiners"; }
check rejoiners_left wait_for 60 gone
check rejoiners_associate onboard 2 "$RUN/rejoiners"
check rejoins_notified wait_for 120 sh -c "[ \$(cat $UMAC_NOTES | wc -l) -ge $((2 * (N + rejoins))) ]"
check listening_windows_end_again wait_for 120 header_is "Current Listeners" 0
notes > "$RUN/notes"; vyread summary > "$RUN/summary"; vyread dump > "$RUN/dump"
cp "$RUN/notes" "$OUT/notifications-load.txt"; cp "$RUN/dump" "$OUT/load.dump"
check notifications_exact test "$(wc -l < "$RUN/notes")" = $((2 * (N + rejoins)))
while read -r line; do check "station_$(echo "$line" | cut -d' ' -f1)" check_station $line; done < "$RUN/table"

phase load_softirq
vyc "force_listen 1"
check hooked_for_burst wait_for 20 hooks_are 1
hooked=$(burst)
vyc "force_listen 0"
check burst_notifies_nothing test "$(nnotes)" = $((2 * (N + rejoins)))
check unload_with_stations rmmod veyra
check unload_leaves_nothing nothing_left
unloaded=$(burst)

phase load_leaves
check reload load_veyra
check reload_nodes vy_nodes
vyc "debug_level 2"
kill -HUP "$(cat "$RUN/bridge.pid")"
check reannounced wait_for 60 header_is "STA Number" "$N"
check reannounced_listeners header_is "Current Listeners" $((2 * N))
while read -r n rest; do st_leave "$n"; done < "$RUN/table"
check all_left wait_for 60 header_is "STA Number" 0
check no_listener_left header_is "Current Listeners" 0
# The last release raised the semaphore; a join that came while the work
# listened has queued a second run, which hooks again and sleeps with no
# listener until the next raise (here: force_listen 0).
if wait_for 20 hooks_are 0; then second_run=no; else second_run=yes; vyc "force_listen 0"; fi
check hooks_off_after_leaves wait_for 20 hooks_are 0
touch "$RUN/sampler.stop"; sleep 2
check samples_consistent samples_consistent
check final_unload rmmod veyra
check final_unload_leaves_nothing nothing_left
check load_kernel_log_clean klog_clean

load_figures
