# Kernel modules: veyra.ko (the glue in platform/kernel/ with the logic of
# src/) and umac.ko (the wireless upper-MAC stand-in in umac/), built with
# the kernel's own build system against the build tree KDIR.
#
#   make module                       Debian 6.1 amd64 headers (installed if missing)
#   make module KVER=<release>        the headers of another installed release
#   make module KDIR=<tree> [ARCH=arm64 CROSS_COMPILE=aarch64-linux-gnu-]
#   make module-clean
#
# Results: $(BUILD)/module/veyra.ko and $(BUILD)/module/umac.ko, and the
# build's output in $(BUILD)/module/build.log. Any warning from the
# compiler, objtool or modpost fails the target.

# The kernel release resolves only when needed, and once: the Debian 6.1 ABI
# the distribution's kernel meta-package points at now.
ifeq ($(origin KVER),undefined)
KVER = $(eval KVER := $(shell scripts/kver.sh))$(KVER)
endif
KDIR ?= /lib/modules/$(KVER)/build

VY_MODULE_OUT := $(BUILD)/module
VY_MODULE_DIRS := $(CURDIR)/umac $(CURDIR)/platform/kernel
VY_KBUILD = $(MAKE) -C $(KDIR)

.PHONY: module module-headers module-clean

# The default tree comes from the distribution's headers package; a tree
# named on the command line must already exist.
module-headers:
ifeq ($(origin KDIR),file)
	@test -f $(KDIR)/Makefile || KVER=$(KVER) scripts/install-deps.sh module
else
	@test -f $(KDIR)/Makefile || \
		{ echo "KDIR=$(KDIR) is not a kernel build tree" >&2; exit 1; }
endif

# umac first: veyra's symbol versions for the nxUMAC_* and notify_* calls
# come from umac's Module.symvers, which also makes modpost record the
# dependency (modinfo: depends: umac).
module: module-headers
	@mkdir -p $(VY_MODULE_OUT)
	@rm -f $(VY_MODULE_OUT)/veyra.ko $(VY_MODULE_OUT)/umac.ko
	@{ $(VY_KBUILD) M=$(CURDIR)/umac modules && \
	   $(VY_KBUILD) M=$(CURDIR)/platform/kernel \
		KBUILD_EXTRA_SYMBOLS=$(CURDIR)/umac/Module.symvers modules; \
	   echo $$? >$(VY_MODULE_OUT)/build.rc; } 2>&1 | tee $(VY_MODULE_OUT)/build.log
	@test "$$(cat $(VY_MODULE_OUT)/build.rc)" = 0
	@if grep -iE '(warning|error):' $(VY_MODULE_OUT)/build.log >/dev/null; then \
		echo "module build: warnings above (see $(VY_MODULE_OUT)/build.log)" >&2; \
		exit 1; fi
	@cp umac/umac.ko platform/kernel/veyra.ko $(VY_MODULE_OUT)/
	@echo "modules: $(VY_MODULE_OUT)/veyra.ko $(VY_MODULE_OUT)/umac.ko"

module-clean:
	@if [ -f $(KDIR)/Makefile ]; then \
		for d in $(VY_MODULE_DIRS); do \
			$(VY_KBUILD) M=$$d clean >/dev/null || exit 1; \
		done; \
	fi
	rm -rf $(VY_MODULE_OUT)

clean: module-clean
