// SPDX-License-Identifier: GPL-2.0
/*
 * Concurrency stress for ThreadSanitizer: the module on the free-running
 * host platform, where the hook work runs whenever it can, while
 *   - three threads send frames through both hooks on every kind of port:
 *     the frames of three scenarios (DHCP exchange, DNS questions and
 *     answers, a CNAME chain, NXDOMAIN), each for its own station, so that
 *     the threads meet on every station,
 *   - one thread makes those stations join and leave,
 *   - one thread advances time, so the periodic timer runs,
 *   - one thread writes commands (force_listen 1/0, del sta of two of the
 *     stations, debug_level 0 and 3, an unknown one, del all once per
 *     round),
 *   - one thread reads both devices with odd sizes, sometimes closing in
 *     the middle of a pass (a refused open is part of the game: it is
 *     tried again).
 * Each thread does a fixed number of operations; then the fuzz targets'
 * end of an input runs (fuzz_common.h): the invariants, the unload, and
 * nothing of the module may be left. A broken invariant aborts with its
 * message; a data race ends the program through TSan itself
 * (TSAN_OPTIONS=halt_on_error=1).
 */
#include <atomic>
#include <fstream>
#include <random>
#include <thread>

#include "../fuzz/fuzz_common.h"
#include "scenario.h"

namespace {

/* Frames through the hooks: a round where none passed would prove nothing.
 * (The device threads do all their writes and reads by construction.) */
std::atomic<long> g_passed;

/* The rx and tx lines of the scenarios, true for those towards the station
 * (they take the post-routing hook), and the stations that join in them. */
std::vector<std::pair<fz::Bytes, bool>> g_frames;
std::vector<fz::Bytes> g_stations;

void read_scenarios()
{
	std::string line, err;

	for (const char *name : {"examples/onboarding.scn", "examples/cname-chain.scn",
				 "tests/scenarios/dns.scn"}) {
		std::ifstream in(std::string(VY_SOURCE_DIR "/") + name);
		for (vysim::Command c; std::getline(in, line); c = vysim::Command()) {
			if (!vysim::parse_line(line, c, err))
				FZ_FAIL("%s: %s", name, err.c_str());
			if (c.kind == vysim::Cmd::Join)
				g_stations.emplace_back(c.mac, c.mac + 6);
			if (c.kind == vysim::Cmd::Rx || c.kind == vysim::Cmd::Tx)
				g_frames.emplace_back(c.bytes, c.kind == vysim::Cmd::Tx);
		}
	}
	if (g_frames.empty() || g_stations.size() < 3)
		FZ_FAIL("no frames, or fewer than three stations, in the scenarios");
}

/* role 0: frames, 1: station events, 2: time, 3: commands, 4: reads. */
void worker(int role, int ops, unsigned seed, const fz::Ports &ports)
{
	/* del sta names the stations of the first two scenarios. */
	static const char *const lines[] = {
		"force_listen 1", "force_listen 0", "del sta 3a:5c:10:22:8e:01",
		"del sta 02:10:20:30:40:50", "debug_level 0", "debug_level 3",
		"no such command", "del all"};
	std::mt19937 rng(seed);

	for (int i = 0; i < ops; i++) {
		int err = 0;
		vy_host::File *f = nullptr;

		if (role == 0) {
			const auto &fr = g_frames[rng() % g_frames.size()];
			std::uint16_t linear = (rng() % 8) ? 0xffff : rng() % fr.first.size();
			bool seen = fz::pass(fr.first, linear, fr.second, ports[rng() % 8]);
			g_passed += seen;
			/* Unhooked, a frame costs nothing: give the others the
			 * CPU so that the frames spread over the whole round. */
			if (!seen)
				std::this_thread::yield();
		} else if (role == 1) {
			/* Joins outnumber leaves, so the table stays populated. */
			vy_host::umac_event((rng() % 3) ? 0 : 1, g_stations[rng() % 3].data(),
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
			/* The one "del all" of the round stops station events
			 * for the rest of it. */
			const char *l = lines[i == ops * 3 / 4 ? 7 : rng() % 7];
			fz::write_line(f, fz::Bytes(l, l + std::strlen(l)), false);
		} else {
			/* A pass of odd-sized reads, or a few reads of it before
			 * the close. */
			fz::read_pass(f, 351 + rng() % 3746, (rng() % 4) ? 1000 : 1 + rng() % 3);
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
	read_scenarios();
	vy_host::set_free_running(true);
	for (int r = 0; r < rounds; r++) {
		fz::Ports ports = fz::load();
		/* Two stations listening from the start, so frames pass at once. */
		vy_host::umac_event(0, g_stations[0].data(), "wlan0");
		vy_host::umac_event(0, g_stations[1].data(), "wlan1");
		vy_host::settle();
		std::vector<std::thread> threads;
		for (int t = 0; t < 7; t++)
			threads.emplace_back(worker, t < 3 ? 0 : t - 2, ops, 1000u + r * 100u + t,
					     std::cref(ports));
		for (std::thread &t : threads)
			t.join();
		fz::finish(false);
		if (!g_passed.exchange(0))
			FZ_FAIL("round %d: no frame passed the hooks", r);
	}
	std::printf("veyra_stress: %d round(s) of %d operations per thread passed\n", rounds, ops);
	return 0;
}
