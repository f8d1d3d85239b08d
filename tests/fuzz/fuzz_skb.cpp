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
 *             bit 1: straight to vy_parse_skb too, with bit 2 as
 *                    to_wireless, past the wireless test
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
#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, size_t size)
{
	fz::Input in(data, size);
	bool dump = false;
	fz::Ports ports = fz::load();

	vy_host::umac_event(0, fz::station_mac(0), "wlan0");
	vy_host::umac_event(0, fz::station_mac(1), "wlan0.10");
	/* Hooked for the whole input, whatever the frames settle. */
	vy_write_force_listen(1);
	vy_host::settle();
	fz::check_listening();

	for (int i = 0; i < 8 && in.left() >= 6; i++) {
		std::uint8_t ctl = in.u8();
		std::uint8_t port = in.u8();
		std::uint16_t linear = in.u16();
		fz::Bytes frame = in.take(in.u16());
		size_t junk = port >> 3;

		fz::set_debug_level((ctl >> 4) & 7);
		frame.insert(frame.begin(), junk, 0xee);
		vy_skb skb = vy_host::make_skb(
			frame, linear == 0xffff ? SIZE_MAX : junk + linear);
		skb.mac_header = (std::uint16_t)junk;
		skb.mac_set = !(ctl & 8);

		vy_dev *dev = ports.pick(port & 7);
		bool passed = (ctl & 1) ? vy_host::pass_post_routing(skb, dev)
					: vy_host::pass_pre_routing(skb, dev);
		if (!passed)
			FZ_FAIL("hooks gone while force_listen is on");
		if (ctl & 2) {
			pkt_hdrs hdrs;
			pkt_info info;
			s32 r = vy_parse_skb(&skb, &hdrs, &info, (ctl >> 2) & 1);
			if (r != 0 && r != 1)
				FZ_FAIL("vy_parse_skb gave %d", r);
		}
		dump |= (ctl & 0x80) != 0;
		fz::check_table();
	}
	vy_host::settle();
	if (dump)
		fz::dump_everything();
	fz::check_table();
	fz::check_listening();
	fz::unload();
	return 0;
}
