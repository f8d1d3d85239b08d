# Module lifecycle in the kernel: veyra imports umac's symbols, so umac comes
# first, cannot be unloaded while veyra holds it, and goes last; veyra hands
# its station-event monitor to umac on load and takes it back on unload.
monitors_are() { [ "$(awk '$1 == "monitors" { print $2 }' "$UMAC_COUNTERS")" = "$1" ]; }
check load_umac insmod "$VY_MODDIR/umac.ko"
check load_veyra insmod "$VY_MODDIR/veyra.ko"
check veyra_holds_umac test -e /sys/module/umac/holders/veyra
check monitor_registered monitors_are 1
check rmmod_umac_refused_while_veyra_loaded sh -c '! rmmod umac && test -d /sys/module/umac && test -d /sys/module/veyra'
check unload_veyra rmmod veyra
check monitor_unregistered monitors_are 0
check veyra_gone sh -c '! test -e /sys/module/veyra && ! test -e /sys/veyra'
check unload_umac rmmod umac
