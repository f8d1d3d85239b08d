// SPDX-License-Identifier: GPL-2.0
/*
 * The station table: station entries and their events from umac, the DHCP
 * and DNS progress of each station, the periodic update, and the listener
 * accounting that tells the hook work whether the bridge hooks are needed.
 */
#include "vy_sta_list.h"
#include "vy_hook.h"
#include "vy_notify.h"

/* Where umac's station-event record keeps the two fields read here. */
#define VY_EVT_VAP_OFFSET 0
#define VY_EVT_MAC_OFFSET 42

/* Zero-filled at load and set up by vy_sta_init; no constructor runs. */
sta_table vy_sta_table;

/* Read without sta_lock by the hook work and the dump header, so every
 * access goes through vy_read_once/vy_write_once; changed only under
 * sta_lock held for writing. */
s32 vy_listeners;
u8 force_listen;

static inline vy_plat_rwlock *vy_sta_lock(void)
{
	return &vy_sta_table.sta_lock;
}

static inline u32 vy_sta_bucket(const u8 *mac)
{
	return mac[ETH_ALEN - 1] & (VY_STA_BUCKETS - 1);
}

static inline sta *vy_sta_of(vy_hlist_node *n)
{
	return n ? vy_container_of(n, sta, hlist) : nullptr;
}

static inline void vy_add_listeners(sta *entry, u8 num)
{
	entry->listeners = (u8)(entry->listeners + num);
	vy_write_once(vy_listeners, (s32)(vy_read_once(vy_listeners) + num));
}

/* A name handed in without a buffer is treated as the empty name, which
 * the domain table refuses with its usual warning. */
static inline void vy_fix_name(const char **name, u16 *len)
{
	if (!*name) {
		*name = "";
		*len = 0;
	}
}

/* Log printing is bounded by the name's length: the parser's buffer ends
 * there with a NUL, but a caller's buffer need not. */
static inline int vy_name_prec(u16 len)
{
	return (int)len;
}

/* ---- listening control: listener accounting and force_listen ---------- */

void _vy_del_listeners(sta *entry, u32 num)
{
	vy_plat_rwlock_assert_held(vy_sta_lock(), 1);

	s32 total = vy_read_once(vy_listeners);

	if ((s32)entry->listeners < (s32)num) {
		vy_err("sta->listeners %d  < substacted listener_num %d (total listeners = %d)\n",
		       (int)entry->listeners, (int)num, (int)total);
		num = entry->listeners;
	}

	entry->listeners = (u8)(entry->listeners - num);
	total = (s32)(total - (s32)num);
	vy_write_once(vy_listeners, total);

	if (total < 0) {
		/* Left as it is: a non-zero total keeps the hooks on, which is
		 * the safe side of a broken count. */
		vy_err("vy_listeners become negative value %d somehow (decrease num = %d, sta->listeners = %d)\n",
		       (int)total, (int)num, (int)entry->listeners);
	} else if (total == 0 && !vy_read_once(force_listen)) {
		vy_try_unhook();
	}
}

void vy_write_force_listen(u8 value)
{
	vy_write_once(force_listen, value);
	/* Clearing the flag only wakes the work; it re-checks the listeners
	 * itself and keeps listening while any remain. */
	if (value)
		vy_hook();
	else
		vy_try_unhook();
}

u8 vy_read_force_listen(void)
{
	return vy_read_once(force_listen);
}

s32 vy_read_listeners(void)
{
	return vy_read_once(vy_listeners);
}

void vy_sta_start_timer(void)
{
	if (vy_plat_timer_pending(&vy_sta_table.sta_timer))
		return;
	vy_plat_timer_mod(&vy_sta_table.sta_timer,
			  vy_plat_jiffies() + VY_STA_TIMER_PERIOD);
}

void vy_sta_stop_timer(void)
{
	/* Synchronous: the callback re-arms the timer at the end of each run,
	 * so a plain delete could leave it armed behind a running callback. */
	vy_plat_timer_del_sync(&vy_sta_table.sta_timer);
	vy_reset_all_sta_pending_domain();
}

/* ---- station table and events ----------------------------------------- */

sta *_vy_find_sta(const u8 *mac)
{
	vy_plat_rwlock_assert_held(vy_sta_lock(), 0);

	if (!mac)
		return nullptr;
	for (vy_hlist_node *n = vy_sta_table.sta_hlist[vy_sta_bucket(mac)].first;
	     n; n = n->next) {
		sta *entry = vy_sta_of(n);

		if (!vy_memcmp(entry->mac, mac, ETH_ALEN))
			return entry;
	}
	return nullptr;
}

s32 vy_add_sta_entry(const u8 *mac, const char *vap_name)
{
	char old_vap[VY_VAP_NAME_SIZE] = "";
	bool existed = false;
	bool nomem = false;

	if (!mac) {
		vy_err("sta_mac is null\n");
		return -1;
	}
	if (!vap_name) {
		vy_err("vap_name is NULL (STA = %pM)\n", mac);
		return -1;
	}

	{
		vy_write_guard guard(vy_sta_lock());
		sta *entry = _vy_find_sta(mac);

		if (entry) {
			existed = true;
			vy_strlcpy(old_vap, entry->vap_name, sizeof(old_vap));
		} else if ((entry = vy_zalloc<sta>())) {
			vy_memcpy(entry->mac, mac, ETH_ALEN);
			vy_domain_init(&entry->domain_hlist);
			vy_hlist_add_head(
				&entry->hlist,
				&vy_sta_table.sta_hlist[vy_sta_bucket(mac)]);
			vy_write_once(vy_sta_table.sta_count,
				      vy_sta_table.sta_count + 1);
			entry->join_time = vy_plat_jiffies();
			vy_add_listeners(entry, 2);
		} else {
			nomem = true;
		}
		if (entry)
			vy_strlcpy(entry->vap_name, vap_name,
				   sizeof(entry->vap_name));
	}

	if (nomem) {
		/* The station is not followed, so nothing asks for hooking. */
		vy_warn("_vy_add_sta_entry() fails, STA = %pM\n", mac);
		return -1;
	}

	/* A repeated join requests hooking too: the work may have unhooked
	 * while this station still gives reasons to listen. */
	vy_hook();

	if (existed) {
		vy_notice("STA %pM is already added. (old VAP = %s, new VAP = %s)\n",
			  mac, old_vap, vap_name);
		return 1;
	}
	vy_notice("STA %pM is added. (VAP = %s)\n", mac, vap_name);
	return 0;
}

void _vy_free_sta_entry(sta *entry)
{
	vy_plat_rwlock_assert_held(vy_sta_lock(), 1);

	if (entry->listeners)
		_vy_del_listeners(entry, entry->listeners);
	vy_del_all_domain_hlist(&entry->domain_hlist);
	vy_hlist_del(&entry->hlist);
	vy_plat_free(entry);
	vy_write_once(vy_sta_table.sta_count, vy_sta_table.sta_count - 1);
}

s32 vy_del_sta_entry(const u8 *mac, const char *vap_name)
{
	char cur_vap[VY_VAP_NAME_SIZE] = "";
	bool found = false;
	bool deleted = false;

	if (!mac) {
		vy_err("sta_mac is null\n");
		return -1;
	}

	{
		vy_write_guard guard(vy_sta_lock());
		sta *entry = _vy_find_sta(mac);

		if (entry) {
			found = true;
			/* The stored name always ends within its array, so a
			 * bounded comparison also tells a longer given name. */
			if (!vap_name || !vy_strncmp(vap_name, entry->vap_name,
						     sizeof(entry->vap_name))) {
				_vy_free_sta_entry(entry);
				deleted = true;
			} else {
				vy_strlcpy(cur_vap, entry->vap_name,
					   sizeof(cur_vap));
			}
		}
	}

	if (!found) {
		vy_notice("STA %pM does not exist\n", mac);
		return 1;
	}
	if (!deleted)
		vy_notice("Do not delete STA %pM due to different vaps (current vap %s, STA leave event with vap %s)\n",
			  mac, cur_vap, vap_name);
	else
		vy_notice("Delete STA %pM from %s\n", mac,
			  vap_name ? vap_name : "user command");
	return 0;
}

int vy_sta_evt_cb(vy_s32 event, const void *record)
{
	if (!record) {
		vy_err("arg is NULL\n");
		return -1;
	}

	const u8 *rec = static_cast<const u8 *>(record);
	const u8 *mac = rec + VY_EVT_MAC_OFFSET;
	char vap[VY_VAP_NAME_SIZE + 1];
	u32 i;

	/* umac's name field is 16 bytes; a name filling all of them has no
	 * NUL inside the field, so the read stops at its end. */
	for (i = 0; i < VY_VAP_NAME_SIZE && rec[VY_EVT_VAP_OFFSET + i]; i++)
		vap[i] = (char)rec[VY_EVT_VAP_OFFSET + i];
	vap[i] = '\0';

	vy_notice("receive sta event %d (sta: %pM, vap: %s)\n", (int)event, mac,
		  vap);

	if (event == 0)
		vy_add_sta_entry(mac, vap);
	else if (event == 1)
		vy_del_sta_entry(mac, vap);
	return 0;
}

s32 vy_sta_copy_next(u32 seq, sta *copy)
{
	u8 failed;

	if (!copy)
		return 0;

	{
		vy_read_guard guard(vy_sta_lock());
		sta *entry = nullptr;

		/* No cursor is kept between calls: the mark on each entry is
		 * the cursor, so entries added or removed between calls are
		 * handled without any bookkeeping here. */
		for (u32 b = 0; b < VY_STA_BUCKETS && !entry; b++) {
			for (vy_hlist_node *n = vy_sta_table.sta_hlist[b].first;
			     n; n = n->next) {
				if (vy_sta_of(n)->dump_seq != seq) {
					entry = vy_sta_of(n);
					break;
				}
			}
		}
		if (!entry)
			return 0;

		entry->dump_seq = seq;
		vy_memcpy(copy, entry, sizeof(*copy));
		failed = vy_copy_domain_hlist(&copy->domain_hlist,
					      &entry->domain_hlist);
	}

	return failed ? 0 : 1;
}

void vy_free_sta_copy(sta *copy)
{
	if (!copy)
		return;
	vy_del_all_domain_hlist(&copy->domain_hlist);
	vy_memset(copy, 0, sizeof(*copy));
}

s32 vy_get_sta_count(void)
{
	return vy_read_once(vy_sta_table.sta_count);
}

static void vy_register_event_monitor(void)
{
	if (vy_plat_umac_monitor_register())
		vy_err("nxUMAC_events_monitor_register(&vy_sta_monitor) fails probably due to duplicated registration\n");
}

static void vy_unregister_event_monitor(void)
{
	if (vy_plat_umac_monitor_unregister())
		vy_err("nxUMAC_events_monitor_unregister(&vy_sta_monitor) fails probably due to no registration before\n");
}

void vy_sta_init(void)
{
	for (u32 b = 0; b < VY_STA_BUCKETS; b++)
		vy_sta_table.sta_hlist[b].first = nullptr;
	vy_write_once(vy_sta_table.sta_count, 0);
	/* The table starts empty, so the sum of its listeners is 0. */
	vy_write_once(vy_listeners, 0);
	vy_plat_timer_setup(&vy_sta_table.sta_timer, vy_sta_periodic_update);
	vy_plat_rwlock_init(&vy_sta_table.sta_lock);
	/* Last: an event may arrive as soon as the monitor is in place. */
	vy_register_event_monitor();
}

void vy_sta_deinit(void)
{
	/* First, so that no join adds an entry behind the teardown. */
	vy_unregister_event_monitor();

	vy_write_guard guard(vy_sta_lock());

	for (u32 b = 0; b < VY_STA_BUCKETS; b++) {
		while (vy_sta_table.sta_hlist[b].first)
			_vy_free_sta_entry(
				vy_sta_of(vy_sta_table.sta_hlist[b].first));
	}
	vy_write_once(vy_sta_table.sta_count, 0);
}

/* ---- DHCP progress ---------------------------------------------------- */

/* The message notice names only the eight real message types. */
static const char *vy_dhcp_msg_type_name(u8 type)
{
	if (type >= 1 && type <= 8)
		return vy_dhcp_type_name(type);
	return "Unknown DHCP type";
}

s32 _vy_set_sta_dhcp_status(sta *entry, u32 status, u8 by_timeout)
{
	vy_plat_rwlock_assert_held(vy_sta_lock(), 1);

	unsigned long now = vy_plat_jiffies();

	if (!entry->dhcp_start && status == VY_STATUS_UNKNOWN)
		entry->dhcp_start = now;

	/* 3 means "no change"; nothing above it is ever stored either. */
	if (status >= VY_STATUS_INVALID || status == entry->dhcp_status) {
		vy_dbg("STA %pM dhcp status does not change (%s, %s)\n",
		       entry->mac, vy_status_name(status),
		       vy_dhcp_type_name_or_unknown(entry->dhcp_type));
		return 0;
	}

	if ((status == VY_STATUS_OK || status == VY_STATUS_FAIL) &&
	    entry->dhcp_start) {
		/* A timeout has no answer to measure; the last real exchange's
		 * latency stays on show. */
		if (!by_timeout)
			entry->dhcp_latency =
				vy_plat_jiffies_to_msecs(now - entry->dhcp_start);
		entry->dhcp_start = 0;
	}

	if (entry->dhcp_status == VY_STATUS_UNKNOWN)
		_vy_del_listeners(entry, 1);
	else if (status == VY_STATUS_UNKNOWN)
		vy_add_listeners(entry, 1);

	entry->dhcp_status = status;
	entry->dhcp_reason = by_timeout;
	return 1;
}

s32 vy_set_sta_dhcp_status(const u8 *mac, u32 status, u8 type, u32 ip,
			   u32 server_ip, u32 gateway_ip, u32 dns_ip,
			   const char *hostname, u8 hostname_len)
{
	sta copy = {};
	s32 changed = 0;
	bool found = false;

	if (!mac) {
		vy_err("sta_mac is null\n");
		return -1;
	}

	{
		vy_write_guard guard(vy_sta_lock());
		sta *entry = _vy_find_sta(mac);

		if (entry) {
			found = true;
			entry->dhcp_type = type;
			if (status != VY_STATUS_INVALID)
				changed = _vy_set_sta_dhcp_status(entry, status,
								  0);
			if (ip)
				entry->ip = ip;
			if (server_ip)
				entry->dhcp_server_ip = server_ip;
			if (gateway_ip)
				entry->gateway_ip = gateway_ip;
			if (dns_ip)
				entry->dns_server_ip = dns_ip;
			if (hostname && hostname_len >= 1 &&
			    hostname_len < VY_HOSTNAME_SIZE) {
				entry->hostname_len = hostname_len;
				vy_memset(entry->hostname, 0,
					  sizeof(entry->hostname));
				vy_memcpy(entry->hostname, hostname,
					  hostname_len);
			}
			vy_memcpy(&copy, entry, sizeof(copy));
		}
	}

	if (!found) {
		vy_notice("Device %pM does not exist. dhcp type = %d (%s)\n",
			  mac, (int)type, vy_dhcp_type_name_or_unknown(type));
		return -1;
	}

	if (hostname_len > VY_HOSTNAME_SIZE - 1)
		vy_warn("STA %pM hostname length %u >= VY internal STA hostname array size %d\n",
			mac, (unsigned int)hostname_len, VY_HOSTNAME_SIZE);

	vy_notice("STA %pM is %sadded. Set dhcp status = %d, dhcp type = %d (%s), ip = %pI4, dhcp server ip = %pI4, gateway ip = %pI4, hostname = %s, hostname_len = %u\n",
		  mac, "already ", (int)copy.dhcp_status, (int)type,
		  vy_dhcp_msg_type_name(type), &ip, &server_ip, &gateway_ip,
		  hostname ? hostname : "NULL", (unsigned int)hostname_len);

	if (changed)
		vy_notify_sta_dhcp(&copy);
	return 0;
}

/* ---- DNS progress ----------------------------------------------------- */

s32 _vy_set_sta_dns_status(sta *entry, u32 status, const domain_entry *d)
{
	vy_plat_rwlock_assert_held(vy_sta_lock(), 1);

	/* An alias target's timing belongs to its owner's answer. */
	if (d && !d->is_cname)
		entry->dns_latest_latency = d->first_latency;

	u32 cur = entry->dns_status;

	if (cur == status || cur == VY_STATUS_OK)
		return 0;

	if (cur == VY_STATUS_UNKNOWN)
		_vy_del_listeners(entry, 1);
	else if (status == VY_STATUS_UNKNOWN)
		vy_add_listeners(entry, 1);
	entry->dns_status = status;
	return 1;
}

enum vy_answer_result {
	VY_ANSWER_NO_STA,
	VY_ANSWER_NO_DOMAIN,
	VY_ANSWER_SAME,
	VY_ANSWER_CHANGED,
};

s32 vy_add_sta_domain(const u8 *mac, const char *name, u16 name_len,
		      u32 sta_ip)
{
	vy_answer_result r;

	if (!mac) {
		vy_err("sta_mac is null\n");
		return -1;
	}
	vy_fix_name(&name, &name_len);

	{
		vy_write_guard guard(vy_sta_lock());
		sta *entry = _vy_find_sta(mac);

		if (!entry) {
			r = VY_ANSWER_NO_STA;
		} else {
			entry->ip = sta_ip;
			r = vy_add_domain_entry(&entry->domain_hlist, name,
						name_len, 0)
				    ? VY_ANSWER_SAME
				    : VY_ANSWER_NO_DOMAIN;
		}
	}

	if (r == VY_ANSWER_NO_STA) {
		vy_warn("Device %pM does not exist\n", mac);
		return -1;
	}
	if (r == VY_ANSWER_NO_DOMAIN) {
		vy_warn_ratelimited("vy_add_domain_entry() fails, STA = %pM, domain = %.*s\n",
				    mac, vy_name_prec(name_len), name);
		return -1;
	}
	/* A query never moves the status: only answers and timeouts do. */
	vy_info("STA %pM is %sadded. Add dns domain %.*s.\n", mac, "already ",
		vy_name_prec(name_len), name);
	return 0;
}

/*
 * One answer applied as one step under the lock: the lookup, the domain
 * table change, the status rule and, when the status moved, the copy that
 * the notification is sent from after the lock is gone.
 */
template <typename DomainOp>
static vy_answer_result vy_sta_dns_answer(const u8 *mac, sta *copy,
					  DomainOp domain_op)
{
	vy_write_guard guard(vy_sta_lock());
	sta *entry = _vy_find_sta(mac);

	if (!entry)
		return VY_ANSWER_NO_STA;

	const domain_entry *d = domain_op(&entry->domain_hlist);

	if (!d)
		return VY_ANSWER_NO_DOMAIN;
	if (!_vy_set_sta_dns_status(entry, VY_STATUS_OK, d))
		return VY_ANSWER_SAME;
	vy_memcpy(copy, entry, sizeof(*copy));
	return VY_ANSWER_CHANGED;
}

s32 vy_add_sta_domain_ip(const u8 *mac, const char *name, u16 name_len,
			 u32 ip)
{
	sta copy = {};

	if (!mac) {
		vy_err("sta_mac is null\n");
		return -1;
	}
	vy_fix_name(&name, &name_len);

	vy_answer_result r =
		vy_sta_dns_answer(mac, &copy, [&](domain_hlist *table) {
			return vy_add_domain_ip(table, name, name_len, ip);
		});

	switch (r) {
	case VY_ANSWER_NO_STA:
		vy_warn("Device %pM does not exist\n", mac);
		return -1;
	case VY_ANSWER_NO_DOMAIN:
		vy_warn_ratelimited("vy_add_domain_ip() fails, STA = %pM, domain = %.*s, ip = %pI4\n",
				    mac, vy_name_prec(name_len), name, &ip);
		return -1;
	case VY_ANSWER_CHANGED:
		vy_notify_sta_dns(&copy);
		break;
	case VY_ANSWER_SAME:
		break;
	}
	vy_info("STA %pM is %sadded. Add dns domain-ip mapping (%.*s, %pI4)\n",
		mac, "already ", vy_name_prec(name_len), name, &ip);
	return 0;
}

s32 vy_add_sta_domain_cname(const u8 *mac, const char *name, u16 name_len,
			    const char *cname, u16 cname_len)
{
	sta copy = {};

	if (!mac) {
		vy_err("sta_mac is null\n");
		return -1;
	}
	vy_fix_name(&name, &name_len);
	vy_fix_name(&cname, &cname_len);

	vy_answer_result r =
		vy_sta_dns_answer(mac, &copy, [&](domain_hlist *table) {
			return vy_add_domain_cname(table, name, name_len, cname,
						   cname_len);
		});

	switch (r) {
	case VY_ANSWER_NO_STA:
		vy_warn("Device %pM does not exist\n", mac);
		return -1;
	case VY_ANSWER_NO_DOMAIN:
		vy_warn_ratelimited("vy_add_domain_cname() fails, STA = %pM, domain = %.*s, cname = %.*s\n",
				    mac, vy_name_prec(name_len), name,
				    vy_name_prec(cname_len), cname);
		return -1;
	case VY_ANSWER_CHANGED:
		vy_notify_sta_dns(&copy);
		break;
	case VY_ANSWER_SAME:
		break;
	}
	vy_info("STA %pM is %sadded. Add dns domain-cname mapping (%.*s, %.*s)\n",
		mac, "already ", vy_name_prec(name_len), name,
		vy_name_prec(cname_len), cname);
	return 0;
}

s32 vy_reject_sta_domain(const u8 *mac, const char *name, u16 name_len,
			 u8 rcode)
{
	sta copy = {};

	if (!mac) {
		vy_err("sta_mac is null\n");
		return -1;
	}
	vy_fix_name(&name, &name_len);

	vy_answer_result r =
		vy_sta_dns_answer(mac, &copy, [&](domain_hlist *table) {
			return vy_reject_domain(table, name, name_len, rcode);
		});

	switch (r) {
	case VY_ANSWER_NO_STA:
		vy_warn("STA %pM does not exist\n", mac);
		return -1;
	case VY_ANSWER_NO_DOMAIN:
		vy_warn_ratelimited("vy_reject_domain(): domain is absent. STA = %pM, domain = %.*s, rcode = %d\n",
				    mac, vy_name_prec(name_len), name,
				    (int)rcode);
		return -1;
	case VY_ANSWER_CHANGED:
		vy_notify_sta_dns(&copy);
		break;
	case VY_ANSWER_SAME:
		break;
	}
	vy_info("STA %pM is %sadded. Reject dns domain %.*s with rcode = %d\n",
		mac, "", vy_name_prec(name_len), name, (int)rcode);
	return 0;
}

void vy_reset_all_sta_pending_domain(void)
{
	vy_write_guard guard(vy_sta_lock());

	for (u32 b = 0; b < VY_STA_BUCKETS; b++)
		for (vy_hlist_node *n = vy_sta_table.sta_hlist[b].first; n;
		     n = n->next)
			vy_reset_pending_domain(&vy_sta_of(n)->domain_hlist);
}

/* ---- periodic update (the sta_timer callback) -------------------------- */

/* Copies queued during one run, sent after sta_lock is released; shaped
 * like the station table so they go out in bucket order. */
struct vy_notify_list {
	vy_hlist_head heads[VY_STA_BUCKETS];
	s32 count;
};

static bool vy_queue_copy(vy_notify_list *list, const sta *entry)
{
	sta *copy = vy_zalloc<sta>();

	if (!copy)
		return false;
	vy_memcpy(copy, entry, sizeof(*copy));
	vy_hlist_add_head(&copy->hlist, &list->heads[vy_sta_bucket(copy->mac)]);
	list->count++;
	return true;
}

static void vy_send_list(vy_notify_list *list, void (*send)(const sta *))
{
	for (u32 b = 0; b < VY_STA_BUCKETS; b++) {
		while (list->heads[b].first) {
			sta *copy = vy_sta_of(list->heads[b].first);

			send(copy);
			vy_hlist_del(&copy->hlist);
			vy_plat_free(copy);
			list->count--;
		}
	}
}

/* The walk under the write lock; false when a copy could not be had, which
 * ends the walk where it stands. */
static bool _vy_sta_periodic_walk(unsigned long now, vy_notify_list *dhcp,
				  vy_notify_list *dns)
{
	vy_plat_rwlock_assert_held(vy_sta_lock(), 1);

	for (u32 b = 0; b < VY_STA_BUCKETS; b++) {
		vy_hlist_node *next;

		for (vy_hlist_node *n = vy_sta_table.sta_hlist[b].first; n;
		     n = next) {
			sta *entry = vy_sta_of(n);
			s32 dns_changed = 0;
			u32 avg = 0;

			next = n->next;

			if (entry->dhcp_start &&
			    now - entry->dhcp_start > VY_DHCP_TIMEOUT &&
			    _vy_set_sta_dhcp_status(entry, VY_STATUS_FAIL, 1) &&
			    !vy_queue_copy(dhcp, entry))
				return false;

			u32 outcome =
				vy_timeout_domain(&entry->domain_hlist, &avg);

			if (outcome) {
				dns_changed = _vy_set_sta_dns_status(
					entry, outcome, nullptr);
				entry->dns_latency_avg = avg;
			}

			/* The window stays open while an exchange runs or
			 * queries await their first outcome. */
			if (entry->join_time &&
			    now - entry->join_time > VY_LISTEN_WINDOW &&
			    !entry->dhcp_start &&
			    (vy_is_domain_hlist_empty(&entry->domain_hlist) ||
			     entry->dns_status)) {
				_vy_del_listeners(entry, entry->listeners);
				entry->join_time = 0;
			}

			if (dns_changed && !vy_queue_copy(dns, entry))
				return false;
		}
	}
	return true;
}

void vy_sta_periodic_update(vy_plat_timer *t)
{
	unsigned long now = vy_plat_jiffies();
	vy_notify_list dhcp = {};
	vy_notify_list dns = {};
	bool done;

	{
		vy_write_guard guard(vy_sta_lock());

		done = _vy_sta_periodic_walk(now, &dhcp, &dns);
	}
	/* Entries not reached are left for the next run; what is queued
	 * still goes out. */
	if (!done)
		vy_err("kzalloc fails\n");

	vy_send_list(&dhcp, vy_notify_sta_dhcp);
	vy_send_list(&dns, vy_notify_sta_dns);

	vy_sta_start_timer();
}
