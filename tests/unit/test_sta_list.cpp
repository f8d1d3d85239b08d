// Station table: joins and leaves from umac, deletion, the copy walk, the
// listener accounting and force_listen; and the two notification senders.
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "station_support.h"

extern s32 vy_listeners;

namespace {

using namespace station;

using StaTableTest = StationTest;

TEST_F(StaTableTest, JoinCreatesEntryWithTwoListenersAndHooks)
{
	const Mac a = mac_of(1, 1);
	sta s;

	debug_level = 2;
	ASSERT_TRUE(vy_host::umac_event(0, a.b, "wlan0"));
	ASSERT_TRUE(snap(a, &s));
	EXPECT_STREQ(s.vap_name, "wlan0");
	EXPECT_EQ(s.listeners, 2);
	EXPECT_EQ(s.join_time, 1000u);
	EXPECT_EQ(s.dhcp_status, 0u);
	EXPECT_EQ(s.dns_status, 0u);
	EXPECT_EQ(vy_get_sta_count(), 1);
	EXPECT_EQ(vy_read_listeners(), 2);
	EXPECT_TRUE(logged(VY_LOG_NOTICE, "vy_sta_evt_cb",
			   "receive sta event 0 (sta: " + mac_str(a) +
				   ", vap: wlan0)"));
	EXPECT_TRUE(logged(VY_LOG_NOTICE, "vy_add_sta_entry",
			   "STA " + mac_str(a) + " is added. (VAP = wlan0)"));
	vy_host::settle();
	EXPECT_TRUE(vy_host::hooks_registered());
}

TEST_F(StaTableTest, SecondJoinOnlyRenamesTheVap)
{
	struct Row {
		const char *first, *second;
	} rows[] = {{"wlan0", "wlan0"}, {"wlan0", "wlan1"}};
	u8 i = 0;

	debug_level = 2;
	for (const Row &r : rows) {
		SCOPED_TRACE(r.second);
		const Mac m = mac_of(2, i++);
		sta s;

		EXPECT_EQ(vy_add_sta_entry(m.b, r.first), 0);
		vy_host::advance(10);
		EXPECT_EQ(vy_add_sta_entry(m.b, r.second), 1);
		ASSERT_TRUE(snap(m, &s));
		EXPECT_STREQ(s.vap_name, r.second);
		EXPECT_EQ(s.listeners, 2);
		EXPECT_EQ(s.join_time, vy_host::jiffies() - 10);
		EXPECT_EQ(vy_read_listeners(), 2 * i);
		EXPECT_TRUE(logged(VY_LOG_NOTICE, "vy_add_sta_entry",
				   "STA " + mac_str(m) +
					   " is already added. (old VAP = " +
					   r.first + ", new VAP = " + r.second +
					   ")"));
	}
	EXPECT_EQ(vy_get_sta_count(), 2);
}

TEST_F(StaTableTest, VapNameIsCutTo15Characters)
{
	const Mac a = mac_of(3, 1), b = mac_of(3, 2);
	sta s;

	vy_add_sta_entry(a.b, "abcdefghijklmnopqrstuvwxyz");
	ASSERT_TRUE(snap(a, &s));
	EXPECT_STREQ(s.vap_name, "abcdefghijklmno");

	// A record whose name field holds no NUL: the read stops at 16 bytes.
	u8 record[64];
	std::memset(record, 'x', sizeof(record));
	std::memcpy(record + 42, b.b, ETH_ALEN);
	debug_level = 2;
	EXPECT_EQ(vy_sta_evt_cb(0, record), 0);
	EXPECT_TRUE(logged(VY_LOG_NOTICE, "vy_sta_evt_cb",
			   "receive sta event 0 (sta: " + mac_str(b) +
				   ", vap: xxxxxxxxxxxxxxxx)"));
	ASSERT_TRUE(snap(b, &s));
	EXPECT_STREQ(s.vap_name, "xxxxxxxxxxxxxxx");
}

TEST_F(StaTableTest, LeaveDeletesOnlyFromTheSameVap)
{
	const Mac a = mac_of(4, 1);
	sta s;

	debug_level = 2;
	vy_host::umac_event(0, a.b, "wlan0");
	vy_host::settle();
	ASSERT_TRUE(vy_host::hooks_registered());

	for (const char *other : {"wlan1", "WLAN0", "wlan0x"}) {
		vy_host::umac_event(1, a.b, other);
		EXPECT_TRUE(snap(a, &s)) << other;
		EXPECT_TRUE(logged(VY_LOG_NOTICE, "vy_del_sta_entry",
				   "Do not delete STA " + mac_str(a) +
					   " due to different vaps (current vap wlan0, STA leave event with vap " +
					   other + ")"));
	}
	EXPECT_EQ(vy_read_listeners(), 2);

	vy_host::umac_event(1, a.b, "wlan0");
	EXPECT_FALSE(snap(a, &s));
	EXPECT_TRUE(logged(VY_LOG_NOTICE, "vy_del_sta_entry",
			   "Delete STA " + mac_str(a) + " from wlan0"));
	EXPECT_EQ(vy_get_sta_count(), 0);
	EXPECT_EQ(vy_read_listeners(), 0);
	// The last listener gone with force_listen off: the hooks come off.
	vy_host::settle();
	EXPECT_FALSE(vy_host::hooks_registered());
}

TEST_F(StaTableTest, DeleteByCommandAndRefusedArguments)
{
	const Mac a = mac_of(5, 1), b = mac_of(5, 2);
	sta s;

	debug_level = 2;
	vy_add_sta_entry(a.b, "wlan3");
	EXPECT_EQ(vy_del_sta_entry(a.b, nullptr), 0);
	EXPECT_FALSE(snap(a, &s));
	EXPECT_TRUE(logged(VY_LOG_NOTICE, "vy_del_sta_entry",
			   "Delete STA " + mac_str(a) + " from user command"));

	EXPECT_EQ(vy_del_sta_entry(b.b, "wlan0"), 1);
	EXPECT_TRUE(logged(VY_LOG_NOTICE, "vy_del_sta_entry",
			   "STA " + mac_str(b) + " does not exist"));
	EXPECT_EQ(vy_del_sta_entry(nullptr, "wlan0"), -1);
	EXPECT_TRUE(logged(VY_LOG_ERR, "vy_del_sta_entry", "sta_mac is null"));

	EXPECT_EQ(vy_add_sta_entry(b.b, nullptr), -1);
	EXPECT_TRUE(logged(VY_LOG_ERR, "vy_add_sta_entry",
			   "vap_name is NULL (STA = " + mac_str(b) + ")"));
	EXPECT_EQ(vy_add_sta_entry(nullptr, "wlan0"), -1);
	EXPECT_EQ(vy_sta_evt_cb(0, nullptr), -1);
	EXPECT_TRUE(logged(VY_LOG_ERR, "vy_sta_evt_cb", "arg is NULL"));
	EXPECT_EQ(vy_get_sta_count(), 0);
	EXPECT_EQ(vy_read_listeners(), 0);
}

TEST_F(StaTableTest, OtherEventCodesOnlyLog)
{
	const Mac a = mac_of(6, 1);
	sta s;

	debug_level = 2;
	vy_add_sta_entry(a.b, "wlan0");
	for (int code : {2, 3, -1, 255}) {
		vy_host::take_events();
		EXPECT_TRUE(vy_host::umac_event(code, a.b, "wlan0"));
		EXPECT_TRUE(snap(a, &s));
		EXPECT_EQ(vy_host::log_lines().size(), 1u) << code;
		EXPECT_TRUE(logged(VY_LOG_NOTICE, "vy_sta_evt_cb",
				   "receive sta event " + std::to_string(code) +
					   " (sta: " + mac_str(a) + ", vap: wlan0)"));
	}
	EXPECT_EQ(vy_read_listeners(), 2);
}

TEST_F(StaTableTest, FailedAllocationAtJoinChangesNothing)
{
	const Mac a = mac_of(7, 1);
	sta s;

	vy_host::fail_next_allocations(1);
	EXPECT_EQ(vy_host::umac_event(0, a.b, "wlan0"), true);
	EXPECT_FALSE(snap(a, &s));
	EXPECT_EQ(vy_get_sta_count(), 0);
	EXPECT_EQ(vy_read_listeners(), 0);
	EXPECT_TRUE(logged(VY_LOG_WARNING, "vy_add_sta_entry",
			   "_vy_add_sta_entry() fails, STA = " + mac_str(a)));
	vy_host::settle();
	EXPECT_EQ(vy_host::hook_registrations(), 0);
}

TEST_F(StaTableTest, CopyWalkVisitsEveryEntryOncePerPass)
{
	// Buckets: 0x08 and 0x10 share bucket 0, 0x03 is 3, 0x0f is 7.
	const Mac b3 = mac_of(8, 0x03), b0a = mac_of(8, 0x08),
		  b7 = mac_of(8, 0x0f), b0b = mac_of(8, 0x10),
		  late = mac_of(8, 0x18);
	sta c;

	for (const Mac *m : {&b3, &b0a, &b7, &b0b})
		vy_add_sta_entry(m->b, "wlan0");
	// Pass 0 matches entries never copied, so nothing is visited.
	EXPECT_EQ(vy_sta_copy_next(0, &c), 0);

	auto walk = [&](u32 seq, const std::function<void(int)> &between) {
		std::vector<std::string> seen;
		int i = 0;

		// Bounded, so that a walk that never ends fails instead.
		while (seen.size() < 16 && vy_sta_copy_next(seq, &c) == 1) {
			EXPECT_EQ(c.dump_seq, seq);
			seen.push_back(mac_str(Mac{{c.mac[0], c.mac[1], c.mac[2],
						    c.mac[3], c.mac[4], c.mac[5]}}));
			vy_free_sta_copy(&c);
			between(i++);
		}
		return seen;
	};

	std::vector<std::string> want = {mac_str(b0b), mac_str(b0a),
					 mac_str(b3), mac_str(b7)};
	EXPECT_EQ(walk(1, [](int) {}), want);
	EXPECT_EQ(vy_sta_copy_next(1, &c), 0);

	// A new entry during the pass is still visited; a deleted one not.
	want = {mac_str(b0b), mac_str(late), mac_str(b0a), mac_str(b3)};
	EXPECT_EQ(walk(2,
		       [&](int i) {
			       if (i == 0) {
				       vy_add_sta_entry(late.b, "wlan0");
				       vy_del_sta_entry(b7.b, nullptr);
			       }
		       }),
		  want);
}

TEST_F(StaTableTest, CopyHoldsAPrivateDomainTable)
{
	const Mac a = mac_of(9, 1);
	sta c;

	vy_add_sta_entry(a.b, "wlan0");
	vy_add_sta_domain(a.b, "example.com", 11, ip4(10, 0, 0, 9));
	vy_add_sta_domain(a.b, "b.org", 5, ip4(10, 0, 0, 9));
	long before = vy_host::live_allocations();

	ASSERT_EQ(vy_sta_copy_next(1, &c), 1);
	EXPECT_EQ(vy_host::live_allocations(), before + 2);
	{
		vy_read_guard guard(&vy_sta_table.sta_lock);
		domain_entry *live = _vy_find_domain(
			&_vy_find_sta(a.b)->domain_hlist, "example.com", 11);
		domain_entry *copied =
			_vy_find_domain(&c.domain_hlist, "example.com", 11);

		ASSERT_NE(copied, nullptr);
		EXPECT_NE(copied, live);
		EXPECT_EQ(copied->query_time, live->query_time);
	}
	vy_free_sta_copy(&c);
	EXPECT_EQ(vy_host::live_allocations(), before);
	EXPECT_EQ(vy_is_domain_hlist_empty(&c.domain_hlist), 1);
	EXPECT_EQ(c.mac[5], 0);
	vy_free_sta_copy(&c); // harmless a second time
	vy_free_sta_copy(nullptr);

	// A deep copy out of memory ends the pass; the entry stays marked.
	vy_host::fail_next_allocations(1);
	EXPECT_EQ(vy_sta_copy_next(2, &c), 0);
	vy_free_sta_copy(&c);
	EXPECT_EQ(vy_sta_copy_next(2, &c), 0);
	EXPECT_EQ(vy_host::live_allocations(), before);
}

TEST_F(StaTableTest, ListenerTotalMatchesEntriesAfterEveryStep)
{
	const Mac a = mac_of(10, 1), b = mac_of(10, 2);
	const u32 addr = ip4(10, 0, 0, 7);
	struct Step {
		const char *what;
		std::function<void()> run;
		s32 total;
	} steps[] = {
		{"join a", [&] { vy_add_sta_entry(a.b, "wlan0"); }, 2},
		{"join b", [&] { vy_add_sta_entry(b.b, "wlan1"); }, 4},
		{"join a again", [&] { vy_add_sta_entry(a.b, "wlan1"); }, 4},
		{"discover a",
		 [&] { vy_set_sta_dhcp_status(a.b, 0, 1, 0, 0, 0, 0, nullptr, 0); },
		 4},
		{"ack a",
		 [&] { vy_set_sta_dhcp_status(a.b, 1, 5, addr, 0, 0, 0, nullptr, 0); },
		 3},
		{"renew a",
		 [&] { vy_set_sta_dhcp_status(a.b, 0, 3, 0, 0, 0, 0, nullptr, 0); },
		 4},
		{"query b", [&] { vy_add_sta_domain(b.b, "x.org", 5, addr); }, 4},
		{"answer b", [&] { vy_add_sta_domain_ip(b.b, "x.org", 5, addr); }, 3},
		{"answer b again",
		 [&] { vy_reject_sta_domain(b.b, "x.org", 5, 3); },
		 3},
		{"leave a elsewhere", [&] { vy_host::umac_event(1, a.b, "wlan9"); }, 3},
		{"delete b", [&] { vy_del_sta_entry(b.b, nullptr); }, 2},
		{"leave a", [&] { vy_host::umac_event(1, a.b, "wlan1"); }, 0},
	};

	for (const Step &s : steps) {
		s.run();
		EXPECT_EQ(vy_read_listeners(), s.total) << s.what;
		EXPECT_EQ(listener_sum(), vy_read_listeners()) << s.what;
	}
}

TEST_F(StaTableTest, ReleaseBeyondTheEntryIsClampedAndLogged)
{
	const Mac a = mac_of(11, 1);

	vy_add_sta_entry(a.b, "wlan0");
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
}

TEST_F(StaTableTest, ForceListenKeepsTheHooksWithoutListeners)
{
	const Mac a = mac_of(12, 1);

	// The last listener goes while force_listen is on: no wake-up.
	vy_write_force_listen(1);
	EXPECT_EQ(vy_read_force_listen(), 1);
	vy_add_sta_entry(a.b, "wlan0");
	vy_del_sta_entry(a.b, nullptr);
	EXPECT_EQ(vy_read_listeners(), 0);
	vy_host::settle();
	EXPECT_TRUE(vy_host::hooks_registered());
	EXPECT_TRUE(vy_plat_timer_pending(&vy_sta_table.sta_timer));

	vy_write_force_listen(0);
	EXPECT_EQ(vy_read_force_listen(), 0);
	vy_host::settle();
	EXPECT_FALSE(vy_host::hooks_registered());
	EXPECT_FALSE(vy_plat_timer_pending(&vy_sta_table.sta_timer));
}


} // namespace
