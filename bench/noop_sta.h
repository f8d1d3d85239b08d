/* SPDX-License-Identifier: GPL-2.0 */
/* The counting station table of the parser benchmarks. */
#ifndef VY_BENCH_NOOP_STA_H
#define VY_BENCH_NOOP_STA_H

namespace noop_sta {

struct Calls {
	long dhcp = 0, query = 0, a = 0, cname = 0, reject = 0;
};

extern Calls calls;

} // namespace noop_sta

#endif
