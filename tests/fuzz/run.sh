#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
# Runs fuzz targets on their corpora and prints one line per target:
#
#   run.sh BUILD SECONDS [TARGET...]
#
# BUILD is the fuzz build (its tests/fuzz/ holds the targets). Each target
# works in WORK/TARGET/, WORK being $FUZZ_WORK or else BUILD/fuzz-work:
# corpus/ starts as a copy of the seeds and keeps what the fuzzer adds,
# findings/ keeps crashing, leaking or timing-out inputs (earlier ones
# stay; only this run's count), run.log is the fuzzer's output. A work
# directory other than BUILD/fuzz-work also reads (never writes) the
# corpus grown there, so that a short run starts from what long runs
# found. One run at a time per work directory: a second one is refused.
# FUZZ_JOBS targets run at once (default 1). The status is non-zero when
# any target reported anything or could not run.
set -u

if [ $# -lt 2 ]; then
	echo "usage: $0 BUILD SECONDS [TARGET...]" >&2
	exit 2
fi
build=$1
secs=$2
shift 2
here=$(cd "$(dirname "$0")" && pwd)
targets=${*:-fuzz_dns fuzz_dhcp fuzz_skb fuzz_command fuzz_module}
jobs=${FUZZ_JOBS:-1}
main_work=$build/fuzz-work
work_root=${FUZZ_WORK:-$main_work}
outcome=$(mktemp -d)
trap 'rm -rf "$outcome"' EXIT

run_one() {
	t=$1
	bin=$build/tests/fuzz/$t
	work=$work_root/$t
	mkdir -p "$work/corpus" "$work/findings"
	exec 9>"$work/lock"
	if ! flock -n 9; then
		echo "$t: another run uses $work" >&2
		return 1
	fi
	rm -f "$work/result"
	cp -n "$here/corpus/$t/"* "$work/corpus/" 2>/dev/null
	extra=""
	if [ "$work_root" != "$main_work" ] && [ -d "$main_work/$t/corpus" ]; then
		extra=$main_work/$t/corpus
	fi
	dict=""
	case $t in
	fuzz_command | fuzz_module) dict="-dict=$here/fuzz_command.dict" ;;
	esac
	touch "$work/started"
	start=$(date +%s)
	# shellcheck disable=SC2086
	"$bin" -max_total_time="$secs" -timeout=25 -rss_limit_mb=3072 \
		-print_final_stats=1 -artifact_prefix="$work/findings/" $dict \
		"$work/corpus" $extra "$here/corpus/$t" >"$work/run.log" 2>&1
	rc=$?
	end=$(date +%s)
	execs=$(sed -n 's/^stat::number_of_executed_units: //p' "$work/run.log" | tail -1)
	found=$(find "$work/findings" -type f -newer "$work/started" | wc -l)
	status=ok
	[ "$rc" -eq 0 ] && [ "$found" -eq 0 ] || status="FAILED (exit $rc)"
	printf '%-13s %10s executions %6s s  %s finding(s)  %s\n' \
		"$t" "${execs:-?}" "$((end - start))" "$found" "$status" |
		tee "$work/result"
	[ "$status" = ok ] && touch "$outcome/$t"
}

running=0
for t in $targets; do
	if [ ! -x "$build/tests/fuzz/$t" ]; then
		echo "$t: not built in $build" >&2
		exit 2
	fi
	run_one "$t" &
	running=$((running + 1))
	if [ "$running" -ge "$jobs" ]; then
		wait -n
		running=$((running - 1))
	fi
done
wait
fail=0
for t in $targets; do
	[ -e "$outcome/$t" ] || fail=1
done
if [ "$fail" -ne 0 ]; then
	echo "fuzzing found something or could not run: see $work_root/*/" >&2
fi
exit $fail
