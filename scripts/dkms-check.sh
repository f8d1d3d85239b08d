#!/bin/sh
# Proves the DKMS packaging against the Debian 6.1 headers: adds a staged
# source tree under a version of its own, builds and installs both modules
# for KVER with dkms, checks what was installed (vermagic, the dependency of
# veyra on umac, modprobe's load order), then removes everything again and
# checks that nothing is left: the DKMS tree, /usr/src, the installed
# modules and what depmod and dkms's signing wrote for this run.
#
# usage: scripts/dkms-check.sh        (KVER as in scripts/kver.sh)
# Needs root, or sudo without a password; exits 1 with a message otherwise.
# Installs dkms, g++ and the headers when missing.
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
prog=dkms-check

if [ "$(id -u)" -ne 0 ]; then
	if command -v sudo >/dev/null 2>&1 && sudo -n true 2>/dev/null; then
		exec sudo -n KVER="${KVER:-}" "$0" "$@"
	fi
	echo "$prog: needs root or password-less sudo (dkms installs into /usr/src and /lib/modules): not run" >&2
	exit 1
fi

KVER=${KVER:-$("$root/scripts/kver.sh")}
export KVER
"$root/scripts/ensure-pkgs.sh" dkms g++ make kmod
"$root/scripts/install-deps.sh" module >&2

module=veyra
version="0.0+check.$(date +%s).$$"
srcdir=/usr/src/$module-$version
mods=/lib/modules/$KVER
say() { echo "$prog: $*"; }
fail() { echo "$prog: FAIL: $*" >&2; exit 1; }

cleanup() {
	rc=$?
	set +e
	if [ -n "$added" ]; then
		dkms remove "$module/$version" --all >/dev/null 2>&1
	fi
	rm -rf "$srcdir" "$stagedir"
	[ -n "$had_tree" ] || rmdir "/var/lib/dkms/$module" 2>/dev/null
	for f in /var/lib/dkms/mok.key /var/lib/dkms/mok.pub; do
		[ -e "$f" ] && ! grep -qx "$f" "$snap/keys.before" && rm -f "$f"
	done
	# depmod's indexes for a kernel that had none (headers only) go too.
	if [ -s "$snap/mods.before" ]; then
		ls -A "$mods" | while read -r f; do
			grep -qx "$f" "$snap/mods.before" && continue
			case "$f" in modules.*) rm -f "$mods/$f" ;; esac
		done
	fi
	[ -n "$had_updates_dkms" ] || rmdir "$mods/updates/dkms" 2>/dev/null
	[ -n "$had_updates" ] || rmdir "$mods/updates" 2>/dev/null
	rm -rf "$snap"
	exit $rc
}

# What exists before the run, so that the clean-up removes only what this
# run created.
added= had_tree=1 had_updates=1 had_updates_dkms=1
snap=$(mktemp -d)
stagedir=$(mktemp -d)
stage=$stagedir/$module-$version
trap cleanup EXIT
trap 'exit 130' INT TERM
touch "$snap/keys.before"
ls -A "$mods" >"$snap/mods.before"
had_updates=; [ -d "$mods/updates" ] && had_updates=1
had_updates_dkms=; [ -d "$mods/updates/dkms" ] && had_updates_dkms=1
had_tree=; [ -d "/var/lib/dkms/$module" ] && had_tree=1
for f in /var/lib/dkms/mok.key /var/lib/dkms/mok.pub; do
	[ -e "$f" ] && echo "$f" >>"$snap/keys.before"
done

say "staging $module $version"
"$root/scripts/dkms-stage.sh" "$stage" "$version"
[ ! -e "$srcdir" ] || fail "$srcdir already exists"

say "dkms add"
dkms add "$stage"
added=1
[ -f "$srcdir/dkms.conf" ] || fail "dkms add did not copy the tree to $srcdir"

say "dkms build for $KVER"
# dkms keeps make.log in build/ on failure, under <kernel>/<arch>/log/ after.
if ! dkms build "$module/$version" -k "$KVER"; then
	find "/var/lib/dkms/$module/$version" -name make.log -exec cat {} + >&2
	fail "dkms build"
fi
log=$(find "/var/lib/dkms/$module/$version" -name make.log | head -n 1)
[ -n "$log" ] || fail "no make.log from the DKMS build"
if grep -iE '(warning|error):' "$log" >&2; then
	fail "warnings in the DKMS build (above; $log)"
fi

say "dkms install for $KVER"
dkms install "$module/$version" -k "$KVER"
dkms status "$module/$version" -k "$KVER" | grep -q ": installed" ||
	fail "dkms status does not say installed"

for m in umac veyra; do
	f=$(find "$mods/updates/dkms" -name "$m.ko*" | head -n 1)
	[ -n "$f" ] || fail "$m.ko not installed under $mods/updates/dkms"
	vm=$(modinfo -F vermagic "$f")
	case "$vm" in "$KVER "*) ;; *) fail "$m.ko vermagic '$vm' is not for $KVER" ;; esac
	say "installed $f ($vm)"
done
dep=$(modinfo -F depends "$(find "$mods/updates/dkms" -name 'veyra.ko*' | head -n 1)")
[ "$dep" = umac ] || fail "veyra.ko depends on '$dep', not umac"
order=$(modprobe -S "$KVER" --show-depends veyra | sed -n 's|^insmod .*/\([a-z]*\)\.ko.*|\1|p' | tr '\n' ' ')
[ "$order" = "umac veyra " ] || fail "modprobe would load '$order', not 'umac veyra'"
say "modprobe veyra loads: $order"

say "dkms remove"
dkms remove "$module/$version" --all
added=
[ ! -d "/var/lib/dkms/$module/$version" ] || fail "dkms remove left /var/lib/dkms/$module/$version"
if find "$mods/updates/dkms" -name 'umac.ko*' -o -name 'veyra.ko*' 2>/dev/null | grep -q .; then
	fail "dkms remove left modules in $mods/updates/dkms"
fi
say "OK: dkms add, build, install and remove of $module $version for $KVER"
