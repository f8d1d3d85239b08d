# Many stations on one access point (sourced by guest scripts after lib.sh):
# the AP radio with two VAPs, one radio, network namespace and supplicant per
# station, and the DHCP clients and resolvers a station can run. Clients'
# output is stamped with the wall clock (milliseconds) as it arrives, so that
# a client's own view of an exchange can be read from its log. Logs stay in
# the guest's memory while the stations run (writes to the results folder
# cross 9p and would slow every client and the AP down); many_logs copies them.
#
#   many_setup N             radios wlan1..N in namespaces st1..stN; hostapd with
#                            VAPs $VAP_A (SSID veyra-a) and $VAP_B (SSID veyra-b) in br0
#   st_start N a|b           starts (or reconnects) station N's supplicant for VAP a or b
#   st_leave N               disconnects station N
#   ap_stations              the MACs associated with either VAP
#   st_dhcp N CLIENT HOST R  one DHCP exchange with busybox udhcpc or ISC dhclient,
#                            log $LOADLOG/dhcp-stN.R.log
#   st_lookup N RES NAMES R  the names (comma-separated) with dig or glibc's
#                            getent ahosts, log $LOADLOG/dns-stN.R.log
#   softirq_ticks            the kernel's softirq time over all CPUs (USER_HZ ticks)
#   many_warm                reads the stations' programs and libraries once
#   many_logs                copies the logs into $OUT/stations

VAP_A=$AP_IF
VAP_B=${AP_IF}_1
LOADLOG=$RUN/stations
mkdir -p "$LOADLOG"

# stamped CMD...: runs CMD with each line of its output stamped as it comes;
# the stamper is up before CMD starts, so no line waits in a pipe for it.
stamped() {
	perl -MTime::HiRes=time -e '$| = 1; my $pid = open(my $in, "-|") // die "fork: $!";
		if (!$pid) { open(STDERR, ">&", \*STDOUT); exec(@ARGV) or die "exec: $!" }
		while (<$in>) { printf "%.3f %s", time, $_ } close($in); exit($? >> 8)' "$@"
}
st_mac() { ip netns exec "st$1" cat "/sys/class/net/wlan$1/address"; }
st_ip() { ip netns exec "st$1" ip -4 -o addr show dev "wlan$1" | awk '{ sub(/\/.*/, "", $4); print $4; exit }'; }
_stwpa() { ip netns exec "st$1" wpa_cli -p "$RUN/stwpa$1" -i "wlan$1" "$2"; }
softirq_ticks() { awk '$1 == "cpu" { print $8 }' /proc/stat; }
# Under the instruction-counting clock an idle guest skips ahead to its next
# timer, so a program still to be read over 9p while every station waits
# for it would let the stations' timers run ahead of their work.
many_warm() {
	for _b in dig dhclient getent perl busybox ip wpa_cli hostapd_cli flock; do
		_p=$(command -v "$_b") || return 1
		cat "$_p" $(ldd "$_p" | awk '/=> \// { print $3 }') > /dev/null
	done
	perl -MTime::HiRes -e 1; dig -v; dhclient --version; getent hosts localhost
	return 0
}
many_logs() { cp -r "$LOADLOG" "$OUT/" && cp "$RUN/hostapd-many.log" "$OUT/"; }

many_setup() {
	if [ -s "$RUN/hostapd.pid" ]; then
		kill "$(cat "$RUN/hostapd.pid")"
		wait_for 20 sh -c '! pidof hostapd' || return 1
	fi
	# The radios are made again, as many as asked for.
	rmmod mac80211_hwsim && modprobe mac80211_hwsim radios=$(($1 + 1)) || return 1
	wait_for 60 test -e "/sys/class/net/wlan$1" || return 1
	_i=1
	while [ "$_i" -le "$1" ]; do
		ip netns add "st$_i" || return 1
		ip netns exec "st$_i" sh -c 'sysctl -qw net.ipv6.conf.all.disable_ipv6=1; ip link set lo up'
		iw phy "$(cat "/sys/class/net/wlan$_i/phy80211/name")" set netns name "st$_i" || return 1
		# ip netns exec binds this over /etc/resolv.conf for getent.
		mkdir -p "/etc/netns/st$_i"
		printf 'nameserver %s\noptions timeout:2 attempts:1\n' "$NET.1" > "/etc/netns/st$_i/resolv.conf"
		_i=$((_i + 1))
	done
	cat > "$RUN/hostapd.conf" <<CONF
interface=$VAP_A
bridge=br0
driver=nl80211
ssid=veyra-a
hw_mode=g
channel=1
ctrl_interface=$HOSTAPD_CTRL
bss=$VAP_B
bssid=02:00:00:00:00:01
bridge=br0
ssid=veyra-b
ctrl_interface=$HOSTAPD_CTRL
CONF
	hostapd -B -P "$RUN/hostapd.pid" -f "$RUN/hostapd-many.log" "$RUN/hostapd.conf" || return 1
	wait_for 30 hostapd_cli -p "$HOSTAPD_CTRL" -i "$VAP_B" ping
}

# Nothing here polls per station: dozens of pollers would starve an emulated
# guest. The caller starts the stations and watches the AP (ap_stations).
st_start() {
	if [ -s "$RUN/stwpa$1.pid" ]; then
		_stwpa "$1" reconnect > /dev/null
	else
		# Passive scans: probe requests from every station at once would keep
		# hostapd too busy to answer authentications in time.
		printf 'ctrl_interface=%s\npassive_scan=1\nnetwork={\n\tssid="veyra-%s"\n\tkey_mgmt=NONE\n\tscan_freq=2412\n}\n' \
			"$RUN/stwpa$1" "$2" > "$RUN/stwpa$1.conf"
		ip netns exec "st$1" wpa_supplicant -B -D nl80211 -i "wlan$1" -c "$RUN/stwpa$1.conf" \
			-P "$RUN/stwpa$1.pid" -f "$LOADLOG/wpa-st$1.log"
	fi
}
st_leave() { _stwpa "$1" disconnect > /dev/null; }
ap_stations() { for _v in "$VAP_A" "$VAP_B"; do hostapd_cli -p "$HOSTAPD_CTRL" -i "$_v" all_sta; done | grep -iE '^([0-9a-f]{2}:){5}[0-9a-f]{2}$'; }

st_dhcp() {
	case $2 in
	udhcpc)
		stamped ip netns exec "st$1" busybox udhcpc -i "wlan$1" -f -q -n -t 8 -T 3 -x "hostname:$3" \
			-s "$G/udhcpc.script" >> "$LOADLOG/dhcp-st$1.$4.log" ;;
	dhclient)
		printf 'send host-name "%s";\n' "$3" > "$RUN/dhclient$1.conf"
		rm -f "$RUN/dhclient$1.pid"
		# Once bound, dhclient goes to the background with its output closed.
		stamped ip netns exec "st$1" dhclient -1 -v -cf "$RUN/dhclient$1.conf" -lf "$RUN/dhclient$1.leases" \
			-pf "$RUN/dhclient$1.pid" -sf "$G/dhclient.script" "wlan$1" >> "$LOADLOG/dhcp-st$1.$4.log"
		# No renewal in the middle of a run: the address stays, the client goes.
		wait_for 10 test -s "$RUN/dhclient$1.pid" && kill "$(cat "$RUN/dhclient$1.pid")" ;;
	esac
	[ -n "$(st_ip "$1")" ]
}

st_lookup() {
	_names=$(echo "$3" | tr , ' ')
	case $2 in
	dig) stamped ip netns exec "st$1" dig +time=2 +tries=1 @"$NET.1" $_names ;;
	getent) for _n in $_names; do echo "getent ahosts $_n"; stamped ip netns exec "st$1" getent ahosts "$_n"; done ;;
	esac >> "$LOADLOG/dns-st$1.$4.log" 2>&1
}
