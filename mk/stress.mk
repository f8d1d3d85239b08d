# The concurrency stress (tests/stress/) under ThreadSanitizer, in a build
# of its own.
#
#   make stress [STRESS_OPS=20000] [STRESS_ROUNDS=5]
#   make stress-smoke               a small count, for make check
#
# Any data race stops the program with TSan's report and fails the target;
# so does any broken invariant.

TSAN_BUILD ?= build-tsan
STRESS_OPS ?= 20000
STRESS_ROUNDS ?= 5
STRESS_SMOKE_OPS ?= 2000
STRESS_SMOKE_ROUNDS ?= 2
VY_TSAN_OPTIONS = TSAN_OPTIONS="halt_on_error=1 exitcode=66 second_deadlock_stack=1"

.PHONY: stress stress-smoke stress-build

$(TSAN_BUILD)/CMakeCache.txt:
	cmake -S . -B $(TSAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DVY_TSAN=ON -DVY_SANITIZE=OFF

stress-build: deps $(TSAN_BUILD)/CMakeCache.txt
	cmake --build $(TSAN_BUILD) -j$(JOBS) --target veyra_stress

stress: stress-build
	$(VY_TSAN_OPTIONS) $(TSAN_BUILD)/tests/stress/veyra_stress \
		--ops $(STRESS_OPS) --rounds $(STRESS_ROUNDS)

stress-smoke: stress-build
	$(VY_TSAN_OPTIONS) $(TSAN_BUILD)/tests/stress/veyra_stress \
		--ops $(STRESS_SMOKE_OPS) --rounds $(STRESS_SMOKE_ROUNDS)
