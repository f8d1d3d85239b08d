/* SPDX-License-Identifier: GPL-2.0 */
/*
 * A station's table of queried names: answers (up to four addresses each),
 * CNAME circles, response codes, query times and latencies, timeouts.
 *
 * No lock of its own: every operation on a live table runs with sta_lock
 * held by its caller (for writing to change it, at least for reading to
 * copy it), and nothing here sleeps, so every allocation is atomic.
 */
#ifndef VY_DOMAIN_LIST_H
#define VY_DOMAIN_LIST_H

#include "vy_common.h"

/* C linkage: the kernel prints these names in stack traces and %pS. */
extern "C" {

#define VY_DOMAIN_BUCKETS 4
#define VY_DOMAIN_NAME_SIZE 128 /* at most 127 name bytes, NUL-terminated */
#define VY_DOMAIN_MAX_IPS 4
/* A station's table holds at most this many names; a new name beyond it is
 * refused like a failed allocation, so that a flooding station cannot
 * exhaust the AP's memory. */
#define VY_DOMAIN_MAX_ENTRIES 512

/* Limits of the timeout pass, in jiffies. */
#define VY_DNS_QUERY_TIMEOUT (15 * HZ)  /* unanswered query times out */
#define VY_DNS_RECENT_SPAN (15 * HZ)    /* outcome still counts as recent */
#define VY_DOMAIN_EXPIRY (300 * HZ)     /* idle entry is dropped */

struct domain_entry {
	vy_hlist_node hlist;
	vy_list_head cname_list; /* the entry's CNAME circle */
	u8 is_cname;
	char domain[VY_DOMAIN_NAME_SIZE];
	u32 ips[VY_DOMAIN_MAX_IPS];
	u8 ip_num;
	u8 ip_replace_idx;
	unsigned long last_update;
	unsigned long query_time;
	u32 latency;
	u32 first_latency;
	u8 timed_out;
	u8 rcode;
	u32 dump_seq;
};

struct domain_hlist {
	vy_hlist_head heads[VY_DOMAIN_BUCKETS];
	u32 count; /* entries in all buckets, kept for VY_DOMAIN_MAX_ENTRIES */
};

void vy_domain_init(domain_hlist *table);
void vy_domain_deinit(domain_hlist *table);
domain_entry *_vy_find_domain(domain_hlist *table, const char *name, u16 len);
domain_entry *vy_add_domain_entry(domain_hlist *table, const char *name,
				  u16 len, u8 is_cname);
domain_entry *vy_add_domain_ip(domain_hlist *table, const char *name, u16 len,
			       u32 ip);
domain_entry *vy_add_domain_cname(domain_hlist *table, const char *owner,
				  u16 owner_len, const char *target,
				  u16 target_len);
domain_entry *vy_reject_domain(domain_hlist *table, const char *name, u16 len,
			       u8 rcode);
u32 vy_timeout_domain(domain_hlist *table, u32 *avg_latency);
void vy_reset_pending_domain(domain_hlist *table);
void vy_del_all_domain_hlist(domain_hlist *table);
s32 vy_is_domain_hlist_empty(const domain_hlist *table);
u8 vy_copy_domain_hlist(domain_hlist *dst, const domain_hlist *src);

/* The bucket of a name (exposed for tests and the dump's ordering). */
u32 vy_domain_bucket(const char *name, u16 len);

} /* extern "C" */

#endif /* VY_DOMAIN_LIST_H */
