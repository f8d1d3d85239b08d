// SPDX-License-Identifier: GPL-2.0
/*
 * Concurrency stress for ThreadSanitizer: the module on the free-running
 * host platform, where the hook work runs whenever it can, while
 *   - three threads send frames through both hooks on every kind of port:
 *     the frames of three scenarios (DHCP exchange, DNS questions and
 *     answers, a CNAME chain, NXDOMAIN) for each of four stations, half
 *     of them for the station all share,
 *   - one thread makes stations join and leave,
 *   - one thread advances time, so the periodic timer runs,
 *   - one thread writes commands (force_listen 1/0, del sta of two
 *     stations, debug_level 0 and 3, an unknown one, del all once per
 *     round),
 *   - one thread reads both devices with odd sizes, sometimes closing in
 *     the middle of a pass (a refused open is part of the game: it is
 *     tried again).
 * Each thread does a fixed number of operations; then the invariants of
 * the fuzz targets are checked (listener total and counts, no lock held,
 * whoever listens has the hooks and the timer), the module is unloaded and
 * nothing of it may be left. A broken invariant aborts with its message.
 *
 * A data race ends the program through TSan itself
 * (TSAN_OPTIONS=halt_on_error=1).
 */
#include <atomic>
#include <fstream>
#include <random>
#include <thread>

#include "fuzz_common.h"
#include "scenario.h"

namespace {

/* Frames through the hooks, commands written, reads: a round where one of
 * them stayed at 0 would prove nothing. */
std::atomic<long> g_done[3];

/* The frames (rx and tx lines) of scenarios with a DHCP exchange, a DNS
 * answer through a CNAME chain and an NXDOMAIN answer, once per station:
 * the scenario's station replaced wherever its address appears (Ethernet
 * header, chaddr, client id), the four copies of a frame side by side.
 * True for those towards the station, which take the post-routing hook. */
using Frames = std::vector<std::pair<fz::Bytes, bool>>;

Frames station_frames()
{
	Frames out;
	std::string line, err;
	std::uint8_t sta[6] = {};

	for (const char *name : {"examples/onboarding.scn", "examples/cname-chain.scn",
				 "tests/scenarios/dns.scn"}) {
		std::ifstream in(std::string(VY_SOURCE_DIR "/") + name);
		while (std::getline(in, line)) {
			vysim::Command c;
			if (!vysim::parse_line(line, c, err))
				FZ_FAIL("%s: %s", name, err.c_str());
			if (c.kind == vysim::Cmd::Join)
				std::memcpy(sta, c.mac, 6);
			bool frame = c.kind == vysim::Cmd::Rx || c.kind == vysim::Cmd::Tx;
			for (unsigned s = 0; frame && s < 4; s++) {
				fz::Bytes b = c.bytes;
				for (size_t i = 0; i + 6 <= b.size(); i++)
					if (!std::memcmp(&b[i], sta, 6))
						std::memcpy(&b[i], fz::station_mac(s), 6);
				out.emplace_back(b, c.kind == vysim::Cmd::Tx);
			}
		}
	}
	if (out.empty())
		FZ_FAIL("no frames in the scenarios");
	return out;
}

/* role 0: frames, 1: station events, 2: time, 3: commands, 4: reads. */
void worker(int role, int ops, unsigned seed, const fz::Ports &ports, const Frames &all)
{
	static const std::size_t sizes[] = {351, 352, 400, 701, 1000, 4096};
	static const char *const lines[] = {
		"force_listen 1", "force_listen 0", "del sta 02:11:22:33:44:55",
		"del sta aa:bb:cc:dd:ee:ff", "debug_level 0", "debug_level 3",
		"no such command", "del all"};
	std::mt19937 rng(seed);

	for (int i = 0; i < ops; i++) {
		int err = 0;
		vy_host::File *f = nullptr;
		/* The one "del all" of the round: it stops station events for
		 * the rest of it. */
		bool del_all = role == 3 && i == ops * 3 / 4;

		if (role == 0) {
			/* Half the frames are for station 0, which all share. */
			size_t line = rng() % (all.size() / 4);
			const auto &fr = all[line * 4 + ((rng() & 1) ? 0 : rng() % 4)];
			size_t linear = (rng() % 8) ? SIZE_MAX : rng() % fr.first.size();
			bool seen = fz::pass(fr.first, linear, fr.second, ports.pick(rng()));
			g_done[0] += seen;
			/* Unhooked, a frame costs nothing: give the others the
			 * CPU so that the frames spread over the whole round. */
			if (!seen)
				std::this_thread::yield();
		} else if (role == 1) {
			/* Joins outnumber leaves, so the table stays populated. */
			vy_host::umac_event((rng() % 3) ? 0 : 1, fz::station_mac(rng()),
					    (rng() & 1) ? "wlan0" : "wlan1");
		} else if (role == 2) {
			/* Mostly short steps, now and then past a timeout or a
			 * listening window; the captured log is emptied now and
			 * then, or it would grow with every line. */
			vy_host::advance((i % 50) ? 1 + rng() % 100 : 1 + rng() % 4000);
			if (i % 64 == 0)
				vy_host::take_events();
		} else if (!(f = vy_host::open((int)(rng() % 2), &err))) {
			if (err != -VY_EBUSY)
				FZ_FAIL("open gave %d", err);
			/* Refused while the other device thread holds a file:
			 * tried again, so that both do all their operations. */
			i--;
			std::this_thread::yield();
		} else if (role == 3) {
			const char *l = lines[del_all ? 7 : rng() % 7];
			fz::write_line(f, fz::Bytes(l, l + std::strlen(l)), false);
			g_done[1]++;
		} else {
			/* A pass, or a few reads of it before the close. */
			int reads = (rng() % 4) ? 1000 : 1 + rng() % 3;
			g_done[2] += fz::read_pass(f, sizes[rng() % 6], reads);
		}
		if (f)
			vy_host::release(f);
	}
}

} // namespace

/* veyra_stress [--ops N] [--rounds R] */
int main(int argc, char **argv)
{
	int ops = 2000, rounds = 3;

	for (int i = 1; i + 1 < argc; i += 2)
		*(std::strcmp(argv[i], "--ops") ? &rounds : &ops) = std::atoi(argv[i + 1]);
	Frames all = station_frames();
	vy_host::set_free_running(true);
	for (int r = 0; r < rounds; r++) {
		fz::Ports ports = fz::load();
		/* Two stations listening from the start, so frames pass at once. */
		vy_host::umac_event(0, fz::station_mac(0), "wlan0");
		vy_host::umac_event(0, fz::station_mac(1), "wlan1");
		vy_host::settle();
		std::vector<std::thread> threads;
		for (int t = 0; t < 7; t++)
			threads.emplace_back(worker, t < 3 ? 0 : t - 2, ops, 1000u + r * 100u + t,
					     std::cref(ports), std::cref(all));
		for (std::thread &t : threads)
			t.join();
		vy_host::settle();
		fz::check_table();
		fz::check_listening();
		fz::unload();
		for (std::atomic<long> &n : g_done)
			if (!n.exchange(0))
				FZ_FAIL("round %d: no frame through the hooks, command or read", r);
	}
	std::printf("veyra_stress: %d round(s) of %d operations per thread, all checks held\n",
		    rounds, ops);
	return 0;
}
