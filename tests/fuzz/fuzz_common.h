/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The harness of the fuzz targets and the stress: reading the fuzzer's
 * bytes, loading and unloading the module on a fresh host platform, the
 * device files, and the invariants that must hold between any two
 * operations and after the unload.
 *
 * Every check that fails aborts with a message, which libFuzzer records as
 * a crash together with the input that caused it. What the host platform
 * and the sanitizers already catch is not checked again here: a leaked
 * allocation (LeakSanitizer, after every input), a lock left held (the
 * table check takes the station lock for writing, which the platform
 * refuses to a thread that holds it and a leftover reader blocks until
 * libFuzzer's timeout), a reset with a file open or the hook work or a
 * timer still running (the platform's contract checks).
 */
#ifndef VY_FUZZ_COMMON_H
#define VY_FUZZ_COMMON_H

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "vy_common.h"
#include "vy_dump.h"
#include "vy_hook.h"
#include "vy_host.h"
#include "vy_sta_list.h"

namespace fz {

using Bytes = std::vector<std::uint8_t>;

#define FZ_FAIL(fmt, ...) \
	(std::fprintf(stderr, "fuzz invariant broken: " fmt "\n", ##__VA_ARGS__), std::abort())

/* The fuzzer's bytes, consumed from the front; reads past the end give
 * zeros so that a short input is still a valid program. What take()
 * returns is a heap block of exactly its size (a vector built from a range
 * allocates no more), so AddressSanitizer stops at the first byte read
 * past it. */
struct Input {
	const std::uint8_t *p_, *end_;

	size_t left() const { return p_ < end_ ? (size_t)(end_ - p_) : 0; }
	std::uint8_t u8() { return p_ < end_ ? *p_++ : 0; }
	std::uint16_t u16()
	{
		std::uint16_t hi = u8();
		return (std::uint16_t)((hi << 8) | u8());
	}
	Bytes take(size_t n)
	{
		n = n < left() ? n : left();
		p_ += n;
		return Bytes(p_ - n, p_);
	}
};

/* The stations, six bytes each: the first is the one the seed corpora's
 * frames are addressed to, the last one never joins in fuzz_dns. */
constexpr std::uint8_t kStations[24] = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55, 0x02, 0x11,
					0x22, 0x33, 0x44, 0x66, 0xaa, 0xbb, 0xcc, 0xdd,
					0xee, 0xff, 0x02, 0x00, 0x00, 0x00, 0x00, 0x09};
inline const std::uint8_t *station_mac(unsigned i) { return kStations + 6 * (i % 4); }

/*
 * Between any two operations: vy_listeners is the sum of the entries'
 * listeners, sta_count the number of entries, no entry holds more than its
 * two outcomes, and debug_level stays within 0..4 whatever was written to
 * it. Once the hook work has settled, also: whoever listens has the timer
 * and (unless a hook registration failed) the hooks. The converse need not
 * hold: a join while the work listens queues a second run, which hooks
 * again after an unhook and sleeps hooked until the next raise, with
 * nobody listening. The timer runs exactly while the work is hooked,
 * though.
 */
inline void check_table(bool settled = false, bool hook_failed = false)
{
	vy_write_guard g(&vy_sta_table.sta_lock);
	long sum = 0, n = 0;

	for (auto &h : vy_sta_table.sta_hlist)
		for (vy_hlist_node *p = h.first; p; p = p->next, n++) {
			int l = vy_container_of(p, sta, hlist)->listeners;
			if (l > 2)
				FZ_FAIL("station holds %d listeners", l);
			sum += l;
		}
	if (sum != vy_read_listeners() || n != vy_sta_table.sta_count)
		FZ_FAIL("vy_listeners %d, sta_count %d, but %ld entries hold %ld",
			vy_read_listeners(), vy_sta_table.sta_count, n, sum);
	if (vy_debug_level() < 0 || vy_debug_level() > 4)
		FZ_FAIL("debug_level %d", vy_debug_level());
	bool listening = vy_read_listeners() != 0 || vy_read_force_listen();
	bool timer = vy_plat_timer_pending(&vy_sta_table.sta_timer);
	bool hooks = vy_host::hooks_registered();
	if (settled && ((listening && !timer) || (hooks && !timer) ||
			(listening && !hooks && !hook_failed)))
		FZ_FAIL("listening %d, timer %d, hooks %d", listening, timer, hooks);
}

/* The ports of the bridge br0 by number, in the kinds the classification
 * tells apart: wired, VAP, VLAN on the VAP, a VLAN on that, a third VLAN
 * level, VLAN on wired, none, a VAP outside the bridge. */
using Ports = std::array<vy_dev *, 8>;

/* A fresh platform and the module on it. fails: the registrations that
 * fail during veyra_init, bits 0-4 the failure points of the devices and
 * sysfs in their order, bit 5 the station-event monitor. */
inline Ports load(unsigned fails = 0)
{
	static const std::uint8_t br_addr[6] = {0x02, 0, 0, 0, 0, 0xb0};
	Ports d{};

	vy_host::reset();
	debug_level = 1;
	vy_dev *br = vy_host::bridge_create("br0", br_addr);
	d[0] = vy_host::dev_create("eth0", false);
	d[1] = vy_host::dev_create("wlan0", true);
	d[2] = vy_host::vlan_create("wlan0.10", d[1]);
	d[3] = vy_host::vlan_create("wlan0.10.20", d[2]);
	d[4] = vy_host::vlan_create("wlan0.10.20.30", d[3]);
	d[5] = vy_host::vlan_create("eth0.10", d[0]);
	d[7] = vy_host::dev_create("wlan1", true);
	for (int i = 0; i < 6; i++)
		vy_host::dev_set_master(d[i], br);
	for (int i = 0; i <= vy_host::FAIL_SYSFS_DUMP; i++)
		if (fails & (1u << i))
			vy_host::fail_at((vy_host::FailPoint)i);
	if (fails & 32)
		vy_host::umac_fail_next_register(-VY_ENOMEM);
	veyra_init();
	vy_host::settle();
	return d;
}

/* A frame through one of the hooks, after junk bytes that the MAC header
 * follows, or with no MAC header set; only its first linear bytes (0xffff:
 * all of them) are in the socket buffer's memory. False when the hooks are
 * off. */
inline bool pass(Bytes frame, std::uint16_t linear, bool post, vy_dev *port, size_t junk = 0,
		 bool mac_set = true)
{
	frame.insert(frame.begin(), junk, 0xee);
	vy_skb skb = vy_host::make_skb(frame, linear == 0xffff ? SIZE_MAX : junk + linear);
	skb.mac_header = (std::uint16_t)junk;
	skb.mac_set = mac_set;
	return post ? vy_host::pass_post_routing(skb, port) : vy_host::pass_pre_routing(skb, port);
}

/* A device file: null, with the error checked, when the module could not
 * open it (a failed allocation or registration); a second open while one
 * is held is refused as busy. */
inline vy_host::File *open(vy_host::File *held, int dev)
{
	int err = 0;
	vy_host::File *f = vy_host::open(dev, &err);

	if (held ? (f || err != -VY_EBUSY) : (!f && err != -VY_ENOMEM && err != -19 /* ENODEV */))
		FZ_FAIL("open of device %d gave %d", dev, err);
	return held ? held : f;
}

inline void close(vy_host::File *&f)
{
	if (f)
		vy_host::release(f);
	f = nullptr;
}

/* A command line: the count comes back for 1 to VY_CMD_MAX bytes, 0 for
 * none or more, -EFAULT when the copy from the writer fails. */
inline void write_line(vy_host::File *f, const Bytes &line, bool copy_fails)
{
	vy_host::fail_at(vy_host::FAIL_COPY_FROM_USER, copy_fails ? -VY_EFAULT : 0);
	long n = vy_host::write(f, reinterpret_cast<const char *>(line.data()), line.size());
	long expect = (line.empty() || line.size() > VY_CMD_MAX) ? 0
		      : copy_fails ? -VY_EFAULT : (long)line.size();
	/* A refused copy is not consumed by a write that reads nothing. */
	vy_host::fail_at(vy_host::FAIL_COPY_FROM_USER, 0);
	if (n != expect)
		FZ_FAIL("write of %zu bytes gave %ld, not %ld", line.size(), n, expect);
}

/* Reads of size bytes from a device file, at most count of them, up to the
 * end of its pass, the first one's copy to the reader failing when asked.
 * No pass takes 100000 reads. */
inline void read_pass(vy_host::File *f, size_t size, long count, bool copy_fails = false)
{
	std::vector<char> buf(size ? size : 1);

	vy_host::fail_at(vy_host::FAIL_COPY_TO_USER, copy_fails ? -VY_EFAULT : 0);
	for (long i = 0, n = 1; n > 0 && i < count; i++) {
		n = vy_host::read(f, buf.data(), size);
		if (n < 0 || (size_t)n > size || i == 99999)
			FZ_FAIL("read %ld of %zu bytes returned %ld", i, size, n);
	}
	vy_host::fail_at(vy_host::FAIL_COPY_TO_USER, 0);
}

/* The end of an input, or of a round: the hook work settles, the full dump
 * is read when asked (it formats every station and domain), the invariants
 * hold; after veyra_exit nothing the platform resets silently may remain,
 * and the counts never went wrong, which these error lines would say. */
inline int finish(bool dump, bool hook_failed = false)
{
	vy_host::settle();
	if (vy_host::File *f = dump ? open(nullptr, VY_CHRDEV_DUMP) : nullptr) {
		read_pass(f, 4096, 100000);
		vy_host::release(f);
	}
	check_table(true, hook_failed);
	veyra_exit();
	if (vy_host::hooks_registered() || vy_plat_timer_pending(&vy_sta_table.sta_timer) ||
	    vy_host::umac_monitor_registered() || vy_host::chrdev_major(VY_CHRDEV_DUMP) ||
	    vy_host::chrdev_major(VY_CHRDEV_SUMMARY) || vy_host::kobject_present())
		FZ_FAIL("hooks, timer, monitor, devices or sysfs left after veyra_exit");
	for (const std::string &l : vy_host::log_lines(VY_LOG_ERR))
		if (l.find("negative value") != std::string::npos)
			FZ_FAIL("error line: %s", l.c_str());
	return 0;
}

} // namespace fz

#endif
