// SPDX-License-Identifier: GPL-2.0
/*
 * Memory, as figures: the size of a station entry and of a domain entry,
 * what one allocation of each really takes (this allocator's chunk, and
 * the kernel's kmalloc size class on the target), and the whole for 256
 * stations with full domain tables (512 names each), counted from those
 * and measured from the heap.
 */
#include <malloc.h>

#include <benchmark/benchmark.h>

#include "bench_util.h"
#include "vy_bench.h"

using bench_util::Module;

namespace {

/* The kmalloc size class of a request: powers of two from the minimum
 * alignment up, plus the 96- and 192-byte caches where the minimum is at
 * most 64 (x86_64). On arm64 Linux 5.4 the minimum is ARCH_DMA_MINALIGN,
 * 128 bytes, so there are no 96- or 192-byte caches. */
double kmalloc_class(size_t size, size_t min_align)
{
	if (min_align <= 64) {
		if (size > 64 && size <= 96)
			return 96;
		if (size > 128 && size <= 192)
			return 192;
	}
	size_t c = min_align;
	while (c < size)
		c *= 2;
	return (double)c;
}

/* This allocator's real footprint of one zeroed record: the usable size
 * plus the chunk header glibc keeps in front of it. */
double chunk_of(size_t size)
{
	void *p = vy_plat_zalloc(size);
	double usable = (double)malloc_usable_size(p);
	vy_plat_free(p);
	return usable + sizeof(size_t);
}

void records(benchmark::State &state)
{
	for (auto _ : state)
		benchmark::DoNotOptimize(chunk_of(sizeof(sta)));
	const double sta_chunk = chunk_of(sizeof(sta));
	const double dom_chunk = chunk_of(sizeof(domain_entry));
	state.counters["sta_sizeof"] = sizeof(sta);
	state.counters["sta_heap_chunk"] = sta_chunk;
	state.counters["sta_kmalloc_arm64"] = kmalloc_class(sizeof(sta), 128);
	state.counters["sta_kmalloc_x86_64"] = kmalloc_class(sizeof(sta), 8);
	state.counters["domain_sizeof"] = sizeof(domain_entry);
	state.counters["domain_heap_chunk"] = dom_chunk;
	state.counters["domain_kmalloc_arm64"] = kmalloc_class(sizeof(domain_entry), 128);
	state.counters["domain_kmalloc_x86_64"] = kmalloc_class(sizeof(domain_entry), 8);
}

BENCHMARK(records)->Name("memory.records")->Iterations(1);

constexpr unsigned kStations = 256;

/* 256 stations, each with a full domain table. */
void full_tables(benchmark::State &state)
{
	Module m;
	if (!bench_util::join_stations(kStations)) {
		state.SkipWithError("stations did not join");
		return;
	}
	struct mallinfo2 before = mallinfo2();
	long live_before = vy_host::live_allocations();
	bool ok = true;
	for (auto _ : state) {
		for (unsigned s = 0; s < kStations && ok; s++) {
			bench_util::Mac mac = bench_util::sta_mac(s);
			for (unsigned d = 0; d < VY_DOMAIN_MAX_ENTRIES && ok; d++) {
				std::string n = bench_util::domain_name(d);
				ok = vy_add_sta_domain(mac.data(), n.c_str(), (u16)n.size(),
						       0x0a00a8c0) == 0;
			}
		}
	}
	struct mallinfo2 after = mallinfo2();
	long records = vy_host::live_allocations() - live_before;
	if (!ok || records != (long)kStations * VY_DOMAIN_MAX_ENTRIES) {
		state.SkipWithError("the tables could not be filled to the bound");
		return;
	}
	const double sta_chunk = chunk_of(sizeof(sta));
	const double dom_chunk = chunk_of(sizeof(domain_entry));
	const double entries = (double)kStations * VY_DOMAIN_MAX_ENTRIES;
	state.counters["stations"] = kStations;
	state.counters["domain_entries"] = entries;
	state.counters["total_heap_counted"] = kStations * sta_chunk + entries * dom_chunk;
	state.counters["total_kmalloc_arm64"] =
		kStations * kmalloc_class(sizeof(sta), 128) +
		entries * kmalloc_class(sizeof(domain_entry), 128);
	/* The stations were there before: the measured growth is the domain
	 * entries'; a sanitizer's allocator keeps its heap apart, so there is
	 * nothing to measure then. */
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
	state.counters["domain_heap_measured"] = (double)after.uordblks - (double)before.uordblks;
#else
	(void)before;
	(void)after;
#endif
	state.counters["per_station_at_bound"] = sta_chunk + VY_DOMAIN_MAX_ENTRIES * dom_chunk;
}

BENCHMARK(full_tables)->Name("memory.stations_256_full_tables")->Iterations(1)
	->Unit(benchmark::kMillisecond);

} // namespace
