# veyra: top-level entry points.
#   make          host build: the logic on the host platform, tests, tools
#   make check    every test suite (installs what it needs)
#   make module   veyra.ko and umac.ko against KDIR
#   make demo     the main job: the module in a VM with a Wi-Fi AP
# Subsystems add their own targets in mk/*.mk.

BUILD ?= build
JOBS ?= $(shell nproc)

.PHONY: all host deps check check-host clean
all: host

# Every suite: host tests under ASan/UBSan, the kernel modules, the VM.
check: deps check-host fuzz-smoke stress-smoke module vm-check

deps:
	@scripts/install-deps.sh host

$(BUILD)/CMakeCache.txt:
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Debug

host: $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j$(JOBS)

# The GoogleTest binaries run directly (their own summary is the record);
# CTest runs everything else (scenario and script tests).
VY_GTEST_BINARIES = $(BUILD)/tests/veyra_unit $(wildcard $(BUILD)/tests/*/veyra_*_tests)

check-host: host
	@set -e; for t in $(VY_GTEST_BINARIES); do \
		echo "== $$t"; $$t --gtest_brief=1; done
	cd $(BUILD) && ctest --output-on-failure -j$(JOBS) -LE gtest

clean:
	rm -rf $(BUILD)

include $(wildcard mk/*.mk)
