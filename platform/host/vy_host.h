/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The host platform: the platform ABI implemented in user space, and the
 * controls that tests and tools use to drive it.
 *
 * Time is simulated: jiffies only move when the driver calls advance_to(),
 * and timers fire at their own expiry time, in order, in the driver's
 * thread (standing in for the timer softirq).
 *
 * The hook work runs the logic's real protocol on a real thread with a real
 * semaphore. In the default, deterministic mode that thread only runs while
 * the driver waits in settle() (or in a call that waits for the work, such
 * as veyra_exit's cancel), so a scenario's output is the same on every run.
 * set_free_running(true) lets it run whenever it can, for stress tests.
 */
#ifndef VY_HOST_H
#define VY_HOST_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "../vy_platform.h"

/* The host's socket buffer, net device and hook state. */
struct vy_skb {
	std::vector<std::uint8_t> data; /* head; data.size() >= tail */
	std::uint16_t mac_header = 0;
	bool mac_set = true;
	std::uint32_t tail = 0; /* end of the linear data, from head */
	std::uint32_t len = 0;
};

struct vy_dev {
	std::string name;
	bool wireless = false;
	vy_dev *vlan_lower = nullptr; /* set for an 802.1Q VLAN device */
	vy_dev *master = nullptr;
	std::uint8_t addr[6] = {};
	int refcnt = 0;
};

struct vy_hook_state {
	vy_dev *in = nullptr;
	vy_dev *out = nullptr;
};

namespace vy_host {

/* ---- captured events -------------------------------------------------- */

enum class EventKind {
	Log,
	NotifyDhcp,
	NotifyDns,
	HooksRegistered,
	HooksUnregistered,
	HookRegistrationFailed,
};

struct Event {
	EventKind kind;
	unsigned long jiffies;
	/* Log */
	int level = 0; /* enum vy_log_level */
	std::string text; /* formatted, without a trailing newline */
	/* notifications */
	std::string vap;
	std::uint8_t mac[6] = {};
	std::uint8_t status = 0;
	std::uint8_t reason = 0;
	std::string hostname; /* hostname_len bytes */
	std::uint8_t hostname_len = 0;
	std::uint32_t ip = 0, server = 0, gateway = 0, dns_server = 0;
	std::uint8_t type = 0;
	std::uint32_t latency = 0;
};

/* Every captured event, in order; the sink (if set) sees each as it comes. */
const std::vector<Event> &events();
std::vector<Event> take_events();
void set_event_sink(std::function<void(const Event &)> sink);
/* Convenience for tests: captured log texts at a level (or all, level 0). */
std::vector<std::string> log_lines(int level = 0);
bool log_contains(const std::string &needle);

/* ---- lifecycle -------------------------------------------------------- */

/* A fresh platform: jiffies 0, no timers, no events, no devices, allocator
 * counters at 0, nothing registered. Call before veyra_init in each test. */
void reset();
void set_free_running(bool on);
/* Whether debug-level lines pass dynamic debug (default on). */
void set_dyndbg(bool on);

/* ---- time ------------------------------------------------------------- */

unsigned long jiffies();
/* Moves time forward to j (never backwards), firing every due timer at its
 * own expiry time, in order, and settling the hook work after each. */
void advance_to(unsigned long j);
void advance(unsigned long n);
/* Lets the hook work run until it is idle or asleep on its semaphore. */
void settle();

/* ---- allocator -------------------------------------------------------- */

long live_allocations();
long total_allocations();
void fail_next_allocations(int n);
/* Lets the next ok allocations succeed, then fails the n after them. */
void fail_allocations_after(int ok, int n);

/* ---- locks ------------------------------------------------------------ */

int locks_held(); /* by any thread, any mode */
long lock_acquisitions(); /* since reset, any lock, any mode */

/* ---- bridge hooks and frames ------------------------------------------ */

bool hooks_registered();
int hook_registrations(); /* successful registrations so far */
void fail_next_hook_registration(int err);

vy_dev *dev_create(const std::string &name, bool wireless);
vy_dev *vlan_create(const std::string &name, vy_dev *lower);
vy_dev *bridge_create(const std::string &name, const std::uint8_t addr[6]);
void dev_set_master(vy_dev *dev, vy_dev *master);
vy_dev *dev_find(const std::string &name);

/* A socket buffer holding frame; the linear data are its first linear
 * bytes (all of it when linear is SIZE_MAX), len is the frame's size
 * after its Ethernet header, as a bridge hook sees it. */
vy_skb make_skb(const std::vector<std::uint8_t> &frame,
		std::size_t linear = SIZE_MAX);

/* Passes a frame through a hook the way the bridge would, but only while
 * the hooks are registered; returns false when they are not. */
bool pass_pre_routing(vy_skb &skb, vy_dev *in);
bool pass_post_routing(vy_skb &skb, vy_dev *out);

/* ---- umac ------------------------------------------------------------- */

bool umac_monitor_registered();
void umac_fail_next_register(int err);
/* Delivers a station event to the registered monitor, as umac would; false
 * when no monitor is registered. */
bool umac_event(int code, const std::uint8_t mac[6], const std::string &vap);

/* ---- character devices and sysfs -------------------------------------- */

struct File;

enum FailPoint {
	FAIL_CHRDEV_SUMMARY,
	FAIL_CHRDEV_DUMP,
	FAIL_KOBJECT,
	FAIL_SYSFS_SUMMARY,
	FAIL_SYSFS_DUMP,
	FAIL_COPY_TO_USER,   /* the next copy to user space copies nothing */
	FAIL_COPY_FROM_USER, /* likewise from user space */
	FAIL_POINT_COUNT,
};
void fail_at(FailPoint p, int err = -VY_ENOMEM);

int chrdev_major(int id); /* 0 when not registered */
bool sysfs_present(int attr);
bool kobject_present();
/* The text of /sys/veyra/<attr>, or "" when it does not exist. */
std::string sysfs_read(int attr);

/* open returns nullptr and sets *err on failure. */
File *open(int id, int *err);
long read(File *f, char *buf, std::size_t count);
long write(File *f, const char *buf, std::size_t count);
int release(File *f);
int open_files();

} // namespace vy_host

#endif /* VY_HOST_H */
