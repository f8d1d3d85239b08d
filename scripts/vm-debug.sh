#!/bin/sh
# The whole VM suite on the debug kernel (scripts/debug-kernel.sh: KASAN,
# lockdep, DEBUG_ATOMIC_SLEEP, kmemleak, debug objects): builds the kernel
# (or reuses it), builds veyra and umac against it, boots it with every
# scenario, reads kmemleak at the end of the run, and adds the outcome to
# docs/debug-kernel.md (date, kernel, commit, result).
#
# usage: scripts/vm-debug.sh [SCENARIO...]      (default: every scenario)
# Environment: BUILD (default build), VY_SLOW (default 4: the checkers make
# the emulated guest several times slower), VM_MEM (default 2048).
# Exit status: 0 when every check passed and nothing was reported.
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
build=${BUILD:-build}
work=${VY_DEBUG_KERNEL_DIR:-$root/.cache/debug-kernel}
export VY_DEBUG_KERNEL_DIR="$work"

rel=$(scripts/debug-kernel.sh)
# What is tested is the tree as the run starts.
commit=$(git rev-parse --short HEAD 2>/dev/null || echo unknown)
[ -z "$(git status --porcelain -- src platform umac 2>/dev/null)" ] || commit="$commit (modified)"
kdir=$work/linux-source-6.1
out=$build/vm-debug
mkdir -p "$out"

# The in-tree kbuild folders are shared with the distribution-kernel build:
# the modules for the debug kernel are built, copied aside, and the next
# plain `make module` rebuilds for its own kernel.
echo "vm-debug: building the modules against $rel" >&2
export KDIR="$kdir"
make -s module BUILD="$build/debug-kernel" >/dev/null
export KVER="$rel" VY_KERNEL_CACHE="$work/tree"
export VY_SLOW="${VY_SLOW:-4}" VM_MEM="${VM_MEM:-2048}"
set +e
# run.sh empties the results folder first: its own output goes beside it.
vm/run.sh --no-build --build "$build/debug-kernel" --out "$out" "$@" > "$build/debug-kernel/run.out" 2>&1
rc=$?
set -e
tail -n 5 "$build/debug-kernel/run.out"
if ! grep -q '^RESULT ' "$out/result" 2>/dev/null; then
	echo "vm-debug: the suite did not run to its end (see $build/debug-kernel/run.out); nothing recorded" >&2
	exit 1
fi

# What the checkers said, over the whole boot (the suite judges the run's
# own log; this also covers the boot and the end).
reports=$(grep -E 'BUG: KASAN|WARNING: .*(locking|lock state|recursive)|INFO: (trying to register|possible)|ODEBUG|sleeping function called|turning off the locking correctness validator' \
	"$out/serial.log" | sed 's/^\[host *[0-9.]*\] //' | sort | uniq -c || true)
leaks_all="not read"
[ ! -f "$out/kmemleak.txt" ] || leaks_all=$(grep -c '^unreferenced object' "$out/kmemleak.txt" || true)
verdict=pass
[ "$rc" -eq 0 ] || verdict=fail
[ -z "$reports" ] || verdict=fail
[ -f "$out/kmemleak.txt" ] || verdict=fail

passed=$(grep -c '^PASS' "$out/result" || true)
failed=$(grep -c '^FAIL' "$out/result" || true)
skipped=$(grep -c '^SKIP' "$out/result" || true)
record=docs/debug-kernel.md
{
	echo
	echo "### $(date -u '+%Y-%m-%d %H:%M UTC'): $verdict"
	echo
	echo "- kernel: $rel (Debian linux-source-6.1 $(dpkg-query -W -f='${Version}' linux-source-6.1 2>/dev/null)), QEMU TCG, VY_SLOW=$VY_SLOW"
	echo "- veyra: commit $commit; scenarios: ${*:-all}"
	echo "- VM suite: $passed checks passed, $failed failed, $skipped skipped (exit $rc)"
	grep -E '^(FAIL|SKIP)' "$out/result" | sed 's/^/    - /'
	if [ -z "$reports" ]; then
		echo "- lockdep, KASAN, debug objects, atomic sleep: no report"
	else
		echo "- reports:"
		echo "$reports" | sed 's/^/    /'
	fi
	echo "- kmemleak: $leaks_all suspected leak(s) in the whole kernel; of veyra or umac: $(grep -q 'PASS kmemleak_nothing_of_ours' "$out/result" 2>/dev/null && echo none || echo 'see the run')"
} >> "$record"
echo "vm-debug: $verdict; recorded in $record (results in $out)"
[ "$verdict" = pass ]
