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

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, size_t size)
{
	static const char *const vaps[] = {"wlan0", "wlan1", "wlan0.10", ""};
	fz::Input in{data, data + size};
	fz::Ports ports = fz::load();
	vy_host::File *file = nullptr;
	int file_id = -1;
	/* A hook registration failure leaves the work listening unhooked
	 * until it hooks again: the hooks check is off from then on. */
	bool hook_failure = false;

	for (int ops = 0; ops < 256 && in.left(); ops++) {
		std::uint8_t op = in.u8() % 13;
		int code = op == 2 ? (std::int8_t)in.u8() : op;
		/* The one argument byte of the operations that take one. */
		bool no_arg = op == 3 || op == 4 || op == 7 || op == 9 || op == 10;
		std::uint8_t a = no_arg ? 0 : in.u8();
		bool settled = op == 4 || op == 10 || op == 11;

		if (op < 3) {
			vy_host::umac_event(code, fz::station_mac(a), vaps[(a >> 2) & 3]);
		} else if (op == 3) {
			std::uint8_t how = in.u8();
			std::uint16_t linear = in.u16();
			fz::Bytes frame = in.take(in.u16());
			fz::pass(frame, linear == 0xffff ? SIZE_MAX : linear, how & 1,
				 ports.pick(how >> 1));
		} else if (op == 4) {
			std::uint16_t step = in.u16();
			vy_host::advance((step & 0x8000) ? (step & 0x7fff) * 2u : step % 700);
		} else if (op == 5 || op == 6) {
			/* A command line written to, or a read of, either device,
			 * through the file already open or a new one. */
			fz::Bytes line = in.take(op == 5 ? in.u8() : 0);
			std::size_t rsize = op == 6 ? in.u16() % 5000 : 0;
			vy_host::File *f = fz::reopen(file, file_id, a & 1);
			if (f && op == 5)
				fz::write_line(f, line, a & 4);
			if (f && op == 6) {
				if (a & 4)
					vy_host::fail_at(vy_host::FAIL_COPY_TO_USER);
				fz::read_pass(f, rsize, 1);
				vy_host::fail_at(vy_host::FAIL_COPY_TO_USER, 0);
			}
			if (a & 2)
				fz::close(file);
		} else if (op == 7) {
			fz::close(file);
		} else if (op == 8) {
			if (a & 0x80)
				vy_host::fail_allocations_after((a >> 3) & 15, 1 + (a & 3));
			else
				vy_host::fail_next_allocations(1 + (a & 3));
		} else if (op == 9) {
			vy_host::fail_next_hook_registration(-VY_ENOMEM);
			hook_failure = true;
		} else if (op == 10) {
			vy_host::settle();
		} else if (op == 11) {
			fz::close(file);
			fz::unload();
			ports = fz::load(a & 0x80 ? a : 0);
			hook_failure = false;
		} else {
			fz::set_debug_level(a % 5);
		}
		fz::check_table();
		if (settled)
			fz::check_listening(hook_failure);
	}
	vy_host::fail_next_allocations(0);
	fz::close(file);
	return fz::finish(false, hook_failure);
}
