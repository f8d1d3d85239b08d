// SPDX-License-Identifier: GPL-2.0
/*
 * The whole module: the input is decoded into a sequence of operations
 * (station events, frames through both hooks, time steps, command lines
 * and reads on the devices, allocation and copy failures, unload and load)
 * and the invariants are checked after every one of them: the listener
 * total is the sum of the entries' listeners, sta_count the number of
 * entries, debug_level within 0..4; after the hook work settles, the hooks
 * and the timer are on while anyone listens; after veyra_exit nothing of
 * the module is left. A command line gets the count back for 1 to 64
 * bytes, 0 for none or more, -EFAULT when the copy fails; a second open
 * is refused with -EBUSY; every read returns at most its size and every
 * pass ends. This is also the command parser's fuzz target: its seeds
 * carry every command, and odd ones, after a station's onboarding.
 *
 * Each operation is an opcode byte (taken modulo 8) and its arguments; a
 * short input reads as zeros:
 *   0 event            station (bits 0-1), VAP (bits 2-3: wlan0, wlan1,
 *                      wlan0.10, none); then the code (signed byte: 0
 *                      join, 1 leave)
 *   1 frame            direction (bit 0: post-routing), port (bits 1-3),
 *                      linear length (2; 0xffff: all), length (2), frame
 *   2 time             2 bytes: below 0x8000 that many jiffies modulo
 *                      700, else twice the low 15 bits (about 10 minutes);
 *                      0 only lets the hook work settle
 *   3 command, 4 read  how: bit 0 the dump device (when no file is held),
 *                      bit 1 the file is closed afterwards, bit 2 the copy
 *                      from or to the user fails, bit 3 a read goes on to
 *                      the end of the pass; then for a command its length
 *                      (1) and line (in a block of exactly that size), for
 *                      a read its size (2) modulo 5000
 *   5 allocations fail after (bits 3-6, when bit 7 is set) more succeed,
 *                      1 + bits 0-1 of them
 *   6 the next hook registration fails
 *   7 unload, then load with the registrations of bits 0-5 failing when
 *     bit 7 is set
 */
#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, size_t size)
{
	static const char *const vaps[] = {"wlan0", "wlan1", "wlan0.10", ""};
	fz::Input in{data, data + size};
	fz::Ports ports = fz::load();
	vy_host::File *file = nullptr;
	/* A hook registration failure leaves the work listening unhooked
	 * until it hooks again: the hooks check is off from then on. */
	bool hook_failure = false;

	for (int ops = 0; ops < 256 && in.left(); ops++) {
		std::uint8_t op = in.u8() % 8;
		/* The one argument byte of the operations that take one. */
		std::uint8_t a = (op == 1 || op == 2 || op == 6) ? 0 : in.u8();

		if (op == 0) {
			vy_host::umac_event((std::int8_t)in.u8(), fz::station_mac(a),
					    vaps[(a >> 2) & 3]);
		} else if (op == 1) {
			std::uint8_t how = in.u8();
			std::uint16_t linear = in.u16();
			fz::Bytes frame = in.take(in.u16());
			fz::pass(frame, linear, how & 1, ports[(how >> 1) % 8]);
		} else if (op == 2) {
			std::uint16_t step = in.u16();
			vy_host::advance((step & 0x8000) ? (step & 0x7fff) * 2u : step % 700);
		} else if (op == 3 || op == 4) {
			fz::Bytes line = in.take(op == 3 ? in.u8() : 0);
			std::size_t rsize = op == 4 ? in.u16() % 5000 : 0;
			file = fz::open(file, a & 1);
			if (file && op == 3)
				fz::write_line(file, line, a & 4);
			if (file && op == 4)
				fz::read_pass(file, rsize, (a & 8) ? 100000 : 1, a & 4);
			if (a & 2)
				fz::close(file);
		} else if (op == 5) {
			vy_host::fail_allocations_after(a & 0x80 ? (a >> 3) & 15 : 0, 1 + (a & 3));
		} else if (op == 6) {
			vy_host::fail_next_hook_registration(-VY_ENOMEM);
			hook_failure = true;
		} else {
			fz::close(file);
			fz::finish(false, hook_failure);
			ports = fz::load(a & 0x80 ? a : 0);
			hook_failure = false;
		}
		fz::check_table(op == 2 || op == 7, hook_failure);
	}
	vy_host::fail_next_allocations(0);
	fz::close(file);
	return fz::finish(false, hook_failure);
}
