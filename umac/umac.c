// SPDX-License-Identifier: GPL-2.0
/*
 * umac: a stand-in for the platform's wireless upper-MAC module, with only
 * the interface that station-following modules such as veyra import:
 *
 *  - the station-event monitor (nxUMAC_events_monitor_register and
 *    nxUMAC_events_monitor_unregister). Events are injected by writing
 *    lines to /proc/umac/control:
 *        join  XX:XX:XX:XX:XX:XX VAP
 *        leave XX:XX:XX:XX:XX:XX VAP
 *        event CODE XX:XX:XX:XX:XX:XX VAP
 *        clear
 *    Each event is delivered synchronously, in the writer's process
 *    context, to every registered monitor. A write with any bad line fails
 *    with -EINVAL and carries out none of its lines.
 *
 *  - notify_sta_dhcp and notify_sta_dns. Every call is recorded in a ring
 *    of the last UMAC_RING_SIZE calls, read back as one line per call from
 *    /proc/umac/notifications (reading does not consume; writing "clear"
 *    there or to the control file empties the ring and its counters).
 *
 * /proc/umac/counters shows the monitors registered and how many events
 * and notifications went through.
 */
#define pr_fmt(fmt) KBUILD_MODNAME ": " fmt

#include <linux/ctype.h>
#include <linux/err.h>
#include <linux/if_ether.h>
#include <linux/kernel.h>
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/proc_fs.h>
#include <linux/seq_file.h>
#include <linux/slab.h>
#include <linux/spinlock.h>
#include <linux/string.h>
#include <linux/uaccess.h>
#include <linux/version.h>

#include "umac_events.h"

/* ---- station-event monitors -------------------------------------------- */

static LIST_HEAD(umac_monitors);
/*
 * Guards the monitor list and the event counters; held while a callback
 * runs, so a monitor cannot go away in the middle of its delivery.
 */
static DEFINE_MUTEX(umac_monitors_lock);
static u64 umac_events;		/* events injected */
static u64 umac_deliveries;	/* callbacks made */

static bool umac_monitor_listed(const struct umac_events_monitor *mon)
{
	const struct umac_events_monitor *m;

	list_for_each_entry(m, &umac_monitors, list)
		if (m == mon)
			return true;
	return false;
}

int nxUMAC_events_monitor_register(struct umac_events_monitor *mon)
{
	int ret = 0;

	if (!mon || !mon->cb)
		return -EINVAL;
	mutex_lock(&umac_monitors_lock);
	if (umac_monitor_listed(mon))
		ret = -EEXIST;
	else
		list_add_tail(&mon->list, &umac_monitors);
	mutex_unlock(&umac_monitors_lock);
	pr_debug("register monitor %ps: %d\n", mon->cb, ret);
	return ret;
}
EXPORT_SYMBOL_GPL(nxUMAC_events_monitor_register);

int nxUMAC_events_monitor_unregister(struct umac_events_monitor *mon)
{
	int ret = 0;

	if (!mon)
		return -EINVAL;
	mutex_lock(&umac_monitors_lock);
	if (umac_monitor_listed(mon))
		list_del_init(&mon->list);
	else
		ret = -ENOENT;
	mutex_unlock(&umac_monitors_lock);
	pr_debug("unregister monitor %p: %d\n", mon, ret);
	return ret;
}
EXPORT_SYMBOL_GPL(nxUMAC_events_monitor_unregister);

static void umac_deliver(int event, const u8 *mac, const char *vap)
{
	struct umac_events_monitor *m;
	struct umac_sta_event ev;

	mutex_lock(&umac_monitors_lock);
	umac_events++;
	list_for_each_entry(m, &umac_monitors, list) {
		if (!(m->event_mask & UMAC_EVENTS_STA))
			continue;
		/* A fresh record for each monitor: it is handed out writable. */
		memset(&ev, 0, sizeof(ev));
		strscpy(ev.vap_name, vap, sizeof(ev.vap_name));
		memcpy(ev.mac, mac, ETH_ALEN);
		m->cb(event, &ev);
		umac_deliveries++;
	}
	mutex_unlock(&umac_monitors_lock);
	pr_debug("event %d sta %pM vap %s\n", event, mac, vap);
}

/* ---- notification ring ------------------------------------------------- */

#define UMAC_RING_SIZE 1024 /* a power of two */
#define UMAC_HOSTNAME_MAX 255

enum umac_note_kind {
	UMAC_NOTE_DHCP = 1,
	UMAC_NOTE_DNS = 2,
};

/*
 * One notification with all its arguments; pointers the caller passed as
 * NULL are recorded as missing rather than dereferenced.
 */
struct umac_note {
	u8 kind;
	bool has_vap;
	bool has_mac;
	bool has_hostname;
	char vap[UMAC_VAP_NAME_LEN + 1];
	u8 mac[ETH_ALEN];
	u8 status;
	u8 reason;
	u8 type;
	u8 hostname_len;
	u32 ip;
	u32 server;
	u32 gateway;
	u32 dns_server;
	u32 latency;
	u8 hostname[UMAC_HOSTNAME_MAX];
};

/* The notifiers run in softirq context: irq-safe lock, no allocation. */
static DEFINE_SPINLOCK(umac_ring_lock);
static struct umac_note umac_ring[UMAC_RING_SIZE];
static u64 umac_ring_head;	/* sequence number of the next record */
static u64 umac_ring_tail;	/* sequence number of the oldest one kept */
static u64 umac_notes_dropped;	/* overwritten before being cleared */
static u64 umac_notes_dhcp;
static u64 umac_notes_dns;

static struct umac_note *umac_ring_slot(u64 seq)
{
	return &umac_ring[(u32)seq & (UMAC_RING_SIZE - 1)];
}

/* A zeroed record at the head of the ring; the oldest one gives way. */
static struct umac_note *umac_note_new(const char *vap, const u8 *mac)
{
	struct umac_note *n;

	lockdep_assert_held(&umac_ring_lock);
	if (umac_ring_head - umac_ring_tail == UMAC_RING_SIZE) {
		umac_ring_tail++;
		umac_notes_dropped++;
	}
	n = umac_ring_slot(umac_ring_head++);
	memset(n, 0, sizeof(*n));
	if (vap) {
		n->has_vap = true;
		memcpy(n->vap, vap, strnlen(vap, UMAC_VAP_NAME_LEN));
	}
	if (mac) {
		n->has_mac = true;
		memcpy(n->mac, mac, ETH_ALEN);
	}
	return n;
}

void notify_sta_dhcp(const char *vap, const u8 *mac, u8 status, u8 reason,
		     const char *hostname, u8 hostname_len, u32 ip, u8 type,
		     u32 server, u32 gateway, u32 latency)
{
	struct umac_note *n;
	unsigned long flags;

	spin_lock_irqsave(&umac_ring_lock, flags);
	n = umac_note_new(vap, mac);
	n->kind = UMAC_NOTE_DHCP;
	n->status = status;
	n->reason = reason;
	n->hostname_len = hostname_len;
	if (hostname) {
		n->has_hostname = true;
		memcpy(n->hostname, hostname, hostname_len);
	}
	n->ip = ip;
	n->type = type;
	n->server = server;
	n->gateway = gateway;
	n->latency = latency;
	umac_notes_dhcp++;
	spin_unlock_irqrestore(&umac_ring_lock, flags);
}
EXPORT_SYMBOL_GPL(notify_sta_dhcp);

void notify_sta_dns(const char *vap, const u8 *mac, u8 status,
		    u32 dns_server, u32 latency)
{
	struct umac_note *n;
	unsigned long flags;

	spin_lock_irqsave(&umac_ring_lock, flags);
	n = umac_note_new(vap, mac);
	n->kind = UMAC_NOTE_DNS;
	n->status = status;
	n->dns_server = dns_server;
	n->latency = latency;
	umac_notes_dns++;
	spin_unlock_irqrestore(&umac_ring_lock, flags);
}
EXPORT_SYMBOL_GPL(notify_sta_dns);

static void umac_ring_clear(void)
{
	unsigned long flags;

	spin_lock_irqsave(&umac_ring_lock, flags);
	umac_ring_tail = umac_ring_head;
	umac_notes_dropped = 0;
	umac_notes_dhcp = 0;
	umac_notes_dns = 0;
	spin_unlock_irqrestore(&umac_ring_lock, flags);
}

/* ---- /proc/umac/notifications ------------------------------------------ */

/*
 * The reader works on copies: each record is copied out under the lock and
 * formatted from the copy. Positions count from the oldest record at open
 * time; records overwritten while the file is open are skipped.
 */
struct umac_notes_iter {
	u64 base;
	struct umac_note note;
};

static void *umac_notes_fetch(struct umac_notes_iter *it, loff_t *pos)
{
	unsigned long flags;
	void *ret = NULL;
	u64 seq;

	if (*pos < 0)
		return NULL;
	spin_lock_irqsave(&umac_ring_lock, flags);
	seq = it->base + *pos;
	if (seq < umac_ring_tail) {
		seq = umac_ring_tail;
		*pos = seq - it->base;
	}
	if (seq < umac_ring_head) {
		it->note = *umac_ring_slot(seq);
		ret = it;
	}
	spin_unlock_irqrestore(&umac_ring_lock, flags);
	return ret;
}

static void *umac_notes_start(struct seq_file *m, loff_t *pos)
{
	return umac_notes_fetch(m->private, pos);
}

static void *umac_notes_next(struct seq_file *m, void *v, loff_t *pos)
{
	++*pos;
	return umac_notes_fetch(m->private, pos);
}

static void umac_notes_stop(struct seq_file *m, void *v)
{
}

/*
 * Text the way a C string literal would hold it: quote and backslash
 * escaped, anything outside printable ASCII as \xHH.
 */
static void umac_put_escaped(struct seq_file *m, const u8 *s, size_t len)
{
	size_t i;

	for (i = 0; i < len; i++) {
		if (s[i] == '"' || s[i] == '\\')
			seq_printf(m, "\\%c", s[i]);
		else if (s[i] < 0x20 || s[i] >= 0x7f)
			seq_printf(m, "\\x%02x", s[i]);
		else
			seq_putc(m, s[i]);
	}
}

static void umac_show_sta(struct seq_file *m, const struct umac_note *n)
{
	seq_puts(m, " vap=");
	if (n->has_vap)
		umac_put_escaped(m, (const u8 *)n->vap, strlen(n->vap));
	else
		seq_puts(m, "(null)");
	if (n->has_mac)
		seq_printf(m, " sta=%pM", n->mac);
	else
		seq_puts(m, " sta=(null)");
}

static int umac_notes_show(struct seq_file *m, void *v)
{
	const struct umac_notes_iter *it = v;
	const struct umac_note *n = &it->note;

	if (n->kind == UMAC_NOTE_DHCP) {
		seq_puts(m, "notify_sta_dhcp");
		umac_show_sta(m, n);
		seq_printf(m, " status=%u reason=%u hostname=",
			   n->status, n->reason);
		if (n->has_hostname) {
			seq_putc(m, '"');
			umac_put_escaped(m, n->hostname, n->hostname_len);
			seq_putc(m, '"');
		} else {
			seq_puts(m, "(null)");
		}
		seq_printf(m, " hostname_len=%u ip=%pI4 type=%u server=%pI4 gateway=%pI4 latency=%u\n",
			   n->hostname_len, &n->ip, n->type, &n->server,
			   &n->gateway, n->latency);
	} else {
		seq_puts(m, "notify_sta_dns");
		umac_show_sta(m, n);
		seq_printf(m, " status=%u dns_server=%pI4 latency=%u\n",
			   n->status, &n->dns_server, n->latency);
	}
	return 0;
}

static const struct seq_operations umac_notes_seq_ops = {
	.start = umac_notes_start,
	.next = umac_notes_next,
	.stop = umac_notes_stop,
	.show = umac_notes_show,
};

static int umac_notes_open(struct inode *inode, struct file *file)
{
	struct umac_notes_iter *it;
	unsigned long flags;

	if (!(file->f_mode & FMODE_READ))
		return 0;
	it = __seq_open_private(file, &umac_notes_seq_ops, sizeof(*it));
	if (!it)
		return -ENOMEM;
	spin_lock_irqsave(&umac_ring_lock, flags);
	it->base = umac_ring_tail;
	spin_unlock_irqrestore(&umac_ring_lock, flags);
	return 0;
}

static int umac_notes_release(struct inode *inode, struct file *file)
{
	if (!(file->f_mode & FMODE_READ))
		return 0;
	return seq_release_private(inode, file);
}

/* Whole-write commands: the text up to an optional trailing newline. */
static bool umac_is_word(const char *buf, size_t count, const char *word)
{
	size_t len = strlen(word);

	if (count && buf[count - 1] == '\n')
		count--;
	return count == len && !memcmp(buf, word, len);
}

static ssize_t umac_notes_write(struct file *file, const char __user *ubuf,
				size_t count, loff_t *ppos)
{
	char buf[8];

	if (count > sizeof(buf))
		return -EINVAL;
	if (copy_from_user(buf, ubuf, count))
		return -EFAULT;
	if (!umac_is_word(buf, count, "clear"))
		return -EINVAL;
	umac_ring_clear();
	return count;
}

/* ---- /proc/umac/counters ------------------------------------------------ */

static int umac_counters_show(struct seq_file *m, void *v)
{
	const struct umac_events_monitor *mon;
	u64 events, deliveries, kept, dropped, dhcp, dns;
	unsigned long flags;
	int monitors = 0;

	mutex_lock(&umac_monitors_lock);
	list_for_each_entry(mon, &umac_monitors, list)
		monitors++;
	events = umac_events;
	deliveries = umac_deliveries;
	mutex_unlock(&umac_monitors_lock);

	spin_lock_irqsave(&umac_ring_lock, flags);
	kept = umac_ring_head - umac_ring_tail;
	dropped = umac_notes_dropped;
	dhcp = umac_notes_dhcp;
	dns = umac_notes_dns;
	spin_unlock_irqrestore(&umac_ring_lock, flags);

	seq_printf(m, "monitors %d\nevents %llu\ndeliveries %llu\n",
		   monitors, events, deliveries);
	seq_printf(m, "notify_sta_dhcp %llu\nnotify_sta_dns %llu\nkept %llu\ndropped %llu\n",
		   dhcp, dns, kept, dropped);
	return 0;
}

static int umac_counters_open(struct inode *inode, struct file *file)
{
	return single_open(file, umac_counters_show, NULL);
}

/* ---- /proc/umac/control ------------------------------------------------- */

#define UMAC_CTL_MAX 4096
#define UMAC_TOKEN_MAX 24
#define UMAC_LINE_TOKENS 4

enum umac_cmd_kind {
	UMAC_CMD_NONE,	/* blank line */
	UMAC_CMD_EVENT,
	UMAC_CMD_CLEAR,
};

struct umac_cmd {
	enum umac_cmd_kind kind;
	int code;
	u8 mac[ETH_ALEN];
	char vap[UMAC_VAP_NAME_LEN];
};

/* Exactly six colon-separated pairs of hex digits. */
static int umac_parse_mac(const char *s, u8 *mac)
{
	int i, hi, lo;

	if (strlen(s) != 3 * ETH_ALEN - 1)
		return -EINVAL;
	for (i = 0; i < ETH_ALEN; i++) {
		hi = hex_to_bin(s[3 * i]);
		lo = hex_to_bin(s[3 * i + 1]);
		if (hi < 0 || lo < 0)
			return -EINVAL;
		if (i < ETH_ALEN - 1 && s[3 * i + 2] != ':')
			return -EINVAL;
		mac[i] = (u8)(hi << 4 | lo);
	}
	return 0;
}

/*
 * Parses one line (without its newline) into @cmd. The line is not
 * modified; its whitespace-separated words are copied into @tok.
 */
static int umac_parse_line(const char *line, size_t len, struct umac_cmd *cmd)
{
	char tok[UMAC_LINE_TOKENS][UMAC_TOKEN_MAX];
	const char *mac, *vap;
	size_t i = 0, start;
	int n = 0;

	memset(cmd, 0, sizeof(*cmd));
	while (i < len) {
		while (i < len && isspace(line[i]))
			i++;
		if (i == len)
			break;
		start = i;
		while (i < len && !isspace(line[i]))
			i++;
		if (n == UMAC_LINE_TOKENS || i - start >= UMAC_TOKEN_MAX)
			return -EINVAL;
		memcpy(tok[n], line + start, i - start);
		tok[n][i - start] = '\0';
		n++;
	}
	if (n == 0)
		return 0;

	if (n == 1 && !strcmp(tok[0], "clear")) {
		cmd->kind = UMAC_CMD_CLEAR;
		return 0;
	}
	if (n == 3 && !strcmp(tok[0], "join")) {
		cmd->code = UMAC_EVT_STA_JOIN;
	} else if (n == 3 && !strcmp(tok[0], "leave")) {
		cmd->code = UMAC_EVT_STA_LEAVE;
	} else if (n == 4 && !strcmp(tok[0], "event")) {
		if (kstrtoint(tok[1], 0, &cmd->code))
			return -EINVAL;
	} else {
		return -EINVAL;
	}
	mac = tok[n - 2];
	vap = tok[n - 1];
	if (umac_parse_mac(mac, cmd->mac))
		return -EINVAL;
	if (strscpy(cmd->vap, vap, sizeof(cmd->vap)) < 0)
		return -EINVAL;
	cmd->kind = UMAC_CMD_EVENT;
	return 0;
}

/* Runs every line of @buf, or with @dry_run only checks them all. */
static int umac_control_run(const char *buf, size_t count, bool dry_run)
{
	struct umac_cmd cmd;
	const char *p = buf, *end = buf + count, *nl;
	int ret;

	while (p < end) {
		nl = memchr(p, '\n', end - p);
		if (!nl)
			nl = end;
		ret = umac_parse_line(p, nl - p, &cmd);
		if (ret)
			return ret;
		if (!dry_run) {
			if (cmd.kind == UMAC_CMD_EVENT)
				umac_deliver(cmd.code, cmd.mac, cmd.vap);
			else if (cmd.kind == UMAC_CMD_CLEAR)
				umac_ring_clear();
		}
		p = nl + 1;
	}
	return 0;
}

static ssize_t umac_control_write(struct file *file, const char __user *ubuf,
				  size_t count, loff_t *ppos)
{
	char *buf;
	int ret;

	if (!count)
		return 0;
	if (count >= UMAC_CTL_MAX)
		return -EINVAL;
	buf = memdup_user(ubuf, count);
	if (IS_ERR(buf))
		return PTR_ERR(buf);
	if (memchr(buf, '\0', count))
		ret = -EINVAL;
	else
		ret = umac_control_run(buf, count, true);
	if (!ret)
		umac_control_run(buf, count, false);
	kfree(buf);
	return ret ? ret : count;
}

/* ---- module ------------------------------------------------------------ */

#if LINUX_VERSION_CODE >= KERNEL_VERSION(5, 6, 0)
static const struct proc_ops umac_control_ops = {
	.proc_write = umac_control_write,
	.proc_lseek = noop_llseek,
};

static const struct proc_ops umac_notes_ops = {
	.proc_open = umac_notes_open,
	.proc_read = seq_read,
	.proc_write = umac_notes_write,
	.proc_lseek = seq_lseek,
	.proc_release = umac_notes_release,
};

static const struct proc_ops umac_counters_ops = {
	.proc_open = umac_counters_open,
	.proc_read = seq_read,
	.proc_lseek = seq_lseek,
	.proc_release = single_release,
};
#else
static const struct file_operations umac_control_ops = {
	.owner = THIS_MODULE,
	.write = umac_control_write,
	.llseek = noop_llseek,
};

static const struct file_operations umac_notes_ops = {
	.owner = THIS_MODULE,
	.open = umac_notes_open,
	.read = seq_read,
	.write = umac_notes_write,
	.llseek = seq_lseek,
	.release = umac_notes_release,
};

static const struct file_operations umac_counters_ops = {
	.owner = THIS_MODULE,
	.open = umac_counters_open,
	.read = seq_read,
	.llseek = seq_lseek,
	.release = single_release,
};
#endif

static struct proc_dir_entry *umac_proc_dir;

static int __init umac_init(void)
{
	umac_proc_dir = proc_mkdir("umac", NULL);
	if (!umac_proc_dir)
		return -ENOMEM;
	if (!proc_create("control", 0200, umac_proc_dir, &umac_control_ops) ||
	    !proc_create("notifications", 0644, umac_proc_dir,
			 &umac_notes_ops) ||
	    !proc_create("counters", 0444, umac_proc_dir,
			 &umac_counters_ops)) {
		proc_remove(umac_proc_dir);
		return -ENOMEM;
	}
	return 0;
}

static void __exit umac_exit(void)
{
	proc_remove(umac_proc_dir);
	/* Clients import our symbols, so none can still be registered. */
	WARN_ON(!list_empty(&umac_monitors));
}

module_init(umac_init);
module_exit(umac_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Wireless upper-MAC stand-in: station events and notifications");
