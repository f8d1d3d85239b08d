/* SPDX-License-Identifier: GPL-2.0 */
/* A loaded module on a fresh host platform, checked for leftovers at the
 * end of every test. */
#ifndef VY_TEST_MODULE_FIXTURE_H
#define VY_TEST_MODULE_FIXTURE_H

#include <gtest/gtest.h>

#include <string>

#include "vy_common.h"
#include "vy_host.h"
#include "vy_sta_list.h"

class ModuleTest : public ::testing::Test {
protected:
	void SetUp() override
	{
		vy_host::reset();
		debug_level = 1;
		load();
	}

	void TearDown() override
	{
		unload();
		EXPECT_EQ(vy_host::live_allocations(), 0) << "allocation leaked";
		EXPECT_FALSE(vy_host::hooks_registered());
		EXPECT_EQ(vy_host::locks_held(), 0);
		EXPECT_FALSE(vy_plat_timer_pending(&vy_sta_table.sta_timer));
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

	static void join(const std::uint8_t *mac, const char *vap = "wlan0")
	{
		ASSERT_TRUE(vy_host::umac_event(0, mac, vap));
		vy_host::settle();
	}

	static void leave(const std::uint8_t *mac, const char *vap = "wlan0")
	{
		ASSERT_TRUE(vy_host::umac_event(1, mac, vap));
		vy_host::settle();
	}

	static int count(vy_host::EventKind k)
	{
		int n = 0;
		for (const auto &e : vy_host::events())
			n += e.kind == k;
		return n;
	}

	/* vy_listeners must equal the sum of the entries' listeners. */
	static void expect_listener_invariant()
	{
		vy_write_guard g(&vy_sta_table.sta_lock);
		int sum = 0, n = 0;
		for (auto &h : vy_sta_table.sta_hlist)
			for (vy_hlist_node *p = h.first; p; p = p->next) {
				sum += vy_container_of(p, sta, hlist)->listeners;
				n++;
			}
		EXPECT_EQ(sum, vy_read_listeners());
		EXPECT_EQ(n, vy_sta_table.sta_count);
	}

	bool loaded_ = false;
};

#endif
