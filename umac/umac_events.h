/* SPDX-License-Identifier: GPL-2.0 */
/*
 * umac's interface to other modules: the station-event monitor and the
 * station notifications. The record layouts are fixed by the platform's
 * wireless upper-MAC module; clients such as veyra rely on the offsets
 * checked below, so they must not change.
 */
#ifndef UMAC_EVENTS_H
#define UMAC_EVENTS_H

#include <linux/build_bug.h>
#include <linux/list.h>
#include <linux/stddef.h>
#include <linux/types.h>

/* Station event codes handed to a monitor's callback. */
#define UMAC_EVT_STA_JOIN 0
#define UMAC_EVT_STA_LEAVE 1

#define UMAC_VAP_NAME_LEN 16 /* NUL-terminated, as IFNAMSIZ */

/*
 * The record handed to a monitor with each station event. It lives only
 * for the duration of the callback; a monitor copies what it keeps.
 */
struct umac_sta_event {
	char vap_name[UMAC_VAP_NAME_LEN];	/* byte 0 */
	u8 reserved[26];			/* not part of the station ABI */
	u8 mac[6];				/* byte 42 */
};

static_assert(offsetof(struct umac_sta_event, vap_name) == 0);
static_assert(offsetof(struct umac_sta_event, mac) == 42);

/* Event classes a monitor subscribes to (event_mask). */
#define UMAC_EVENTS_STA 0x1 /* station join and leave */

typedef int (*umac_event_cb)(int event, void *record);

/*
 * A monitor record: owned by the client and kept alive from registration
 * to unregistration. umac links it into its list through @list; the client
 * sets @cb and @event_mask and leaves the rest zero.
 */
struct umac_events_monitor {
	struct list_head list;	/* byte 0, kept by umac */
	umac_event_cb cb;	/* byte 16 */
	u32 event_mask;		/* byte 24, UMAC_EVENTS_* */
	u32 reserved;		/* byte 28 */
};

static_assert(sizeof(void *) != 8 ||
	      (offsetof(struct umac_events_monitor, cb) == 16 &&
	       offsetof(struct umac_events_monitor, event_mask) == 24 &&
	       sizeof(struct umac_events_monitor) == 32));

/*
 * Both return 0 on success; registering a monitor twice gives -EEXIST,
 * unregistering one that is not registered -ENOENT. Process context only.
 * A callback runs in process context and must neither sleep for long nor
 * register or unregister a monitor.
 */
int nxUMAC_events_monitor_register(struct umac_events_monitor *mon);
int nxUMAC_events_monitor_unregister(struct umac_events_monitor *mon);

/*
 * Station onboarding notifications. Callable from any context including
 * softirq; they do not sleep. Pointers are only read during the call.
 * Addresses are IPv4 in network byte order, latencies in milliseconds.
 */
void notify_sta_dhcp(const char *vap, const u8 *mac, u8 status, u8 reason,
		     const char *hostname, u8 hostname_len, u32 ip, u8 type,
		     u32 server, u32 gateway, u32 latency);
void notify_sta_dns(const char *vap, const u8 *mac, u8 status,
		    u32 dns_server, u32 latency);

#endif /* UMAC_EVENTS_H */
