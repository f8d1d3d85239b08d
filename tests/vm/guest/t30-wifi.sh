# End to end on the access point: hostapd's station events reach veyra through
# the event bridge; a station whose DHCP and DNS succeed and one whose DNS
# only times out produce the notifications umac records; the dump devices show
# them; the leaves delete the entries and the hooks come off.
S=$NET.1

# dhcp_note_ok MAC HOSTNAME IP MAX_MS: exactly one DHCP notification for the
# station, with status 1 and everything the exchange carried.
dhcp_note_ok() {
	_all=$(grep -c "^notify_sta_dhcp vap=$AP_IF sta=$1 " "$UMAC_NOTES")
	_ok=$(grep -E "^notify_sta_dhcp vap=$AP_IF sta=$1 status=1 reason=0 hostname=\"$2\" hostname_len=${#2} ip=$3 type=5 server=$S gateway=$S latency=[0-9]+$" "$UMAC_NOTES")
	echo "dhcp notifications for $1: $_all; matching: $_ok"
	[ "$_all" = 1 ] && [ -n "$_ok" ] || return 1
	_lat=${_ok##*latency=}
	[ "$_lat" -le "$4" ]
}
# dns_note_once MAC STATUS: exactly one DNS notification for the station, with that status.
dns_note_once() {
	_all=$(grep -c "^notify_sta_dns vap=$AP_IF sta=$1 " "$UMAC_NOTES")
	_ok=$(grep -Ec "^notify_sta_dns vap=$AP_IF sta=$1 status=$2 dns_server=$S latency=[0-9]+$" "$UMAC_NOTES")
	echo "dns notifications for $1: $_all, with status $2: $_ok"
	[ "$_all" = 1 ] && [ "$_ok" = 1 ]
}
has_note() { grep -q "^notify_sta_$1 vap=$AP_IF sta=$2 " "$UMAC_NOTES"; }
now_ms() { awk '{ printf "%d", $1 * 1000 }' /proc/uptime; }

check hooktrace_ready hooktrace_start
check load_modules load_veyra
check device_nodes vy_nodes
check debug_level_2 vy_debug 2
notes_clear
klog_mark
check bridge_started bridge_start

# Station 1: lease, then an address, a CNAME, an NXDOMAIN and a busybox lookup.
check sta1_associates sta_connect 1
t_join=$(now_ms)
M1=$(sta_mac 1)
check bridge_forwards_join1 wait_for 20 grep -q "join $M1 $AP_IF" "$OUT/bridge.log"
check sta1_followed wait_for 10 klog_has "STA $M1 is added\. \(VAP = $AP_IF\)"
check sta1_hooks_on wait_for 30 hooks_are 1
t=$(now_ms)
check sta1_dhcp sta_dhcp 1 alice
t=$(( $(now_ms) - t + 100 ))
IP1=$(sta_ip 1)
check sta1_has_lease test -n "$IP1"
check sta1_dhcp_notification wait_for 10 dhcp_note_ok "$M1" alice "$IP1" "$t"
# A station that has asked nothing has its listening window closed 35 s
# after its join. A guest slow enough (a debug kernel under emulation) gets
# here later than that: the lookups then go unseen, and the answer seen
# later (force_listen below) finds no listener left to release, which the
# module reports as an error. The notification checks cannot hold then.
since_join=$(( $(now_ms) - t_join ))
# The first answer ends the listening for this station: make it the CNAME.
sta_run 1 dig +time=3 +tries=2 @$S files.lan printer.lan nosuch.lan
sta_run 1 busybox nslookup www.lan $S
check sta1_dns_answers grep -q 'status: NXDOMAIN' "$OUT/dns-sta1.log"
if [ "$since_join" -gt 30000 ]; then
	why="first lookup $((since_join / 1000)) s after the join, past the 35 s listening window"
	skip sta1_dns_notification "$why"
	skip sta1_dns_notified_once "$why"
	klog_expect '_vy_del_listeners:[0-9]+:sta->listeners 0  < substacted listener_num 1 '
else
	check sta1_dns_notification wait_for 10 has_note dns "$M1"
	sleep 1
	check sta1_dns_notified_once dns_note_once "$M1" 1
fi
check sta1_outcomes_unhook wait_for 30 hooks_are 0

# Station 2: lease, then only names whose server never answers.
check sta2_associates sta_connect 2
M2=$(sta_mac 2)
check bridge_forwards_join2 wait_for 20 grep -q "join $M2 $AP_IF" "$OUT/bridge.log"
t=$(now_ms)
check sta2_dhcp sta_dhcp 2 bob
t=$(( $(now_ms) - t + 100 ))
IP2=$(sta_ip 2)
check sta2_dhcp_notification wait_for 10 dhcp_note_ok "$M2" bob "$IP2" "$t"
sta_run 2 dig +time=2 +tries=1 @$S a.slow.lan
sta_run 2 dig +time=2 +tries=1 @$S b.slow.lan
check sta2_dns_timed_out grep -q 'timed out' "$OUT/dns-sta2.log"
# Unanswered after 15 s, noticed by the 5 s update: one FAIL, never OK.
check sta2_dns_fail_notification wait_for 45 has_note dns "$M2"
check sta2_dns_fail_once dns_note_once "$M2" 2

# Once every station has its outcomes the hooks are off and later lookups go
# unseen; with force_listen on, station 1's names are recorded and answered.
check outcomes_unhook_both wait_for 30 hooks_are 0
check force_listen_on vy_cmd "force_listen 1"
check forced_hooks_on wait_for 30 hooks_are 1
sta_run 1 dig +time=3 +tries=2 @$S files.lan printer.lan nosuch.lan
check dumps_readable vy_dump_to "$OUT/wifi-2sta"
summary_row() { grep -Eq "^$1 +$2 +$3$" "$OUT/wifi-2sta.summary"; }
check summary_sta1 summary_row "$M1" "$IP1" OK
check summary_sta2 summary_row "$M2" "$IP2" FAIL
check dump_names_sta1 grep -q "^STA: $M1$" "$OUT/wifi-2sta.dump"
check dump_hostname_sta1 grep -q '^Hostname: alice$' "$OUT/wifi-2sta.dump"
check dump_cname grep -Eq '^\[cname\] nas\.lan +:' "$OUT/wifi-2sta.dump"
check dump_timeout grep -Eq '^a\.slow\.lan +:.*\(latency: 15 sec timeout\)$' "$OUT/wifi-2sta.dump"
check dump_address grep -Eq '^printer\.lan +: 192\.168\.77\.50 \(latency: [0-9]+ ms\)$' "$OUT/wifi-2sta.dump"
check dump_alias_owner grep -Eq '^files\.lan +: 192\.168\.77\.51 \(latency: [0-9]+ ms\)$' "$OUT/wifi-2sta.dump"
check dump_rcode grep -Eq '^nosuch\.lan +: rcode 3 \(latency: [0-9]+ ms\)$' "$OUT/wifi-2sta.dump"
check force_listen_off vy_cmd "force_listen 0"
check forced_hooks_off wait_for 30 hooks_are 0
# Unhooked, nothing changes any more: a reader with a small buffer gets the
# same text as one with a large buffer.
check dump_small_reads sh -c "cat /dev/vy_dump > '$OUT/dump-big.txt' && dd if=/dev/vy_dump of='$OUT/dump-400.txt' bs=400 2>/dev/null && cmp '$OUT/dump-big.txt' '$OUT/dump-400.txt'"

# Leaves: the entries go, and with them the hooks.
klog_mark
check sta1_leaves sta_disconnect 1
check bridge_forwards_leave1 wait_for 20 grep -q "leave $M1 $AP_IF" "$OUT/bridge.log"
check sta1_deleted wait_for 10 klog_has "Delete STA $M1 from $AP_IF"
check dumps_after_leave vy_dump_to "$OUT/wifi-1sta"
check sta1_not_in_summary sh -c "! grep -q '^$M1' '$OUT/wifi-1sta.summary' && grep -q '^$M2' '$OUT/wifi-1sta.summary'"
check sta2_leaves sta_disconnect 2
check bridge_forwards_leave2 wait_for 20 grep -q "leave $M2 $AP_IF" "$OUT/bridge.log"
check sta2_deleted wait_for 10 klog_has "Delete STA $M2 from $AP_IF"
check hooks_off_after_leaves wait_for 30 hooks_are 0
check umac_got_events sh -c "[ \"\$(awk '\$1 == \"events\" { print \$2 }' $UMAC_COUNTERS)\" -ge 4 ]"
notes > "$OUT/notifications-wifi.txt"
bridge_stop
check kernel_log_clean_wifi klog_clean
