# Load/unload soak: veyra loaded and unloaded again and again while a real
# station associates, renews its lease, looks names up and leaves, with
# force_listen toggled and the devices read, and sometimes unloaded with the
# station still followed or listening forced on. Afterwards no hook is left
# registered and the kernel log holds nothing but the expected lines.
# Too long for every run: `make vm-soak` (VY_SOAK_CYCLES, default 20).
S=$NET.1
CYCLES=${VY_SOAK_CYCLES:-20}

check hooktrace_ready hooktrace_start
check load_umac load_umac
klog_mark
check bridge_started bridge_start

# One cycle; its variant (0, 1, 2) decides what state veyra is unloaded in.
soak_cycle() {
	_v=$(( $1 % 3 ))
	load_veyra || { echo "cycle $1: insmod failed"; return 1; }
	vy_nodes || return 1
	vy_cmd "debug_level 2" || return 1
	[ "$_v" = 1 ] && { vy_cmd "force_listen 1" || return 1; }
	sta_connect 1 || { echo "cycle $1: no association"; return 1; }
	sta_dhcp 1 "soak$1" || { echo "cycle $1: no lease"; return 1; }
	sta_dhcp 1 "soak$1" || { echo "cycle $1: no renewal"; return 1; }
	sta_run 1 dig +time=2 +tries=1 @$S printer.lan files.lan nosuch.lan
	cat /dev/vy_summary > "$OUT/soak-$1.summary" || return 1
	dd if=/dev/vy_dump of="$OUT/soak-$1.dump" bs=400 2>/dev/null || return 1
	grep -q "^STA: " "$OUT/soak-$1.dump" || { echo "cycle $1: station not in the dump"; return 1; }
	[ "$_v" = 1 ] && vy_cmd "force_listen 0"
	[ "$_v" = 2 ] && vy_cmd "force_listen 1"
	# Variant 0 leaves before the unload; 1 and 2 unload with the station
	# followed (2 also with listening forced on).
	[ "$_v" = 0 ] && { sta_disconnect 1 || return 1; }
	rmmod veyra || { echo "cycle $1: rmmod failed"; return 1; }
	[ "$_v" = 0 ] || sta_disconnect 1 || return 1
	# Nothing of veyra may stay registered after an unload.
	wait_for 10 hooks_are 0 || { echo "cycle $1: hooks left: $(hooks_registered)"; return 1; }
	[ ! -d /sys/veyra ] || { echo "cycle $1: /sys/veyra left"; return 1; }
}

i=1
while [ "$i" -le "$CYCLES" ]; do
	check "soak_cycle_$i" soak_cycle "$i"
	i=$((i + 1))
done

check umac_still_works sh -c "echo 'join 02:00:00:00:99:99 wlan0' > $UMAC_CTL"
bridge_stop
check unload unload_all
sleep 1
check soak_kernel_log_clean klog_clean
