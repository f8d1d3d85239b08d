# DKMS packaging (packaging/dkms/): dkms builds umac.ko and veyra.ko for
# every installed kernel, again after each kernel update.
#
#   make dkms-source [DKMS_SRC=<dir>]  lays out the DKMS source tree
#                                      (default $(BUILD)/dkms/veyra-<version>)
#   make dkms-install [KVER=<release>] as root: dkms add, build and install
#                                      (default: the running kernel)
#   make dkms-uninstall                as root: dkms remove, and the source
#   make dkms-check                    as root (or with password-less sudo):
#                                      the whole cycle against the Debian 6.1
#                                      headers under a version of its own,
#                                      leaving the system as it was
#
# VY_VERSION names the DKMS version (default: scripts/version.sh).

VY_VERSION ?= $(shell scripts/version.sh)
DKMS_SRC ?= $(BUILD)/dkms/veyra-$(VY_VERSION)
VY_DKMS_KVER = $(if $(filter command line environment,$(origin KVER)),$(KVER),$(shell uname -r))

.PHONY: dkms-source dkms-install dkms-uninstall dkms-check

dkms-source:
	@scripts/dkms-stage.sh $(DKMS_SRC) $(VY_VERSION)
	@echo "dkms source tree: $(DKMS_SRC)"

dkms-install:
	@test "$$(id -u)" = 0 || { echo "dkms-install: run as root" >&2; exit 1; }
	@scripts/ensure-pkgs.sh dkms g++ make
	scripts/dkms-stage.sh /usr/src/veyra-$(VY_VERSION) $(VY_VERSION)
	dkms add veyra/$(VY_VERSION)
	dkms build veyra/$(VY_VERSION) -k $(VY_DKMS_KVER)
	dkms install veyra/$(VY_VERSION) -k $(VY_DKMS_KVER)

dkms-uninstall:
	@test "$$(id -u)" = 0 || { echo "dkms-uninstall: run as root" >&2; exit 1; }
	-dkms remove veyra/$(VY_VERSION) --all
	rm -rf /usr/src/veyra-$(VY_VERSION)

dkms-check:
	@scripts/dkms-check.sh
