# Benchmarks: the module's costs measured side by side with their floors and
# with established parsers, in an optimised build without sanitizers of its
# own; and bridge throughput in the real kernel, in the VM.
#
#   make bench           run every host benchmark, print each comparison as
#                        a ratio, count under callgrind the DNS parsers'
#                        instructions per message and the hook's and its
#                        floor's per ignored frame, and rewrite BENCHMARKS.md
#                        from the results
#   make bench-vm        iperf3 across the VM's bridge with veyra unloaded,
#                        loaded but unhooked, and hooked (the guest script
#                        bench/vm/bench-throughput.sh); rewrites BENCHMARKS.md
#   make bench-profile   callgrind over the hot paths; the hot spots go into
#                        BENCHMARKS.md
#   make bench-report    BENCHMARKS.md again from the results already there
#
# Settings: BENCH_ARGS (Google Benchmark options, e.g. a filter),
# BENCH_BUILD (build folder), BENCH_VM_ICOUNT (the guest's clock for
# bench-vm: QEMU's instruction counter with this shift, so that a figure
# measures instructions, not the host's load; empty for the host's clock).
# `make check` builds the benchmarks in the ordinary build and runs each
# one for a moment (the bench_smoke tests).

BENCH_BUILD ?= build-bench
BENCH_OUT = $(BENCH_BUILD)/results
BENCH_VM_OUT = $(BUILD)/bench-vm
BENCH_VM_ICOUNT ?= 0
BENCH_ARGS ?= --benchmark_repetitions=3 --benchmark_enable_random_interleaving=true \
	--benchmark_display_aggregates_only=true
BENCH_BINARIES = veyra_bench_parsers veyra_bench
# Instructions per message over the DNS corpus (bench/icount_dns.cpp): a
# figure that does not move with the machine's load, unlike the times.
BENCH_ICOUNT = $(BENCH_BUILD)/bench/veyra_icount_dns
BENCH_ICOUNT_OUT = $(BENCH_OUT)/icount
# Instructions per frame for the frames the module ignores, the bridge hook
# against its floor (bench/icount_ignore.cpp), collected only inside the two.
BENCH_ICOUNT_IGNORE = $(BENCH_BUILD)/bench/veyra_icount_ignore
BENCH_ICOUNT_IGNORE_OUT = $(BENCH_OUT)/icount_ignore
BENCH_REPORT = scripts/bench-report.py --results $(BENCH_OUT) --vm $(BENCH_VM_OUT) \
	--output BENCHMARKS.md

.PHONY: bench bench-build bench-deps bench-vm bench-profile bench-report

bench-deps:
	@scripts/bench-deps.sh host

$(BENCH_BUILD)/CMakeCache.txt:
	cmake -S . -B $(BENCH_BUILD) -DCMAKE_BUILD_TYPE=Release -DVY_SANITIZE=OFF

bench-build: bench-deps $(BENCH_BUILD)/CMakeCache.txt
	cmake --build $(BENCH_BUILD) -j$(JOBS) --target $(BENCH_BINARIES) veyra_icount_dns \
		veyra_icount_ignore

bench: bench-build
	@mkdir -p $(BENCH_OUT)
	@set -e; for b in $(BENCH_BINARIES); do \
		echo "== $$b"; \
		$(BENCH_BUILD)/bench/$$b $(BENCH_ARGS) \
			--benchmark_out=$(BENCH_OUT)/$$b.json --benchmark_out_format=json \
			--vy_ratios_out=$(BENCH_OUT)/$$b.ratios.json; \
	done
	@echo "== veyra_icount_dns (callgrind)"
	@rm -rf $(BENCH_ICOUNT_OUT) && mkdir -p $(BENCH_ICOUNT_OUT)
	@valgrind --tool=callgrind --collect-atstart=no \
		--callgrind-out-file=$(BENCH_ICOUNT_OUT)/callgrind.out \
		$(BENCH_ICOUNT) $(BENCH_ICOUNT_OUT)/icount.json \
		> $(BENCH_ICOUNT_OUT)/run.log 2>&1 || { tail -n 20 $(BENCH_ICOUNT_OUT)/run.log >&2; exit 1; }
	@echo "== veyra_icount_ignore (callgrind)"
	@rm -rf $(BENCH_ICOUNT_IGNORE_OUT) && mkdir -p $(BENCH_ICOUNT_IGNORE_OUT)
	@valgrind --tool=callgrind --collect-atstart=no \
		--toggle-collect=vy_br_pre_routing_hook --toggle-collect=vy_bench_ignore_floor \
		--callgrind-out-file=$(BENCH_ICOUNT_IGNORE_OUT)/callgrind.out \
		$(BENCH_ICOUNT_IGNORE) $(BENCH_ICOUNT_IGNORE_OUT)/icount.json \
		> $(BENCH_ICOUNT_IGNORE_OUT)/run.log 2>&1 || \
		{ tail -n 20 $(BENCH_ICOUNT_IGNORE_OUT)/run.log >&2; exit 1; }
	@$(BENCH_REPORT)

bench-profile: bench-build
	@scripts/bench-profile.sh $(BENCH_BUILD)/bench $(BENCH_OUT)
	@$(BENCH_REPORT)

# In sequence: the package installs must not run alongside the module build's.
bench-vm:
	@scripts/vm-deps.sh
	@scripts/bench-deps.sh vm
	@$(MAKE) --no-print-directory module
	@rc=0; VM_ICOUNT=$(BENCH_VM_ICOUNT) vm/run.sh --no-build --build $(BUILD) --out $(BENCH_VM_OUT) \
		bench-throughput || rc=$$?; $(BENCH_REPORT) && exit $$rc

bench-report:
	@$(BENCH_REPORT)
