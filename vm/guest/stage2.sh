#!/bin/sh
# Stage 2, PID 1 of the VM: mounts the basics, keeps the whole kernel log, builds
# the network topology once, runs each guest script named in the run plan in
# this one boot, ends with the test suite's closing checks when the suite is
# there (tests/vm/guest/checks.sh), writes "RESULT fails=N" and powers off.
# The host runner wrote the plan (VY_* settings) into the results folder,
# mounted at /mnt/out.
export PATH=/usr/sbin:/usr/bin:/sbin:/bin
OUT=/mnt/out
trap 'sync; busybox poweroff -f' EXIT
mount -t proc proc /proc
mount -t sysfs sys /sys
mount -t devtmpfs dev /dev
mkdir -p /dev/pts /dev/shm
mount -t devpts devpts /dev/pts
mount -t tmpfs tmpfs /run
mount -t debugfs debugfs /sys/kernel/debug
mount -t tracefs tracefs /sys/kernel/tracing
. "$OUT/plan"
. "$VY_SRC/vm/guest/lib.sh"
CHECKS=$VY_SRC/tests/vm/guest/checks.sh
[ -f "$CHECKS" ] && . "$CHECKS" || CHECKS=
: > "$OUT/result"
: > "$OUT/timings"
ip link set lo up
phase stage2

# The guest's modules are the cached kernel package's, not the host's.
mount --bind "$VY_KTREE/lib/modules" /lib/modules || echo "stage2: cannot bind the kernel modules"
modprobe virtio_rng
dmesg -r -w > "$KMSG" 2>&1 &
wait_for 10 test -s "$KMSG"
# The run's own log starts here; what the kernel said while booting on the
# emulated machine is kept aside, not judged.
sleep 0.5
klog_mark
RUN_MARK=$KLOG_MARK
head -n "$RUN_MARK" "$KMSG" > "$OUT/kmsg-boot.raw"

step kernel_modules_reachable test -f "/lib/modules/$(uname -r)/modules.dep"
step veyra_ko_present test -f "$VY_MODDIR/veyra.ko"
step umac_ko_present test -f "$VY_MODDIR/umac.ko"

phase topology
step topology net_setup
step ap_up ap_start
step ap_in_bridge test -e "/sys/class/net/br0/brif/$AP_IF"

# DHCP and DNS on every interface of the AP side, for reading afterwards.
tcpdump -Z root -U -n -i any -w "$RUN/ap-side.pcap" 'port 67 or port 68 or port 53' 2> "$RUN/tcpdump.err" &
TCPDUMP=$!

for path in $VY_SCENARIOS; do
	s=$(basename "$path" .sh)
	phase "scenario_$s"
	echo "SCENARIO $s" >> "$OUT/result"
	timeout "$(( ${VY_SCENARIO_TIMEOUT:-600} * ${VY_SLOW:-1} ))" \
		sh -c ". '$G/lib.sh'; ${CHECKS:+. '$CHECKS';} . '$path'"
	rc=$?
	[ "$rc" -eq 0 ] || _record "FAIL scenario_${s}_completed (exit $rc)"
	# Each scenario starts from the same state: modules out, event bridge off.
	bridge_stop
	unload_all > /dev/null 2>&1 || _record "FAIL scenario_${s}_left_modules_loaded"
done

phase end
KLOG_MARK=$RUN_MARK
[ -n "$CHECKS" ] && checks_end
kill -INT "$TCPDUMP" 2>/dev/null
wait "$TCPDUMP" 2>/dev/null
cp "$RUN/ap-side.pcap" "$OUT/" 2>/dev/null
sleep 0.5
cp "$KMSG" "$OUT/kmsg.raw"
dmesg > "$OUT/dmesg.txt"
for f in "$RUN"/dnsmasq-*.leases; do [ -f "$f" ] && cp "$f" "$OUT/"; done
fails=$(grep -c '^FAIL' "$OUT/result")
echo "RESULT fails=$fails" | tee -a "$OUT/result"
