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
 *   5 command, 6 read  how: bit 0 the dump device, bit 1 closed
 *                      afterwards, bit 2 the copy from or to the user
 *                      fails; then for a command its length (1) and
 *                      line, for a read its size (2) modulo 5000
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

/* A command line written to, or a read of, either device, through the
 * file already open or a new one. */
void device_op(fz::DevFile &file, fz::Input &in, bool write)
{
	std::uint8_t how = in.u8();
	fz::Bytes line = in.take(write ? in.u8() : 0);
	std::size_t size = write ? 0 : in.u16() % 5000;
	vy_host::File *f = file.open(how & 1);

	if (f && write) {
		fz::write_line(f, line, how & 4);
	} else if (f) {
		if (how & 4)
			vy_host::fail_at(vy_host::FAIL_COPY_TO_USER);
		std::vector<char> buf(size ? size : 1);
		long n = vy_host::read(f, buf.data(), size);
		vy_host::fail_at(vy_host::FAIL_COPY_TO_USER, 0);
		if (n < 0 || (std::size_t)n > size)
			FZ_FAIL("read of %zu bytes gave %ld", size, n);
	}
	if (how & 2)
		file.close();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, size_t size)
{
	fz::Input in(data, size);
	fz::Ports ports = fz::load();
	fz::DevFile file;
	/* A hook registration failure leaves the work listening unhooked
	 * until it hooks again: the hooks check is off from then on. */
	bool hook_failure = false;

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
			vy_dev *dev = ports.pick(how >> 1);
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
		case 6:
			device_op(file, in, op == 5);
			break;
		case 7:
			file.close();
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
			hook_failure = true;
			break;
		case 10:
			vy_host::settle();
			settled = true;
			break;
		case 11: {
			std::uint8_t fails = in.u8();
			file.close();
			fz::unload();
			ports = fz::load(fails & 0x80 ? fails : 0);
			hook_failure = false;
			settled = true;
			break;
		}
		case 12:
			fz::set_debug_level(in.u8() % 5);
			break;
		}
		fz::check_table();
		if (settled)
			fz::check_listening(hook_failure);
	}
	vy_host::fail_next_allocations(0);
	vy_host::settle();
	fz::check_table();
	fz::check_listening(hook_failure);
	file.close();
	fz::unload();
	return 0;
}
