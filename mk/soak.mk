# The VM soak: veyra loaded and unloaded 20 times (VY_SOAK_CYCLES) while a
# station associates, renews, queries and leaves. A job of its own (a few
# minutes under emulation), not part of make check.
.PHONY: vm-soak
vm-soak: vm-deps module
	@VY_SOAK_CYCLES=$(or $(VY_SOAK_CYCLES),20) VY_SCENARIO_TIMEOUT=2400 VM_TIMEOUT=3000 \
		vm/run.sh --no-build --build $(BUILD) soak
