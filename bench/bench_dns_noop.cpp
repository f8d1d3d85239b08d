// SPDX-License-Identifier: GPL-2.0
/*
 * veyra's DNS parser alone: the response corpus through vy_parse_dns with a
 * station table that only counts the calls, against ldns and c-ares over
 * the same bytes in the same run. This is the parser's own cost; the cost
 * with the real station table is in veyra_bench.
 *
 * Also the DHCP parser alone, over the four messages of an exchange.
 */
#include <benchmark/benchmark.h>

#include "dns_corpus.h"
#include "dns_peers.h"
#include "dhcp_exchange.h"
#include "noop_sta.h"
#include "vy_bench.h"
#include "vy_dhcp.h"
#include "vy_dns.h"

namespace {

constexpr const char *kVeyra = "dns.corpus.veyra_noop_sink";

pkt_info response_info()
{
	pkt_info info = {};
	info.protocol = 17;
	const u8 server[4] = {192, 168, 77, 1}, station[4] = {192, 168, 77, 100};
	__builtin_memcpy(info.saddr, server, 4);
	__builtin_memcpy(info.daddr, station, 4);
	return info;
}

void veyra_corpus(benchmark::State &state)
{
	const dns_corpus::Corpus c = dns_corpus::build();
	const u8 mac[6] = {0x02, 0x5a, 0, 0, 0, 1};
	pkt_info info = response_info();

	noop_sta::calls = {};
	for (const dns_corpus::Bytes &m : c.messages)
		vy_parse_dns(mac, &info, m.data(), (u32)m.size(), 1);
	if (noop_sta::calls.a != c.a_records || noop_sta::calls.cname != c.cname_records ||
	    noop_sta::calls.reject != c.error_responses) {
		state.SkipWithError("vy_parse_dns did not report what the corpus holds");
		return;
	}
	for (auto _ : state) {
		for (const dns_corpus::Bytes &m : c.messages)
			vy_parse_dns(mac, &info, m.data(), (u32)m.size(), 1);
	}
	benchmark::DoNotOptimize(noop_sta::calls);
	state.SetItemsProcessed(state.iterations() * (long)c.messages.size());
	state.counters["per_message"] = benchmark::Counter(
		(double)c.messages.size(),
		benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

BENCHMARK(veyra_corpus)->Name(kVeyra);

#ifdef VY_BENCH_PEERS
/* By time. The goals by instructions, which the load of a shared machine
 * does not move, are 10x and 3x (bench/icount_dns.cpp); the time goal
 * against ldns leaves room for what the load does to both sides. */
VY_RATIO("dns_noop_vs_ldns", "ldns / veyra (no-op sink), DNS corpus, time",
	 dns_peers::kLdns, kVeyra, "", vy_bench::GoalKind::AtLeast, 8.0);
VY_RATIO("dns_noop_vs_cares", "c-ares / veyra (no-op sink), DNS corpus, time",
	 dns_peers::kCares, kVeyra, "", vy_bench::GoalKind::AtLeast, 3.0);
#endif

void veyra_dhcp_exchange(benchmark::State &state)
{
	std::vector<msg::Bytes> dora = dhcp_exchange::messages(0x02, 0x5a, 0, 0, 0, 1);
	const u8 to_wireless[4] = {0, 1, 0, 1};

	noop_sta::calls = {};
	for (auto _ : state) {
		for (size_t i = 0; i < dora.size(); i++)
			vy_parse_dhcp(dora[i].data(), (u32)dora[i].size(), to_wireless[i]);
	}
	if (noop_sta::calls.dhcp != 4 * (long)state.iterations())
		state.SkipWithError("vy_parse_dhcp did not report every message");
	state.SetItemsProcessed(state.iterations());
}

BENCHMARK(veyra_dhcp_exchange)->Name("dhcp.dora.veyra_noop_sink");

} // namespace
