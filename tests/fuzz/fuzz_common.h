/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Shared by the fuzz targets: reading the fuzzer's bytes, exact-size heap
 * copies, loading and unloading the module on a fresh host platform, and
 * the invariants that must hold between any two operations.
 *
 * Every check that fails aborts with a message, which libFuzzer records as
 * a crash together with the input that caused it.
 */
#ifndef VY_FUZZ_COMMON_H
#define VY_FUZZ_COMMON_H

#include <cstdarg>
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

[[noreturn]] __attribute__((format(printf, 1, 2))) inline void
fail(const char *fmt, ...)
{
	va_list ap;

	va_start(ap, fmt);
	std::fprintf(stderr, "fuzz invariant broken: ");
	std::vfprintf(stderr, fmt, ap);
	std::fprintf(stderr, "\n");
	va_end(ap);
	std::abort();
}

/* The fuzzer's bytes, consumed from the front; reads past the end give
 * zeros so that a short input is still a valid program. */
class Input {
public:
	Input(const std::uint8_t *p, size_t n) : p_(p), end_(p + n) {}

	bool empty() const { return p_ >= end_; }
	size_t left() const { return (size_t)(end_ - p_); }
	std::uint8_t u8()
	{
		return p_ < end_ ? *p_++ : 0;
	}
	std::uint16_t u16()
	{
		std::uint16_t hi = u8();
		return (std::uint16_t)((hi << 8) | u8());
	}
	Bytes take(size_t n)
	{
		if (n > left())
			n = left();
		Bytes b(p_, p_ + n);
		p_ += n;
		return b;
	}
	Bytes rest() { return take(left()); }

private:
	const std::uint8_t *p_;
	const std::uint8_t *end_;
};

/* A buffer in a heap block of exactly its size: AddressSanitizer stops at
 * the first byte read past it. */
class Exact {
public:
	explicit Exact(const Bytes &b)
		: n_(b.size()),
		  p_(static_cast<std::uint8_t *>(std::malloc(b.size() ? b.size() : 1)))
	{
		if (n_)
			std::memcpy(p_, b.data(), n_);
	}
	~Exact() { std::free(p_); }
	Exact(const Exact &) = delete;
	Exact &operator=(const Exact &) = delete;

	std::uint8_t *data() const { return p_; }
	u32 size() const { return (u32)n_; }

private:
	size_t n_;
	std::uint8_t *p_;
};

/* The stations the targets use: the first is the one the seed corpora's
 * frames are addressed to. */
inline const std::uint8_t *station_mac(unsigned i)
{
	static const std::uint8_t macs[4][6] = {
		{0x02, 0x11, 0x22, 0x33, 0x44, 0x55},
		{0x02, 0x11, 0x22, 0x33, 0x44, 0x66},
		{0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff},
		{0x02, 0x00, 0x00, 0x00, 0x00, 0x09},
	};
	return macs[i % 4];
}

/* ---- invariants --------------------------------------------------------- */

/* vy_listeners is the sum of the entries' listeners, sta_count the number
 * of entries, no entry holds more than its two outcomes, and no lock is
 * held between operations. */
inline void check_table()
{
	if (int held = vy_host::locks_held())
		fail("%d lock(s) held between operations", held);
	{
		vy_write_guard g(&vy_sta_table.sta_lock);
		long sum = 0, n = 0;

		for (auto &h : vy_sta_table.sta_hlist)
			for (vy_hlist_node *p = h.first; p; p = p->next) {
				const sta *s = vy_container_of(p, sta, hlist);

				if (s->listeners > 2)
					fail("station holds %d listeners",
					     s->listeners);
				sum += s->listeners;
				n++;
			}
		if (sum != vy_read_listeners())
			fail("vy_listeners %d but the entries hold %ld",
			     vy_read_listeners(), sum);
		if (n != vy_sta_table.sta_count)
			fail("sta_count %d but %ld entries",
			     vy_sta_table.sta_count, n);
	}
	if (vy_host::locks_held())
		fail("lock left held by the invariant walk");
}

/* The module's own state never goes wrong, whatever the input: these
 * error lines would mean a broken count. */
inline void check_log()
{
	for (const std::string &l : vy_host::log_lines(VY_LOG_ERR))
		if (l.find("negative value") != std::string::npos)
			fail("error line: %s", l.c_str());
}

/* After the module is gone nothing of it may remain. */
inline void check_unloaded()
{
	if (long n = vy_host::live_allocations())
		fail("%ld allocation(s) live after veyra_exit", n);
	if (vy_host::hooks_registered())
		fail("bridge hooks registered after veyra_exit");
	if (vy_plat_timer_pending(&vy_sta_table.sta_timer))
		fail("timer pending after veyra_exit");
	if (vy_host::locks_held())
		fail("lock held after veyra_exit");
	if (vy_host::umac_monitor_registered())
		fail("station-event monitor registered after veyra_exit");
	if (vy_host::chrdev_major(VY_CHRDEV_DUMP) ||
	    vy_host::chrdev_major(VY_CHRDEV_SUMMARY) || vy_host::kobject_present())
		fail("devices or sysfs left after veyra_exit");
}

/* ---- the module --------------------------------------------------------- */

/* The bridge of the seed frames: a wired port, a VAP, VLANs over both. */
struct Ports {
	vy_dev *br, *eth0, *wlan0, *vlan1, *vlan2, *vlan3, *evlan, *wlan1;

	void create()
	{
		static const std::uint8_t br_addr[6] = {0x02, 0, 0, 0, 0, 0xb0};

		br = vy_host::bridge_create("br0", br_addr);
		eth0 = vy_host::dev_create("eth0", false);
		wlan0 = vy_host::dev_create("wlan0", true);
		vlan1 = vy_host::vlan_create("wlan0.10", wlan0);
		vlan2 = vy_host::vlan_create("wlan0.10.20", vlan1);
		vlan3 = vy_host::vlan_create("wlan0.10.20.30", vlan2);
		evlan = vy_host::vlan_create("eth0.10", eth0);
		wlan1 = vy_host::dev_create("wlan1", true); /* no bridge */
		for (vy_dev *d : {eth0, wlan0, vlan1, vlan2, vlan3, evlan})
			vy_host::dev_set_master(d, br);
	}

	/* A port by number: the kinds the classification tells apart. */
	vy_dev *pick(unsigned k) const
	{
		vy_dev *all[8] = {eth0, wlan0, vlan1, vlan2, vlan3, evlan, nullptr, wlan1};
		return all[k % 8];
	}
};

inline void load(Ports *ports = nullptr)
{
	vy_host::reset();
	debug_level = 1;
	if (ports)
		ports->create();
	veyra_init();
	vy_host::settle();
}

inline void unload()
{
	veyra_exit();
	check_unloaded();
	check_log();
}

inline void set_debug_level(unsigned v)
{
	vy_write_once(debug_level, (s32)(v > 4 ? 4 : v));
}

/* Reads a device file to the end of its pass with reads of size bytes;
 * false when it would not end. */
inline bool read_all(vy_host::File *f, size_t size)
{
	std::vector<char> buf(size ? size : 1);

	for (int i = 0; i < 100000; i++) {
		long n = vy_host::read(f, buf.data(), size);

		if (n < 0 || (size_t)n > size)
			fail("read of %zu bytes returned %ld", size, n);
		if (n == 0)
			return true;
	}
	return false;
}

/* A full dump through /dev/vy_dump: formats every station and domain. */
inline void dump_everything()
{
	int err = 0;
	vy_host::File *f = vy_host::open(VY_CHRDEV_DUMP, &err);

	if (!f)
		return;
	if (!read_all(f, 4096))
		fail("the dump never ends");
	vy_host::release(f);
}

} // namespace fz

#endif
