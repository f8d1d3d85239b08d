# The bridge hooks as the kernel sees them: every nf_register_net_hooks and
# nf_unregister_net_hooks call with veyra's ops is traced (lib.sh), and the
# difference must follow the stations veyra listens for, down to zero when
# the module is unloaded with a station still followed.
S=$NET.1
FAKE=02:00:00:00:20:01 # a station that never sends anything keeps its listeners
check hooktrace_ready hooktrace_start
check load_modules load_veyra
sleep 1
check no_hooks_at_load hooks_are 0
umac_event join "$FAKE" "$AP_IF"
check join_registers_hooks wait_for 30 hooks_are 1
umac_event leave "$FAKE" "$AP_IF"
check leave_unregisters_hooks wait_for 30 hooks_are 0
umac_event join "$FAKE" "$AP_IF"
check hooks_before_unload wait_for 30 hooks_are 1
check unload_with_station_followed rmmod veyra
check no_hooks_after_unload hooks_are 0
# Anything the module left behind would run now: a stale hook on bridged
# traffic, the 5 s timer, queued work. Wait past two timer periods.
ip netns exec lan busybox ping -c 3 -W 3 $S > /dev/null 2>&1
sleep 12
check hook_calls_balanced hooks_are 0
cp "$TRACEFS/trace" "$OUT/hooks-trace.txt"
