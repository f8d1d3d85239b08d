// SPDX-License-Identifier: GPL-2.0
/* Module start and stop, and the hook work's protocol with the listener
 * total, force_listen and the semaphore. */
#include <gtest/gtest.h>

#include "module_fixture.h"
#include "vy_hook.h"

using vy_host::EventKind;

namespace {

const std::uint8_t kA[6] = {0x02, 0, 0, 0, 0, 0x01};
const std::uint8_t kB[6] = {0x02, 0, 0, 0, 0, 0x02};

bool timer_pending()
{
	return vy_plat_timer_pending(&vy_sta_table.sta_timer);
}

int notices_containing(const std::string &text)
{
	int n = 0;
	for (const auto &l : vy_host::log_lines(VY_LOG_NOTICE))
		n += l.find(text) != std::string::npos;
	return n;
}

} // namespace

using HookWork = ModuleTest;

TEST_F(HookWork, FirstJoinHooksAndLastReleaseUnhooks)
{
	debug_level = 2;
	join(kA);
	EXPECT_TRUE(vy_host::hooks_registered());
	EXPECT_TRUE(timer_pending());
	EXPECT_EQ(vy_read_listeners(), 2);
	EXPECT_EQ(notices_containing("_vy_hook["), 2); /* hook + start timer */

	leave(kA);
	EXPECT_FALSE(vy_host::hooks_registered());
	EXPECT_FALSE(timer_pending());
	EXPECT_EQ(vy_read_listeners(), 0);
	EXPECT_EQ(count(EventKind::HooksRegistered), 1);
	EXPECT_EQ(count(EventKind::HooksUnregistered), 1);
	EXPECT_TRUE(vy_host::log_contains("_vy_hook[") &&
		    vy_host::log_contains("]:Unhook listening function"));
}

TEST_F(HookWork, ForceListenHooksWithoutStationsUntilCleared)
{
	vy_write_force_listen(1);
	vy_host::settle();
	EXPECT_TRUE(vy_host::hooks_registered());
	EXPECT_TRUE(timer_pending());
	EXPECT_EQ(vy_read_listeners(), 0);

	/* The periodic timer keeps running while forced. */
	vy_host::advance_to(2000);
	EXPECT_TRUE(vy_host::hooks_registered());
	EXPECT_TRUE(timer_pending());

	vy_write_force_listen(0);
	vy_host::settle();
	EXPECT_FALSE(vy_host::hooks_registered());
	EXPECT_FALSE(timer_pending());
}

TEST_F(HookWork, JoinWhileListeningQueuesSecondRunThatSleepsHooked)
{
	join(kA);
	join(kB); /* the work is listening: this queues a second run */
	ASSERT_TRUE(vy_host::umac_event(1, kA, "wlan0"));
	ASSERT_TRUE(vy_host::umac_event(1, kB, "wlan0"));
	vy_host::settle();
	/* The first run unhooked on the raise; the second hooked again and,
	 * with no raise stored, sleeps hooked with a total of 0. */
	EXPECT_EQ(count(EventKind::HooksUnregistered), 1);
	EXPECT_EQ(count(EventKind::HooksRegistered), 2);
	EXPECT_TRUE(vy_host::hooks_registered());
	EXPECT_EQ(vy_read_listeners(), 0);

	vy_write_force_listen(0);
	vy_host::settle();
	EXPECT_FALSE(vy_host::hooks_registered());
}

TEST_F(HookWork, ListenerAppearingDuringUnhookRehooksAtOnce)
{
	debug_level = 2;
	join(kA);
	bool injected = false;
	/* Runs in the work's thread right after the unregistration, before
	 * its last check: the moment a command could slip in. */
	vy_host::set_event_sink([&](const vy_host::Event &e) {
		if (e.kind == EventKind::HooksUnregistered && !injected) {
			injected = true;
			vy_write_force_listen(1);
		}
	});
	leave(kA);
	vy_host::set_event_sink(nullptr);
	EXPECT_TRUE(injected);
	EXPECT_TRUE(vy_host::log_contains(
		"]:Rehook due to force_listen / listener number change."));
	EXPECT_TRUE(vy_host::hooks_registered());
	EXPECT_TRUE(timer_pending());
	EXPECT_EQ(count(EventKind::HooksRegistered), 2);
	/* The command also queued a run, which hooks once the first has
	 * unhooked: two raises end both. */
	vy_write_force_listen(0);
	vy_host::settle();
	EXPECT_EQ(count(EventKind::HooksRegistered), 3);
	vy_write_force_listen(0);
	vy_host::settle();
	EXPECT_FALSE(vy_host::hooks_registered());
}

TEST_F(HookWork, FailedRegistrationIsLoggedAndNeverUnregistered)
{
	vy_host::fail_next_hook_registration(-VY_ENOMEM);
	join(kA);
	EXPECT_FALSE(vy_host::hooks_registered());
	EXPECT_EQ(count(EventKind::HookRegistrationFailed), 1);
	EXPECT_TRUE(vy_host::log_contains("nf_register_net_hooks fails (-12)"));
	/* The timer still runs, so the station's window can end. */
	EXPECT_TRUE(timer_pending());

	/* Releasing the listeners ends the run without an unregistration
	 * (the host platform aborts on an unmatched one). */
	leave(kA);
	EXPECT_EQ(count(EventKind::HooksUnregistered), 0);

	/* The next hooking tries again. */
	join(kB);
	EXPECT_TRUE(vy_host::hooks_registered());
	leave(kB);
}

TEST_F(HookWork, OverReleaseIsClampedAndLogged)
{
	join(kA);
	{
		vy_write_guard g(&vy_sta_table.sta_lock);
		sta *s = _vy_find_sta(kA);
		ASSERT_NE(s, nullptr);
		_vy_del_listeners(s, 1);
		_vy_del_listeners(s, 2);
		EXPECT_EQ(s->listeners, 0);
	}
	EXPECT_EQ(vy_read_listeners(), 0);
	EXPECT_TRUE(vy_host::log_contains(
		"_vy_del_listeners:") && vy_host::log_contains(
		":sta->listeners 1  < substacted listener_num 2 (total listeners = 1)"));
	vy_host::settle();
	EXPECT_FALSE(vy_host::hooks_registered());
	expect_listener_invariant();
}

/* ---- start and stop --------------------------------------------------- */

using Lifecycle = ModuleTest;

TEST_F(Lifecycle, UnloadWithStationsAndForceListenLeavesNothing)
{
	join(kA);
	join(kB);
	vy_write_force_listen(1);
	vy_host::settle();
	unload();
	EXPECT_FALSE(vy_host::hooks_registered());
	EXPECT_FALSE(timer_pending());
	EXPECT_FALSE(vy_host::umac_monitor_registered());
	EXPECT_EQ(vy_host::chrdev_major(VY_CHRDEV_DUMP), 0);
	EXPECT_EQ(vy_host::chrdev_major(VY_CHRDEV_SUMMARY), 0);
	EXPECT_FALSE(vy_host::kobject_present());
	EXPECT_EQ(vy_read_force_listen(), 0);
	EXPECT_EQ(vy_read_listeners(), 0);
}

TEST_F(Lifecycle, ReloadAfterUnloadWorks)
{
	join(kA);
	unload();
	load();
	join(kA);
	EXPECT_TRUE(vy_host::hooks_registered());
	EXPECT_EQ(vy_get_sta_count(), 1);
}

TEST_F(Lifecycle, RefusedMonitorIsReportedAndTheModuleRunsOn)
{
	unload();
	vy_host::umac_fail_next_register(-VY_EBUSY);
	load();
	bool reported = false;
	for (const auto &l : vy_host::log_lines(VY_LOG_ERR))
		reported |= l.find("nxUMAC_events_monitor_register(&vy_sta_monitor) fails probably due to duplicated registration") != std::string::npos;
	EXPECT_TRUE(reported);
	EXPECT_FALSE(vy_host::umac_monitor_registered());
}

/* ---- log gating ------------------------------------------------------- */

namespace {
void emit_all_levels()
{
	vy_err("e\n");
	vy_warn("w\n");
	vy_notice("n\n");
	vy_info("i\n");
	vy_dbg("d\n");
}
} // namespace

struct GatingCase {
	int level;
	bool dyndbg;
	const char *expected; /* levels that print, as letters */
};

class LogGating : public ::testing::TestWithParam<GatingCase> {};

TEST_P(LogGating, LevelsPrintFromTheirThreshold)
{
	vy_host::reset();
	const GatingCase &c = GetParam();
	debug_level = c.level;
	vy_host::set_dyndbg(c.dyndbg);
	emit_all_levels();
	std::string got;
	for (const auto &l : vy_host::log_lines())
		got += l.back();
	EXPECT_EQ(got, c.expected);
	/* Errors carry "func:line:", the others "func[line]:". */
	auto lines = vy_host::log_lines();
	ASSERT_FALSE(lines.empty());
	EXPECT_EQ(lines[0].rfind("emit_all_levels:", 0), 0u) << lines[0];
	if (lines.size() > 1)
		EXPECT_EQ(lines[1].rfind("emit_all_levels[", 0), 0u) << lines[1];
	debug_level = 1;
}

INSTANTIATE_TEST_SUITE_P(
	Levels, LogGating,
	::testing::Values(GatingCase{0, true, "e"}, GatingCase{1, true, "ew"},
			  GatingCase{2, true, "ewn"}, GatingCase{3, true, "ewni"},
			  GatingCase{4, true, "ewnid"},
			  GatingCase{4, false, "ewni"}));
