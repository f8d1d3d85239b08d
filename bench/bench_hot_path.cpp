// SPDX-License-Identifier: GPL-2.0
/*
 * Frames the module ignores, through the real bridge hook, against a floor:
 * a function that makes the same decision with only the header reads it
 * needs (Ethernet type, the port device's wireless test, IP protocol, UDP
 * ports), through the same platform calls. The hook runs on every bridged
 * frame while any station is followed, so this is the cost the whole
 * access point pays.
 *
 * Also the frames it does read (a DNS query from a station, a DNS response
 * to it), through the same hook, for scale.
 */
#include <benchmark/benchmark.h>

#include "bench_util.h"
#include "dns_corpus.h"
#include "ignored_frames.h"
#include "vy_bench.h"
#include "vy_hook.h"

using bench_util::Module;

namespace {

using ignored::Kind;
using ignored::kBatch;

/* Allocations and lock acquisitions per frame, as measured. */
void count_side_effects(benchmark::State &state, long allocs, long locks)
{
	double frames = (double)state.iterations() * kBatch;
	state.counters["allocs_per_frame"] = frames ? allocs / frames : 0;
	state.counters["locks_per_frame"] = frames ? locks / frames : 0;
}

void ignore_hook(benchmark::State &state, Kind kind)
{
	Module m;
	bench_util::Mac sta = bench_util::sta_mac(1);
	vy_host::umac_event(0, sta.data(), "wlan0"); /* the hooks' reason to be */
	vy_host::settle();
	std::vector<vy_skb> batch = ignored::frames_of(kind);
	vy_hook_state hs;
	hs.in = ignored::in_port(m, kind);

	long a0 = vy_host::total_allocations(), l0 = vy_host::lock_acquisitions();
	for (auto _ : state) {
		for (vy_skb &skb : batch)
			benchmark::DoNotOptimize(
				vy_br_pre_routing_hook(nullptr, &skb, &hs));
	}
	count_side_effects(state, vy_host::total_allocations() - a0,
			   vy_host::lock_acquisitions() - l0);
	state.SetItemsProcessed(state.iterations() * kBatch);
	state.counters["per_frame"] = bench_util::per_item(kBatch);
}

void ignore_floor(benchmark::State &state, Kind kind)
{
	Module m;
	std::vector<vy_skb> batch = ignored::frames_of(kind);
	vy_hook_state hs;
	hs.in = ignored::in_port(m, kind);

	unsigned sum = 0;
	for (auto _ : state) {
		for (vy_skb &skb : batch)
			sum += ignored::vy_bench_ignore_floor(&skb, &hs, true);
		benchmark::DoNotOptimize(sum);
	}
	if (sum)
		state.SkipWithError("the floor read a frame it should ignore");
	state.SetItemsProcessed(state.iterations() * kBatch);
	state.counters["per_frame"] = bench_util::per_item(kBatch);
}

bool register_ignored()
{
	for (const auto &k : ignored::kKinds) {
		std::string base = std::string("ignore.") + k.name;
		Kind kind = k.kind;
		benchmark::RegisterBenchmark((base + ".hook").c_str(),
					     [kind](benchmark::State &s) { ignore_hook(s, kind); });
		benchmark::RegisterBenchmark((base + ".floor").c_str(),
					     [kind](benchmark::State &s) { ignore_floor(s, kind); });
		vy_bench::add_ratio({base, std::string("hook / floor, ") + k.title,
				     base + ".hook", base + ".floor", "",
				     vy_bench::GoalKind::AtMost, 1.5});
	}
	return true;
}

const bool registered = register_ignored();

/* ---- frames the module reads ------------------------------------------- */

/* A station's DNS query and its response, as they cross the bridge. */
frames::Bytes dns_frame(const dns_corpus::Bytes &dns, bool response)
{
	frames::Udp4 f;
	bench_util::Mac sta = bench_util::sta_mac(1);
	frames::Mac sta_mac{}, srv = frames::mac(0x01, 0x04);
	std::copy(sta.begin(), sta.end(), sta_mac.b);
	f.src = response ? srv : sta_mac;
	f.dst = response ? sta_mac : srv;
	f.saddr = response ? 0xc0a84d01u : 0xc0a84d64u;
	f.daddr = response ? 0xc0a84d64u : 0xc0a84d01u;
	f.sport = response ? 53 : 51413;
	f.dport = response ? 51413 : 53;
	f.payload = dns;
	return f.build();
}

void read_dns(benchmark::State &state, bool response)
{
	Module m;
	bench_util::Mac sta = bench_util::sta_mac(1);
	vy_host::umac_event(0, sta.data(), "wlan0");
	vy_host::settle();

	dns_corpus::Corpus c = dns_corpus::build();
	dns_corpus::Bytes msg = c.messages[1]; /* two addresses */
	if (!response) {
		/* The query that response answers: header, question. */
		msg[2] = 0x01;
		msg[3] = 0x00;
		for (int i = 6; i < 12; i++)
			msg[i] = 0;
		size_t q = 12;
		while (msg[q])
			q += 1 + msg[q];
		msg.resize(q + 5);
	}
	vy_skb skb = bench_util::skb_of(dns_frame(msg, response));
	vy_hook_state hs;
	if (response)
		hs.out = m.wlan;
	else
		hs.in = m.wlan;

	long n = 0;
	for (auto _ : state) {
		if (response)
			vy_br_post_routing_hook(nullptr, &skb, &hs);
		else
			vy_br_pre_routing_hook(nullptr, &skb, &hs);
		if (++n % 4096 == 0) {
			state.PauseTiming();
			Module::drain();
			state.ResumeTiming();
		}
	}
	state.SetItemsProcessed(state.iterations());
}

BENCHMARK_CAPTURE(read_dns, query, false)->Name("read.dns_query.hook");
BENCHMARK_CAPTURE(read_dns, response, true)->Name("read.dns_response.hook");

} // namespace
