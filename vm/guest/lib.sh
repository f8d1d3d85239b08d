# Guest-side library of the VM (sourced by stage2.sh and every guest script):
# the network, the access point, the stations, the modules and the event
# bridge, and how a step of the run is reported.
#
# Steps print one line each and append it to $OUT/result: PASS name | FAIL name.
# The run's verdict is the count of FAIL lines (stage2.sh writes "RESULT fails=N").
#
# Timeouts are loose and polled: the guest runs under software emulation on a
# machine that may be busy. VY_SLOW multiplies every wait.

export PATH=/usr/sbin:/usr/bin:/sbin:/bin
OUT=${OUT:-/mnt/out}
RUN=/run/vy
G=${VY_SRC:?}/vm/guest
BRIDGE=$VY_SRC/scripts/veyra-umac-bridge
MKNODES=$VY_SRC/scripts/veyra-mknodes
UMAC_CTL=/proc/umac/control
UMAC_NOTES=/proc/umac/notifications
UMAC_COUNTERS=/proc/umac/counters
KMSG=$RUN/kmsg.raw          # the whole kernel log of the run, raw (<prio>[time] text)
mkdir -p "$RUN"

uptime_s() { cut -d' ' -f1 /proc/uptime; }
say() { echo "[guest $(uptime_s)] $*"; }
phase() { echo "PHASE $1 $(uptime_s)" >> "$OUT/timings"; say "== $1"; }

# --- steps ------------------------------------------------------------------------

_record() { echo "$1" >> "$OUT/result"; echo "$1"; }

# step NAME CMD...: one step of the run, recorded as "PASS NAME" or "FAIL NAME"
# (with the tail of what CMD printed); run.sh counts the FAIL lines.
step() {
	_n=$1; shift
	if "$@" > "$RUN/check.out" 2>&1; then
		_record "PASS $_n"
	else
		_record "FAIL $_n"
		tail -n 15 "$RUN/check.out" | sed 's/^/    | /'
	fi
}

# wait_for SECONDS CMD...: polls CMD every 0.2 s; the limit is scaled by VY_SLOW.
wait_for() {
	_t=$(( $1 * ${VY_SLOW:-1} * 5 )); shift
	while ! "$@" > /dev/null 2>&1; do
		_t=$((_t - 1))
		[ "$_t" -gt 0 ] || return 1
		sleep 0.2
	done
}

# --- kernel log ----------------------------------------------------------------

# klog_mark: remember where the log is now; klog_since prints what came after,
# as plain text. Lines are counted in the raw log that stage2 keeps streaming.
klog_mark() { KLOG_MARK=$(wc -l < "$KMSG"); }
klog_since() { tail -n +"$(( ${KLOG_MARK:-0} + 1 ))" "$KMSG" | sed 's/^<[0-9]*>\[ *[0-9.]*\] //'; }

# --- modules ---------------------------------------------------------------------

mod_loaded() { [ -d "/sys/module/$1" ]; }
load_umac() { mod_loaded umac || insmod "$VY_MODDIR/umac.ko"; }
load_veyra() {
	load_umac || return 1
	mod_loaded veyra || insmod "$VY_MODDIR/veyra.ko" || return 1
	hooktrace_learn
}
unload_all() {
	mod_loaded veyra && rmmod veyra
	mod_loaded umac && rmmod umac
	! mod_loaded veyra && ! mod_loaded umac
}

# Device nodes and commands; the devices exist once the module has them.
have_devices() { [ -r /sys/veyra/summary_dev_major_num ]; }
vy_nodes() { have_devices && "$MKNODES"; }
# vy_cmd LINE: one command line through /dev/vy_summary (one write, no newline).
vy_cmd() {
	have_devices || return 1
	[ -c /dev/vy_summary ] || "$MKNODES" || return 1
	printf '%s' "$1" > /dev/vy_summary
}
# Debug lines need both debug_level 4 and their dynamic-debug sites switched on.
vy_debug() {
	vy_cmd "debug_level $1" || return 1
	if [ "$1" -ge 4 ]; then echo 'module veyra +p' > /sys/kernel/debug/dynamic_debug/control
	else echo 'module veyra -p' > /sys/kernel/debug/dynamic_debug/control; fi
}
vy_dump_to() { # vy_dump_to PREFIX: saves both devices' text as PREFIX.{summary,dump}
	have_devices || return 1
	"$MKNODES" || return 1
	cat /dev/vy_summary > "$1.summary" 2>&1
	cat /dev/vy_dump > "$1.dump" 2>&1
}

umac_event() { echo "$1 $2 $3" > "$UMAC_CTL"; }   # umac_event join|leave MAC VAP
notes_clear() { echo clear > "$UMAC_NOTES"; }
notes() { cat "$UMAC_NOTES"; }

# --- hook registrations, counted by kprobes ------------------------------------------

# Every call of nf_register_net_hooks / nf_unregister_net_hooks is traced with
# its ops array; calls with veyra's vy_br_hook_ops count. The difference is
# the number of hook sets veyra has registered right now, whatever its
# debug_level, also after the module is gone.
TRACEFS=/sys/kernel/tracing
hooktrace_start() {
	[ -d "$TRACEFS/events" ] || mount -t tracefs tracefs "$TRACEFS" || return 1
	[ -d "$TRACEFS/events/vyhooks" ] && return 0
	echo 'p:vyhooks/reg nf_register_net_hooks ops=$arg2:x64 n=$arg3:u32' >> "$TRACEFS/kprobe_events" || return 1
	echo 'p:vyhooks/unreg nf_unregister_net_hooks ops=$arg2:x64 n=$arg3:u32' >> "$TRACEFS/kprobe_events" || return 1
	echo 4096 > "$TRACEFS/buffer_size_kb"
	echo 1 > "$TRACEFS/events/vyhooks/enable"
	echo 1 > "$TRACEFS/tracing_on"
}
# The address of veyra's hook ops, taken while it is loaded (each load may differ).
hooktrace_learn() {
	_a=$(grep -E ' vy_br_hook_ops[[:space:]]+\[veyra\]' /proc/kallsyms | cut -d' ' -f1)
	[ -n "$_a" ] && ! grep -qix "0x$_a" "$RUN/hook-ops" 2>/dev/null && echo "0x$_a" >> "$RUN/hook-ops"
	[ -n "$_a" ]
}
# hooks_registered: prints registrations minus unregistrations by veyra
# (load_veyra has noted the ops address of each load).
hooks_registered() {
	touch "$RUN/hook-ops"
	grep -E ' (un)?reg: \(nf_(un)?register_net_hooks' "$TRACEFS/trace" | awk -v f="$RUN/hook-ops" '
		BEGIN { while ((getline a < f) > 0) mine[tolower(a)] = 1 }
		{ op = ""; for (i = 1; i <= NF; i++) if ($i ~ /^ops=/) op = tolower(substr($i, 5))
		  if (!(op in mine)) next
		  if ($0 ~ / reg: /) n++; else n-- }
		END { print n + 0 }'
}
hooks_are() { [ "$(hooks_registered)" = "$1" ]; }

# --- network -----------------------------------------------------------------------
# Topology (built once per boot by net_setup):
#   init ns: wlan0 (AP radio, hostapd) and veth-br, veth-lan in bridge br0;
#            wlan0.10 (802.1Q on the AP radio) and veth10-br in bridge br10
#   ns wired:   veth-w 192.168.77.1/24, dnsmasq (DHCP, DNS); dummy0 10.99.0.2/24
#               holds the route to the DNS server of slow.lan, which never answers
#   ns lan:     veth-l 192.168.77.2/24, a second wired host (wired-to-wired traffic)
#   ns wired10: veth10-w 192.168.78.1/24, dnsmasq for VLAN 10
#   ns sta1..3: one station radio each (wlan1..3), wpa_supplicant, udhcpc

NET=192.168.77
NET10=192.168.78
SSID=veyra-test
AP_IF=wlan0
HOSTAPD_CTRL=/run/hostapd

dnsmasq_start() { # dnsmasq_start NS IFACE NET
	ip netns exec "$1" dnsmasq -u root --no-resolv --no-hosts --bind-interfaces --interface="$2" \
		--no-ping --dhcp-authoritative --dhcp-range="$3.100,$3.150,255.255.255.0,10m" \
		--dhcp-option=option:router,"$3.1" --dhcp-option=option:dns-server,"$3.1" \
		--dhcp-leasefile="$RUN/dnsmasq-$1.leases" \
		--local=/lan/ --address=/printer.lan/"$3.50" --host-record=nas.lan,"$3.51" \
		--host-record=www.lan,"$3.52" --cname=files.lan,nas.lan \
		--server=/slow.lan/10.99.0.1 --dns-forward-max=50 \
		--log-queries --log-dhcp --log-facility="$OUT/dnsmasq-$1.log" --pid-file="$RUN/dnsmasq-$1.pid"
}

net_setup() {
	modprobe mac80211_hwsim radios=4 || return 1
	for m in bridge veth 8021q dummy; do modprobe "$m" || return 1; done
	wait_for 20 test -e /sys/class/net/wlan3 || return 1
	sysctl -qw net.ipv6.conf.all.disable_ipv6=1 net.ipv6.conf.default.disable_ipv6=1
	ip link add br0 type bridge stp_state 0 forward_delay 0
	ip link set br0 up
	ip netns add wired
	ip netns add lan
	ip link add veth-br type veth peer name veth-w
	ip link set veth-w netns wired
	ip link set veth-br master br0 up
	ip link add veth-lan type veth peer name veth-l
	ip link set veth-l netns lan
	ip link set veth-lan master br0 up
	ip netns exec wired sh -e -c "
		sysctl -qw net.ipv6.conf.all.disable_ipv6=1
		ip link set lo up
		ip addr add $NET.1/24 dev veth-w; ip link set veth-w up
		ip link add dummy0 type dummy; ip addr add 10.99.0.2/24 dev dummy0; ip link set dummy0 up"
	ip netns exec lan sh -e -c "
		sysctl -qw net.ipv6.conf.all.disable_ipv6=1
		ip link set lo up; ip addr add $NET.2/24 dev veth-l; ip link set veth-l up"
	dnsmasq_start wired veth-w "$NET" || return 1
	for i in 1 2 3; do
		ip netns add "sta$i"
		ip netns exec "sta$i" sh -c 'sysctl -qw net.ipv6.conf.all.disable_ipv6=1; ip link set lo up'
		iw phy "$(cat /sys/class/net/wlan$i/phy80211/name)" set netns name "sta$i" || return 1
	done
}

# The VLAN variant: an 802.1Q port on the AP radio in its own bridge, with its
# own wired side and DHCP/DNS server.
vlan_setup() {
	ip link add link "$AP_IF" name "$AP_IF.10" type vlan id 10 || return 1
	ip link add br10 type bridge stp_state 0 forward_delay 0
	ip link set br10 up
	ip link set "$AP_IF.10" master br10 up
	ip netns add wired10
	ip link add veth10-br type veth peer name veth10-w
	ip link set veth10-w netns wired10
	ip link set veth10-br master br10 up
	ip netns exec wired10 sh -e -c "
		sysctl -qw net.ipv6.conf.all.disable_ipv6=1
		ip link set lo up; ip addr add $NET10.1/24 dev veth10-w; ip link set veth10-w up"
	dnsmasq_start wired10 veth10-w "$NET10"
}

ap_start() {
	cat > "$RUN/hostapd.conf" <<CONF
interface=$AP_IF
bridge=br0
driver=nl80211
ssid=$SSID
hw_mode=g
channel=1
wmm_enabled=1
ctrl_interface=$HOSTAPD_CTRL
CONF
	hostapd -B -P "$RUN/hostapd.pid" -f "$OUT/hostapd.log" "$RUN/hostapd.conf" || return 1
	wait_for 20 hostapd_cli -p "$HOSTAPD_CTRL" -i "$AP_IF" ping
}
ap_has_sta() { hostapd_cli -p "$HOSTAPD_CTRL" -i "$AP_IF" all_sta | grep -qi "^$1$"; }

# The event bridge, as a user would run it next to hostapd.
bridge_start() {
	"$BRIDGE" -p "$HOSTAPD_CTRL" -B -P "$RUN/bridge.pid" -l "$OUT/bridge.log" "$AP_IF" || return 1
	wait_for 10 test -s "$RUN/bridge.pid"
}
bridge_stop() {
	[ -s "$RUN/bridge.pid" ] || return 0
	kill "$(cat "$RUN/bridge.pid")" 2>/dev/null
	rm -f "$RUN/bridge.pid"
}

sta_mac() { ip netns exec "sta$1" cat "/sys/class/net/wlan$1/address"; }
_wpa() { ip netns exec "sta$1" wpa_cli -p "$RUN/wpa$1" -i "wlan$1" "$2"; }
sta_state_is() { _wpa "$1" status | grep -q "^wpa_state=$2$"; }

# sta_connect N: associates station N with the AP (starting its supplicant once).
sta_connect() {
	if [ -s "$RUN/wpa$1.pid" ]; then
		_wpa "$1" reconnect > /dev/null
	else
		cat > "$RUN/wpa$1.conf" <<CONF
ctrl_interface=$RUN/wpa$1
network={
	ssid="$SSID"
	key_mgmt=NONE
	scan_freq=2412
}
CONF
		ip netns exec "sta$1" wpa_supplicant -B -D nl80211 -i "wlan$1" -c "$RUN/wpa$1.conf" \
			-P "$RUN/wpa$1.pid" -f "$OUT/wpa$1.log" || return 1
	fi
	wait_for 60 sta_state_is "$1" COMPLETED
}
# sta_disconnect N: leaves the AP and waits until the AP has dropped the station.
sta_disconnect() {
	_m=$(sta_mac "$1")
	_wpa "$1" disconnect > /dev/null
	ip netns exec "sta$1" ip addr flush dev "wlan$1"
	wait_for 30 sh -c "! hostapd_cli -p $HOSTAPD_CTRL -i $AP_IF all_sta | grep -qi '^$_m$'"
}
# sta_dhcp N HOSTNAME [IFACE]: one DHCP exchange with busybox udhcpc, sending HOSTNAME.
sta_dhcp() {
	ip netns exec "sta$1" busybox udhcpc -i "${3:-wlan$1}" -f -q -n -t 6 -T 3 -x "hostname:$2" \
		-s "$G/udhcpc.script" >> "$OUT/udhcpc-sta$1.log" 2>&1
}
sta_ip() { ip netns exec "sta$1" ip -4 -o addr show dev "${2:-wlan$1}" | awk '{ sub(/\/.*/, "", $4); print $4; exit }'; }
# sta_run N CMD...: a command inside station N's namespace, output appended to its DNS log.
sta_run() { _s=$1; shift; ip netns exec "sta$_s" "$@" >> "$OUT/dns-sta$_s.log" 2>&1; }
