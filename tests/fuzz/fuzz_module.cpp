// SPDX-License-Identifier: GPL-2.0
/*
 * The whole module: the input is decoded into a sequence of operations
 * (station events, frames through both hooks, time steps, commands, device
 * opens, reads and closes, allocation and copy failures, unload and load)
 * and the invariants are checked after every one of them: the listener
 * total is the sum of the entries' listeners, sta_count the number of
 * entries, no lock is held; after the hook work settles, the hooks and the
 * timer are on while anyone listens; after veyra_exit nothing of the
 * module is left, no allocation included.
 *
 * Each operation is an opcode byte (taken modulo 13) and its arguments; a
 * short input reads as zeros:
 *   0 join, 1 leave    station (bits 0-1), VAP (bits 2-3: wlan0, wlan1,
 *                      wlan0.10, none)
 *   2 event            code (signed byte), station and VAP as above
 *   3 frame            direction (bit 0: post-routing), port (bits 1-3),
 *                      linear length (2; 0xffff: all), length (2), frame
 *   4 time             2 bytes: below 0x8000 that many jiffies modulo
 *                      700, else twice the low 15 bits (about 10 minutes)
 *   5 command          device (bit 7: dump), length (0-127; bit 7 adds a
 *                      newline), the line; written whole
 *   6 read             bit 0: dump; bit 1: the copy to the reader fails;
 *                      bit 2: closed afterwards; size (2) modulo 5000
 *   7 close
 *   8 allocations fail bit 7: after (bits 3-6) more succeed; then 1 + bits
 *                      0-1 of them fail
 *   9 the next hook registration fails
 *  10 the hook work settles
 *  11 unload, then load with the registrations of bits 0-5 failing when
 *     bit 7 is set
 *  12 debug_level straight away (no help lines)
 */
#include "fuzz_common.h"

namespace {

const char *const kVaps[] = {"wlan0", "wlan1", "wlan0.10", ""};

struct State {
	fz::Ports ports;
	fz::DevFile file;
	/* A hook registration failure leaves the work listening unhooked
	 * until it hooks again: the hooks check is off from then on. */
	bool hook_failure = false;
};

void command(State &s, fz::Input &in)
{
	std::uint8_t dev = in.u8(), len = in.u8();
	fz::Bytes line = in.take(len & 0x7f);

	if (len & 0x80)
		line.push_back('\n');
	bool temporary = !s.file.f;
	vy_host::File *f = s.file.open(dev & 0x80 ? VY_CHRDEV_DUMP : VY_CHRDEV_SUMMARY);
	if (!f)
		return;
	line.shrink_to_fit();
	long r = vy_host::write(f, reinterpret_cast<const char *>(line.data()), line.size());
	long expect = (line.empty() || line.size() > VY_CMD_MAX) ? 0 : (long)line.size();
	if (r != expect && r != -VY_EFAULT)
		FZ_FAIL("write of %zu bytes gave %ld", line.size(), r);
	if (temporary)
		s.file.close();
}

void read_op(State &s, fz::Input &in)
{
	std::uint8_t how = in.u8();
	std::size_t size = in.u16() % 5000;
	vy_host::File *f = s.file.open(how & 1);

	if (!f)
		return;
	if (how & 2)
		vy_host::fail_at(vy_host::FAIL_COPY_TO_USER);
	std::vector<char> buf(size ? size : 1);
	long n = vy_host::read(f, buf.data(), size);
	if (n < 0 || (std::size_t)n > size)
		FZ_FAIL("read of %zu bytes gave %ld", size, n);
	vy_host::fail_at(vy_host::FAIL_COPY_TO_USER, 0);
	if (how & 4)
		s.file.close();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, size_t size)
{
	fz::Input in(data, size);
	State s;

	s.ports = fz::load();
	for (int ops = 0; ops < 256 && !in.empty(); ops++) {
		std::uint8_t op = in.u8() % 13;
		bool settled = false;

		switch (op) {
		case 0:
		case 1:
		case 2: {
			int code = op == 2 ? (std::int8_t)in.u8() : op;
			std::uint8_t a = in.u8();
			vy_host::umac_event(code, fz::station_mac(a), kVaps[(a >> 2) & 3]);
			break;
		}
		case 3: {
			std::uint8_t how = in.u8();
			std::uint16_t linear = in.u16();
			vy_skb skb = vy_host::make_skb(in.take(in.u16()),
						       linear == 0xffff ? SIZE_MAX : linear);
			vy_dev *dev = s.ports.pick(how >> 1);
			if (how & 1)
				vy_host::pass_post_routing(skb, dev);
			else
				vy_host::pass_pre_routing(skb, dev);
			break;
		}
		case 4: {
			std::uint16_t step = in.u16();
			vy_host::advance((step & 0x8000) ? (step & 0x7fff) * 2u : step % 700);
			settled = true;
			break;
		}
		case 5:
			command(s, in);
			break;
		case 6:
			read_op(s, in);
			break;
		case 7:
			s.file.close();
			break;
		case 8: {
			std::uint8_t a = in.u8();
			if (a & 0x80)
				vy_host::fail_allocations_after((a >> 3) & 15, 1 + (a & 3));
			else
				vy_host::fail_next_allocations(1 + (a & 3));
			break;
		}
		case 9:
			vy_host::fail_next_hook_registration(-VY_ENOMEM);
			s.hook_failure = true;
			break;
		case 10:
			vy_host::settle();
			settled = true;
			break;
		case 11: {
			std::uint8_t fails = in.u8();
			s.file.close();
			fz::unload();
			s.ports = fz::load(fails & 0x80 ? fails : 0);
			s.hook_failure = false;
			settled = true;
			break;
		}
		case 12:
			fz::set_debug_level(in.u8() % 5);
			break;
		}
		fz::check_table();
		if (settled)
			fz::check_listening(s.hook_failure);
	}
	vy_host::fail_next_allocations(0);
	vy_host::settle();
	fz::check_table();
	fz::check_listening(s.hook_failure);
	s.file.close();
	fz::unload();
	return 0;
}
