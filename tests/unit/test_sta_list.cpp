// Station table: joins and leaves from umac, deletion, the listener
// accounting and its over-release. The event and join notices, a long VAP
// name cut to 15 characters and the deletion by command are pinned by the
// devices scenario.
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "support.h"

extern s32 vy_listeners;

namespace {

using StaTable = ModuleTest;

TEST_F(StaTable, JoinCreatesEntryWithTwoListenersAndHooksLastLeaveUnhooks)
{
	const Mac a = mac_of(1, 1);

	debug_level = 2;
	ASSERT_TRUE(vy_host::umac_event(0, a.b, "wlan0"));
	ASSERT_TRUE(has_sta(a));
	sta s = snap(a);
	EXPECT_STREQ(s.vap_name, "wlan0");
	EXPECT_EQ(s.listeners, 2);
	EXPECT_EQ(s.join_time, 1000u);
	EXPECT_EQ(s.dhcp_status, 0u);
	EXPECT_EQ(s.dns_status, 0u);
	EXPECT_EQ(vy_get_sta_count(), 1);
	EXPECT_EQ(vy_read_listeners(), 2);
	vy_host::settle();
	EXPECT_TRUE(vy_host::hooks_registered());
	EXPECT_TRUE(timer_pending());

	// Leaves from another VAP delete nothing.
	for (const char *other : {"wlan1", "WLAN0", "wlan0x"}) {
		leave(a, other);
		EXPECT_TRUE(has_sta(a)) << other;
		EXPECT_TRUE(logged(VY_LOG_NOTICE, "vy_del_sta_entry",
				   "Do not delete STA " + mac_str(a) +
					   " due to different vaps (current vap wlan0, STA leave event with vap " +
					   other + ")"));
	}
	EXPECT_EQ(vy_read_listeners(), 2);
	EXPECT_TRUE(vy_host::hooks_registered());

	leave(a);
	EXPECT_FALSE(has_sta(a));
	EXPECT_TRUE(logged(VY_LOG_NOTICE, "vy_del_sta_entry",
			   "Delete STA " + mac_str(a) + " from wlan0"));
	EXPECT_EQ(vy_get_sta_count(), 0);
	EXPECT_EQ(vy_read_listeners(), 0);
	// The last listener gone with force_listen off: the hooks and the
	// timer come off, once each.
	EXPECT_FALSE(vy_host::hooks_registered());
	EXPECT_FALSE(timer_pending());
	EXPECT_EQ(notes(EventKind::HooksRegistered).size(), 1u);
	EXPECT_EQ(notes(EventKind::HooksUnregistered).size(), 1u);
}

// An event record whose VAP name field holds no NUL: the read stops at 16
// bytes, and the entry keeps 15 of them.
TEST_F(StaTable, EventWithoutNulInTheVapName)
{
	const Mac b = mac_of(3, 2);
	u8 record[64];

	std::memset(record, 'x', sizeof(record));
	std::memcpy(record + 42, b.b, ETH_ALEN);
	debug_level = 2;
	EXPECT_EQ(vy_sta_evt_cb(0, record), 0);
	EXPECT_TRUE(logged(VY_LOG_NOTICE, "vy_sta_evt_cb",
			   "receive sta event 0 (sta: " + mac_str(b) + ", vap: xxxxxxxxxxxxxxxx)"));
	EXPECT_STREQ(snap(b).vap_name, "xxxxxxxxxxxxxxx");
}

TEST_F(StaTable, DeleteByCommandAndRefusedArguments)
{
	const Mac a = mac_of(5, 1), b = mac_of(5, 2);

	// A failed allocation at a join changes nothing.
	vy_host::fail_next_allocations(1);
	EXPECT_TRUE(vy_host::umac_event(0, a.b, "wlan0"));
	EXPECT_FALSE(has_sta(a));
	EXPECT_EQ(vy_get_sta_count(), 0);
	EXPECT_EQ(vy_read_listeners(), 0);
	EXPECT_TRUE(logged(VY_LOG_WARNING, "vy_add_sta_entry",
			   "_vy_add_sta_entry() fails, STA = " + mac_str(a)));
	vy_host::settle();
	EXPECT_EQ(vy_host::hook_registrations(), 0);

	debug_level = 2;
	vy_add_sta_entry(a.b, "wlan3");
	EXPECT_EQ(vy_del_sta_entry(a.b, nullptr), 0);
	EXPECT_FALSE(has_sta(a));

	EXPECT_EQ(vy_del_sta_entry(b.b, "wlan0"), 1);
	EXPECT_TRUE(logged(VY_LOG_NOTICE, "vy_del_sta_entry",
			   "STA " + mac_str(b) + " does not exist"));
	EXPECT_EQ(vy_del_sta_entry(nullptr, "wlan0"), -1);
	EXPECT_TRUE(logged(VY_LOG_ERR, "vy_del_sta_entry", "sta_mac is null"));
	EXPECT_EQ(vy_add_sta_entry(b.b, nullptr), -1);
	EXPECT_TRUE(logged(VY_LOG_ERR, "vy_add_sta_entry",
			   "vap_name is NULL (STA = " + mac_str(b) + ")"));
	EXPECT_EQ(vy_add_sta_entry(nullptr, "wlan0"), -1);
	EXPECT_TRUE(logged(VY_LOG_ERR, "vy_add_sta_entry", "sta_mac is null"));
	EXPECT_EQ(vy_sta_evt_cb(0, nullptr), -1);
	EXPECT_TRUE(logged(VY_LOG_ERR, "vy_sta_evt_cb", "arg is NULL"));
	EXPECT_EQ(vy_get_sta_count(), 0);
}

TEST_F(StaTable, ReleaseBeyondTheEntryIsClampedAndLogged)
{
	const Mac a = mac_of(11, 1);

	join(a);
	{
		vy_write_guard guard(&vy_sta_table.sta_lock);
		sta *e = _vy_find_sta(a.b);

		_vy_del_listeners(e, 1);
		_vy_del_listeners(e, 2);
		EXPECT_EQ(e->listeners, 0);
		EXPECT_EQ(vy_read_listeners(), 0);

		// A count that disagrees with the total drives it negative: it
		// is reported and left as it is.
		e->listeners = 3;
		_vy_del_listeners(e, 3);
		EXPECT_EQ(vy_read_listeners(), -3);
		vy_write_once(vy_listeners, 0);
	}
	EXPECT_TRUE(logged(VY_LOG_ERR, "_vy_del_listeners",
			   "sta->listeners 1  < substacted listener_num 2 (total listeners = 1)"));
	EXPECT_TRUE(logged(VY_LOG_ERR, "_vy_del_listeners",
			   "vy_listeners become negative value -3 somehow (decrease num = 3, sta->listeners = 0)"));
	vy_host::settle();
	EXPECT_FALSE(vy_host::hooks_registered());
	expect_consistent();
}

} // namespace
