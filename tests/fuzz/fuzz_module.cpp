// SPDX-License-Identifier: GPL-2.0
/*
 * The whole module: the input is decoded into a sequence of operations
 * (station events, frames through both hooks, time steps, commands, device
 * opens, reads and closes, allocation and copy failures, unload and load)
 * and the invariants are checked after every one of them: the listener
 * total is the sum of the entries' listeners, sta_count the number of
 * entries, no lock is held; after the hook work settles, the hooks and the
 * timer are on while anyone listens; after veyra_exit nothing of
 * the module is left, no allocation included.
 *
 * Each operation is an opcode byte (taken modulo the number of operations)
 * and its argument bytes; a short input reads as zeros.
 */
#include "fuzz_common.h"
#include "frames.h"
#include "msg_builder.h"

namespace {

using fz::Bytes;

const char *const kVaps[] = {"wlan0", "wlan1", "wlan0.10", ""};
const char *const kNames[] = {"www.example.com", "example.com",
			      "edge.example.net", "a.lan"};

struct State {
	fz::Ports ports;
	vy_host::File *file = nullptr;
	/* A hook registration failure leaves the work listening unhooked
	 * until it hooks again: the hooks check is off from then on. */
	bool hook_failure = false;
};

frames::Mac mac_of(unsigned i)
{
	frames::Mac m;
	std::memcpy(m.b, fz::station_mac(i), 6);
	return m;
}

msg::Mac msg_mac(unsigned i)
{
	msg::Mac m;
	std::memcpy(m.data(), fz::station_mac(i), 6);
	return m;
}

const frames::Mac kServerMac = {{0x02, 0, 0, 0, 0, 0x01}};

/* A frame of one of the exchanges a station goes through, for station
 * st and name nm; from_sta says which way it travels. */
Bytes template_frame(unsigned kind, unsigned st, unsigned nm, bool *from_sta)
{
	frames::Udp4 u;
	msg::Dhcp d;
	msg::Dns dns;
	const std::string name = kNames[nm % 4];
	const std::string other = kNames[(nm + 1) % 4];

	d.chaddr(msg_mac(st));
	switch (kind % 9) {
	case 0: d.type(1).hostname("phone"); break;
	case 1: d.type(2).yiaddr({192, 168, 1, 23}).addr_option(54, {192, 168, 1, 1}); break;
	case 2: d.type(3).addr_option(50, {192, 168, 1, 23}).hostname("phone"); break;
	case 3:
		d.type(5).yiaddr({192, 168, 1, 23}).addr_option(54, {192, 168, 1, 1})
			.addr_option(3, {192, 168, 1, 1}).addr_option(6, {192, 168, 1, 1});
		break;
	case 4: d.type(6); break;
	case 5: dns.query().question(name); break;
	case 6: dns.response().question(name).a(msg::name(name), {93, 184, 216, 34}); break;
	case 7:
		dns.response().question(name).cname(msg::name(name), msg::name(other))
			.a(msg::name(other), {93, 184, 216, 34});
		break;
	case 8: dns.response(3).question(name); break;
	}
	bool dhcp = kind % 9 <= 4;
	*from_sta = (kind % 9 == 0 || kind % 9 == 2 || kind % 9 == 5);
	if (*from_sta) {
		u.src = mac_of(st);
		u.dst = kServerMac;
	} else {
		u.src = kServerMac;
		u.dst = mac_of(st);
	}
	if (dhcp) {
		d.option(255, {});
		u.sport = *from_sta ? 68 : 67;
		u.dport = *from_sta ? 67 : 68;
		u.payload = d.build();
	} else {
		u.sport = *from_sta ? 40000 : 53;
		u.dport = *from_sta ? 53 : 40000;
		u.payload = dns.build();
	}
	return u.build();
}

/*
 * After the hook work settles: whoever listens has the timer and (unless a
 * registration failed) the hooks. The converse need not hold: a join while
 * the work listens queues a second run, which hooks again after an unhook
 * and sleeps hooked until the next raise, with nobody listening. The timer
 * runs exactly while the work is hooked, though.
 */
void check_listening(const State &s)
{
	bool listening = vy_read_listeners() != 0 || vy_read_force_listen();
	bool timer = vy_plat_timer_pending(&vy_sta_table.sta_timer);
	bool hooks = vy_host::hooks_registered();

	if (listening && !timer)
		fz::fail("timer stopped while listening");
	if (listening && !hooks && !s.hook_failure)
		fz::fail("no hooks while listening");
	if (hooks && !timer)
		fz::fail("hooks registered without the timer");
}

void close_file(State &s)
{
	if (s.file) {
		vy_host::release(s.file);
		s.file = nullptr;
	}
}

void unload(State &s)
{
	close_file(s);
	if (vy_host::open_files())
		fz::fail("device files left open");
	fz::unload();
}

/* A fresh platform, so that registration failures can be set up before
 * veyra_init runs. */
void load(State &s, std::uint8_t fails)
{
	vy_host::reset();
	debug_level = 1;
	s.ports.create();
	if (fails & 1)
		vy_host::fail_at(vy_host::FAIL_CHRDEV_SUMMARY);
	if (fails & 2)
		vy_host::fail_at(vy_host::FAIL_CHRDEV_DUMP);
	if (fails & 4)
		vy_host::fail_at(vy_host::FAIL_KOBJECT);
	if (fails & 8)
		vy_host::fail_at(vy_host::FAIL_SYSFS_SUMMARY);
	if (fails & 16)
		vy_host::fail_at(vy_host::FAIL_SYSFS_DUMP);
	if (fails & 32)
		vy_host::umac_fail_next_register(-VY_ENOMEM);
	veyra_init();
	vy_host::settle();
	s.hook_failure = false;
}

/* Opens a device, or finds the open one; the one-open rule must hold. */
vy_host::File *file_for(State &s, int id)
{
	int err = 0;

	if (s.file) {
		vy_host::File *g = vy_host::open(id, &err);
		if (g || err != -VY_EBUSY)
			fz::fail("second open gave %d", err);
		return s.file;
	}
	s.file = vy_host::open(id, &err);
	if (!s.file && err != -VY_ENOMEM && err != -19 /* ENODEV */)
		fz::fail("open of a free device gave %d", err);
	return s.file;
}

void command(State &s, fz::Input &in)
{
	std::uint8_t which = in.u8();
	std::uint8_t arg = in.u8();
	std::string line;
	char buf[64];

	switch (which % 8) {
	case 0: line = "force_listen 1"; break;
	case 1: line = "force_listen 0"; break;
	case 2: {
		const std::uint8_t *m = fz::station_mac(arg);
		std::snprintf(buf, sizeof(buf), "del sta %02x:%02x:%02x:%02x:%02x:%02x",
			      m[0], m[1], m[2], m[3], m[4], m[5]);
		line = buf;
		break;
	}
	case 3: line = "del all"; break;
	case 4: line = "debug_level " + std::to_string(arg % 6); break;
	default: {
		Bytes b = in.take(arg % 80);
		line.assign(b.begin(), b.end());
		break;
	}
	}
	if (arg & 0x80)
		line += "\n";

	bool temporary = !s.file;
	vy_host::File *f = file_for(s, which & 0x80 ? VY_CHRDEV_DUMP : VY_CHRDEV_SUMMARY);
	if (!f)
		return;
	fz::Exact e(Bytes(line.begin(), line.end()));
	long r = vy_host::write(f, reinterpret_cast<const char *>(e.data()), line.size());
	long expect = (line.empty() || line.size() > VY_CMD_MAX) ? 0 : (long)line.size();
	if (r != expect && r != -VY_EFAULT)
		fz::fail("write of %zu bytes gave %ld", line.size(), r);
	if (temporary)
		close_file(s);
}

void frame(State &s, fz::Input &in, bool post)
{
	std::uint8_t kind = in.u8();
	std::uint8_t who = in.u8();
	std::uint8_t port = in.u8();
	std::uint16_t linear = in.u16();
	std::uint8_t mutations = in.u8();
	bool from_sta;
	Bytes f;

	if (kind % 10 == 9)
		f = in.take(in.u8() * 3u);
	else
		f = template_frame(kind, who & 3, who >> 2, &from_sta);
	for (unsigned i = 0; i < (mutations & 7u) && !f.empty(); i++) {
		std::uint16_t at = in.u16();
		f[at % f.size()] ^= in.u8();
	}
	vy_skb skb = vy_host::make_skb(f, linear >= 0x8000 ? SIZE_MAX : linear);
	vy_dev *dev = s.ports.pick(port);
	if (post)
		vy_host::pass_post_routing(skb, dev);
	else
		vy_host::pass_pre_routing(skb, dev);
}

void read_op(State &s, fz::Input &in)
{
	std::uint8_t how = in.u8();
	std::size_t size = in.u16() % 5000;
	vy_host::File *f = file_for(s, how & 1);

	if (!f)
		return;
	if (how & 2)
		vy_host::fail_at(vy_host::FAIL_COPY_TO_USER);
	std::vector<char> buf(size ? size : 1);
	long n = vy_host::read(f, buf.data(), size);
	if (n < 0 || (std::size_t)n > size)
		fz::fail("read of %zu bytes gave %ld", size, n);
	vy_host::fail_at(vy_host::FAIL_COPY_TO_USER, 0);
	if (how & 4)
		close_file(s);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, size_t size)
{
	fz::Input in(data, size);
	State s;

	load(s, 0);
	for (int ops = 0; ops < 256 && !in.empty(); ops++) {
		std::uint8_t op = in.u8();
		bool settled = false;

		switch (op % 14) {
		case 0: /* join */
		case 1: { /* leave */
			std::uint8_t a = in.u8();
			vy_host::umac_event(op % 14, fz::station_mac(a), kVaps[(a >> 2) & 3]);
			break;
		}
		case 2: { /* another event code */
			std::uint8_t code = in.u8();
			std::uint8_t a = in.u8();
			vy_host::umac_event((int)(int8_t)code, fz::station_mac(a),
					    kVaps[(a >> 2) & 3]);
			break;
		}
		case 3:
			frame(s, in, false);
			break;
		case 4:
			frame(s, in, true);
			break;
		case 5: { /* time: up to about 10 minutes */
			std::uint16_t step = in.u16();
			vy_host::advance((step & 0x8000) ? (step & 0x7fff) * 2u : step % 700);
			settled = true;
			break;
		}
		case 6:
			command(s, in);
			break;
		case 7:
			read_op(s, in);
			break;
		case 8:
			close_file(s);
			break;
		case 9: { /* allocation failures */
			std::uint8_t a = in.u8();
			if (a & 0x80)
				vy_host::fail_allocations_after((a >> 3) & 15, 1 + (a & 3));
			else
				vy_host::fail_next_allocations(1 + (a & 3));
			break;
		}
		case 10: /* the next hook registration fails */
			vy_host::fail_next_hook_registration(-VY_ENOMEM);
			s.hook_failure = true;
			break;
		case 11:
			vy_host::settle();
			settled = true;
			break;
		case 12: { /* unload and load again */
			std::uint8_t fails = in.u8();
			unload(s);
			load(s, fails & 0x80 ? fails : 0);
			settled = true;
			break;
		}
		case 13: /* a debug level straight away (no help lines) */
			fz::set_debug_level(in.u8() % 5);
			break;
		}
		fz::check_table();
		if (settled)
			check_listening(s);
	}
	vy_host::fail_next_allocations(0);
	vy_host::settle();
	fz::check_table();
	check_listening(s);
	unload(s);
	return 0;
}
