/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Shared parts of the benchmark binaries: the comparisons each binary
 * prints as ratios after its run, and the figures that are not timings.
 *
 * A comparison names two benchmarks of the same binary (so both sides are
 * measured in the same run, on the same machine state) and the figure to
 * divide: the time per iteration, or one of the benchmarks' counters.
 */
#ifndef VY_BENCH_H
#define VY_BENCH_H

#include <string>

namespace vy_bench {

enum class GoalKind {
	None,     /* reported only */
	AtMost,   /* ratio <= goal */
	AtLeast,  /* ratio >= goal */
};

struct Ratio {
	std::string id;          /* stable key for the report */
	std::string title;       /* what the ratio says, for people */
	std::string numerator;   /* benchmark names, or "ratio:<id>" of a */
	std::string denominator; /* comparison registered before this one */
	std::string figure;      /* "" for the time per iteration, else a counter */
	GoalKind goal_kind;
	double goal;
};

/* Registers a comparison; returns a value so that it can run from a
 * namespace-scope initialiser next to the benchmarks it compares. */
bool add_ratio(const Ratio &r);

} // namespace vy_bench

#define VY_BENCH_CONCAT2(a, b) a##b
#define VY_BENCH_CONCAT(a, b) VY_BENCH_CONCAT2(a, b)
#define VY_RATIO(...)                                                        \
	static const bool VY_BENCH_CONCAT(vy_ratio_, __LINE__) =             \
		vy_bench::add_ratio(vy_bench::Ratio{__VA_ARGS__})

#endif
