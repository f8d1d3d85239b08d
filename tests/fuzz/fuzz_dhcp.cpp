// SPDX-License-Identifier: GPL-2.0
/*
 * The DHCP parser with a joined station: a sequence of messages moves its
 * DHCP status, latency, addresses and host name.
 *
 * Input: up to eight records, each
 *   ctl (1)  bit 0: towards the station or from it
 *            bit 1: chaddr set to the joined station's MAC, so that the
 *                   message reaches its entry whatever the input says
 *            bit 2: 16 s pass first (the pending exchange times out)
 *            bit 3: the station leaves and joins again first
 *            bits 4-6: debug_level (4 and above: every line formatted)
 *            bit 7: the whole dump is read afterwards
 *   len (2)  big-endian; the message follows (cut at the input's end)
 * Every message sits in a heap block of exactly its size.
 */
#include "fuzz_common.h"
#include "vy_dhcp.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, size_t size)
{
	fz::Input in(data, size);
	const std::uint8_t *sta = fz::station_mac(0);
	bool dump = false;

	fz::load();
	vy_host::umac_event(0, sta, "wlan0");
	vy_host::settle();

	for (int i = 0; i < 8 && in.left() >= 3; i++) {
		std::uint8_t ctl = in.u8();
		fz::Bytes m = in.take(in.u16());

		fz::set_debug_level((ctl >> 4) & 7);
		if (ctl & 4)
			vy_host::advance(1600);
		if (ctl & 8) {
			vy_host::umac_event(1, sta, "wlan0");
			vy_host::umac_event(0, sta, "wlan0");
			vy_host::settle();
		}
		if ((ctl & 2) && m.size() >= 34)
			std::memcpy(&m[28], sta, 6);

		fz::Exact e(m);
		s32 r = vy_parse_dhcp(e.data(), e.size(), ctl & 1);
		bool sized = m.size() >= VY_DHCP_FIXED_LEN &&
			     m.size() <= VY_DHCP_FIXED_LEN + VY_DHCP_MAX_OPTIONS;
		if (!sized && r != -1)
			fz::fail("a %zu-byte message gave %d", m.size(), r);
		if (r != 0 && r != -1)
			fz::fail("vy_parse_dhcp gave %d", r);
		dump |= (ctl & 0x80) != 0;
		fz::check_table();
	}
	if (dump)
		fz::dump_everything();
	fz::check_table();
	fz::unload();
	return 0;
}
