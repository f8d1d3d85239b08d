// SPDX-License-Identifier: GPL-2.0
/*
 * The DNS parser with a joined station that has queried names, so that
 * answers reach its domain table (CNAME links, addresses, rejections).
 *
 * Input: up to eight records, each
 *   ctl (1)  bit 0: towards the station (a response) or from it (a query)
 *            bit 1: ask first: the same message with QR cleared goes from
 *                   the station before it, so its question is pending
 *            bit 2: for another MAC, which has no entry
 *            bit 3: 6 s pass first (timer runs: timeouts, averages)
 *            bits 4-6: debug_level (4 and above: every line formatted)
 *            bit 7: the whole dump is read afterwards
 *   len (2)  big-endian; the message follows (cut at the input's end)
 * Every message sits in a heap block of exactly its size.
 * After the input the hooks and the timer must be on while anyone listens.
 */
#include <algorithm>

#include "fuzz_common.h"
#include "vy_dns.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, size_t size)
{
	/* The names the station asked for before the input's messages: those
	 * of the seed corpus. */
	static const char *const asked[] = {"www.example.com", "example.com", "edge.example.net",
					    "a.lan", "cdn.example.org"};
	static const pkt_info info = {17, 0, 0, {192, 168, 1, 23}, {192, 168, 1, 1}};
	fz::Input in{data, data + size};
	bool dump = false;

	fz::load();
	vy_host::umac_event(0, fz::station_mac(0), "wlan0");
	vy_host::settle();
	for (const char *n : asked)
		vy_add_sta_domain(fz::station_mac(0), n, (u16)std::strlen(n), 0x1701a8c0);

	for (int i = 0; i < 8 && in.left() >= 3; i++) {
		std::uint8_t ctl = in.u8();
		fz::Bytes m = in.take(in.u16());
		const std::uint8_t *mac = fz::station_mac((ctl & 4) ? 3 : 0);
		s32 want = m.size() <= 12 ? -1 : 0;

		debug_level = std::min((ctl >> 4) & 7, 4);
		if (ctl & 8)
			vy_host::advance(600);
		fz::Bytes q = m;
		if (m.size() > 3)
			q[2] &= 0x7f;
		if ((ctl & 2) && m.size() > 3 &&
		    vy_parse_dns(mac, &info, q.data(), (u32)q.size(), 0) != want)
			FZ_FAIL("vy_parse_dns of the question gave not %d", want);
		if (vy_parse_dns(mac, &info, m.data(), (u32)m.size(), ctl & 1) != want)
			FZ_FAIL("vy_parse_dns(%zu bytes) gave not %d", m.size(), want);
		dump |= (ctl & 0x80) != 0;
		fz::check_table();
	}
	return fz::finish(dump);
}
