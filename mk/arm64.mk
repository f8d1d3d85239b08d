# arm64 cross-build of both modules against Debian's arm64 kernel: its own
# configuration and its Module.symvers, so that modpost checks every symbol
# the modules import and records the CRCs that kernel expects.
#
#   make module ARCH=arm64              prepares the tree once, then builds
#   make module ARCH=arm64 KDIR=<tree>  an arm64 tree of your own instead
#   make arm64-tree                     only the preparation
#   make vm-arm64                       the modules in Debian's arm64 kernel
#                                       under qemu-system-aarch64 (below)
#
# The tree is .cache/arm64/<ABI>/build (scripts/arm64-tree.sh: a few minutes
# the first time, reused afterwards); ARM64_KVER names the ABI, by default
# the amd64 one of scripts/kver.sh with -arm64. CROSS_COMPILE defaults to
# aarch64-linux-gnu-. Results: $(BUILD)/module-arm64/veyra.ko and umac.ko,
# with the build's output in build.log there; as for amd64, any warning
# (an unresolved symbol among them) fails the target.

ARM64_KVER ?= $(patsubst %-amd64,%-arm64,$(KVER))
VY_ARM64_TREE = $(CURDIR)/.cache/arm64/$(ARM64_KVER)/build

.PHONY: arm64-tree
arm64-tree:
	@ARM64_KVER=$(ARM64_KVER) scripts/arm64-tree.sh >/dev/null

ifeq ($(ARCH),arm64)
CROSS_COMPILE ?= aarch64-linux-gnu-
export CROSS_COMPILE
override VY_MODULE_OUT := $(BUILD)/module-arm64
ifneq ($(origin KDIR),command line)
override KDIR = $(VY_ARM64_TREE)
module-headers: arm64-tree
endif
endif

# The arm64 modules in Debian's arm64 kernel under qemu-system-aarch64 (TCG):
# load, a station joining and leaving through umac, both dumps, a command,
# unload (scripts/vm-arm64-guest.sh). A job of its own: emulation is slow.
.PHONY: vm-arm64
vm-arm64:
	@$(MAKE) --no-print-directory module ARCH=arm64
	@ARM64_KVER=$(ARM64_KVER) scripts/vm-arm64.sh $(BUILD)/module-arm64 $(BUILD)/vm-arm64
