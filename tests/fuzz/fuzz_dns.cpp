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
#include "fuzz_common.h"
#include "vy_dns.h"

namespace {

/* The names the station asked for before the input's messages: those of
 * the seed corpus. */
const char *const kAsked[] = {"www.example.com", "example.com",
			      "edge.example.net", "a.lan", "cdn.example.org"};

void parse(const fz::Bytes &m, const std::uint8_t *mac, std::uint8_t dir)
{
	static const pkt_info info = {17, 0, 0, {192, 168, 1, 23}, {192, 168, 1, 1}};
	s32 r = vy_parse_dns(mac, &info, m.data(), (u32)m.size(), dir);
	if (r != (m.size() <= 12 ? -1 : 0))
		FZ_FAIL("vy_parse_dns(%zu bytes) gave %d", m.size(), r);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, size_t size)
{
	fz::Input in(data, size);
	const std::uint8_t *sta = fz::station_mac(0);
	bool dump = false;

	fz::load();
	vy_host::umac_event(0, sta, "wlan0");
	vy_host::settle();
	for (const char *n : kAsked)
		vy_add_sta_domain(sta, n, (u16)std::strlen(n), 0x1701a8c0);

	for (int i = 0; i < 8 && in.left() >= 3; i++) {
		std::uint8_t ctl = in.u8();
		fz::Bytes m = in.take(in.u16());
		const std::uint8_t *mac = (ctl & 4) ? fz::station_mac(3) : sta;

		fz::set_debug_level((ctl >> 4) & 7);
		if (ctl & 8)
			vy_host::advance(600);
		if ((ctl & 2) && m.size() > 3) {
			fz::Bytes q = m;
			q[2] &= 0x7f;
			parse(q, mac, 0);
		}
		parse(m, mac, ctl & 1);
		dump |= (ctl & 0x80) != 0;
		fz::check_table();
	}
	if (dump)
		fz::dump_everything();
	vy_host::settle();
	fz::check_table();
	fz::check_listening();
	fz::unload();
	return 0;
}
