# libFuzzer targets over the logic on the host platform (tests/fuzz/),
# built with clang in a build of their own with ASan and UBSan.
#
#   make fuzz [FUZZ_TIME=<seconds per target, default 1800>] [FUZZ_JOBS=2]
#   make fuzz-smoke                 each target for FUZZ_SMOKE_TIME (20 s)
#   make fuzz-build
#
# Each target reads its seed corpus (tests/fuzz/corpus/<target>/, made by
# scripts/mkcorpus.py) and works in $(FUZZ_BUILD)/fuzz-work/<target>/, which
# keeps the corpus it grows and its findings between runs. The smoke works
# in $(FUZZ_BUILD)/fuzz-smoke-work/ and also reads what the long runs grew,
# so that it can run while a long run does. Any crash, leak, timeout or
# sanitizer report fails the target.

FUZZ_BUILD ?= build-fuzz
FUZZ_TIME ?= 1800
FUZZ_SMOKE_TIME ?= 20
FUZZ_JOBS ?= 1
FUZZ_TARGETS ?= fuzz_dns fuzz_skb fuzz_module

.PHONY: fuzz fuzz-smoke fuzz-build

$(FUZZ_BUILD)/CMakeCache.txt:
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) \
		-DCMAKE_BUILD_TYPE=RelWithDebInfo -DVY_FUZZ=ON

fuzz-build: deps $(FUZZ_BUILD)/CMakeCache.txt
	cmake --build $(FUZZ_BUILD) -j$(JOBS) --target $(FUZZ_TARGETS)

fuzz: fuzz-build
	FUZZ_JOBS=$(FUZZ_JOBS) tests/fuzz/run.sh $(FUZZ_BUILD) $(FUZZ_TIME) $(FUZZ_TARGETS)

fuzz-smoke: fuzz-build
	FUZZ_JOBS=$(FUZZ_JOBS) FUZZ_WORK=$(FUZZ_BUILD)/fuzz-smoke-work \
		tests/fuzz/run.sh $(FUZZ_BUILD) $(FUZZ_SMOKE_TIME) $(FUZZ_TARGETS)
