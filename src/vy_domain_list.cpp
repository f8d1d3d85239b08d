// SPDX-License-Identifier: GPL-2.0
/*
 * A station's table of queried names. Every function here runs with
 * sta_lock held by its caller and never sleeps (see vy_domain_list.h).
 */
#include "vy_domain_list.h"

/* The longest name that fits in domain[] with its terminating NUL. */
#define VY_DOMAIN_NAME_MAX (VY_DOMAIN_NAME_SIZE - 1)

/* Callers never pass more than VY_DOMAIN_NAME_MAX bytes; clamping anyway
 * keeps every read of domain[] and every copy into it in bounds, and makes
 * the lookup, the bucket and the stored name agree on one length. */
static inline u16 vy_clamp_len(u16 len)
{
	return len > VY_DOMAIN_NAME_MAX ? (u16)VY_DOMAIN_NAME_MAX : len;
}

static inline domain_entry *vy_entry_of_node(vy_hlist_node *n)
{
	return n ? vy_container_of(n, domain_entry, hlist) : nullptr;
}

static inline domain_entry *vy_entry_of_cname(vy_list_head *l)
{
	return vy_container_of(l, domain_entry, cname_list);
}

u32 vy_domain_bucket(const char *name, u16 len)
{
	const u8 *b = reinterpret_cast<const u8 *>(name);
	u32 sum;

	if (!name || !len)
		return 0;
	if (len < 4)
		sum = (u32)b[0] + b[len / 2] + b[len - 1];
	else
		sum = (u32)b[0] + b[1] + b[len / 2] + b[len - 1];
	return sum & (VY_DOMAIN_BUCKETS - 1);
}

void vy_domain_init(domain_hlist *table)
{
	if (!table)
		return;
	for (u32 i = 0; i < VY_DOMAIN_BUCKETS; i++)
		table->heads[i].first = nullptr;
	table->count = 0;
}

void vy_domain_deinit(domain_hlist *table)
{
	vy_del_all_domain_hlist(table);
}

domain_entry *_vy_find_domain(domain_hlist *table, const char *name, u16 len)
{
	if (!table || !name || !len)
		return nullptr;
	len = vy_clamp_len(len);

	vy_hlist_node *n = table->heads[vy_domain_bucket(name, len)].first;

	for (; n; n = n->next) {
		domain_entry *e = vy_entry_of_node(n);

		/* Exact length only: "example.com" must not answer for "example.co". */
		if (!vy_memcmp(e->domain, name, len) && e->domain[len] == '\0')
			return e;
	}
	return nullptr;
}

static void _vy_update_domain_latency(domain_entry *e, u8 final)
{
	if (!e->query_time)
		return;

	unsigned long now = vy_plat_jiffies();

	/* An answer within the query's own tick measures 0, which leaves room
	 * for a later answer to set it. */
	if (!e->first_latency)
		e->first_latency = vy_plat_jiffies_to_msecs(now - e->query_time);
	if (final) {
		e->latency = vy_plat_jiffies_to_msecs(now - e->query_time);
		e->query_time = 0;
	}
	e->last_update = now;
}

static void _vy_add_domain_ip_mapping(domain_entry *e, u32 ip)
{
	bool found = false;

	for (u8 i = 0; i < e->ip_num; i++) {
		if (e->ips[i] == ip) {
			found = true;
			break;
		}
	}

	if (!found) {
		if (e->ip_num < VY_DOMAIN_MAX_IPS) {
			e->ips[e->ip_num++] = ip;
		} else {
			u8 idx = e->ip_replace_idx & (VY_DOMAIN_MAX_IPS - 1);

			vy_dbg("the domain maps too many IPs so replace an old IP with a new IP.\ndomain = %s, idx = %d, old ip = %pI4, new ip = %pI4",
			       e->domain, idx, (const void *)&e->ips[idx],
			       (const void *)&ip);
			e->ips[idx] = ip;
			e->ip_replace_idx = (u8)((idx + 1) & (VY_DOMAIN_MAX_IPS - 1));
		}
	}

	/* Any address, new or repeated, is the final answer to the query. */
	_vy_update_domain_latency(e, 1);
}

domain_entry *vy_add_domain_entry(domain_hlist *table, const char *name,
				  u16 len, u8 is_cname)
{
	unsigned long now = vy_plat_jiffies();

	if (!table || !name || !len || name[0] == '\0')
		return nullptr;
	len = vy_clamp_len(len);

	domain_entry *e = _vy_find_domain(table, name, len);

	if (e) {
		/* A name once queried stays a queried name. */
		if (!is_cname)
			e->is_cname = 0;
		e->latency = 0;
		e->first_latency = 0;
		e->timed_out = 0;
		e->rcode = 0;
	} else {
		/* A flooding station must not exhaust the AP's memory. */
		if (table->count >= VY_DOMAIN_MAX_ENTRIES)
			return nullptr;
		e = vy_zalloc<domain_entry>();
		if (!e)
			return nullptr;
		vy_memcpy(e->domain, name, len);
		vy_list_init(&e->cname_list);
		e->is_cname = is_cname;
		vy_hlist_add_head(&e->hlist,
				  &table->heads[vy_domain_bucket(name, len)]);
		table->count++;
	}

	/* A repeated query measures from the first one still pending. */
	if (!e->query_time)
		e->query_time = now;
	e->last_update = now;
	return e;
}

domain_entry *vy_add_domain_ip(domain_hlist *table, const char *name, u16 len,
			       u32 ip)
{
	domain_entry *e = _vy_find_domain(table, name, len);

	if (!e)
		e = vy_add_domain_entry(table, name, len, 0);
	if (!e)
		return nullptr;

	_vy_add_domain_ip_mapping(e, ip);
	for (vy_list_head *l = e->cname_list.next; l != &e->cname_list;
	     l = l->next)
		_vy_add_domain_ip_mapping(vy_entry_of_cname(l), ip);
	return e;
}

domain_entry *vy_add_domain_cname(domain_hlist *table, const char *owner,
				  u16 owner_len, const char *target,
				  u16 target_len)
{
	unsigned long now = vy_plat_jiffies();

	if (!table || !owner || !target)
		return nullptr;
	if (owner_len == target_len && !vy_memcmp(owner, target, owner_len))
		return nullptr;

	domain_entry *o = _vy_find_domain(table, owner, owner_len);

	if (!o)
		o = vy_add_domain_entry(table, owner, owner_len, 0);
	if (!o)
		return nullptr;
	o->last_update = now;

	domain_entry *t = vy_add_domain_entry(table, target, target_len, 1);

	if (!t)
		return nullptr;
	t->last_update = now;

	/* Names differing only past the clamp share one entry; splicing an
	 * entry's circle into itself would break it. */
	if (t == o)
		return nullptr;

	for (vy_list_head *l = o->cname_list.next; l != &o->cname_list;
	     l = l->next) {
		if (vy_entry_of_cname(l) == t) {
			vy_dbg("The domain %s already had cname %s before.",
			       o->domain, t->domain);
			return o;
		}
	}

	/* Owner's circle first, then the target's with all its own links. */
	vy_list_head *o_last = o->cname_list.prev;
	vy_list_head *t_last = t->cname_list.prev;

	o_last->next = &t->cname_list;
	t->cname_list.prev = o_last;
	t_last->next = &o->cname_list;
	o->cname_list.prev = t_last;

	/* The alias is the owner's first answer; its query stays pending until
	 * an address or a failure reaches the circle. */
	_vy_update_domain_latency(o, 0);
	return o;
}

domain_entry *vy_reject_domain(domain_hlist *table, const char *name, u16 len,
			       u8 rcode)
{
	domain_entry *e = _vy_find_domain(table, name, len);

	if (!e)
		e = vy_add_domain_entry(table, name, len, 0);
	if (!e)
		return nullptr;

	for (vy_list_head *l = e->cname_list.next; l != &e->cname_list;
	     l = l->next) {
		domain_entry *m = vy_entry_of_cname(l);

		m->rcode = rcode;
		_vy_update_domain_latency(m, 1);
	}
	e->rcode = rcode;
	_vy_update_domain_latency(e, 1);
	return e;
}

static void vy_free_domain_entry(domain_hlist *table, domain_entry *e)
{
	vy_list_del_init(&e->cname_list);
	vy_hlist_del(&e->hlist);
	vy_plat_free(e);
	if (table->count)
		table->count--;
}

u32 vy_timeout_domain(domain_hlist *table, u32 *avg_latency)
{
	/* One reading for the whole pass: a fresh one for the timed-out stamp
	 * could lie past it and wrap the expiry test into freeing the entry. */
	unsigned long now = vy_plat_jiffies();
	u32 status = VY_STATUS_UNKNOWN;
	u32 sum = 0;
	u32 count = 0;

	if (avg_latency)
		*avg_latency = 0;
	if (!table)
		return status;

	for (u32 b = 0; b < VY_DOMAIN_BUCKETS; b++) {
		vy_hlist_node *n = table->heads[b].first;

		while (n) {
			vy_hlist_node *next = n->next;
			domain_entry *e = vy_entry_of_node(n);

			if (e->query_time &&
			    now - e->query_time > VY_DNS_QUERY_TIMEOUT) {
				e->last_update = now;
				e->query_time = 0;
				e->timed_out = 1;
			}

			if (!e->is_cname && !e->query_time && e->last_update &&
			    now - e->last_update <= VY_DNS_RECENT_SPAN) {
				if (e->timed_out) {
					if (!status)
						status = VY_STATUS_FAIL;
				} else {
					count++;
					sum += e->latency;
					status = VY_STATUS_OK;
				}
			}

			if (!e->last_update ||
			    now - e->last_update > VY_DOMAIN_EXPIRY)
				vy_free_domain_entry(table, e);

			n = next;
		}
	}

	if (count && avg_latency)
		*avg_latency = sum / count;
	return status;
}

void vy_reset_pending_domain(domain_hlist *table)
{
	if (!table)
		return;
	for (u32 b = 0; b < VY_DOMAIN_BUCKETS; b++) {
		for (vy_hlist_node *n = table->heads[b].first; n; n = n->next) {
			domain_entry *e = vy_entry_of_node(n);

			if (e->query_time) {
				e->query_time = 0;
				e->last_update = 0;
			}
		}
	}
}

void vy_del_all_domain_hlist(domain_hlist *table)
{
	if (!table)
		return;
	/* Circles are left alone: their members all die with the table, and a
	 * deep copy's links still point into the live table. Nor is a node
	 * unlinked before its free: the heads are reset below. */
	for (u32 b = 0; b < VY_DOMAIN_BUCKETS; b++) {
		vy_hlist_node *n = table->heads[b].first;

		while (n) {
			vy_hlist_node *next = n->next;

			vy_plat_free(vy_entry_of_node(n));
			n = next;
		}
	}
	vy_domain_init(table);
}

s32 vy_is_domain_hlist_empty(const domain_hlist *table)
{
	if (!table)
		return 1;
	for (u32 b = 0; b < VY_DOMAIN_BUCKETS; b++)
		if (table->heads[b].first)
			return 0;
	return 1;
}

u8 vy_copy_domain_hlist(domain_hlist *dst, const domain_hlist *src)
{
	if (!dst)
		return 1;
	vy_domain_init(dst);
	if (!src)
		return 0;

	for (u32 b = 0; b < VY_DOMAIN_BUCKETS; b++) {
		for (const vy_hlist_node *n = src->heads[b].first; n;
		     n = n->next) {
			const domain_entry *e =
				vy_container_of(const_cast<vy_hlist_node *>(n),
						domain_entry, hlist);
			domain_entry *c = vy_zalloc<domain_entry>();

			if (!c)
				return 1;
			*c = *e;
			vy_hlist_add_head(&c->hlist, &dst->heads[b]);
			dst->count++;
		}
	}
	return 0;
}
