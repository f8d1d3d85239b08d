#!/bin/sh
# SPDX-License-Identifier: GPL-2.0
#
# Golden scenario tests: runs veyra-sim on every NAME.scn here and compares
# what it printed with NAME.out.
#
#   run.sh VEYRA_SIM [--dir DIR] [--bless] [NAME ...]
#
# DIR is the directory of the scenarios (default: this one; the examples
# directory holds its expected outputs the same way).
# A scenario's options come from its "# args:" lines (e.g. "# args:
# --debug-level 3"). The compared text is standard output, then, when not
# empty, "--- stderr" and standard error, then "--- exit N" when the exit
# status is not 0. Source line numbers in log lines ("func[123]:" and
# "func:123:") and the offsets of %pS symbols ("+0x1f4") are replaced by N,
# so that editing the module does not churn the expected files; pointers
# printed with %p (16 hex digits, different at every run) become <ptr>.
#
# --bless writes the current output as the expected one. Review every
# changed line against the module's documented behaviour before keeping it.

set -u
[ $# -ge 1 ] || { echo "usage: $0 VEYRA_SIM [--dir DIR] [--bless] [NAME ...]" >&2; exit 2; }
sim=$(cd "$(dirname "$1")" && pwd)/$(basename "$1") && shift
here=$(cd "$(dirname "$0")" && pwd)
[ "${1:-}" = --dir ] && [ $# -ge 2 ] && { here=$(cd "$2" && pwd) || exit 2; shift 2; }
bless=0; [ "${1:-}" = --bless ] && { bless=1; shift; }
[ $# -gt 0 ] || set -- $(cd "$here" && ls *.scn | sed 's/\.scn$//')
tmp=$(mktemp -d) && trap 'rm -rf "$tmp"' EXIT

fail=
for name in "$@"; do
	name=${name%.scn}
	# Options word-split on purpose; scenario files hold no blanks.
	args=$(sed -n 's/^# args://p' "$here/$name.scn" 2>/dev/null | tr '\n' ' ')
	(cd "$here" && "$sim" $args "$name.scn" >"$tmp/stdout" 2>"$tmp/stderr")
	status=$?
	{
		sed -E -e 's/((^\[[0-9]+\] log [a-z]+ |"text":")[A-Za-z0-9_]+)\[[0-9]+\]:/\1[N]:/' \
			-e 's/((^\[[0-9]+\] log [a-z]+ |"text":")[A-Za-z0-9_]+):[0-9]+:/\1:N:/' \
			-e 's/(Caller: [A-Za-z0-9_:]+)\+0x[0-9a-f]+/\1+0xN/g' \
			-e '/^\[[0-9]+\] log |"event":"log"/s/\b[0-9a-f]{16}\b/<ptr>/g' "$tmp/stdout"
		[ -s "$tmp/stderr" ] && echo "--- stderr" && cat "$tmp/stderr"
		[ $status -eq 0 ] || echo "--- exit $status"
	} >"$tmp/actual"
	if [ $bless -eq 1 ]; then
		cmp -s "$tmp/actual" "$here/$name.out" || { cp "$tmp/actual" "$here/$name.out"; echo "blessed $name"; }
	elif ! diff -u "$here/$name.out" "$tmp/actual"; then
		echo "FAIL $name"
		fail="$fail $name"
	fi
done
[ $bless -eq 1 ] && exit 0
echo "scenarios: $# run${fail:+, failed:$fail}"
[ -z "$fail" ]
