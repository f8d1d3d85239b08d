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

deps:
	@scripts/install-deps.sh host

$(BUILD)/CMakeCache.txt:
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Debug

host: $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j$(JOBS)

check-host: host
	cd $(BUILD) && ctest --output-on-failure -j$(JOBS)

clean:
	rm -rf $(BUILD)

include $(wildcard mk/*.mk)
