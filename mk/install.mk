# Installs the operator's tools and the udev rule that makes the device
# nodes (the modules themselves install through DKMS: mk/dkms.mk).
#
#   make install [DESTDIR=<staging root>] [PREFIX=/usr/local]
#                [SBINDIR=$(PREFIX)/sbin] [UDEVRULESDIR=/etc/udev/rules.d]
#                [SYSTEMDUNITDIR=/etc/systemd/system] [INITDDIR=]
#   make uninstall (same variables)
#
# Installs SBINDIR/veyra-mknodes, SBINDIR/veyra-umac-bridge,
# UDEVRULESDIR/99-veyra.rules, whose RUN lines name SBINDIR/veyra-mknodes,
# and the bridge's systemd unit SYSTEMDUNITDIR/veyra-umac-bridge.service
# (none when SYSTEMDUNITDIR is empty). With INITDDIR set (for instance
# /etc/init.d on an AP without systemd), also the bridge's init script.
# Every installed file names its programs by their SBINDIR path. Without
# DESTDIR, a running udev is told to reload its rules and a running systemd
# its units.

PREFIX ?= /usr/local
SBINDIR ?= $(PREFIX)/sbin
UDEVRULESDIR ?= /etc/udev/rules.d
SYSTEMDUNITDIR ?= /etc/systemd/system
INITDDIR ?=
VY_SBIN_PROGRAMS = veyra-mknodes veyra-umac-bridge
VY_SUBST_SBINDIR = sed 's|@SBINDIR@|$(SBINDIR)|g'

.PHONY: install uninstall

install:
	install -d $(DESTDIR)$(SBINDIR) $(DESTDIR)$(UDEVRULESDIR)
	install -m 0755 $(addprefix scripts/,$(VY_SBIN_PROGRAMS)) $(DESTDIR)$(SBINDIR)/
	$(VY_SUBST_SBINDIR) packaging/udev/99-veyra.rules.in \
		>$(DESTDIR)$(UDEVRULESDIR)/99-veyra.rules
	chmod 0644 $(DESTDIR)$(UDEVRULESDIR)/99-veyra.rules
ifneq ($(SYSTEMDUNITDIR),)
	install -d $(DESTDIR)$(SYSTEMDUNITDIR)
	$(VY_SUBST_SBINDIR) packaging/systemd/veyra-umac-bridge.service.in \
		>$(DESTDIR)$(SYSTEMDUNITDIR)/veyra-umac-bridge.service
	chmod 0644 $(DESTDIR)$(SYSTEMDUNITDIR)/veyra-umac-bridge.service
endif
ifneq ($(INITDDIR),)
	install -d $(DESTDIR)$(INITDDIR)
	$(VY_SUBST_SBINDIR) packaging/init.d/veyra-umac-bridge.in \
		>$(DESTDIR)$(INITDDIR)/veyra-umac-bridge
	chmod 0755 $(DESTDIR)$(INITDDIR)/veyra-umac-bridge
endif
	@if [ -z "$(DESTDIR)" ] && command -v udevadm >/dev/null 2>&1; then \
		udevadm control --reload 2>/dev/null || true; fi
	@if [ -z "$(DESTDIR)" ] && [ -n "$(SYSTEMDUNITDIR)" ] && [ -d /run/systemd/system ]; then \
		systemctl daemon-reload || true; fi

uninstall:
	rm -f $(addprefix $(DESTDIR)$(SBINDIR)/,$(VY_SBIN_PROGRAMS))
	rm -f $(DESTDIR)$(UDEVRULESDIR)/99-veyra.rules
ifneq ($(SYSTEMDUNITDIR),)
	rm -f $(DESTDIR)$(SYSTEMDUNITDIR)/veyra-umac-bridge.service
endif
ifneq ($(INITDDIR),)
	rm -f $(DESTDIR)$(INITDDIR)/veyra-umac-bridge
endif
