# The test network without the modules: stations associate, get leases from
# dnsmasq over the bridge, and resolve an address, a CNAME, an NXDOMAIN and a
# name whose DNS server never answers; the event bridge turns hostapd's
# station events into umac control lines (written to a plain file here).
S=$NET.1
: > "$RUN/fake-control"
"$BRIDGE" -p "$HOSTAPD_CTRL" -c "$RUN/fake-control" -l "$OUT/bridge-fake.log" -B -P "$RUN/bridge.pid" "$AP_IF"
check bridge_started wait_for 10 test -s "$RUN/bridge.pid"

check sta1_associates sta_connect 1
M1=$(sta_mac 1)
check ap_sees_sta1 ap_has_sta "$M1"
check bridge_writes_join wait_for 20 grep -qx "join $M1 $AP_IF" "$RUN/fake-control"
check sta1_dhcp sta_dhcp 1 netcheck
check sta1_leased_address sh -c "ip netns exec sta1 ip -4 addr show wlan1 | grep -q 'inet $NET\\.1[0-9][0-9]/24'"
check dnsmasq_saw_hostname grep -q 'netcheck' "$RUN/dnsmasq-wired.leases"

sta_run 1 dig +time=3 +tries=2 @$S printer.lan files.lan nosuch.lan
check dns_address grep -Eq '^printer\.lan\..*A[[:space:]]+192\.168\.77\.50' "$OUT/dns-sta1.log"
check dns_cname grep -Eq '^files\.lan\..*CNAME[[:space:]]+nas\.lan\.' "$OUT/dns-sta1.log"
check dns_nxdomain grep -q 'status: NXDOMAIN' "$OUT/dns-sta1.log"
sta_run 1 busybox nslookup www.lan $S
check busybox_nslookup grep -q "$NET.52" "$OUT/dns-sta1.log"
# slow.lan is forwarded to a server that never answers: the client times out.
sta_run 1 dig +time=2 +tries=1 @$S host.slow.lan
check dns_timeout grep -q 'timed out' "$OUT/dns-sta1.log"

# A bridge started while a station is associated announces it, and ignores
# anything but station events and well-formed addresses.
: > "$RUN/fake-control2"
"$BRIDGE" -p "$HOSTAPD_CTRL" -c "$RUN/fake-control2" -l "$OUT/bridge-fake2.log" -B -P "$RUN/bridge2.pid" "$AP_IF"
check bridge_announces_associated wait_for 20 grep -qx "join $M1 $AP_IF" "$RUN/fake-control2"
kill "$(cat "$RUN/bridge2.pid")"
action() { VEYRA_BRIDGE_ACTION=1 VEYRA_BRIDGE_CONTROL="$RUN/fake-control3" "$BRIDGE" "$@"; }
: > "$RUN/fake-control3"
action "$AP_IF" AP-STA-CONNECTED 02:00:00:00:0a:0b
action "$AP_IF" AP-STA-CONNECTED 02:00:00:00:0a > /dev/null 2>&1
action "$AP_IF" AP-STA-CONNECTED "02:00:00:00:0a:0b;x" > /dev/null 2>&1
action "$AP_IF" AP-STA-POLL-OK 02:00:00:00:0a:0c
action "$AP_IF" AP-STA-DISCONNECTED 02:00:00:00:0a:0b
check bridge_action_lines sh -c "printf 'join 02:00:00:00:0a:0b $AP_IF\nleave 02:00:00:00:0a:0b $AP_IF\n' | cmp -s - '$RUN/fake-control3'"

check wired_to_wired ip netns exec lan busybox ping -c 2 -W 3 $S
check sta1_leaves sta_disconnect 1
check bridge_writes_leave wait_for 20 grep -qx "leave $M1 $AP_IF" "$RUN/fake-control"
bridge_stop
# (the bracket keeps pgrep from finding the shell that runs it)
check bridge_stopped wait_for 10 sh -c "! pgrep -f '[h]ostapd_cli -p $HOSTAPD_CTRL -i $AP_IF -a'"
