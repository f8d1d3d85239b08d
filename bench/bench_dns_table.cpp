// SPDX-License-Identifier: GPL-2.0
/*
 * DNS responses and DHCP exchanges applied to the real station table:
 * - the response corpus through vy_parse_dns for a followed station (each
 *   answer takes sta_lock, finds the station and its domain entry and
 *   applies the status rule), and the same responses as frames through the
 *   bridge hook; ldns and c-ares over the same bytes in the same run;
 * - a full DHCP exchange (DISCOVER, OFFER, REQUEST, ACK) through the
 *   bridge hooks, station after station.
 */
#include <benchmark/benchmark.h>

#include "bench_util.h"
#include "dhcp_exchange.h"
#include "dns_corpus.h"
#include "dns_peers.h"
#include "vy_bench.h"
#include "vy_dns.h"
#include "vy_hook.h"

using bench_util::Module;

namespace {

constexpr const char *kTable = "dns.corpus.veyra_station_table";
constexpr const char *kHookPath = "dns.corpus.veyra_hook_path";

/* How many domain entries the station's table holds, or -1. */
long domain_entries(const bench_util::Mac &mac)
{
	vy_write_guard g(&vy_sta_table.sta_lock);
	sta *s = _vy_find_sta(mac.data());
	return s ? (long)s->domain_hlist.count : -1;
}

void station_table(benchmark::State &state)
{
	Module m;
	bench_util::Mac mac = bench_util::sta_mac(1);
	vy_host::umac_event(0, mac.data(), "wlan0");
	vy_host::settle();
	const dns_corpus::Corpus c = dns_corpus::build();
	pkt_info info = {};
	info.protocol = 17;

	for (const dns_corpus::Bytes &msg : c.messages)
		vy_parse_dns(mac.data(), &info, msg.data(), (u32)msg.size(), 1);
	if (domain_entries(mac) != c.names) {
		state.SkipWithError("the corpus did not make one entry per name");
		return;
	}
	long n = 0;
	for (auto _ : state) {
		for (const dns_corpus::Bytes &msg : c.messages)
			vy_parse_dns(mac.data(), &info, msg.data(), (u32)msg.size(), 1);
		if (++n % 1024 == 0) {
			state.PauseTiming();
			Module::drain();
			state.ResumeTiming();
		}
	}
	state.SetItemsProcessed(state.iterations() * (long)c.messages.size());
	state.counters["per_message"] = bench_util::per_item((double)c.messages.size());
}

void hook_path(benchmark::State &state)
{
	Module m;
	bench_util::Mac mac = bench_util::sta_mac(1);
	vy_host::umac_event(0, mac.data(), "wlan0");
	vy_host::settle();
	const dns_corpus::Corpus c = dns_corpus::build();
	std::vector<vy_skb> skbs;
	for (const dns_corpus::Bytes &msg : c.messages) {
		frames::Udp4 f;
		f.src = frames::mac(0x01, 0x04);
		std::copy(mac.begin(), mac.end(), f.dst.b);
		f.saddr = 0xc0a84d01u;
		f.daddr = 0xc0a84d64u;
		f.sport = 53;
		f.dport = 51413;
		f.payload = msg;
		skbs.push_back(bench_util::skb_of(f.build()));
	}
	vy_hook_state hs;
	hs.out = m.wlan;

	for (vy_skb &skb : skbs)
		vy_br_post_routing_hook(nullptr, &skb, &hs);
	if (domain_entries(mac) != c.names) {
		state.SkipWithError("the corpus did not make one entry per name");
		return;
	}
	long n = 0;
	for (auto _ : state) {
		for (vy_skb &skb : skbs)
			vy_br_post_routing_hook(nullptr, &skb, &hs);
		if (++n % 1024 == 0) {
			state.PauseTiming();
			Module::drain();
			state.ResumeTiming();
		}
	}
	state.SetItemsProcessed(state.iterations() * (long)c.messages.size());
	state.counters["per_message"] = bench_util::per_item((double)c.messages.size());
}

BENCHMARK(station_table)->Name(kTable);
BENCHMARK(hook_path)->Name(kHookPath);

VY_RATIO("dns_table_vs_hook", "hook path / parser with station table, DNS corpus",
	 kHookPath, kTable, "", vy_bench::GoalKind::None, 0);
#ifdef VY_BENCH_PEERS
VY_RATIO("dns_table_vs_ldns", "ldns / veyra (station table), DNS corpus",
	 dns_peers::kLdns, kTable, "", vy_bench::GoalKind::None, 0);
VY_RATIO("dns_table_vs_cares", "c-ares / veyra (station table), DNS corpus",
	 dns_peers::kCares, kTable, "", vy_bench::GoalKind::None, 0);
#endif

/* ---- a DHCP exchange per station --------------------------------------- */

constexpr unsigned kDhcpStations = 64;

struct Exchange {
	std::vector<vy_skb> skbs; /* DISCOVER, OFFER, REQUEST, ACK */
};

Exchange exchange_of(unsigned i)
{
	bench_util::Mac mac = bench_util::sta_mac(i);
	std::vector<msg::Bytes> dora =
		dhcp_exchange::messages(mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
	Exchange e;
	for (size_t k = 0; k < dora.size(); k++) {
		bool from_client = k % 2 == 0;
		frames::Udp4 f;
		if (from_client) {
			std::copy(mac.begin(), mac.end(), f.src.b);
			f.dst = frames::Mac{{0xff, 0xff, 0xff, 0xff, 0xff, 0xff}};
			f.saddr = 0;
			f.daddr = 0xffffffffu;
			f.sport = 68;
			f.dport = 67;
		} else {
			f.src = frames::mac(0x01, 0x04);
			std::copy(mac.begin(), mac.end(), f.dst.b);
			f.saddr = 0xc0a84d01u;
			f.daddr = 0xc0a84d64u + i % 100;
			f.sport = 67;
			f.dport = 68;
		}
		f.payload = dora[k];
		e.skbs.push_back(bench_util::skb_of(f.build()));
	}
	return e;
}

bool all_leased(unsigned n)
{
	vy_write_guard g(&vy_sta_table.sta_lock);
	for (unsigned i = 0; i < n; i++) {
		bench_util::Mac mac = bench_util::sta_mac(i);
		sta *s = _vy_find_sta(mac.data());
		if (!s || s->dhcp_status != VY_STATUS_OK || !s->ip)
			return false;
	}
	return true;
}

void dhcp_exchange_hooks(benchmark::State &state)
{
	Module m;
	if (!bench_util::join_stations(kDhcpStations)) {
		state.SkipWithError("stations did not join");
		return;
	}
	std::vector<Exchange> ex;
	for (unsigned i = 0; i < kDhcpStations; i++)
		ex.push_back(exchange_of(i));
	vy_hook_state in, out;
	in.in = m.wlan;
	out.out = m.wlan;

	auto run = [&](Exchange &e) {
		vy_br_pre_routing_hook(nullptr, &e.skbs[0], &in);
		vy_br_post_routing_hook(nullptr, &e.skbs[1], &out);
		vy_br_pre_routing_hook(nullptr, &e.skbs[2], &in);
		vy_br_post_routing_hook(nullptr, &e.skbs[3], &out);
	};
	for (Exchange &e : ex)
		run(e);
	if (!all_leased(kDhcpStations)) {
		state.SkipWithError("an exchange did not end in a lease");
		return;
	}
	unsigned i = 0, rounds = 0;
	for (auto _ : state) {
		run(ex[i]);
		if (++i == kDhcpStations) {
			i = 0;
			if (++rounds % 16)
				continue;
			state.PauseTiming();
			Module::drain();
			state.ResumeTiming();
		}
	}
	state.SetItemsProcessed(state.iterations());
	state.counters["per_exchange"] = bench_util::per_item(1);
}

BENCHMARK(dhcp_exchange_hooks)->Name("dhcp.dora.veyra_hook_path");

} // namespace
