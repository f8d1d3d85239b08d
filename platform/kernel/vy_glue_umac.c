// SPDX-License-Identifier: GPL-2.0
/*
 * veyra's kernel platform: the station-event monitor registered with umac
 * and the two station notifications umac exports.
 */
#include <linux/build_bug.h>
#include <linux/kernel.h>
#include <linux/stddef.h>

#include "../vy_platform.h"
#include "../../umac/umac_events.h"

static int vy_sta_monitor_cb(int event, void *record)
{
	return vy_sta_evt_cb(event, record);
}

/* Registered with umac for the module's lifetime; umac keeps the link. */
static struct umac_events_monitor vy_sta_monitor = {
	.cb = vy_sta_monitor_cb,
	.event_mask = UMAC_EVENTS_STA,
};

int vy_plat_umac_monitor_register(void)
{
	return nxUMAC_events_monitor_register(&vy_sta_monitor);
}

int vy_plat_umac_monitor_unregister(void)
{
	return nxUMAC_events_monitor_unregister(&vy_sta_monitor);
}

void vy_plat_notify_sta_dhcp(const char *vap, const vy_u8 *mac, vy_u8 status,
			     vy_u8 reason, const char *hostname,
			     vy_u8 hostname_len, vy_u32 ip, vy_u8 type,
			     vy_u32 server, vy_u32 gateway, vy_u32 latency)
{
	notify_sta_dhcp(vap, mac, status, reason, hostname, hostname_len, ip,
			type, server, gateway, latency);
}

void vy_plat_notify_sta_dns(const char *vap, const vy_u8 *mac, vy_u8 status,
			    vy_u32 dns_server, vy_u32 latency)
{
	notify_sta_dns(vap, mac, status, dns_server, latency);
}
