# The diagnostics devices in the kernel: two character devices whose majors
# /sys/veyra publishes (as /proc/devices lists them), nodes made from those
# by veyra-mknodes, one device open at a time (the second open gets EBUSY),
# and a module that cannot be unloaded while one is open.
klog_expect 'The dump char device is in use now'
klog_expect 'The input length 70 > 64'
klog_expect 'vy_dump_dev_write: [0-9]+ callbacks suppressed'
check load_modules load_veyra
check device_nodes vy_nodes
node_matches() { # node_matches NAME: sysfs, /proc/devices and the node agree on the major
	_m=$(cat "/sys/veyra/$1_dev_major_num") && grep -Eq "^ *$_m vy_$1$" /proc/devices &&
		[ -c "/dev/vy_$1" ] && [ "$(stat -c %t "/dev/vy_$1")" = "$(printf %x "$_m")" ]
}
check summary_major node_matches summary
check dump_major node_matches dump

exec 3< /dev/vy_dump
check second_open_busy sh -c "! cat /dev/vy_summary 2> '$RUN/busy.err' && grep -q 'Device or resource busy' '$RUN/busy.err'"
check rmmod_refused_while_open sh -c '! rmmod veyra 2>/dev/null && test -d /sys/module/veyra'
exec 3<&-
check open_after_close cat /dev/vy_summary
# A write of more than 64 bytes answers 0, which printf retries without
# end; the error line is rate limited per call site (10 in 5 s), so 3 s
# of retries leave at most 10 lines.
retried_too_long_limited() {
	timeout 3 sh -c "printf '%070d' 0 > /dev/vy_summary"
	_lines=$(klog_count 'The input length 70 > 64')
	echo "$_lines error lines"
	[ "$_lines" -ge 1 ] && [ "$_lines" -le 10 ]
}
check too_long_retry_limited retried_too_long_limited
check unload_after_close rmmod veyra
