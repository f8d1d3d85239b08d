// SPDX-License-Identifier: GPL-2.0
/*
 * Command lines written to the devices, each followed by a read: the
 * parser of "%15s %7s %2hhx:..." over any bytes, and every command's
 * effect on a table of three stations (one with a DHCP and DNS history).
 *
 * Input: up to eight records, each
 *   ctl (1)  bit 0: written to /dev/vy_dump instead of /dev/vy_summary
 *            bits 1-2: the read after it: none, 400 bytes at a time,
 *                      4096, or an odd size taken from the next byte
 *            bit 3: the file is kept open for the next record
 *            bit 4: the copy from the writer fails
 *            bit 5: the station table changes first (a station joins,
 *                   a query goes out)
 *   len (1)  0 to 255: lengths above 64 must be refused
 *   the line's bytes (cut at the input's end), in an exact-size block
 */
#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, size_t size)
{
	static const size_t reads[] = {0, 400, 4096};
	const std::uint8_t *mac = fz::station_mac(0);
	fz::Input in{data, data + size};
	vy_host::File *file = nullptr;
	int file_id = -1;

	fz::load();
	for (unsigned i = 0; i < 3; i++)
		vy_host::umac_event(0, fz::station_mac(i), i ? "wlan1" : "wlan0");
	/* One station with a DHCP and DNS history, for the dump to format. */
	vy_set_sta_dhcp_status(mac, 0, 1, 0, 0, 0, 0, "phone", 5);
	vy_set_sta_dhcp_status(mac, 1, 5, 0x1701a8c0, 0x0101a8c0, 0x0101a8c0, 0x0101a8c0, "phone",
			       5);
	vy_add_sta_domain(mac, "www.example.com", 15, 0x1701a8c0);
	vy_add_sta_domain_cname(mac, "www.example.com", 15, "edge.example.net", 16);
	vy_add_sta_domain_ip(mac, "edge.example.net", 16, 0x22d8b85d);
	vy_host::settle();

	for (int i = 0; i < 8 && in.left() >= 2; i++) {
		std::uint8_t ctl = in.u8();
		fz::Bytes line = in.take(in.u8());
		unsigned r = (ctl >> 1) & 3;
		size_t rsize = r < 3 ? reads[r] : 351 + in.u8() * 7u;

		if (ctl & 0x20) {
			vy_host::umac_event(0, fz::station_mac(3), "wlan0");
			vy_add_sta_domain(fz::station_mac(3), "a.lan", 5, 0);
		}
		int dev = (ctl & 1) ? VY_CHRDEV_DUMP : VY_CHRDEV_SUMMARY;
		vy_host::File *f = fz::reopen(file, file_id, dev);
		if (!f)
			FZ_FAIL("open of a free device failed");
		fz::write_line(f, line, ctl & 0x10);
		vy_host::settle();
		fz::check_table();
		fz::check_listening();
		if (rsize && fz::read_pass(f, rsize, 100000) == 100000)
			FZ_FAIL("the read never ends");
		if (!(ctl & 8))
			fz::close(file);
		if (vy_debug_level() < 0 || vy_debug_level() > 4)
			FZ_FAIL("debug_level %d", vy_debug_level());
	}
	fz::close(file);
	return fz::finish(false);
}
