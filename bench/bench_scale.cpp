// SPDX-License-Identifier: GPL-2.0
/*
 * How the module's costs grow with stations and names:
 * - the periodic update (the 5 s timer's walk over every station and every
 *   domain entry) at 64, 256, 1024 and 4096 stations with 32 names each,
 *   alone and against a bare walk of the same entries: its own cost per
 *   station-name should stay flat;
 * - a full read of /dev/vy_dump at the same sizes, and the copy walk under
 *   it (one station copied per step, each step searching the table from
 *   the start for the first station not yet copied: quadratic in the
 *   number of stations by design), also without any names so that the
 *   quadratic part shows alone;
 * - name lookups in a domain table at its 512-entry bound, and at 32.
 */
#include <algorithm>
#include <time.h>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench_util.h"
#include "vy_bench.h"
#include "vy_dump.h"

using bench_util::Module;

namespace {

constexpr unsigned kNames = 32;
const std::vector<long> kSizes = {64, 256, 1024};

void periodic_update(benchmark::State &state)
{
	unsigned n = (unsigned)state.range(0);
	Module m;
	if (!bench_util::join_stations(n) || !bench_util::fill_domains(n, kNames)) {
		state.SkipWithError("the table could not be built");
		return;
	}
	vy_plat_timer *t = &vy_sta_table.sta_timer;
	/* The first run settles every status; later runs change nothing, as
	 * most runs on a real access point. */
	vy_sta_periodic_update(t);
	Module::drain();
	for (auto _ : state)
		vy_sta_periodic_update(t);
	state.counters["per_sta_domain"] = bench_util::per_item(n * kNames);
	state.counters["per_station"] = bench_util::per_item(n);
}

/* Every station and every domain entry, reading the fields the periodic
 * update tests and doing nothing else: the update's memory floor. */
__attribute__((noinline)) unsigned long bare_walk()
{
	unsigned long sum = 0;
	vy_write_guard g(&vy_sta_table.sta_lock);
	for (const vy_hlist_head &b : vy_sta_table.sta_hlist) {
		for (vy_hlist_node *p = b.first; p; p = p->next) {
			const sta *s = vy_container_of(p, sta, hlist);
			sum += s->dhcp_start + s->join_time;
			for (const vy_hlist_head &d : s->domain_hlist.heads)
				for (vy_hlist_node *q = d.first; q; q = q->next) {
					const domain_entry *e =
						vy_container_of(q, domain_entry, hlist);
					sum += e->query_time + e->last_update;
				}
		}
	}
	return sum;
}

/*
 * The periodic update against its bare walk, timed in turns within every
 * iteration (in alternating order), so that both see the same caches and
 * the same load from the rest of the machine. The update runs every 5 s on
 * a table the rest of the access point's work has pushed out of the
 * caches: its cost per entry is mostly this walk's, and what it adds on
 * top is its own work, which should stay flat per entry.
 */
/* This thread's CPU time: the machine may be shared, and a wall clock
 * would count the time other programs ran. */
double thread_seconds()
{
	timespec ts;
	clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
	return (double)ts.tv_sec + (double)ts.tv_nsec * 1e-9;
}

void update_vs_walk(benchmark::State &state)
{
	unsigned n = (unsigned)state.range(0);
	Module m;
	if (!bench_util::join_stations(n) || !bench_util::fill_domains(n, kNames)) {
		state.SkipWithError("the table could not be built");
		return;
	}
	vy_plat_timer *t = &vy_sta_table.sta_timer;
	vy_sta_periodic_update(t);
	Module::drain();
	/* Each timed turn covers at least 32768 entries, so that reading the
	 * clock costs next to nothing beside it. */
	const unsigned turns = std::max(1u, 32768u / (n * kNames));
	auto updates = [&] {
		for (unsigned i = 0; i < turns; i++)
			vy_sta_periodic_update(t);
	};
	auto walks = [&] {
		for (unsigned i = 0; i < turns; i++)
			benchmark::DoNotOptimize(bare_walk());
	};
	double update = 0, walk = 0;
	bool walk_first = false;
	for (auto _ : state) {
		double a = thread_seconds();
		if (walk_first)
			walks();
		else
			updates();
		double b = thread_seconds();
		if (walk_first)
			updates();
		else
			walks();
		double c = thread_seconds();
		update += walk_first ? c - b : b - a;
		walk += walk_first ? b - a : c - b;
		walk_first = !walk_first;
	}
	double items = (double)state.iterations() * turns * n * kNames;
	state.counters["update_over_walk"] = walk > 0 ? update / walk : 0;
	state.counters["walk_per_sta_domain"] = items ? walk / items : 0;
	state.counters["update_per_sta_domain"] = items ? update / items : 0;
}

/* The dump text of one full pass; the whole text, as cat reads it. */
long dump_pass(std::vector<char> &buf, std::string *text)
{
	int err = 0;
	vy_host::File *f = vy_host::open(VY_CHRDEV_DUMP, &err);
	if (!f)
		return -1;
	long total = 0, r;
	while ((r = vy_host::read(f, buf.data(), buf.size())) > 0) {
		if (text)
			text->append(buf.data(), (size_t)r);
		total += r;
	}
	vy_host::release(f);
	return r < 0 ? -1 : total;
}

void dump(benchmark::State &state)
{
	unsigned n = (unsigned)state.range(0);
	Module m;
	if (!bench_util::join_stations(n) || !bench_util::fill_domains(n, kNames)) {
		state.SkipWithError("the table could not be built");
		return;
	}
	std::vector<char> buf(128 * 1024);
	std::string text;
	long bytes = dump_pass(buf, &text);
	size_t stations = 0, lines = 0;
	for (size_t p = 0; (p = text.find("\nSTA: ", p)) != std::string::npos; p++)
		stations++;
	lines = (size_t)std::count(text.begin(), text.end(), '\n');
	if (bytes <= 0 || stations != n || lines < (size_t)n * (kNames + 15)) {
		state.SkipWithError("the dump did not show every station and name");
		return;
	}
	for (auto _ : state)
		benchmark::DoNotOptimize(dump_pass(buf, nullptr));
	state.SetBytesProcessed(state.iterations() * bytes);
	state.counters["per_station"] = bench_util::per_item(n);
	state.counters["text_bytes"] = (double)bytes;
}

/* The copy walk the dump makes, without the text. */
void copy_walk(benchmark::State &state, unsigned names)
{
	unsigned n = (unsigned)state.range(0);
	Module m;
	if (!bench_util::join_stations(n) || !bench_util::fill_domains(n, names)) {
		state.SkipWithError("the table could not be built");
		return;
	}
	/* Pass numbers far from the dump's own, which start at 1. */
	u32 seq = 0x40000000;
	sta copy = {};
	for (auto _ : state) {
		seq++;
		unsigned k = 0;
		while (vy_sta_copy_next(seq, &copy)) {
			vy_free_sta_copy(&copy);
			k++;
		}
		vy_free_sta_copy(&copy);
		if (k != n) {
			state.SkipWithError("the walk did not copy every station");
			break;
		}
	}
	state.counters["per_station"] = bench_util::per_item(n);
}

void copy_walk_names(benchmark::State &state)
{
	copy_walk(state, kNames);
}

void copy_walk_bare(benchmark::State &state)
{
	copy_walk(state, 0);
}

const std::vector<long> kWide = {64, 256, 1024, 4096};

BENCHMARK(periodic_update)->Name("scale.periodic_update")->ArgsProduct({kWide})
	->Unit(benchmark::kMicrosecond);
BENCHMARK(update_vs_walk)->Name("scale.update_vs_walk")->ArgsProduct({kWide})
	->Unit(benchmark::kMicrosecond);
BENCHMARK(dump)->Name("scale.dump_pass")->ArgsProduct({kSizes})
	->Unit(benchmark::kMicrosecond);
BENCHMARK(copy_walk_names)->Name("scale.copy_walk")->ArgsProduct({kSizes})
	->Unit(benchmark::kMicrosecond);
BENCHMARK(copy_walk_bare)->Name("scale.copy_walk_no_names")->ArgsProduct({kWide})
	->Unit(benchmark::kMicrosecond);

bool register_scale_ratios()
{
	using vy_bench::GoalKind;
	for (long n : {256L, 1024L, 4096L}) {
		std::string s = std::to_string(n);
		vy_bench::add_ratio({"periodic_growth_" + s,
				     "periodic update per station-name, " + s + " / 64 stations",
				     "scale.periodic_update/" + s, "scale.periodic_update/64",
				     "per_sta_domain", GoalKind::None, 0});
		vy_bench::add_ratio({"periodic_flat_" + s,
				     "periodic update over its bare walk, " + s + " / 64 stations",
				     "scale.update_vs_walk/" + s, "scale.update_vs_walk/64",
				     "update_over_walk", GoalKind::AtMost, 1.25});
	}
	for (long n : kSizes) {
		std::string s = std::to_string(n);
		vy_bench::add_ratio({"dump_vs_periodic_" + s,
				     "dump pass / periodic update, " + s + " stations",
				     "scale.dump_pass/" + s, "scale.periodic_update/" + s, "",
				     GoalKind::None, 0});
		vy_bench::add_ratio({"walk_vs_periodic_" + s,
				     "copy walk / periodic update, " + s + " stations",
				     "scale.copy_walk/" + s, "scale.periodic_update/" + s, "",
				     GoalKind::None, 0});
	}
	for (long n : kWide) {
		std::string s = std::to_string(n);
		vy_bench::add_ratio({"walk_search_vs_periodic_" + s,
				     "copy walk search alone / periodic update, " + s + " stations",
				     "scale.copy_walk_no_names/" + s, "scale.periodic_update/" + s, "",
				     GoalKind::None, 0});
	}
	return true;
}

const bool scale_ratios = register_scale_ratios();

/* ---- lookups in a domain table ----------------------------------------- */

constexpr int kLookups = 64;

void lookup(benchmark::State &state, unsigned entries, bool hit)
{
	vy_host::reset();
	domain_hlist t;
	vy_domain_init(&t);
	for (unsigned i = 0; i < entries; i++) {
		std::string n = bench_util::domain_name(i);
		vy_add_domain_entry(&t, n.c_str(), (u16)n.size(), 0);
	}
	if (t.count != entries) {
		vy_del_all_domain_hlist(&t);
		state.SkipWithError("the table could not be filled");
		return;
	}
	std::vector<std::string> names;
	for (unsigned i = 0; i < kLookups; i++)
		names.push_back(bench_util::domain_name(hit ? (i * 37u) % entries
							    : entries + 1000u + i));
	unsigned longest = 0;
	for (const vy_hlist_head &h : t.heads) {
		unsigned len = 0;
		for (vy_hlist_node *p = h.first; p; p = p->next)
			len++;
		longest = std::max(longest, len);
	}

	long found = 0;
	for (auto _ : state) {
		for (const std::string &n : names)
			found += _vy_find_domain(&t, n.c_str(), (u16)n.size()) != nullptr;
		benchmark::DoNotOptimize(found);
	}
	vy_del_all_domain_hlist(&t);
	if (found != (hit ? kLookups * (long)state.iterations() : 0))
		state.SkipWithError("a lookup found the wrong thing");
	state.SetItemsProcessed(state.iterations() * kLookups);
	state.counters["per_lookup"] = bench_util::per_item(kLookups);
	state.counters["longest_chain"] = longest;
}

BENCHMARK_CAPTURE(lookup, bound_hit, VY_DOMAIN_MAX_ENTRIES, true)
	->Name("lookup.domain_table_512.hit");
BENCHMARK_CAPTURE(lookup, bound_miss, VY_DOMAIN_MAX_ENTRIES, false)
	->Name("lookup.domain_table_512.miss");
BENCHMARK_CAPTURE(lookup, small_hit, kNames, true)->Name("lookup.domain_table_32.hit");

VY_RATIO("lookup_512_vs_32", "lookup hit, 512 / 32 names", "lookup.domain_table_512.hit",
	 "lookup.domain_table_32.hit", "", vy_bench::GoalKind::None, 0);

} // namespace
