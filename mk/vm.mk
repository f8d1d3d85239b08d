# The VM harness: veyra and umac loaded in a QEMU guest running a Wi-Fi access
# point (mac80211_hwsim, hostapd) with real stations (wpa_supplicant, udhcpc)
# and a real DHCP/DNS server (dnsmasq). The guest kernel is Debian's, fetched
# with apt-get download into .cache/kernel/ and never installed. The runner and
# the guest's set-up are in vm/, the checks in tests/vm/guest/.
#
#   make demo                  the demo: an AP, two stations, veyra's view of them
#   make vm-check              the VM checks (results in $(BUILD)/vm-results)
#   make vm-check VM_SCENARIOS="t20-hooks t40-vlan"   some scenarios only
#   make vm-deps               install what the harness needs (apt, sudo when not root)
#   make vm-debug              the suite on a debug kernel (KASAN, lockdep, kmemleak),
#                              built from linux-source-6.1; result in docs/debug-kernel.md
#
# Settings: KVER (guest kernel), VY_SLOW (stretches every timeout), VM_TIMEOUT.

VM_SCENARIOS ?=

.PHONY: vm-deps vm-check vm-debug demo vm-clean

vm-deps:
	@scripts/vm-deps.sh

# vm-deps before module, in this order: both may install packages, and two
# apt runs at once would fight over the package lock (so no -j on a fresh machine).
vm-check: vm-deps module
	@vm/run.sh --no-build --build $(BUILD) $(VM_SCENARIOS)

demo: vm-deps module
	@vm/run.sh --no-build --build $(BUILD) --demo

vm-debug: vm-deps
	@BUILD=$(BUILD) scripts/vm-debug.sh $(VM_SCENARIOS)

vm-clean:
	rm -rf $(BUILD)/vm $(BUILD)/vm-results $(BUILD)/vm-demo .cache/kernel
