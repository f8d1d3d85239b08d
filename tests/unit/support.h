// SPDX-License-Identifier: GPL-2.0
/* What the unit tests share: a loaded module on a fresh host platform,
 * checked for leftovers after every test; station addresses; a look at an
 * entry under the lock; the captured log and notifications. */
#ifndef VY_TEST_SUPPORT_H
#define VY_TEST_SUPPORT_H

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "vy_common.h"
#include "vy_host.h"
#include "vy_sta_list.h"

using vy_host::Event;
using vy_host::EventKind;

struct Mac {
	u8 b[ETH_ALEN];
};

/* The last byte picks the station's bucket (its low three bits). */
inline Mac mac_of(u8 hi, u8 last)
{
	return Mac{{0x02, 0x00, 0x00, 0x00, hi, last}};
}

inline std::string mac_str(const Mac &m)
{
	char s[18];

	std::snprintf(s, sizeof(s), "%02x:%02x:%02x:%02x:%02x:%02x", m.b[0],
		      m.b[1], m.b[2], m.b[3], m.b[4], m.b[5]);
	return s;
}

inline u16 len_of(const char *s)
{
	return static_cast<u16>(std::strlen(s));
}

inline u32 ip4(u8 a, u8 b, u8 c, u8 d)
{
	const u8 bytes[4] = {a, b, c, d};
	u32 v;

	std::memcpy(&v, bytes, 4);
	return v;
}

inline s32 dhcp(const Mac &m, u32 status, u8 type, u32 ip = 0, u32 server = 0,
		u32 gateway = 0, u32 dns = 0, const char *host = nullptr,
		u8 host_len = 0)
{
	return vy_set_sta_dhcp_status(m.b, status, type, ip, server, gateway,
				      dns, host, host_len);
}

inline s32 query(const Mac &m, const char *name, u32 sta_ip = 0)
{
	return vy_add_sta_domain(m.b, name, len_of(name), sta_ip);
}

inline s32 answer(const Mac &m, const char *name, u32 ip)
{
	return vy_add_sta_domain_ip(m.b, name, len_of(name), ip);
}

/* The texts of the log lines at level from func, without their
 * "func[line]:" or "func:line:" prefix. */
inline std::vector<std::string> logs_of(int level, const std::string &func)
{
	std::vector<std::string> out;

	for (const std::string &l : vy_host::log_lines(level)) {
		const char open = l.size() > func.size() ? l[func.size()] : 0;
		const char *close = open == '[' ? "]:" : ":";
		size_t end = l.find(close, func.size() + 1);
		if (!l.compare(0, func.size(), func) && (open == '[' || open == ':') &&
		    end != std::string::npos)
			out.push_back(l.substr(end + std::strlen(close)));
	}
	return out;
}

inline bool logged(int level, const std::string &func, const std::string &text)
{
	for (const std::string &t : logs_of(level, func))
		if (t == text)
			return true;
	return false;
}

/* The notifications of a kind, for one station or all. */
inline std::vector<Event> notes(EventKind kind, const Mac *m = nullptr)
{
	std::vector<Event> out;

	for (const Event &e : vy_host::events())
		if (e.kind == kind && (!m || !std::memcmp(e.mac, m->b, ETH_ALEN)))
			out.push_back(e);
	return out;
}

/* A copy of the station's entry, zero-filled when there is none. */
inline sta snap(const Mac &m)
{
	vy_read_guard guard(&vy_sta_table.sta_lock);
	sta *e = _vy_find_sta(m.b);
	sta out = {};

	if (e)
		std::memcpy(&out, e, sizeof(out));
	return out;
}

inline bool has_sta(const Mac &m)
{
	vy_read_guard guard(&vy_sta_table.sta_lock);
	return _vy_find_sta(m.b) != nullptr;
}

inline bool timer_pending()
{
	return vy_plat_timer_pending(&vy_sta_table.sta_timer);
}

/* A loaded module at jiffies 1000 (0 would read as "not set"). */
class ModuleTest : public ::testing::Test {
protected:
	/* A fresh platform and module, with no events yet. */
	void SetUp() override
	{
		unload();
		vy_host::reset();
		debug_level = 1;
		vy_host::advance_to(1000);
		load();
		vy_host::take_events();
	}

	void TearDown() override
	{
		vy_host::set_event_sink(nullptr);
		unload();
		EXPECT_EQ(vy_read_listeners(), 0);
		EXPECT_EQ(vy_get_sta_count(), 0);
		EXPECT_FALSE(vy_host::hooks_registered());
		EXPECT_EQ(vy_host::live_allocations(), 0) << "allocation leaked";
		EXPECT_EQ(vy_host::locks_held(), 0);
		EXPECT_FALSE(timer_pending());
		debug_level = 1;
	}

	void load()
	{
		veyra_init();
		vy_host::settle();
		loaded_ = true;
	}

	void unload()
	{
		if (loaded_)
			veyra_exit();
		loaded_ = false;
	}

	/* Lets the hook work run, which arms the periodic timer: with the
	 * first join at 1000 its runs fall on multiples of 500. */
	static void join(const Mac &m, const char *vap = "wlan0")
	{
		ASSERT_EQ(vy_add_sta_entry(m.b, vap), 0);
		vy_host::settle();
	}

	static void leave(const Mac &m, const char *vap = "wlan0")
	{
		ASSERT_TRUE(vy_host::umac_event(1, m.b, vap));
		vy_host::settle();
	}

	/* The total equals the sum of the entries' listeners, and the count
	 * the number of entries. */
	static void expect_consistent()
	{
		vy_read_guard guard(&vy_sta_table.sta_lock);
		s32 sum = 0, n = 0;

		for (const vy_hlist_head &h : vy_sta_table.sta_hlist)
			for (vy_hlist_node *p = h.first; p; p = p->next, n++)
				sum += vy_container_of(p, sta, hlist)->listeners;
		EXPECT_EQ(sum, vy_read_listeners());
		EXPECT_EQ(n, vy_sta_table.sta_count);
	}

	bool loaded_ = false;
};

#endif
