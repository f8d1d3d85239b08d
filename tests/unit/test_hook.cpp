// SPDX-License-Identifier: GPL-2.0
/* Module start and stop, and the hook work's protocol with the
 * listener total, force_listen and the semaphore. */
#include <gtest/gtest.h>

#include "support.h"
#include "vy_hook.h"

namespace {

const Mac kA = mac_of(0, 1), kB = mac_of(0, 2);

using HookWork = ModuleTest;

TEST_F(HookWork, ForceListenHooksWithoutStationsUntilCleared)
{
	vy_write_force_listen(1);
	vy_host::settle();
	EXPECT_TRUE(vy_host::hooks_registered());
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
	ASSERT_TRUE(vy_host::umac_event(1, kA.b, "wlan0"));
	leave(kB);
	/* The first run unhooked on the raise; the second hooked again and,
	 * with no raise stored, sleeps hooked with a total of 0. */
	EXPECT_EQ(notes(EventKind::HooksUnregistered).size(), 1u);
	EXPECT_EQ(notes(EventKind::HooksRegistered).size(), 2u);
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
	vy_host::set_event_sink([&](const Event &e) {
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
	EXPECT_EQ(notes(EventKind::HooksRegistered).size(), 2u);
	/* The command also queued a run, which hooks once the first has
	 * unhooked: two raises end both. */
	for (size_t hooks : {3u, 3u}) {
		vy_write_force_listen(0);
		vy_host::settle();
		EXPECT_EQ(notes(EventKind::HooksRegistered).size(), hooks);
	}
	EXPECT_FALSE(vy_host::hooks_registered());
}

TEST_F(HookWork, FailedRegistrationIsLoggedAndNeverUnregistered)
{
	vy_host::fail_next_hook_registration(-VY_ENOMEM);
	join(kA);
	EXPECT_FALSE(vy_host::hooks_registered());
	EXPECT_EQ(notes(EventKind::HookRegistrationFailed).size(), 1u);
	EXPECT_TRUE(vy_host::log_contains("nf_register_net_hooks fails (-12)"));
	/* The timer still runs, so the station's window can end. */
	EXPECT_TRUE(timer_pending());
	/* Releasing the listeners ends the run without an unregistration
	 * (the host platform aborts on an unmatched one). */
	leave(kA);
	EXPECT_EQ(notes(EventKind::HooksUnregistered).size(), 0u);
	/* The next hooking tries again. */
	join(kB);
	EXPECT_TRUE(vy_host::hooks_registered());
	leave(kB);
}

/* ---- start and stop --------------------------------------------------- */

TEST_F(HookWork, UnloadWithStationsAndForceListenLeavesNothingAndReloads)
{
	join(kA);
	join(kB);
	vy_write_force_listen(1);
	vy_host::settle();
	unload();
	EXPECT_FALSE(vy_host::umac_monitor_registered());
	EXPECT_EQ(vy_host::chrdev_major(VY_CHRDEV_DUMP), 0);
	EXPECT_EQ(vy_host::chrdev_major(VY_CHRDEV_SUMMARY), 0);
	EXPECT_FALSE(vy_host::kobject_present());
	EXPECT_EQ(vy_read_force_listen(), 0);

	load();
	join(kA);
	EXPECT_TRUE(vy_host::hooks_registered());
	EXPECT_EQ(vy_get_sta_count(), 1);
	leave(kA);
}

TEST_F(HookWork, RefusedMonitorIsReportedAndTheModuleRunsOn)
{
	unload();
	vy_host::umac_fail_next_register(-VY_EBUSY);
	load();
	EXPECT_TRUE(logged(VY_LOG_ERR, "vy_register_event_monitor",
			   "nxUMAC_events_monitor_register(&vy_sta_monitor) fails probably due to duplicated registration"));
	EXPECT_FALSE(vy_host::umac_monitor_registered());
}

} // namespace
