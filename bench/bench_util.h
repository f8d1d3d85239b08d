/* SPDX-License-Identifier: GPL-2.0 */
/* A loaded module on a fresh host platform, stations and their names, and
 * frames, for the benchmarks of the whole module. */
#ifndef VY_BENCH_UTIL_H
#define VY_BENCH_UTIL_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "frames.h"
#include "vy_common.h"
#include "vy_host.h"
#include "vy_sta_list.h"

namespace bench_util {

using Mac = std::array<std::uint8_t, 6>;

/*
 * The module loaded at debug_level 1 (the default: no line is formatted on
 * any path measured here), with one wireless and one wired bridge port.
 * The platform keeps every notification it captures: a benchmark that
 * causes them calls drain() now and then, outside the timed region.
 */
class Module {
public:
	Module()
	{
		vy_host::reset();
		debug_level = 1;
		veyra_init();
		vy_host::settle();
		/* A stored time of 0 means "not set": the clock starts past it,
		 * as a real one does long before the first station joins. */
		vy_host::advance_to(kStart);
		wlan = vy_host::dev_create("wlan0", true);
		lan = vy_host::dev_create("eth0", false);
		br = vy_host::bridge_create("br0", kBridgeAddr);
		vy_host::dev_set_master(wlan, br);
		vy_host::dev_set_master(lan, br);
	}
	~Module()
	{
		veyra_exit();
		vy_host::take_events();
	}
	Module(const Module &) = delete;
	Module &operator=(const Module &) = delete;

	/* Drops what the capture holds; call outside the timed region. */
	static void drain() { vy_host::take_events(); }

	vy_dev *wlan;
	vy_dev *lan;
	vy_dev *br;

	static constexpr unsigned long kStart = 100 * HZ;

private:
	static constexpr std::uint8_t kBridgeAddr[6] = {0x02, 0xb0, 0, 0, 0, 1};
};

/* Station i's MAC: the last byte varies first, which is what the station
 * table's buckets are keyed on. */
inline Mac sta_mac(unsigned i)
{
	return Mac{0x02, 0x5a, (std::uint8_t)(i >> 24), (std::uint8_t)(i >> 16),
		   (std::uint8_t)(i >> 8), (std::uint8_t)i};
}

inline bool join_stations(unsigned n)
{
	for (unsigned i = 0; i < n; i++) {
		Mac m = sta_mac(i);
		if (!vy_host::umac_event(0, m.data(), "wlan0"))
			return false;
	}
	vy_host::settle();
	return vy_get_sta_count() == (s32)n;
}

/* Distinct names shaped like what phones and laptops look up. */
inline std::string domain_name(unsigned i)
{
	static const char *const svc[] = {"www", "api", "cdn", "static", "img",
					  "push", "time", "login", "mail",
					  "update", "metrics", "ws", "video",
					  "assets", "sync", "auth"};
	static const char *const site[] = {"news", "shop", "video", "maps",
					   "cloud", "social", "bank", "game",
					   "music", "store", "weather", "travel",
					   "mail", "office", "photos", "chat"};
	static const char *const tld[] = {"com", "net", "org", "example"};
	const unsigned ns = sizeof(svc) / sizeof(svc[0]);
	const unsigned nt = sizeof(site) / sizeof(site[0]);
	std::string n = std::string(svc[i % ns]) + "." + site[(i / ns) % nt];
	unsigned round = i / (ns * nt);
	if (round)
		n += "-" + std::to_string(round);
	return n + ".example." + tld[(i / 7) % 4];
}

/* Each station asks for names first .. first + count - 1 and gets one
 * address for each: entries as a station's normal browsing leaves them. */
inline bool fill_domains(unsigned stations, unsigned count, unsigned first = 0)
{
	for (unsigned s = 0; s < stations; s++) {
		Mac m = sta_mac(s);
		for (unsigned d = 0; d < count; d++) {
			std::string n = domain_name(first + d);
			if (vy_add_sta_domain(m.data(), n.c_str(), (u16)n.size(),
					      0x0a00a8c0) != 0 ||
			    vy_add_sta_domain_ip(m.data(), n.c_str(), (u16)n.size(),
						 0x01020304u + d) != 0)
				return false;
		}
	}
	return true;
}

inline vy_skb skb_of(const frames::Bytes &f)
{
	return vy_host::make_skb(f);
}

/* Seconds per item, from the items each iteration handles (the report
 * shows it in ns). */
inline benchmark::Counter per_item(double items)
{
	return benchmark::Counter(items, benchmark::Counter::kIsIterationInvariantRate |
						 benchmark::Counter::kInvert);
}

} // namespace bench_util

#endif
