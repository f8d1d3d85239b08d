# The demo: an access point with two stations, as veyra sees them.
#   alice: gets a lease and resolves names: DHCP OK, DNS OK
#   bob:   gets a lease, but its DNS server never answers: DHCP OK, DNS FAIL
# Shown as it happens: veyra's kernel log (debug_level 2), every notification
# the umac stand-in records, the event bridge's lines; then the dump devices,
# the leaves and the hooks coming off.
S=$NET.1
banner() { echo; echo "======== $* ========"; }

banner "veyra demo: loading umac and veyra"
step hooktrace_ready hooktrace_start
step load_modules load_veyra
lsmod | grep -E '^(veyra|umac) '
if have_devices; then
	step device_nodes vy_nodes
	echo "/sys/veyra: summary major $(cat /sys/veyra/summary_dev_major_num), dump major $(cat /sys/veyra/dump_dev_major_num)"
	ls -l /dev/vy_summary /dev/vy_dump
	step debug_level_2 vy_cmd "debug_level 2"
else
	echo "(no /sys/veyra yet: the diagnostics devices are not in this build)"
fi

# Live views, each line tagged with where it comes from.
tail -n 0 -f "$KMSG" | grep --line-buffered -E '(\] |^<[0-9]+>)_?(vy|veyra)_[a-z0-9_]*(\[[0-9]+\]:|:[0-9]+:)' |
	sed -u 's/^<[0-9]*>\[ *\([0-9.]*\)\] /[kernel \1] /' &
watchers=$!
(
	seen=0
	while sleep 0.5; do
		[ -r "$UMAC_NOTES" ] || continue
		n=$(wc -l < "$UMAC_NOTES")
		[ "$n" -gt "$seen" ] && tail -n +"$((seen + 1))" "$UMAC_NOTES" | head -n "$((n - seen))" | sed "s/^/[umac $(uptime_s)] /"
		seen=$n
	done
) &
watchers="$watchers $!"
touch "$OUT/bridge.log"
tail -n 0 -f "$OUT/bridge.log" | sed -u 's/^/[bridge] /' &
watchers="$watchers $!"

banner "access point $SSID on $AP_IF (bridge br0), hostapd events -> veyra-umac-bridge -> /proc/umac/control"
step bridge_started bridge_start

banner "station alice associates, gets a lease and resolves names"
step alice_associates sta_connect 1
step alice_dhcp sta_dhcp 1 alice
echo "alice has $(sta_ip 1)"
ip netns exec sta1 dig +time=3 +tries=2 +noall +answer @$S files.lan printer.lan
ip netns exec sta1 dig +time=3 +tries=2 @$S nosuch.lan | grep -o 'status: [A-Z]*' | sed 's/^/nosuch.lan: /'
sleep 2

banner "station bob associates and gets a lease; its DNS server never answers"
step bob_associates sta_connect 2
step bob_dhcp sta_dhcp 2 bob
echo "bob has $(sta_ip 2)"
ip netns exec sta2 dig +time=2 +tries=1 @$S intranet.slow.lan | grep -E 'timed out|status' | sed 's/^/intranet.slow.lan: /'
M2=$(sta_mac 2)
echo "(waiting for veyra's 15 s DNS timeout and its 5 s update)"
wait_for 45 grep -q "^notify_sta_dns vap=$AP_IF sta=$M2 status=2" "$UMAC_NOTES" || echo "(no DNS failure reported for bob)"
sleep 1

banner "an operator keeps listening (force_listen 1); alice looks up names again"
# veyra stops inspecting traffic as soon as every followed station has its
# first DHCP and DNS outcome; names a station asks after that are not seen.
# An operator who wants the whole picture turns listening on.
if have_devices; then
	vy_cmd "force_listen 1"
	wait_for 30 hooks_are 1 || echo "(hooks did not come on)"
	ip netns exec sta1 dig +time=3 +tries=2 +noall +answer @$S files.lan printer.lan
	ip netns exec sta1 dig +time=3 +tries=2 @$S nosuch.lan | grep -o 'status: [A-Z]*' | sed 's/^/nosuch.lan: /'
	sleep 1
fi

banner "/dev/vy_summary and /dev/vy_dump"
if vy_dump_to "$OUT/demo"; then
	echo "--- /dev/vy_summary"; cat "$OUT/demo.summary"
	echo "--- /dev/vy_dump"; cat "$OUT/demo.dump"
else
	echo "(the diagnostics devices are not in this build)"
fi

have_devices && vy_cmd "force_listen 0"

banner "the stations leave; the hooks come off"
step alice_leaves sta_disconnect 1
step bob_leaves sta_disconnect 2
step hooks_off wait_for 30 hooks_are 0
sleep 1
echo "hook registrations traced: $(grep -c ' reg: (nf_register_net_hooks' "$TRACEFS/trace"), unregistrations: $(grep -c ' unreg: (nf_unregister_net_hooks' "$TRACEFS/trace")"

banner "unloading"
notes > "$OUT/notifications-demo.txt"
bridge_stop
step unload unload_all
sleep 1
kill $watchers 2>/dev/null
true
