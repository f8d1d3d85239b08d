# Module lifecycle: both modules load and unload cleanly, twice in a row; umac
# cannot be unloaded while veyra uses it; veyra registers its station-event
# monitor with umac and publishes its device majors.
klog_mark
for round in 1 2; do
	check "load_umac_$round" insmod "$VY_MODDIR/umac.ko"
	check "load_veyra_$round" insmod "$VY_MODDIR/veyra.ko"
	check "veyra_holds_umac_$round" test -e /sys/module/umac/holders/veyra
	check "monitor_registered_$round" sh -c "[ \"\$(awk '\$1 == \"monitors\" { print \$2 }' $UMAC_COUNTERS)\" = 1 ]"
	check "sysfs_majors_$round" sh -c \
		'grep -Eq "^[1-9][0-9]*$" /sys/veyra/summary_dev_major_num && grep -Eq "^[1-9][0-9]*$" /sys/veyra/dump_dev_major_num'
	if [ "$round" = 1 ]; then
		# Nodes of an earlier load are replaced by ones with the current majors.
		rm -f /dev/vy_summary; mknod /dev/vy_summary c 1 3
		node_major_ok() { [ "$(stat -c %t /dev/vy_$1)" = "$(printf %x "$(cat /sys/veyra/$1_dev_major_num)")" ]; }
		check mknodes_replaces_stale sh -c "$MKNODES && test -c /dev/vy_summary && test -c /dev/vy_dump"
		check mknodes_summary_major node_major_ok summary
		check mknodes_dump_major node_major_ok dump
		check mknodes_remove sh -c "$MKNODES -r && ! test -e /dev/vy_summary && ! test -e /dev/vy_dump"
	fi
	check "rmmod_umac_refused_while_veyra_loaded_$round" sh -c "! rmmod umac && test -d /sys/module/umac && test -d /sys/module/veyra"
	check "unload_veyra_$round" rmmod veyra
	check "monitor_unregistered_$round" sh -c "[ \"\$(awk '\$1 == \"monitors\" { print \$2 }' $UMAC_COUNTERS)\" = 0 ]"
	check "veyra_gone_$round" sh -c '! test -e /sys/module/veyra && ! test -e /sys/veyra'
	check "unload_umac_$round" rmmod umac
done

# Loading and unloading is silent at the default debug level.
check kernel_log_clean_modules klog_clean
