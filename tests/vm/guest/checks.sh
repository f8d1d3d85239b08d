# The VM suite's assertions (sourced after vm/guest/lib.sh by stage2.sh and
# every guest script when the suite is present). A check is reported as a
# step is (PASS name | FAIL name); a check that cannot run says why:
# SKIP name: why.

check() { step "$@"; }
skip() { _record "SKIP $1: $2"; }
klog_has() { klog_since | grep -Eq "$1"; }
klog_count() { klog_since | grep -Ec "$1"; }

# Lines at warning level or worse (priority & 7 <= 4) since the mark, less the
# expected notes on loading an unsigned out-of-tree module and the timing
# complaints of a kernel running under software emulation on a busy host.
KLOG_EXPECTED='loading out-of-tree module taints kernel|module verification failed: signature and/or required key missing'
KLOG_EMULATION='hrtimer: interrupt took [0-9]+ ns|clocksource: .*(watchdog|skew|unstable)|tsc: Marking TSC unstable|sched: RT throttling activated|Unstable clock detected'
klog_bad_lines() {
	tail -n +"$(( ${KLOG_MARK:-0} + 1 ))" "$KMSG" |
		awk '{ if (match($0, /^<[0-9]+>/)) { p = substr($0, 2, RLENGTH - 2) % 8; if (p <= 4) print } }' |
		grep -Ev "$KLOG_EXPECTED|$KLOG_EMULATION" |
		{ if [ -s "$RUN/klog-expected" ]; then grep -Evf "$RUN/klog-expected"; else cat; fi; } || true
}
# klog_expect ERE: a kernel log line a scenario provokes on purpose (an
# operator's mistake, say); it no longer counts as a bad line in this run.
klog_expect() { echo "$1" >> "$RUN/klog-expected"; }
# Oops, BUG, WARN, lockups and netfilter complaints at any level, and what
# a debug kernel's checkers (lockdep, KASAN, debug objects) report.
klog_crash_lines() {
	klog_since | grep -E 'BUG:|Oops|WARNING:|Call Trace|soft lockup|hard LOCKUP|hung_task|blocked for more than|unregistering hook|hook not found|general protection|kernel NULL pointer|list_add corruption|list_del corruption|refcount_t:|scheduling while atomic|sleeping function called|INFO: (trying to register|possible|lockdep)|turning off the locking correctness validator|KASAN|ODEBUG|UBSAN' || true
}
klog_clean() {
	_bad=$(klog_bad_lines; klog_crash_lines)
	[ -z "$_bad" ] && return 0
	echo "$_bad" | head -n 20
	return 1
}

# After every scenario, with every module of ours out (stage2.sh calls it with
# KLOG_MARK at the run's start): the kernel log of the whole run, and on a
# debug kernel its leak detector. An object is reported only after it has
# stayed unreferenced through a scan, hence two scans. A leak of veyra's or
# umac's is told by a frame of its allocation trace in one of them, or in a
# module no longer loaded (whose addresses stay unresolved).
checks_end() {
	check kernel_log_clean_whole_run klog_clean
	[ -w /sys/kernel/debug/kmemleak ] || return 0
	phase kmemleak
	echo scan > /sys/kernel/debug/kmemleak
	sleep 6
	echo scan > /sys/kernel/debug/kmemleak
	cat /sys/kernel/debug/kmemleak > "$OUT/kmemleak.txt"
	echo "kmemleak: $(grep -c '^unreferenced object' "$OUT/kmemleak.txt") suspected leak(s) in the whole kernel"
	check kmemleak_nothing_of_ours \
		sh -c "! grep -qE '\[(veyra|umac)\]|vy_[a-z_]+\+0x|^ +\[<[0-9a-f]+>\] 0x[0-9a-f]+$' '$OUT/kmemleak.txt'"
}
