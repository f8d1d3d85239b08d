# Listening control and classification with the real bridge: a join injected
# through umac registers the bridge hooks, frames from and to the wireless
# port reach the classification with the right direction, wired-to-wired
# frames are ignored, and unloading with stations followed or with
# force_listen on leaves no hook, timer or work behind.
S=$NET.1
HOOKLINE='_vy_hook\[[0-9]+\]:Hook listening function'
UNHOOKLINE='_vy_hook\[[0-9]+\]:Unhook listening function'
# The summary line that vy_check_skb prints for a frame of a wireless port.
summary() { # summary PRE|POST SRC DES IN OUT
	echo "vy_check_skb\[[0-9]+\]:NF_BR_$1_ROUTING, skb: [^,]+, src $2, des $3, bridge: br0\([0-9a-f:]+\)\. In: $4, Out: $5$"
}

check hooktrace_ready hooktrace_start
klog_mark
check load_modules load_veyra
check device_nodes vy_nodes
sleep 1
check no_hooks_at_load hooks_are 0
check debug_level_2 vy_debug 2

# A real station, announced by hand (no event bridge in this scenario).
check sta1_associates sta_connect 1
M1=$(sta_mac 1)
klog_mark
check join_accepted umac_event join "$M1" "$AP_IF"
check join_registers_hooks wait_for 30 hooks_are 1
check join_station_added wait_for 10 klog_has "STA $M1 is added\. \(VAP = $AP_IF\)"
check join_hook_notice wait_for 10 klog_has "$HOOKLINE"
check join_timer_notice wait_for 10 klog_has '_vy_hook\[[0-9]+\]:Start the STA periodic timer'

# Frames while the station still owes its outcomes: wired-to-wired first,
# then its DHCP exchange and a lookup, from and to the wireless port.
check debug_level_4 vy_debug 4
klog_mark
ip netns exec lan busybox ping -c 3 -W 3 $S > "$OUT/ping-lan.log" 2>&1
check sta1_dhcp sta_dhcp 1 hookcheck
sta_run 1 dig +time=3 +tries=2 @$S printer.lan
check classify_from_wireless klog_has "$(summary PRE "$M1" '[0-9a-f:]+' "$AP_IF" NULL)"
check classify_to_wireless klog_has "$(summary POST '[0-9a-f:]+' "$M1" NULL "$AP_IF")"
check classify_wired_in_ignored klog_has \
	'vy_check_skb\[[0-9]+\]:NF_BR_PRE_ROUTING, skb: [^,]+, the input device veth-(lan|br) is not wireless\.$'
check classify_wired_out_ignored klog_has \
	'vy_check_skb\[[0-9]+\]:NF_BR_POST_ROUTING, skb: [^,]+, the output device veth-(lan|br) is not wireless\.$'
no_wired_summary() { ! klog_since | grep -Eq 'NF_BR_(PRE|POST)_ROUTING, skb: [^,]+, src .*(In|Out): veth'; }
check classify_no_wired_summary no_wired_summary
klog_since > "$OUT/hooks-classification.log"
check debug_level_2_again vy_debug 2
# Both outcomes known: the station releases its listeners and the hooks come off.
check outcomes_unregister_hooks wait_for 30 hooks_are 0

klog_mark
check leave_accepted umac_event leave "$M1" "$AP_IF"
check leave_deletes_station wait_for 10 klog_has "Delete STA $M1 from $AP_IF"
check no_hooks_after_leave wait_for 30 hooks_are 0
check sta1_leaves sta_disconnect 1

# A leave drops the listeners a station still holds, and the hooks come off.
FAKE=02:00:00:00:99:01
klog_mark
check join_silent_station umac_event join "$FAKE" "$AP_IF"
check silent_station_registers_hooks wait_for 30 hooks_are 1
check leave_silent_station umac_event leave "$FAKE" "$AP_IF"
check leave_unregisters_hooks wait_for 30 hooks_are 0
check unhook_notice wait_for 10 klog_has "$UNHOOKLINE"

# force_listen alone hooks and unhooks.
check force_listen_on vy_cmd "force_listen 1"
check force_listen_registers_hooks wait_for 30 hooks_are 1
check force_listen_off vy_cmd "force_listen 0"
check force_listen_off_unregisters_hooks wait_for 30 hooks_are 0

# Unload while a station is followed (it never answers: its listeners stay).
klog_mark
check join_before_unload umac_event join "$FAKE" "$AP_IF"
check hooks_before_unload wait_for 30 hooks_are 1
check unload_with_station_followed rmmod veyra
check no_hooks_after_unload_with_station hooks_are 0

# Unload with force_listen on and no station.
check reload_veyra load_veyra
check force_listen_before_unload vy_cmd "force_listen 1"
check force_listen_registers_hooks wait_for 30 hooks_are 1
check unload_with_force_listen rmmod veyra
check no_hooks_after_unload_with_force_listen hooks_are 0

# Anything the module left behind would run now: bridged traffic for a stale
# hook, the 5 s timer, queued work. Wait past two timer periods.
ip netns exec lan busybox ping -c 3 -W 3 $S > /dev/null 2>&1
sleep 12
check unloaded_cleanly klog_clean
check hook_calls_balanced hooks_are 0
cp "$TRACEFS/trace" "$OUT/hooks-trace.txt"
