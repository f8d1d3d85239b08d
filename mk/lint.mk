# Static checks; each fails on any finding.
#
#   make lint             all four below
#   make lint-tidy        clang-tidy (.clang-tidy) on src/ and platform/host/,
#                         with the host build's compile_commands.json
#   make lint-cppcheck    cppcheck on src/, platform/host/ and the kernel glue
#                         (.cppcheck-suppressions says what is left out, and why)
#   make lint-checkpatch  the kernel's checkpatch.pl --strict on the kernel
#                         glue and umac/, from Debian's linux-source-6.1
#                         unpacked in .cache/ (scripts/linux-source.sh)
#   make lint-sparse      sparse on the kernel C files: make module C=2
#
# Missing tools are installed (through sudo when not root).
#
# checkpatch warnings that come with what the module is, and are ignored:
#   LINUX_VERSION_CODE, CONSTANT_COMPARISON  the version guards that keep one
#       source building from Linux 5.4 to 6.x (docs/kernel-5.4.md)
#   CAMELCASE  the platform's upper-MAC interface is named nxUMAC_*

VY_LINT_TIDY_FILES = $(wildcard src/*.cpp platform/host/*.cpp)
VY_LINT_CPPCHECK_FILES = $(wildcard src/*.cpp platform/host/*.cpp platform/kernel/vy_glue*.c)
VY_LINT_CHECKPATCH_FILES = $(filter-out %.mod.c,$(wildcard platform/kernel/vy_glue*.c platform/kernel/*.h umac/*.c umac/*.h))
VY_CHECKPATCH_IGNORE = LINUX_VERSION_CODE,CONSTANT_COMPARISON,CAMELCASE

.PHONY: lint lint-deps lint-tidy lint-cppcheck lint-checkpatch lint-sparse

lint: lint-tidy lint-cppcheck lint-checkpatch lint-sparse
	@echo "lint: clang-tidy, cppcheck, checkpatch and sparse are clean"

lint-deps:
	@scripts/ensure-pkgs.sh clang-tidy cppcheck sparse perl

# The compile database comes with configuring the host build; configuring
# again picks up new source files. A file missing from it would be checked
# with guessed flags, so that fails.
lint-tidy: lint-deps $(BUILD)/CMakeCache.txt
	@cmake -S . -B $(BUILD) >/dev/null
	@for f in $(VY_LINT_TIDY_FILES); do \
		grep -q "\"file\": \"$(CURDIR)/$$f\"" $(BUILD)/compile_commands.json || \
		{ echo "lint-tidy: $$f is not in $(BUILD)/compile_commands.json" >&2; exit 1; }; \
	done
	@echo "clang-tidy: $(words $(VY_LINT_TIDY_FILES)) files"
	@printf '%s\n' $(VY_LINT_TIDY_FILES) | \
		xargs -P$(JOBS) -n1 clang-tidy -p $(BUILD) --quiet 2>/dev/null

lint-cppcheck: lint-deps
	@echo "cppcheck: $(words $(VY_LINT_CPPCHECK_FILES)) files"
	@cppcheck --quiet --error-exitcode=1 --inconclusive \
		--enable=warning,style,performance,portability --std=c++17 \
		--suppressions-list=.cppcheck-suppressions --template=gcc \
		-Isrc -Iplatform -Iplatform/host $(VY_LINT_CPPCHECK_FILES)

lint-checkpatch: lint-deps
	@src=$$(scripts/linux-source.sh) && \
	echo "checkpatch: $(words $(VY_LINT_CHECKPATCH_FILES)) files" && \
	$$src/scripts/checkpatch.pl --no-tree --strict --terse --show-types \
		--ignore $(VY_CHECKPATCH_IGNORE) -f $(VY_LINT_CHECKPATCH_FILES)

lint-sparse: lint-deps
	@$(MAKE) --no-print-directory module C=2
