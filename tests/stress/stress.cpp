// SPDX-License-Identifier: GPL-2.0
/*
 * Concurrency stress for ThreadSanitizer: the module on the free-running
 * host platform, where the hook work runs whenever it can, while
 *   - several threads send frames through both hooks, for the same and
 *     for different stations (DHCP exchanges, DNS queries and answers),
 *   - one thread makes stations join and leave,
 *   - one thread advances time, so the periodic timer runs,
 *   - one thread writes commands (force_listen 1/0, del sta, del all once
 *     per round, debug_level),
 *   - one thread reads both devices (a refused open is part of the game).
 * Each thread does a fixed number of operations; then the invariants are
 * checked, the module is unloaded and nothing may be left.
 *
 *   veyra_stress [--ops N] [--rounds R] [--frame-threads T] [--seed S]
 *
 * Exit status 0 when every check held; a data race ends the program
 * through TSan itself (TSAN_OPTIONS=halt_on_error=1).
 */
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "frames.h"
#include "msg_builder.h"
#include "vy_common.h"
#include "vy_dump.h"
#include "vy_host.h"
#include "vy_sta_list.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr int kStations = 6;
const std::uint8_t kMacs[kStations][6] = {
	{0x02, 0x11, 0x22, 0x33, 0x44, 0x50}, {0x02, 0x11, 0x22, 0x33, 0x44, 0x51},
	{0x02, 0x11, 0x22, 0x33, 0x44, 0x52}, {0x02, 0x11, 0x22, 0x33, 0x44, 0x5b},
	{0x02, 0x11, 0x22, 0x33, 0x44, 0x64}, {0x02, 0x11, 0x22, 0x33, 0x44, 0x6d},
};
const char *const kVaps[] = {"wlan0", "wlan1"};
const char *const kNames[] = {"www.example.com", "edge.example.net", "a.lan",
			      "example.org"};

std::atomic<int> g_failures{0};

/* What each round did, so that a run that did nothing shows. */
struct Counts {
	std::atomic<long> frames_seen{0}, events{0}, commands{0}, reads{0}, busy{0};
};
Counts g_counts;

void fail(const char *what, long a = 0, long b = 0)
{
	std::fprintf(stderr, "stress: %s (%ld, %ld)\n", what, a, b);
	g_failures++;
}

struct Frame {
	Bytes bytes;
	bool to_station; /* post-routing towards the VAP */
};

/* Every frame of one station's onboarding, ready to send. */
std::vector<Frame> station_frames(int s)
{
	std::vector<Frame> out;
	frames::Mac sta, server = {{0x02, 0, 0, 0, 0, 0x01}};
	msg::Mac chaddr;

	std::memcpy(sta.b, kMacs[s], 6);
	std::memcpy(chaddr.data(), kMacs[s], 6);
	auto add = [&](const Bytes &payload, bool dhcp, bool to_station) {
		frames::Udp4 u;
		u.src = to_station ? server : sta;
		u.dst = to_station ? sta : server;
		u.sport = dhcp ? (to_station ? 67 : 68) : (to_station ? 53 : 40000);
		u.dport = dhcp ? (to_station ? 68 : 67) : (to_station ? 40000 : 53);
		u.payload = payload;
		out.push_back({u.build(), to_station});
	};

	add(msg::Dhcp().chaddr(chaddr).type(1).hostname("phone").build(), true, false);
	add(msg::Dhcp().chaddr(chaddr).type(2).yiaddr({192, 168, 1, 50}).build(), true, true);
	add(msg::Dhcp().chaddr(chaddr).type(3).addr_option(50, {192, 168, 1, 50}).build(),
	    true, false);
	add(msg::Dhcp().chaddr(chaddr).type(5).yiaddr({192, 168, 1, 50})
		    .addr_option(54, {192, 168, 1, 1}).addr_option(3, {192, 168, 1, 1})
		    .build(),
	    true, true);
	add(msg::Dhcp().chaddr(chaddr).type(6).build(), true, true);
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

struct Options {
	int ops = 2000;
	int rounds = 3;
	int frame_threads = 3;
	unsigned seed = 1;
};

/* vy_listeners is the sum of the entries' listeners and sta_count the
 * number of entries. */
void check_table()
{
	vy_write_guard g(&vy_sta_table.sta_lock);
	long sum = 0, n = 0;

	for (auto &h : vy_sta_table.sta_hlist)
		for (vy_hlist_node *p = h.first; p; p = p->next) {
			sum += vy_container_of(p, sta, hlist)->listeners;
			n++;
		}
	if (sum != vy_read_listeners())
		fail("vy_listeners differs from the entries' sum", vy_read_listeners(), sum);
	if (n != vy_sta_table.sta_count)
		fail("sta_count differs from the entries", vy_sta_table.sta_count, n);
}

void frame_thread(const Options &o, unsigned seed, vy_dev *const *ports, int nports,
		  const std::vector<std::vector<Frame>> *all)
{
	std::mt19937 rng(seed);

	for (int i = 0; i < o.ops; i++) {
		/* Half the frames go to station 0, which every thread shares. */
		int s = (rng() & 1) ? 0 : (int)(rng() % kStations);
		const std::vector<Frame> &fs = (*all)[s];
		const Frame &f = fs[rng() % fs.size()];
		std::size_t linear = (rng() % 8) ? SIZE_MAX : rng() % f.bytes.size();
		vy_skb skb = vy_host::make_skb(f.bytes, linear);
		vy_dev *port = ports[rng() % nports];

		bool seen = f.to_station ? vy_host::pass_post_routing(skb, port)
					 : vy_host::pass_pre_routing(skb, port);
		g_counts.frames_seen += seen;
		/* Unhooked, a frame costs nothing: give the others the CPU so
		 * that the frames spread over the whole round. */
		if (!seen)
			std::this_thread::yield();
	}
}

void event_thread(const Options &o, unsigned seed)
{
	std::mt19937 rng(seed);

	for (int i = 0; i < o.ops; i++) {
		int s = (int)(rng() % kStations);
		/* Joins outnumber leaves, so the table stays populated. */
		int code = (rng() % 3) ? 0 : 1;
		g_counts.events += vy_host::umac_event(code, kMacs[s], kVaps[rng() % 2]);
	}
}

void time_thread(const Options &o, unsigned seed)
{
	std::mt19937 rng(seed);

	for (int i = 0; i < o.ops; i++) {
		/* Mostly short steps, now and then past a timeout or a
		 * listening window. */
		vy_host::advance((i % 50) ? 1 + rng() % 100 : 1 + rng() % 4000);
		/* The capture would otherwise grow with every line. */
		if (i % 64 == 0)
			vy_host::take_events();
	}
}

long write_line(int dev, const std::string &line)
{
	int err = 0;
	vy_host::File *f = vy_host::open(dev, &err);

	if (!f) {
		if (err != -VY_EBUSY)
			fail("open for a command failed", err);
		g_counts.busy++;
		return 0;
	}
	long r = vy_host::write(f, line.data(), line.size());
	if (r != (long)line.size())
		fail("command write result", r, (long)line.size());
	vy_host::release(f);
	g_counts.commands++;
	return r;
}

void command_thread(const Options &o, unsigned seed)
{
	std::mt19937 rng(seed);
	char buf[64];

	for (int i = 0; i < o.ops; i++) {
		std::string line;

		if (i == o.ops * 3 / 4) {
			/* Stops station events for the rest of the round. */
			line = "del all";
		} else {
			switch (rng() % 5) {
			case 0: line = "force_listen 1"; break;
			case 1: line = "force_listen 0"; break;
			case 2: {
				const std::uint8_t *m = kMacs[rng() % kStations];
				std::snprintf(buf, sizeof(buf),
					      "del sta %02x:%02x:%02x:%02x:%02x:%02x",
					      m[0], m[1], m[2], m[3], m[4], m[5]);
				line = buf;
				break;
			}
			case 3: line = "debug_level " + std::to_string(rng() % 4); break;
			case 4: line = "no such command"; break;
			}
		}
		/* The one "del all" of the round waits for its turn at the
		 * devices; the other commands give way to the reader. */
		for (int tries = 0; tries < 10000; tries++) {
			if (write_line((int)(rng() % 2), line) || line != "del all")
				break;
			std::this_thread::yield();
		}
	}
}

void reader_thread(const Options &o, unsigned seed)
{
	static const std::size_t sizes[] = {351, 352, 400, 701, 1000, 4096};
	std::mt19937 rng(seed);
	std::vector<char> buf(4096);

	for (int i = 0; i < o.ops;) {
		int err = 0;
		vy_host::File *f = vy_host::open((int)(rng() % 2), &err);

		if (!f) {
			if (err != -VY_EBUSY)
				fail("open for reading failed", err);
			g_counts.busy++;
			i++;
			std::this_thread::yield();
			continue;
		}
		/* Sometimes closed in the middle of the pass. */
		int reads = (rng() % 4) ? 1000 : 1 + (int)(rng() % 3);
		for (int r = 0; r < reads && i < o.ops; r++, i++) {
			std::size_t size = sizes[rng() % 6];
			long n = vy_host::read(f, buf.data(), size);
			if (n < 0 || (std::size_t)n > size)
				fail("read result", n, (long)size);
			g_counts.reads++;
			if (n == 0)
				break;
		}
		vy_host::release(f);
	}
}

bool run_round(const Options &o, int r)
{
	unsigned base = o.seed * 1000u + (unsigned)r * 100u;
	static const std::uint8_t br_addr[6] = {0x02, 0, 0, 0, 0, 0xb0};

	vy_host::reset();
	debug_level = 1;
	vy_dev *br = vy_host::bridge_create("br0", br_addr);
	vy_dev *wlan0 = vy_host::dev_create("wlan0", true);
	vy_dev *wlan1 = vy_host::dev_create("wlan1", true);
	vy_dev *vlan = vy_host::vlan_create("wlan0.10", wlan0);
	vy_dev *eth0 = vy_host::dev_create("eth0", false);
	for (vy_dev *d : {wlan0, wlan1, vlan, eth0})
		vy_host::dev_set_master(d, br);
	vy_dev *const ports[] = {wlan0, wlan1, vlan, eth0};

	std::vector<std::vector<Frame>> all;
	for (int s = 0; s < kStations; s++)
		all.push_back(station_frames(s));

	veyra_init();
	/* Two stations listening from the start, so frames pass at once. */
	vy_host::umac_event(0, kMacs[0], kVaps[0]);
	vy_host::umac_event(0, kMacs[1], kVaps[1]);
	vy_host::settle();

	std::vector<std::thread> threads;
	for (int t = 0; t < o.frame_threads; t++)
		threads.emplace_back(frame_thread, std::cref(o), base + 10 + t, ports, 4, &all);
	threads.emplace_back(event_thread, std::cref(o), base + 1);
	threads.emplace_back(time_thread, std::cref(o), base + 2);
	threads.emplace_back(command_thread, std::cref(o), base + 3);
	threads.emplace_back(reader_thread, std::cref(o), base + 4);
	for (std::thread &t : threads)
		t.join();

	vy_host::settle();
	check_table();
	if (vy_host::locks_held())
		fail("locks held after the threads ended", vy_host::locks_held());
	/* Whoever listens has the hooks and the timer once the work settled
	 * (the work may also sleep hooked with nobody listening: a join while
	 * it listened queued a second run). */
	bool listening = vy_read_listeners() != 0 || vy_read_force_listen();
	bool timer = vy_plat_timer_pending(&vy_sta_table.sta_timer);
	if (listening && !(vy_host::hooks_registered() && timer))
		fail("listening without hooks or timer", vy_host::hooks_registered(), timer);
	if (vy_host::open_files())
		fail("device files left open", vy_host::open_files());
	int stations = vy_get_sta_count();

	veyra_exit();
	if (long n = vy_host::live_allocations())
		fail("allocations live after veyra_exit", n);
	if (vy_host::hooks_registered())
		fail("hooks registered after veyra_exit");
	if (vy_plat_timer_pending(&vy_sta_table.sta_timer))
		fail("timer pending after veyra_exit");
	if (vy_host::locks_held())
		fail("locks held after veyra_exit", vy_host::locks_held());
	for (const std::string &l : vy_host::log_lines(VY_LOG_ERR))
		if (l.find("negative") != std::string::npos)
			fail(l.c_str());

	std::printf("round %d: %ld frames through the hooks, %ld station events, "
		    "%ld commands, %ld reads, %ld refused opens, %ld lock acquisitions, "
		    "%d stations left\n",
		    r, g_counts.frames_seen.exchange(0), g_counts.events.exchange(0),
		    g_counts.commands.exchange(0), g_counts.reads.exchange(0),
		    g_counts.busy.exchange(0), vy_host::lock_acquisitions(), stations);
	return g_failures == 0;
}

int parse_int(const char *s)
{
	char *end;
	long v = std::strtol(s, &end, 10);

	if (*end || v < 0 || v > 100000000) {
		std::fprintf(stderr, "veyra_stress: bad number %s\n", s);
		std::exit(2);
	}
	return (int)v;
}

} // namespace

int main(int argc, char **argv)
{
	Options o;

	for (int i = 1; i < argc; i++) {
		std::string a = argv[i];
		if (i + 1 >= argc) {
			std::fprintf(stderr, "usage: veyra_stress [--ops N] [--rounds R] "
					     "[--frame-threads T] [--seed S]\n");
			return 2;
		}
		int v = parse_int(argv[++i]);
		if (a == "--ops")
			o.ops = v;
		else if (a == "--rounds")
			o.rounds = v;
		else if (a == "--frame-threads")
			o.frame_threads = v;
		else if (a == "--seed")
			o.seed = (unsigned)v;
		else {
			std::fprintf(stderr, "veyra_stress: unknown option %s\n", a.c_str());
			return 2;
		}
	}

	vy_host::set_free_running(true);
	for (int r = 0; r < o.rounds; r++)
		if (!run_round(o, r))
			break;
	if (g_failures) {
		std::printf("veyra_stress: %d check(s) failed\n", g_failures.load());
		return 1;
	}
	std::printf("veyra_stress: %d round(s) of %d operations per thread, all checks held\n",
		    o.rounds, o.ops);
	return 0;
}
