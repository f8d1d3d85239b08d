# The diagnostics devices from the shell: nodes made from the sysfs majors
# (which match /proc/devices), the one-open rule, a module held by an open
# device, and every command.
# Errors this scenario provokes on purpose.
klog_expect 'The dump char device is in use now'
klog_expect 'The input length 65 > 64'
klog_expect 'The input length 70 > 64'
klog_expect 'vy_dump_dev_write: [0-9]+ callbacks suppressed'
# The help goes out at the kernel's default level (a warning on Debian).
klog_expect '\([1-4]\) (Enable/Disable debug mode to keep listening|Delete all STA|Delete a STA|Set debug level): echo -n '
klog_expect 'nxUMAC_events_monitor_unregister\(&vy_sta_monitor\) fails probably due to no registration before'
check hooktrace_ready hooktrace_start
check load_modules load_veyra
check_feature devices device_nodes vy_nodes
major_in_proc() { grep -Eq "^ *$(cat "/sys/veyra/$1_dev_major_num") vy_$1$" /proc/devices; }
check_feature devices summary_major_matches major_in_proc summary
check_feature devices dump_major_matches major_in_proc dump
check_feature devices sysfs_read_only sh -c '! echo 7 > /sys/veyra/dump_dev_major_num 2>/dev/null'

# One device open at a time; an open device holds the module.
exec 3< /dev/vy_dump
check_feature devices second_open_busy sh -c "! cat /dev/vy_summary 2> '$OUT/busy.err' && grep -qi 'busy' '$OUT/busy.err'"
check_feature devices rmmod_refused_while_open sh -c '! rmmod veyra 2>/dev/null && test -d /sys/module/veyra'
exec 3<&-
check_feature devices open_after_close cat /dev/vy_summary

dump_has() { cat /dev/vy_dump | grep -q "^$1$"; }
summary_has() { cat /dev/vy_summary | grep -q "^$1 "; }
klog_mark
check_feature devices debug_level_3 vy_cmd "debug_level 3"
check_feature dump debug_level_shown dump_has 'Debug Level: 3'
check_feature devices force_listen_1 vy_cmd "force_listen 1"
check_feature devices forced_hooks wait_for 30 hooks_are 1
check_feature dump forced_shown dump_has 'Force Listening: yes'
check_feature devices force_listen_0 vy_cmd "force_listen 0"
check_feature devices unforced_no_hooks wait_for 30 hooks_are 0

A=02:00:00:00:60:01
B=02:00:00:00:60:02
C=02:00:00:00:60:03
umac_event join $A "$AP_IF"; umac_event join $B "$AP_IF"
check_feature dump two_stations sh -c "summary_has() { cat /dev/vy_summary | grep -q \"^\$1 \"; }; summary_has $A && summary_has $B"
check_feature devices del_sta vy_cmd "del sta $A"
check_feature dump del_sta_removed sh -c "! cat /dev/vy_summary | grep -q '^$A ' && cat /dev/vy_summary | grep -q '^$B '"
check_feature devices del_sta_logged klog_has "Delete STA $A from user command"
check_feature devices del_all vy_cmd "del all"
check_feature dump del_all_empty dump_has 'STA Number: 0'
# After "del all" the module no longer takes station events.
umac_event join $C "$AP_IF"
check_feature dump events_off_after_del_all dump_has 'STA Number: 0'
check_feature devices help_on_unknown vy_cmd "bogus"
check_feature devices help_logged klog_has '\(1\) Enable/Disable debug mode to keep listening: echo -n "force_listen 1/0" > /dev/vy_summary'
# One write() of 65 bytes (the device answers 0, which a retrying writer
# such as printf would repeat forever).
check_feature devices too_long_refused sh -c "printf '%065d' 0 | dd of=/dev/vy_summary bs=65 count=1 2>/dev/null; true"
check_feature devices too_long_logged klog_has 'The input length 65 > 64'
# printf itself retries the 0 without end; the error line is rate limited
# per call site (10 in 5 s), so 3 s of retries leave at most 10 lines.
retried_too_long_limited() {
	timeout 3 sh -c "printf '%070d' 0 > /dev/vy_summary"
	_lines=$(klog_count 'The input length 70 > 64')
	echo "$_lines error lines"
	[ "$_lines" -ge 1 ] && [ "$_lines" -le 10 ]
}
check_feature devices too_long_retry_limited retried_too_long_limited
# Two joins queued a second hook-work run, which sleeps hooked until raised.
vy_cmd "force_listen 0"
check_feature sta hooks_off_at_end wait_for 30 hooks_are 0
check unload unload_all
check_feature devices unload_logs_missing_monitor klog_has 'nxUMAC_events_monitor_unregister\(&vy_sta_monitor\) fails probably due to no registration before'
