// SPDX-License-Identifier: GPL-2.0
/* What the station-table tests share: station addresses, a look at an
 * entry under the lock, and the captured log and notifications by sender. */
#ifndef VY_TEST_STATION_SUPPORT_H
#define VY_TEST_STATION_SUPPORT_H

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "vy_host.h"
#include "vy_sta_list.h"

namespace station {

using vy_host::Event;
using vy_host::EventKind;

struct Mac {
	u8 b[ETH_ALEN];
};

/* The last byte picks the bucket (its low three bits). */
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

/* The texts of the log lines at level from func, without their
 * "func[line]:" or "func:line:" prefix. */
inline std::vector<std::string> logs_of(int level, const std::string &func)
{
	std::vector<std::string> out;

	for (const std::string &l : vy_host::log_lines(level)) {
		if (l.compare(0, func.size(), func) != 0 || l.size() <= func.size())
			continue;
		char open = l[func.size()];
		size_t end = open == '[' ? l.find("]:", func.size())
					 : l.find(':', func.size() + 1);
		if ((open != '[' && open != ':') || end == std::string::npos)
			continue;
		out.push_back(l.substr(end + (open == '[' ? 2 : 1)));
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

/* A copy of the station's entry; false when there is none. */
inline bool snap(const Mac &m, sta *out)
{
	vy_read_guard guard(&vy_sta_table.sta_lock);
	sta *e = _vy_find_sta(m.b);

	if (e)
		std::memcpy(out, e, sizeof(*out));
	return e != nullptr;
}

inline sta snap(const Mac &m)
{
	sta out = {};

	snap(m, &out);
	return out;
}

inline s32 listener_sum()
{
	vy_read_guard guard(&vy_sta_table.sta_lock);
	s32 sum = 0;

	for (const vy_hlist_head &h : vy_sta_table.sta_hlist)
		for (vy_hlist_node *n = h.first; n; n = n->next)
			sum += vy_container_of(n, sta, hlist)->listeners;
	return sum;
}

/* A loaded module at jiffies 1000 (0 would read as "not set"); at the end
 * of every test nothing may be left behind. */
class StationTest : public ::testing::Test {
protected:
	void SetUp() override
	{
		vy_host::reset();
		debug_level = 1;
		vy_host::advance_to(1000);
		veyra_init();
		vy_host::take_events();
	}

	void TearDown() override
	{
		vy_host::set_event_sink(nullptr);
		veyra_exit();
		EXPECT_EQ(vy_read_listeners(), 0);
		EXPECT_EQ(vy_get_sta_count(), 0);
		EXPECT_FALSE(vy_host::hooks_registered());
		EXPECT_EQ(vy_host::live_allocations(), 0);
		debug_level = 1;
	}

	void expect_consistent() { EXPECT_EQ(vy_read_listeners(), listener_sum()); }
};

} // namespace station

#endif
