# The busy access point: 32 stations with a mix of DHCP clients and resolvers
# onboarding at once in the VM (tests/vm/guest/load.sh). A job of its own
# (tens of minutes under emulation), not part of make check. Each run appends
# its figures, with the date and the commit, to docs/load.md.
#
# LOAD_VM_ICOUNT: the guest's clock is QEMU's instruction counter with this
# shift (default 0: one instruction is one nanosecond), so that the stations'
# timing, the module's 35 s listening window and the latencies follow the
# work the guest does, not the host's load; empty for the host's clock.
LOAD_VM_ICOUNT ?= 0

.PHONY: vm-load
vm-load: vm-deps module
	@rc=0; VM_ICOUNT=$(LOAD_VM_ICOUNT) VM_MEM=$(or $(VM_MEM),2048) VY_SCENARIO_TIMEOUT=2400 VM_TIMEOUT=3000 \
		vm/run.sh --no-build --build $(BUILD) --out $(BUILD)/vm-load load || rc=$$?; \
	if [ -s $(BUILD)/vm-load/figures.md ]; then \
		{ echo; echo "### $$(date -u '+%Y-%m-%d %H:%M UTC'), commit $$(git rev-parse --short HEAD 2>/dev/null || echo unknown):" \
			"$$([ $$rc -eq 0 ] && echo passed || echo failed)"; echo; cat $(BUILD)/vm-load/figures.md; } >> docs/load.md; \
		echo "figures appended to docs/load.md"; fi; \
	exit $$rc
