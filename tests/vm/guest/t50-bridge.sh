# The event bridge as an AP operator runs it: installed by make install and
# started by its init script, it announces a station that associated before
# it started; it follows every VAP in hostapd's control directory through a
# hostapd crash (restarted with a second VAP) and a clean restart, attaching
# again by itself and sending the leaves it missed meanwhile; its station
# list outlives a restart of the bridge itself. Then the udev rule makes and
# removes the device nodes when veyra loads and unloads.
# The scenario leaves hostapd as stage 2 started it, every station
# disconnected and nothing installed.

VAP2=${AP_IF}_1
SSID2=veyra-test2
BR_LOG=$OUT/bridge-t50.log
INITD=/etc/init.d/veyra-umac-bridge
DEFAULTS=/etc/default/veyra-umac-bridge
SBIN=/usr/local/sbin
mk_install() { make -s -C "$VY_SRC" -f mk/install.mk INITDDIR=/etc/init.d "$@"; }

# The bridge's own log, from a mark on (like the kernel log's klog_mark).
log_mark() { LOG_MARK=$(wc -l 2>/dev/null < "$BR_LOG" || echo 0); }
log_since() { tail -n +"$(( ${LOG_MARK:-0} + 1 ))" "$BR_LOG"; }
log_has() { log_since | grep -Eq "$1"; }
log_count() { log_since | grep -Ec "$1"; }
attached_count() { [ "$(log_count "$1: attached to hostapd")" -ge "$2" ]; }

gone() { ! kill -0 "$1" 2>/dev/null || grep -q '^State:[[:space:]]*Z' "/proc/$1/status" 2>/dev/null; }
bridge_pid() { cat "$RUN/bridge.pid" 2>/dev/null; }
bridge_is() { [ -n "$1" ] && [ "$(bridge_pid)" = "$1" ] && ! gone "$1"; }

# hostapd's end: a crash leaves its control socket behind and no events; a
# clean stop disconnects every station first.
ap_crash() {
	_p=$(cat "$RUN/hostapd.pid") && kill -KILL "$_p" && wait_for 10 gone "$_p" || return 1
	# The AP may still be set up in the kernel: down, hostapd sets it up anew.
	ip link set "$AP_IF" down
}
ap_stop() { _p=$(cat "$RUN/hostapd.pid") && kill "$_p" && wait_for 20 gone "$_p"; }
# The usual AP plus a second VAP with its own SSID, in the same bridge.
ap_start_2vap() {
	{
		cat "$RUN/hostapd.conf"
		printf 'bss=%s\nssid=%s\nbridge=br0\nctrl_interface=%s\n' "$VAP2" "$SSID2" "$HOSTAPD_CTRL"
	} > "$RUN/hostapd-2vap.conf"
	hostapd -B -P "$RUN/hostapd.pid" -f "$OUT/hostapd.log" "$RUN/hostapd-2vap.conf" || return 1
	wait_for 20 hostapd_cli -p "$HOSTAPD_CTRL" -i "$AP_IF" ping &&
		wait_for 20 hostapd_cli -p "$HOSTAPD_CTRL" -i "$VAP2" ping
}

# Station 3 on the second VAP: a network of its own in its supplicant,
# removed again by sta3_back, which leaves it as sta_disconnect does.
wpa3() { ip netns exec sta3 wpa_cli -p "$RUN/wpa3" -i wlan3 "$@"; }
sta3_to_vap2() {
	if [ ! -s "$RUN/wpa3.pid" ]; then
		sta_connect 3 && sta_disconnect 3 || return 1
	fi
	NET3=$(wpa3 add_network | tail -n 1)
	case "$NET3" in ''|*[!0-9]*) return 1 ;; esac
	wpa3 set_network "$NET3" ssid "\"$SSID2\"" | grep -q OK &&
		wpa3 set_network "$NET3" key_mgmt NONE | grep -q OK &&
		wpa3 set_network "$NET3" scan_freq 2412 | grep -q OK &&
		wpa3 select_network "$NET3" | grep -q OK || return 1
	wait_for 60 sta_state_is 3 COMPLETED
}
sta3_back() {
	_m=$(sta_mac 3)
	wpa3 disconnect > /dev/null
	[ -n "${NET3:-}" ] && wpa3 remove_network "$NET3" > /dev/null
	wpa3 enable_network all > /dev/null
	wait_for 30 sh -c "! hostapd_cli -p $HOSTAPD_CTRL -i $VAP2 all_sta 2>/dev/null | grep -qi '^$_m$'"
}

klog_mark
RUN_T50=$KLOG_MARK
rm -f "$BR_LOG" "$RUN/bridge-t50.state"

# --- installed as on an AP --------------------------------------------------------
check install_runs mk_install install
check installed_programs test -x "$SBIN/veyra-umac-bridge" -a -x "$SBIN/veyra-mknodes" -a -x "$INITD"
check installed_unit_path grep -qx "ExecStart=$SBIN/veyra-umac-bridge -s /run/veyra-umac-bridge.state \$VEYRA_BRIDGE_OPTS" \
	/etc/systemd/system/veyra-umac-bridge.service
check installed_initd_path grep -qx "DAEMON=$SBIN/veyra-umac-bridge" "$INITD"
check installed_rule_path grep -q "RUN+=\"$SBIN/veyra-mknodes -r\"" /etc/udev/rules.d/99-veyra.rules
# Every VAP of the control directory (no names given), pinged every second.
cat > "$DEFAULTS" <<DEFAULTS
PIDFILE=$RUN/bridge.pid
STATE=$RUN/bridge-t50.state
LOG=$BR_LOG
VEYRA_BRIDGE_OPTS="-p $HOSTAPD_CTRL -g 1"
DEFAULTS

# --- a station associated before the bridge starts ------------------------------
check load_modules load_veyra
check debug_level_2 vy_debug 2
check sta1_associates sta_connect 1
M1=$(sta_mac 1)
klog_mark
log_mark
check initd_start "$INITD" start
check initd_status "$INITD" status
BPID=$(bridge_pid)
check present_sta_announced wait_for 20 log_has "join $M1 $AP_IF \(associated at attach\)$"
check present_sta_added wait_for 10 klog_has "STA $M1 is added\. \(VAP = $AP_IF\)"
# reload: the current stations again, for a veyra loaded after the bridge.
check initd_reload "$INITD" reload
check reload_announces wait_for 20 sh -c "[ \$(grep -c 'join $M1 $AP_IF (associated at attach)' '$BR_LOG') -ge 2 ]"
check reload_known_sta wait_for 10 klog_has "STA $M1 is already added\. \(old VAP = $AP_IF, new VAP = $AP_IF\)"

# --- hostapd crashes; station 1 leaves meanwhile; hostapd comes back with two VAPs
klog_mark
log_mark
check ap_crashed ap_crash
check bridge_notices_crash wait_for 20 log_has "$AP_IF: hostapd went away"
check sta1_leaves_while_ap_down sta_disconnect 1
check ap_two_vaps ap_start_2vap
check reattached_after_crash wait_for 30 attached_count "$AP_IF" 1
check second_vap_followed wait_for 30 attached_count "$VAP2" 1
check same_bridge_after_crash bridge_is "$BPID"
check missed_leave_sent wait_for 20 log_has "leave $M1 $AP_IF \(gone while detached\)$"
check missed_leave_deletes wait_for 10 klog_has "Delete STA $M1 from $AP_IF"

check sta2_associates sta_connect 2
M2=$(sta_mac 2)
check join_after_restart wait_for 20 log_has " veyra-umac-bridge: join $M2 $AP_IF$"
check sta2_added wait_for 10 klog_has "STA $M2 is added\. \(VAP = $AP_IF\)"
check sta3_on_second_vap sta3_to_vap2
M3=$(sta_mac 3)
check join_on_second_vap wait_for 20 log_has " veyra-umac-bridge: join $M3 $VAP2$"
check sta3_added_on_second_vap wait_for 10 klog_has "STA $M3 is added\. \(VAP = $VAP2\)"
check sta3_leaves sta3_back
check leave_on_second_vap wait_for 20 log_has " veyra-umac-bridge: leave $M3 $VAP2$"
check sta3_deleted wait_for 10 klog_has "Delete STA $M3 from $VAP2"

# --- a clean restart back to the usual AP; station 2 stays and comes back -------
klog_mark
log_mark
check ap_stopped ap_stop
check ap_restarted ap_start
check reattached_after_restart wait_for 30 attached_count "$AP_IF" 1
check same_bridge_after_restart bridge_is "$BPID"
sta2_is_back() { sta_state_is 2 COMPLETED && ap_has_sta "$M2"; }
check sta2_back wait_for 60 sta2_is_back
# Whether hostapd's own leave, the missed-leave or the announcement came
# first, the bridge's last word on station 2 is a join, and veyra has it.
last_m2_is_join() { log_since | grep -E " $M2 $AP_IF( |\$)" | tail -n 1 | grep -q " veyra-umac-bridge: join "; }
check sta2_announced_again wait_for 20 last_m2_is_join
check sta2_known_again wait_for 10 klog_has "STA $M2 is (already )?added"
klog_mark
log_mark
check sta2_leaves sta_disconnect 2
check leave_after_restart wait_for 20 log_has " veyra-umac-bridge: leave $M2 $AP_IF$"
check sta2_deleted wait_for 10 klog_has "Delete STA $M2 from $AP_IF"

# --- the station list outlives a restart of the bridge itself -------------------
check sta1_associates_again sta_connect 1
check sta1_joined wait_for 20 log_has " veyra-umac-bridge: join $M1 $AP_IF$"
check initd_stop "$INITD" stop
check bridge_gone wait_for 10 gone "$BPID"
check cli_gone wait_for 10 sh -c "! pgrep -f '[h]ostapd_cli -p $HOSTAPD_CTRL -i .* -a'"
check state_kept grep -qx "$M1 $AP_IF" "$RUN/bridge-t50.state"
klog_mark
check sta1_leaves_while_bridge_down sta_disconnect 1
log_mark
check initd_start_again "$INITD" start
check leave_from_state wait_for 20 log_has "leave $M1 $AP_IF \(gone while detached\)$"
check leave_from_state_deletes wait_for 10 klog_has "Delete STA $M1 from $AP_IF"
check initd_stop_again "$INITD" stop
check state_emptied sh -c "! grep -q . '$RUN/bridge-t50.state'"
check ap_bridged_after_restarts test -e "/sys/class/net/br0/brif/$AP_IF"
check second_vap_gone test ! -e "/sys/class/net/$VAP2"

# --- the udev rule: nodes appear with veyra and go with it ----------------------
check unload_before_udev unload_all
"$MKNODES" -r
UDEVD=
if [ -x /lib/systemd/systemd-udevd ]; then
	# Its messages go to a file, not to the kernel log.
	SYSTEMD_LOG_TARGET=console /lib/systemd/systemd-udevd > "$OUT/udevd.log" 2>&1 &
	UDEVD=$!
	check udevd_runs wait_for 20 udevadm control --ping
	node_is() { # node_is NAME: a character device with the published major, minor 0
		[ -c "/dev/vy_$1" ] && [ "$(stat -c '%t:%T:%a' "/dev/vy_$1")" = \
			"$(printf '%x:0:600' "$(cat "/sys/veyra/$1_dev_major_num")")" ]
	}
	check load_with_udev load_veyra
	udevadm settle -t 30
	check udev_summary_node wait_for 10 node_is summary
	check udev_dump_node wait_for 10 node_is dump
	check udev_nodes_work sh -c "printf 'debug_level 1' > /dev/vy_summary && cat /dev/vy_dump > '$OUT/udev-dump.txt'"
	check unload_with_udev rmmod veyra
	udevadm settle -t 30
	check udev_nodes_removed wait_for 10 sh -c '! test -e /dev/vy_summary && ! test -e /dev/vy_dump'
	udevadm control --exit
	check udevd_stopped wait_for 20 gone "$UDEVD"
else
	skip udev_rule "no /lib/systemd/systemd-udevd (package udev)"
fi

# --- uninstalled ----------------------------------------------------------------
rm -f "$DEFAULTS"
check uninstall_runs mk_install uninstall
check uninstalled sh -c "! test -e $SBIN/veyra-umac-bridge && ! test -e $SBIN/veyra-mknodes && ! test -e $INITD && ! test -e /etc/udev/rules.d/99-veyra.rules && ! test -e /etc/systemd/system/veyra-umac-bridge.service"
KLOG_MARK=$RUN_T50
check kernel_log_clean_bridge klog_clean
