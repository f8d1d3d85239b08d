# Installs the operator's tools and the udev rule that makes the device
# nodes (the modules themselves install through DKMS: mk/dkms.mk).
#
#   make install [DESTDIR=<staging root>] [PREFIX=/usr/local]
#                [SBINDIR=$(PREFIX)/sbin] [UDEVRULESDIR=/etc/udev/rules.d]
#   make uninstall (same variables)
#
# Installs SBINDIR/veyra-mknodes, SBINDIR/veyra-umac-bridge and
# UDEVRULESDIR/99-veyra.rules, whose RUN lines name SBINDIR/veyra-mknodes.
# Without DESTDIR, a running udev is told to reload its rules.

PREFIX ?= /usr/local
SBINDIR ?= $(PREFIX)/sbin
UDEVRULESDIR ?= /etc/udev/rules.d
VY_SBIN_PROGRAMS = veyra-mknodes veyra-umac-bridge

.PHONY: install uninstall

install:
	install -d $(DESTDIR)$(SBINDIR) $(DESTDIR)$(UDEVRULESDIR)
	install -m 0755 $(addprefix scripts/,$(VY_SBIN_PROGRAMS)) $(DESTDIR)$(SBINDIR)/
	sed 's|@SBINDIR@|$(SBINDIR)|g' packaging/udev/99-veyra.rules.in \
		>$(DESTDIR)$(UDEVRULESDIR)/99-veyra.rules
	chmod 0644 $(DESTDIR)$(UDEVRULESDIR)/99-veyra.rules
	@if [ -z "$(DESTDIR)" ] && command -v udevadm >/dev/null 2>&1; then \
		udevadm control --reload 2>/dev/null || true; fi

uninstall:
	rm -f $(addprefix $(DESTDIR)$(SBINDIR)/,$(VY_SBIN_PROGRAMS))
	rm -f $(DESTDIR)$(UDEVRULESDIR)/99-veyra.rules
