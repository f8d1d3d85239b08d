/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The station table: one entry per followed Wi-Fi station, station events
 * from umac, DHCP and DNS progress, the periodic update, the listener
 * accounting and force_listen that decide whether the bridge hooks are
 * needed, and the periodic timer.
 */
#ifndef VY_STA_LIST_H
#define VY_STA_LIST_H

#include "vy_common.h"
#include "vy_domain_list.h"

/* C linkage: the kernel prints these names in stack traces and %pS. */
extern "C" {

#define VY_STA_BUCKETS 8
#define VY_VAP_NAME_SIZE 16
#define VY_HOSTNAME_SIZE 65

/* Time limits, in jiffies. */
#define VY_STA_TIMER_PERIOD (5 * HZ)
#define VY_DHCP_TIMEOUT (15 * HZ)
#define VY_LISTEN_WINDOW (35 * HZ)

struct sta {
	vy_hlist_node hlist;
	u8 mac[ETH_ALEN];
	char vap_name[VY_VAP_NAME_SIZE];
	unsigned long join_time;
	u8 listeners;
	u32 dhcp_status;
	u8 dhcp_reason;
	u8 dhcp_type;
	unsigned long dhcp_start;
	u32 dhcp_latency;
	u32 ip;
	u32 dhcp_server_ip;
	u32 gateway_ip;
	u32 dns_server_ip;
	char hostname[VY_HOSTNAME_SIZE];
	u8 hostname_len;
	struct domain_hlist domain_hlist; /* the tag: the member shares its name */
	u32 dns_status;
	u32 dns_latest_latency;
	u32 dns_latency_avg;
	u32 dump_seq;
};

/*
 * sta_lock guards the table, every entry and its domain table, sta_count,
 * vy_listeners and every entry's listeners. Writers: the parsers' updates
 * (bridge hooks, softirq), station events (umac's context), commands and
 * the reset of pending queries (process context), the periodic update
 * (timer softirq). The one reader is the dump's copy walk (process
 * context). The platform picks the plain or bottom-half variant by context.
 */
struct sta_table {
	vy_hlist_head sta_hlist[VY_STA_BUCKETS];
	s32 sta_count;
	vy_plat_rwlock sta_lock;
	vy_plat_timer sta_timer;
};

extern sta_table vy_sta_table;

/* ---- listening control: listener accounting and force_listen ---------- */

void _vy_del_listeners(sta *entry, u32 num);
void vy_write_force_listen(u8 value);
u8 vy_read_force_listen(void);
s32 vy_read_listeners(void);
void vy_sta_start_timer(void);
void vy_sta_stop_timer(void);

/* ---- station table and events ----------------------------------------- */

sta *_vy_find_sta(const u8 *mac);
s32 vy_add_sta_entry(const u8 *mac, const char *vap_name);
s32 vy_del_sta_entry(const u8 *mac, const char *vap_name);
void _vy_free_sta_entry(sta *entry);
s32 vy_sta_copy_next(u32 seq, sta *copy);
void vy_free_sta_copy(sta *copy);
s32 vy_get_sta_count(void);
void vy_sta_init(void);
void vy_sta_deinit(void);

/* ---- DHCP progress ---------------------------------------------------- */

s32 _vy_set_sta_dhcp_status(sta *entry, u32 status, u8 by_timeout);
s32 vy_set_sta_dhcp_status(const u8 *mac, u32 status, u8 type, u32 ip,
			   u32 server_ip, u32 gateway_ip, u32 dns_ip,
			   const char *hostname, u8 hostname_len);

/* ---- DNS progress ----------------------------------------------------- */

s32 vy_add_sta_domain(const u8 *mac, const char *name, u16 name_len,
		      u32 sta_ip);
s32 vy_add_sta_domain_ip(const u8 *mac, const char *name, u16 name_len,
			 u32 ip);
s32 vy_add_sta_domain_cname(const u8 *mac, const char *name, u16 name_len,
			    const char *cname, u16 cname_len);
s32 vy_reject_sta_domain(const u8 *mac, const char *name, u16 name_len,
			 u8 rcode);
void vy_reset_all_sta_pending_domain(void);
s32 _vy_set_sta_dns_status(sta *entry, u32 status, const domain_entry *d);

/* ---- periodic update (the sta_timer callback) -------------------------- */

void vy_sta_periodic_update(vy_plat_timer *t);

} /* extern "C" */

#endif /* VY_STA_LIST_H */
