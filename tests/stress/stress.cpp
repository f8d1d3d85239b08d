// SPDX-License-Identifier: GPL-2.0
/*
 * Concurrency stress for ThreadSanitizer: the module on the free-running
 * host platform, where the hook work runs whenever it can, while
 *   - several threads send frames through both hooks on every kind of port,
 *     for the same and for different stations (DHCP exchanges, DNS
 *     queries, answers, a CNAME chain, NXDOMAIN),
 *   - one thread makes stations join and leave,
 *   - one thread advances time, so the periodic timer runs,
 *   - one thread writes commands (force_listen 1/0, del sta, debug_level,
 *     unknown ones, del all once per round),
 *   - one thread reads both devices with odd sizes, sometimes closing in
 *     the middle of a pass (a refused open is part of the game).
 * Each thread does a fixed number of operations; then the invariants of
 * the fuzz targets are checked (listener total and counts, no lock held,
 * whoever listens has the hooks and the timer), the module is unloaded and
 * nothing of it may be left. A broken invariant aborts with its message.
 *
 *   veyra_stress [--ops N] [--rounds R]
 *
 * A data race ends the program through TSan itself
 * (TSAN_OPTIONS=halt_on_error=1).
 */
#include <atomic>
#include <random>
#include <thread>

#include "frames.h"
#include "fuzz_common.h"
#include "msg_builder.h"

namespace {

constexpr int kFrameThreads = 3;
const char *const kNames[] = {"www.example.com", "edge.example.net", "a.lan", "example.org"};

/* What a round did: a round where nothing passed the hooks, no command
 * was written or nothing read would prove nothing. */
std::atomic<long> g_frames{0}, g_commands{0}, g_reads{0};

/* Every frame of one station's onboarding: those towards it (for the
 * post-routing hook) are the ones addressed to its MAC. */
std::vector<fz::Bytes> station_frames(unsigned s)
{
	std::vector<fz::Bytes> out;
	frames::Mac sta, server = {{0x02, 0, 0, 0, 0, 0x01}};
	msg::Mac chaddr;
	const msg::Ip ip = {192, 168, 1, 50}, gw = {192, 168, 1, 1};

	std::memcpy(sta.b, fz::station_mac(s), 6);
	std::memcpy(chaddr.data(), fz::station_mac(s), 6);
	auto add = [&](const fz::Bytes &payload, bool dhcp, bool to_sta) {
		frames::Udp4 u;
		u.src = to_sta ? server : sta;
		u.dst = to_sta ? sta : server;
		u.sport = dhcp ? (to_sta ? 67 : 68) : (to_sta ? 53 : 40000);
		u.dport = dhcp ? (to_sta ? 68 : 67) : (to_sta ? 40000 : 53);
		u.payload = payload;
		out.push_back(u.build());
	};
	for (std::uint8_t type : {1, 2, 3, 5, 6})
		add(msg::Dhcp().chaddr(chaddr).type(type).yiaddr(ip).addr_option(54, gw)
			    .addr_option(3, gw).hostname("phone").build(),
		    true, type % 2 == 0 || type == 5);
	for (const char *n : kNames) {
		add(msg::Dns().query().question(n).build(), false, false);
		add(msg::Dns().response().question(n).a(msg::name(n), {10, 0, 0, 1}).build(),
		    false, true);
	}
	add(msg::Dns().response().question(kNames[0])
		    .cname(msg::name(kNames[0]), msg::name(kNames[1]))
		    .a(msg::name(kNames[1]), {10, 0, 0, 2}).build(),
	    false, true);
	add(msg::Dns().response(3).question(kNames[2]).build(), false, true);
	return out;
}

void frames_thread(int ops, unsigned seed, const fz::Ports &ports,
		   const std::vector<std::vector<fz::Bytes>> &all)
{
	std::mt19937 rng(seed);

	for (int i = 0; i < ops; i++) {
		/* Half the frames go to station 0, which every thread shares. */
		unsigned s = (rng() & 1) ? 0 : rng() % all.size();
		const fz::Bytes &f = all[s][rng() % all[s].size()];
		vy_skb skb = vy_host::make_skb(f, (rng() % 8) ? SIZE_MAX : rng() % f.size());
		vy_dev *port = ports.pick(rng());
		bool seen = std::memcmp(f.data(), fz::station_mac(s), 6)
				    ? vy_host::pass_pre_routing(skb, port)
				    : vy_host::pass_post_routing(skb, port);
		g_frames += seen;
		/* Unhooked, a frame costs nothing: give the others the CPU so
		 * that the frames spread over the whole round. */
		if (!seen)
			std::this_thread::yield();
	}
}

void events_and_time_thread(int ops, unsigned seed, bool events)
{
	std::mt19937 rng(seed);

	for (int i = 0; i < ops; i++) {
		if (events) {
			/* Joins outnumber leaves, so the table stays populated. */
			vy_host::umac_event((rng() % 3) ? 0 : 1, fz::station_mac(rng()),
					    (rng() & 1) ? "wlan0" : "wlan1");
			continue;
		}
		/* Mostly short steps, now and then past a timeout or a
		 * listening window. */
		vy_host::advance((i % 50) ? 1 + rng() % 100 : 1 + rng() % 4000);
		/* The capture would otherwise grow with every line. */
		if (i % 64 == 0)
			vy_host::take_events();
	}
}

/* Commands (writer) or reads of either device, each through an open of
 * its own; a refused open is part of the game. */
void device_thread(int ops, unsigned seed, bool writer)
{
	static const std::size_t sizes[] = {351, 352, 400, 701, 1000, 4096};
	std::mt19937 rng(seed);
	std::vector<char> buf(4096);
	char del_sta[32];

	for (int i = 0; i < ops; i++) {
		int err = 0;
		vy_host::File *f = vy_host::open((int)(rng() % 2), &err);
		/* The one "del all" of the round (it stops station events for
		 * the rest of it) waits for its turn at the devices. */
		bool del_all = writer && i == ops * 3 / 4;
		if (!f && err != -VY_EBUSY)
			FZ_FAIL("open gave %d", err);
		if (!f) {
			i -= del_all;
			std::this_thread::yield();
			continue;
		}
		if (writer) {
			const std::uint8_t *m = fz::station_mac(rng());
			std::snprintf(del_sta, sizeof(del_sta), "del sta %02x:%02x:%02x:%02x:%02x:%02x",
				      m[0], m[1], m[2], m[3], m[4], m[5]);
			const std::string lines[] = {"force_listen 1", "force_listen 0", del_sta,
						     "debug_level " + std::to_string(rng() % 4),
						     "no such command", "del all"};
			const std::string &line = lines[del_all ? 5 : rng() % 5];
			long n = vy_host::write(f, line.data(), line.size());
			if (n != (long)line.size())
				FZ_FAIL("write of %zu bytes gave %ld", line.size(), n);
			g_commands++;
		}
		/* A pass, or a few reads of it before the close. */
		for (int r = writer ? 0 : (rng() % 4) ? 1000 : 1 + rng() % 3; r > 0; r--) {
			std::size_t size = sizes[rng() % 6];
			long n = vy_host::read(f, buf.data(), size);
			if (n < 0 || (std::size_t)n > size)
				FZ_FAIL("read of %zu bytes gave %ld", size, n);
			g_reads++;
			if (n == 0)
				break;
		}
		vy_host::release(f);
	}
}

} // namespace

int main(int argc, char **argv)
{
	int ops = 2000, rounds = 3;
	bool ok = argc % 2 == 1;
	std::vector<std::vector<fz::Bytes>> all;

	for (int i = 1; ok && i < argc; i += 2) {
		int *v = !std::strcmp(argv[i], "--ops") ? &ops
			 : !std::strcmp(argv[i], "--rounds") ? &rounds : nullptr;
		ok = v && (*v = std::atoi(argv[i + 1])) > 0;
	}
	if (!ok) {
		std::fprintf(stderr, "usage: veyra_stress [--ops N] [--rounds R]\n");
		return 2;
	}
	for (unsigned s = 0; s < 4; s++)
		all.push_back(station_frames(s));
	vy_host::set_free_running(true);
	for (int r = 0; r < rounds; r++) {
		unsigned base = 1000u + (unsigned)r * 100u;
		fz::Ports ports = fz::load();
		/* Two stations listening from the start, so frames pass at once. */
		vy_host::umac_event(0, fz::station_mac(0), "wlan0");
		vy_host::umac_event(0, fz::station_mac(1), "wlan1");
		vy_host::settle();

		std::vector<std::thread> threads;
		for (int t = 0; t < kFrameThreads; t++)
			threads.emplace_back(frames_thread, ops, base + 10 + t, std::cref(ports),
					     std::cref(all));
		threads.emplace_back(events_and_time_thread, ops, base + 1, true);
		threads.emplace_back(events_and_time_thread, ops, base + 2, false);
		threads.emplace_back(device_thread, ops, base + 3, true);
		threads.emplace_back(device_thread, ops, base + 4, false);
		for (std::thread &t : threads)
			t.join();

		vy_host::settle();
		fz::check_table();
		fz::check_listening();
		fz::unload();
		long frames = g_frames.exchange(0), commands = g_commands.exchange(0),
		     reads = g_reads.exchange(0);
		if (!frames || !commands || !reads)
			FZ_FAIL("round %d: %ld frames, %ld commands, %ld reads", r, frames,
				commands, reads);
		std::printf("round %d: %ld frames through the hooks, %ld commands, %ld reads\n",
			    r, frames, commands, reads);
	}
	std::printf("veyra_stress: %d round(s) of %d operations per thread, all checks held\n",
		    rounds, ops);
	return 0;
}
