#!/bin/sh
# The arm64 guest's init (run by scripts/vm-arm64.sh): loads umac and veyra
# as built by `make module ARCH=arm64`, makes the device nodes, lets a station
# join and leave through umac, reads both dumps, unloads, and prints
# "VM-ARM64: PASS" or "VM-ARM64: FAIL: <why>" before powering off.
/bin/busybox --install -s /bin
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs dev /dev
mkdir -p /tmp
STA=02:00:00:00:00:01

fail() {
	echo "VM-ARM64: FAIL: $*"
	dmesg | tail -n 40
	poweroff -f
}
step() { echo "VM-ARM64: $*"; }

step "$(uname -m) $(uname -r)"
insmod /lib/modules/umac.ko || fail "insmod umac"
insmod /lib/modules/veyra.ko || fail "insmod veyra"
step "loaded: $(cut -d' ' -f1 /proc/modules | tr '\n' ' ')"
/sbin/veyra-mknodes || fail "veyra-mknodes"
test -c /dev/vy_summary && test -c /dev/vy_dump || fail "no device nodes"

echo "join $STA wlan0" >/proc/umac/control || fail "umac join"
cat /dev/vy_summary >/tmp/summary || fail "read /dev/vy_summary"
grep -q "^$STA" /tmp/summary || fail "summary does not list $STA"
cat /dev/vy_dump >/tmp/dump || fail "read /dev/vy_dump"
grep -q "STA Number: 1" /tmp/dump || fail "dump does not count the station"
grep -q "STA: $STA" /tmp/dump || fail "dump does not show $STA"
echo "debug_level 3" >/dev/vy_dump || fail "debug_level command"
cat /dev/vy_dump >/tmp/dump || fail "read /dev/vy_dump"
grep -q "Debug Level: 3" /tmp/dump || fail "debug_level not applied"
echo "leave $STA wlan0" >/proc/umac/control || fail "umac leave"
cat /dev/vy_dump >/tmp/dump || fail "read /dev/vy_dump"
grep -q "STA Number: 0" /tmp/dump || fail "station not removed"
cat /tmp/dump

rmmod veyra || fail "rmmod veyra"
rmmod umac || fail "rmmod umac"
/sbin/veyra-mknodes -r
if dmesg | grep -E 'BUG|Oops|WARNING|Unable to handle|Call trace' >/dev/null; then
	fail "kernel warnings"
fi
echo "VM-ARM64: PASS"
poweroff -f
