# The VLAN variant: the AP radio's 802.1Q port wlan0.10 is the bridge port
# (bridge br10, its own DHCP/DNS server). The kernel's VLAN device on a
# wireless radio still counts as a wireless port, in both directions, and a
# station tagging its traffic with VLAN 10 is followed through DHCP and DNS;
# the VAP reported by hostapd stays wlan0.
S=$NET10.1
summary() { # summary PRE|POST SRC DES IN OUT: veyra's line for a frame of a wireless port
	echo "vy_check_skb\[[0-9]+\]:NF_BR_$1_ROUTING, skb: [^,]+, src $2, des $3, bridge: br10\([0-9a-f:]+\)\. In: $4, Out: $5$"
}

check vlan_topology vlan_setup
check hooktrace_ready hooktrace_start
check load_modules load_veyra
check debug_level_4 vy_debug 4
notes_clear
check bridge_started bridge_start

klog_mark
check sta3_associates sta_connect 3
M3=$(sta_mac 3)
check bridge_forwards_join wait_for 20 grep -q "join $M3 $AP_IF" "$OUT/bridge.log"
ip netns exec sta3 sh -e -c "ip link add link wlan3 name wlan3.10 type vlan id 10; ip link set wlan3.10 up"
check sta3_vlan_dhcp sta_dhcp 3 carol wlan3.10
IP3=$(sta_ip 3 wlan3.10)
sta_run 3 dig +time=3 +tries=2 @$S printer.lan
check classify_vlan_from_wireless klog_has "$(summary PRE "$M3" '[0-9a-f:]+' "$AP_IF\\.10" NULL)"
check classify_vlan_to_wireless klog_has "$(summary POST '[0-9a-f:]+' "$M3" NULL "$AP_IF\\.10")"
klog_since > "$OUT/vlan-classification.log"
check vlan_port_not_called_wired sh -c "! grep -q 'device $AP_IF.10 is not wireless' '$OUT/vlan-classification.log'"
check sta3_dhcp_notification wait_for 10 grep -Eq \
	"^notify_sta_dhcp vap=$AP_IF sta=$M3 status=1 reason=0 hostname=\"carol\" hostname_len=5 ip=$IP3 type=5 server=$S " "$UMAC_NOTES"
check sta3_dns_notification wait_for 10 grep -Eq "^notify_sta_dns vap=$AP_IF sta=$M3 status=1 dns_server=$S " "$UMAC_NOTES"
check sta3_leaves sta_disconnect 3
check hooks_off_after_leave wait_for 30 hooks_are 0
