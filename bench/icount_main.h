/* SPDX-License-Identifier: GPL-2.0 */
/* The start shared by the callgrind counters (icount_*.cpp). */
#ifndef VY_BENCH_ICOUNT_MAIN_H
#define VY_BENCH_ICOUNT_MAIN_H

#include <cstdio>

#include <valgrind/callgrind.h>

namespace icount {

/*
 * The JSON file named by the one argument, open for writing; or nullptr,
 * said on stderr, for a wrong command line, for a run outside callgrind
 * (where every count would silently be zero) or for a file that cannot be
 * written. main() then returns 2.
 */
inline std::FILE *open_output(int argc, char **argv)
{
	if (argc != 2) {
		std::fprintf(stderr, "usage: %s OUT.json (under callgrind)\n", argv[0]);
		return nullptr;
	}
	if (!RUNNING_ON_VALGRIND) {
		std::fprintf(stderr, "%s: counts nothing outside callgrind\n", argv[0]);
		return nullptr;
	}
	std::FILE *out = std::fopen(argv[1], "w");
	if (!out)
		std::perror(argv[1]);
	return out;
}

} // namespace icount

#endif
