#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
# Runs fuzz targets on their corpora and prints one line per target:
#
#   run.sh BUILD SECONDS [TARGET...]
#
# BUILD is the fuzz build (its tests/fuzz/ holds the targets). Each target
# works in WORK/TARGET/, WORK being $FUZZ_WORK or else BUILD/fuzz-work:
# corpus/ keeps what the fuzzer adds to the seeds (which it reads from
# corpus/TARGET/ here), findings/ keeps crashing, leaking or timing-out
# inputs (earlier ones stay; only this run's count), run.log is the
# fuzzer's output. A work directory other than BUILD/fuzz-work also reads
# (never writes) the corpus grown there, so that a short run starts from
# what long runs found. One run at a time per work directory: a second one
# is refused. FUZZ_JOBS targets run at once (default 1). The status is
# non-zero when any target reported anything or could not run.
set -u
[ $# -ge 2 ] || { echo "usage: $0 BUILD SECONDS [TARGET...]" >&2; exit 2; }
build=$1 secs=$2
shift 2
here=$(cd "$(dirname "$0")" && pwd)
work_root=${FUZZ_WORK:-$build/fuzz-work}

run_one() {
	t=$1 work=$work_root/$1
	mkdir -p "$work/corpus" "$work/findings"
	exec 9>"$work/lock"
	flock -n 9 || { echo "$t: another run uses $work" >&2; return 1; }
	# The first corpus directory is the one the fuzzer writes to.
	args=("$work/corpus" "$here/corpus/$t")
	[ "$work_root" != "$build/fuzz-work" ] && [ -d "$build/fuzz-work/$t/corpus" ] &&
		args+=("$build/fuzz-work/$t/corpus")
	SECONDS=0
	"$build/tests/fuzz/$t" -max_total_time="$secs" -timeout=25 -rss_limit_mb=3072 \
		-print_final_stats=1 -artifact_prefix="$work/findings/" "${args[@]}" >"$work/run.log" 2>&1
	rc=$?
	execs=$(sed -n 's/^stat::number_of_executed_units: //p' "$work/run.log" | tail -1)
	found=$(grep -c 'Test unit written to' "$work/run.log")
	[ "$rc" -eq 0 ] && [ "$found" -eq 0 ] && status=ok || status="FAILED (exit $rc)"
	printf '%-13s %10s executions %6s s  %s finding(s)  %s\n' "$t" "${execs:-?}" \
		"$SECONDS" "$found" "$status" | tee "$work/result"
	[ "$status" = ok ]
}
export -f run_one
export build secs here work_root
# xargs runs the targets, FUZZ_JOBS at a time, and fails when any does.
printf '%s\n' ${*:-fuzz_dns fuzz_skb fuzz_module} |
	xargs -P "${FUZZ_JOBS:-1}" -I{} bash -c 'run_one "$0"' {} && exit 0
echo "fuzzing found something or could not run: see $work_root/*/" >&2
exit 1
