// SPDX-License-Identifier: GPL-2.0
/*
 * The frame path: bridged frames through the two hooks (classification,
 * Ethernet/IPv4/UDP checks, both parsers, the station table), with a
 * random linear length and random kinds of ports. Its seeds hold whole
 * DHCP exchanges and every odd DHCP message, so this is also the DHCP
 * parser's fuzz target.
 *
 * Input: up to eight records, each
 *   ctl (1)   bit 0: post-routing (out port) instead of pre-routing
 *             bits 1-2: unused (once a direct call of vy_parse_skb,
 *                       which the hooks reach with either direction)
 *             bit 3: no MAC header set in the socket buffer
 *             bits 4-6: debug_level (4 and above: the summary line with
 *                       its bridge lookup, and every parser line)
 *             bit 7: the whole dump is read afterwards
 *   port (1)  bits 0-2: wired, VAP, VLAN on VAP, VLAN on that, a third
 *                       VLAN level, VLAN on wired, none, VAP outside the
 *                       bridge
 *             bits 3-7: junk bytes before the MAC header (0 to 31)
 *   linear (2) big-endian; 0xffff: the whole frame is linear
 *   len (2)   big-endian; the frame follows (cut at the input's end)
 * Only the linear part is in memory: ASan sees any read past it.
 */
#include <algorithm>

#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, size_t size)
{
	fz::Input in{data, data + size};
	bool dump = false;
	fz::Ports ports = fz::load();

	vy_host::umac_event(0, fz::station_mac(0), "wlan0");
	vy_host::umac_event(0, fz::station_mac(1), "wlan0.10");
	/* Hooked for the whole input, whatever the frames settle. */
	vy_write_force_listen(1);
	vy_host::settle();
	for (int i = 0; i < 8 && in.left() >= 6; i++) {
		std::uint8_t ctl = in.u8(), port = in.u8();
		std::uint16_t linear = in.u16();
		fz::Bytes frame = in.take(in.u16());

		debug_level = std::min((ctl >> 4) & 7, 4);
		if (!fz::pass(frame, linear, ctl & 1, ports[port & 7], port >> 3, !(ctl & 8)))
			FZ_FAIL("hooks gone while force_listen is on");
		dump |= (ctl & 0x80) != 0;
		fz::check_table();
	}
	return fz::finish(dump);
}
