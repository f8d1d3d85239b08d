# Time decides in the real kernel: a station whose DHCP server does not
# answer gets DHCP status FAIL with reason timeout after 15 s (noticed by the
# 5 s update), and a station that asks nothing has its listening window
# closed after 35 s, which takes the hooks off.
# A station left associated without an address can send IPv4 frames whose
# header the module finds cut short; the warning is the documented answer.
klog_expect 'vy_parse_skb\[[0-9]+\]:error ip header'
check hooktrace_ready hooktrace_start
check load_modules load_veyra
check device_nodes vy_nodes
check debug_level_2 vy_debug 2
notes_clear
klog_mark

# A real station whose DISCOVERs go unanswered: the DHCP server is stopped.
check sta1_associates sta_connect 1
M1=$(sta_mac 1)
M2=02:00:00:00:35:02 # a station that never sends anything
check join_sta1 umac_event join "$M1" "$AP_IF"
check join_quiet_sta umac_event join "$M2" "$AP_IF"
check hooks_on wait_for 30 hooks_are 1
kill "$(cat "$RUN/dnsmasq-wired.pid")"
ip netns exec sta1 busybox udhcpc -i wlan1 -f -q -n -t 2 -T 2 -x hostname:timeout \
	>> "$OUT/udhcpc-sta1.log" 2>&1
dnsmasq_start wired veth-w "$NET"
dhcp_timeout_note() {
	grep -Eq "^notify_sta_dhcp vap=$AP_IF sta=$M1 status=2 reason=1 hostname=\"timeout\" hostname_len=7 ip=0\.0\.0\.0 type=1 " "$UMAC_NOTES"
}
check dhcp_timeout_notified wait_for 45 dhcp_timeout_note
check dhcp_timeout_once sh -c "[ \$(grep -c '^notify_sta_dhcp vap=$AP_IF sta=$M1 ' $UMAC_NOTES) = 1 ]"

# Neither station asked a name: their windows close after 35 s and every
# listener is released; no DNS notification.
window_closed() {
	vy_dump_to "$OUT/timeouts" && grep -q '^Current Listeners: 0$' "$OUT/timeouts.dump"
}
check window_closes wait_for 60 window_closed
check no_dns_notification sh -c "! grep -q '^notify_sta_dns' $UMAC_NOTES"
check listeners_released sh -c "[ \$(grep -c '^Listeners: 0$' '$OUT/timeouts.dump') = 2 ]"
# The second join queued a second run of the hook work, which hooked again
# once the first unhooked and sleeps until the next raise: one command ends it.
check raise vy_cmd "force_listen 0"
check hooks_off wait_for 60 hooks_are 0
check dhcp_reason_timeout grep -q '^DHCP Reason: timeout$' "$OUT/timeouts.dump"
check dns_unknown sh -c "[ \$(grep -c '^DNS Status: UNKNOWN$' '$OUT/timeouts.dump') = 2 ]"

check leave_sta1 umac_event leave "$M1" "$AP_IF"
check leave_quiet_sta umac_event leave "$M2" "$AP_IF"
sta_disconnect 1
check unload unload_all
check kernel_log_clean_timeouts klog_clean
