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

if [ $# -lt 1 ]; then
	echo "usage: $0 VEYRA_SIM [--dir DIR] [--bless] [NAME ...]" >&2
	exit 2
fi
sim=$1
shift
case $sim in
/*) ;;
*) sim=$(pwd)/$sim ;;
esac
here=$(cd "$(dirname "$0")" && pwd)
if [ "${1:-}" = "--dir" ] && [ $# -ge 2 ]; then
	here=$(cd "$2" && pwd) || exit 2
	shift 2
fi
bless=0
if [ "${1:-}" = "--bless" ]; then
	bless=1
	shift
fi
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

normalize() {
	sed -E \
		-e 's/^(\[[0-9]+\] log [a-z]+ [A-Za-z0-9_]+)\[[0-9]+\]:/\1[N]:/' \
		-e 's/^(\[[0-9]+\] log [a-z]+ [A-Za-z0-9_]+):[0-9]+:/\1:N:/' \
		-e 's/("text":"[A-Za-z0-9_]+)\[[0-9]+\]:/\1[N]:/' \
		-e 's/("text":"[A-Za-z0-9_]+):[0-9]+:/\1:N:/' \
		-e 's/(Caller: [A-Za-z0-9_:]+)\+0x[0-9a-f]+/\1+0xN/g' \
		-e '/^\[[0-9]+\] log |"event":"log"/s/\b[0-9a-f]{16}\b/<ptr>/g'
}

if [ $# -eq 0 ]; then
	set -- $(cd "$here" && ls *.scn | sed 's/\.scn$//')
fi

pass=0
fail=0
failed=
for name in "$@"; do
	name=${name%.scn}
	if [ ! -f "$here/$name.scn" ]; then
		echo "no such scenario: $name" >&2
		fail=$((fail + 1))
		failed="$failed $name"
		continue
	fi
	args=$(sed -n 's/^# args://p' "$here/$name.scn" | tr '\n' ' ')
	# Options word-split on purpose; scenario files hold no blanks.
	(cd "$here" && "$sim" $args "$name.scn" >"$tmp/stdout" 2>"$tmp/stderr")
	status=$?
	{
		normalize <"$tmp/stdout"
		if [ -s "$tmp/stderr" ]; then
			echo "--- stderr"
			cat "$tmp/stderr"
		fi
		if [ $status -ne 0 ]; then
			echo "--- exit $status"
		fi
	} >"$tmp/actual"

	if [ $bless -eq 1 ]; then
		if ! cmp -s "$tmp/actual" "$here/$name.out" 2>/dev/null; then
			cp "$tmp/actual" "$here/$name.out"
			echo "blessed $name"
		fi
		continue
	fi
	if [ ! -f "$here/$name.out" ]; then
		echo "FAIL $name: no $name.out (review the output, then --bless)"
		fail=$((fail + 1))
		failed="$failed $name"
	elif diff -u "$here/$name.out" "$tmp/actual" >"$tmp/diff"; then
		pass=$((pass + 1))
	else
		echo "FAIL $name"
		cat "$tmp/diff"
		fail=$((fail + 1))
		failed="$failed $name"
	fi
done

[ $bless -eq 1 ] && exit 0
echo "scenarios: $pass passed, $fail failed${failed:+ (}${failed# }${failed:+)}"
[ $fail -eq 0 ]
