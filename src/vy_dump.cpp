// SPDX-License-Identifier: GPL-2.0
/*
 * The diagnostics devices /dev/vy_dump and /dev/vy_summary: the per-open
 * read sequence that prints the module's state from private copies of the
 * stations, the command line written to either device, the registration of
 * both devices and the sysfs attributes that publish their majors.
 */
#include "vy_dump.h"

#include "vy_common.h"
#include "vy_sta_list.h"

/* ---- shared state ------------------------------------------------------ */

namespace {

struct vy_dump_ctx {
	vy_kobj *dump_kobj;
	s32 summary_major;
	s32 dump_major;
	u32 dump_seq; /* number of the current pass; the first pass is 1 */
	u32 dump_way; /* which device is open, guarded by dump_lock */
	vy_plat_rwlock dump_lock;
};

struct dump_state {
	u32 step;
	sta sta_copy; /* all zero while no station is held */
};

enum : u32 {
	VY_STEP_START = 0,
	VY_STEP_NEXT_STA = 1,
	VY_STEP_BASIC_INFO = 2,
	VY_STEP_DNS_ENTRIES = 3,
	VY_STEP_SUMMARY = 4,
	VY_STEP_FINISH_STA = 5,
	VY_STEP_END = 6,
};

/* Results of a step. */
enum : u32 {
	VY_STEP_ERROR = 0,
	VY_STEP_CONTINUE = 1,
	VY_STEP_BUFFER_FULL = 2,
};

typedef u32 (*vy_sta_dump_read_method)(vy_dump_ctx *ctx, char *ubuf,
					vy_size *left, char *text,
					vy_size *copied, dump_state *state);

} // namespace

/* Plain data, zero at load: no constructor runs for either. */
static vy_dump_ctx dump_ctx;
static char dump_text[VY_DUMP_TEXT_SIZE];

/* ---- text building ----------------------------------------------------- */

/*
 * Appends go into the space left in dump_text. A piece that does not fit is
 * cut at the end of the buffer, and from then on the buffer counts as full
 * (349 characters and the NUL), so every later piece is left out.
 */
static void vy_text_advance(vy_size *len, int n)
{
	vy_size room = VY_DUMP_TEXT_SIZE - *len;

	if (n < 0)
		return;
	if ((vy_size)n >= room)
		*len = VY_DUMP_TEXT_SIZE - 1;
	else
		*len += (vy_size)n;
}

#define VY_TEXT_ADD(text, len, fmt, ...)                                  \
	vy_text_advance(&(len),                                           \
			vy_plat_snprintf((text) + (len),                  \
					 VY_DUMP_TEXT_SIZE - (len), fmt,  \
					 ##__VA_ARGS__))

/* Copies the text to the reader at the offset already filled in this read;
 * false when the copy failed, which the calling step logs. The read loop
 * only runs a step with more than VY_DUMP_TEXT_SIZE bytes free, so len
 * always fits. */
static bool vy_dump_copy(char *ubuf, vy_size *left, const char *text,
			 vy_size len, vy_size *copied)
{
	if (len > *left || vy_plat_copy_to_user(ubuf + *copied, text, len))
		return false;
	*copied += len;
	*left -= len;
	return true;
}

#define VY_COPY_ERROR_MSG "copy_to_user error (msg = %s)\n"

/* ---- the read steps ---------------------------------------------------- */

static u32 vy_sta_dump_start(vy_dump_ctx *ctx, char *ubuf, vy_size *left,
			     char *text, vy_size *copied, dump_state *state)
{
	vy_size len = 0;

	/* Counted before the copy: a failed copy does not replay the header,
	 * the next read goes on with the stations. */
	ctx->dump_seq++;
	state->step = VY_STEP_NEXT_STA;

	if (ctx->dump_way == VY_DUMP_WAY_SUMMARY) {
		VY_TEXT_ADD(text, len, "%-20s %-17s %s\n", "STA", "DHCP", "DNS");
	} else {
		s32 listeners = vy_read_listeners();
		u8 force = vy_read_force_listen();

		VY_TEXT_ADD(text, len, "Listening: %s\n",
			    (listeners || force) ? "yes" : "no");
		VY_TEXT_ADD(text, len, "Current Listeners: %d\n", (int)listeners);
		VY_TEXT_ADD(text, len, "Force Listening: %s\n",
			    force ? "yes" : "no");
		VY_TEXT_ADD(text, len, "Debug Level: %d\n", (int)vy_debug_level());
		VY_TEXT_ADD(text, len, "STA Number: %d\n", (int)vy_get_sta_count());
	}

	if (!vy_dump_copy(ubuf, left, text, len, copied)) {
		vy_err(VY_COPY_ERROR_MSG, text);
		return VY_STEP_ERROR;
	}
	return VY_STEP_CONTINUE;
}

static u32 vy_sta_dump_next_sta(vy_dump_ctx *ctx, char *ubuf, vy_size *left,
				char *text, vy_size *copied, dump_state *state)
{
	if (vy_sta_copy_next(ctx->dump_seq, &state->sta_copy))
		state->step = ctx->dump_way == VY_DUMP_WAY_SUMMARY
				      ? VY_STEP_SUMMARY
				      : VY_STEP_BASIC_INFO;
	else
		state->step = VY_STEP_END; /* a partial copy is freed at release */
	return VY_STEP_CONTINUE;
}

static u32 vy_sta_dump_basic_info(vy_dump_ctx *ctx, char *ubuf, vy_size *left,
				  char *text, vy_size *copied,
				  dump_state *state)
{
	const sta *s = &state->sta_copy;
	vy_size len = 0;

	/* A freed copy is all zero: the copy to the reader failed before. */
	if (vy_mac_is_zero(s->mac)) {
		vy_err("Invalid STA mac");
		return VY_STEP_ERROR;
	}

	VY_TEXT_ADD(text, len, "=====================\n");
	VY_TEXT_ADD(text, len, "STA: %pM\n", s->mac);
	VY_TEXT_ADD(text, len, "Hostname: %.64s\n", s->hostname);
	VY_TEXT_ADD(text, len, "STA IP: %pI4\n", &s->ip);
	VY_TEXT_ADD(text, len, "DHCP Status: %s\n",
		    vy_status_name(s->dhcp_status));
	VY_TEXT_ADD(text, len, "DHCP Type: %s\n", vy_dhcp_type_name(s->dhcp_type));
	VY_TEXT_ADD(text, len, "DHCP Server: %pI4\n", &s->dhcp_server_ip);
	VY_TEXT_ADD(text, len, "DHCP Latency: %d ms\n", (int)s->dhcp_latency);
	VY_TEXT_ADD(text, len, "DHCP Reason: %s\n",
		    s->dhcp_reason ? "timeout" : "");
	VY_TEXT_ADD(text, len, "Gateway: %pI4\n", &s->gateway_ip);
	VY_TEXT_ADD(text, len, "DNS Status: %s\n", vy_status_name(s->dns_status));
	VY_TEXT_ADD(text, len, "DNS: %pI4\n", &s->dns_server_ip);
	VY_TEXT_ADD(text, len, "DNS Latest Latency: %d ms\n",
		    (int)s->dns_latest_latency);
	VY_TEXT_ADD(text, len, "DNS Latency Average: %d ms\n",
		    (int)s->dns_latency_avg);
	VY_TEXT_ADD(text, len, "Listeners: %d\n", (int)s->listeners);

	if (!vy_dump_copy(ubuf, left, text, len, copied)) {
		vy_err(VY_COPY_ERROR_MSG, text);
		return VY_STEP_ERROR;
	}
	state->step = VY_STEP_DNS_ENTRIES;
	return VY_STEP_CONTINUE;
}

/* One domain line: at most 8 + 127 + 1 + 36 + 10 + 4 * 16 + 26 = 272
 * characters, so it never reaches the end of dump_text. */
static vy_size vy_dump_domain_line(char *text, const domain_entry *d)
{
	vy_size len = 0;
	u32 ips = d->ip_num < VY_DOMAIN_MAX_IPS ? d->ip_num : VY_DOMAIN_MAX_IPS;

	if (d->is_cname)
		VY_TEXT_ADD(text, len, "%s%-64.127s:", "[cname] ", d->domain);
	else
		VY_TEXT_ADD(text, len, "%s%-72.127s:", "", d->domain);
	if (!d->last_update)
		VY_TEXT_ADD(text, len, " No IP answer before listening stop.");
	if (d->rcode)
		VY_TEXT_ADD(text, len, " rcode %d", (int)d->rcode);
	for (u32 i = 0; i < ips; i++)
		VY_TEXT_ADD(text, len, " %pI4", &d->ips[i]);
	if (d->timed_out)
		VY_TEXT_ADD(text, len, " (latency: %d sec timeout)\n",
			    (int)(VY_DNS_QUERY_TIMEOUT / HZ));
	else
		VY_TEXT_ADD(text, len, " (latency: %u ms)\n", d->first_latency);
	return len;
}

static u32 vy_sta_dump_dns_entries(vy_dump_ctx *ctx, char *ubuf,
				   vy_size *left, char *text, vy_size *copied,
				   dump_state *state)
{
	sta *s = &state->sta_copy;

	if (vy_mac_is_zero(s->mac)) {
		vy_err("Invalid STA mac");
		return VY_STEP_ERROR;
	}

	/*
	 * Entries printed by an earlier read of this pass carry the pass
	 * number: the walk restarts from bucket 0 at every read and skips
	 * them, so a line is neither lost nor repeated across reads.
	 */
	for (u32 b = 0; b < VY_DOMAIN_BUCKETS; b++) {
		for (vy_hlist_node *n = s->domain_hlist.heads[b].first; n;
		     n = n->next) {
			domain_entry *d = vy_container_of(n, domain_entry, hlist);

			if (*left < VY_DUMP_TEXT_SIZE)
				return VY_STEP_BUFFER_FULL;
			if (d->dump_seq == ctx->dump_seq)
				continue;
			vy_size len = vy_dump_domain_line(text, d);

			if (!vy_dump_copy(ubuf, left, text, len, copied)) {
				vy_err(VY_COPY_ERROR_MSG, text);
				return VY_STEP_ERROR;
			}
			d->dump_seq = ctx->dump_seq;
		}
	}

	state->step = VY_STEP_FINISH_STA;
	return VY_STEP_CONTINUE;
}

static u32 vy_sta_dump_summary(vy_dump_ctx *ctx, char *ubuf, vy_size *left,
			       char *text, vy_size *copied, dump_state *state)
{
	const sta *s = &state->sta_copy;
	char ip[16] = "None";
	vy_size len = 0;

	if (vy_mac_is_zero(s->mac)) {
		vy_err("Invalid STA mac");
		return VY_STEP_ERROR;
	}

	if (s->dhcp_status == VY_STATUS_OK)
		vy_plat_snprintf(ip, sizeof(ip), "%pI4", &s->ip);
	VY_TEXT_ADD(text, len, "%-20pM %-17s %s\n", s->mac, ip,
		    vy_status_name(s->dns_status));

	if (!vy_dump_copy(ubuf, left, text, len, copied)) {
		vy_err(VY_COPY_ERROR_MSG, text);
		return VY_STEP_ERROR;
	}
	state->step = VY_STEP_FINISH_STA;
	return VY_STEP_CONTINUE;
}

static u32 vy_sta_dump_finish_sta(vy_dump_ctx *ctx, char *ubuf, vy_size *left,
				  char *text, vy_size *copied,
				  dump_state *state)
{
	vy_free_sta_copy(&state->sta_copy);
	state->step = VY_STEP_NEXT_STA;
	return VY_STEP_CONTINUE;
}

static const vy_sta_dump_read_method vy_sta_dump_read_methods[] = {
	vy_sta_dump_start,	 /* VY_STEP_START */
	vy_sta_dump_next_sta,	 /* VY_STEP_NEXT_STA */
	vy_sta_dump_basic_info,	 /* VY_STEP_BASIC_INFO */
	vy_sta_dump_dns_entries, /* VY_STEP_DNS_ENTRIES */
	vy_sta_dump_summary,	 /* VY_STEP_SUMMARY */
	vy_sta_dump_finish_sta,	 /* VY_STEP_FINISH_STA */
};

static_assert(VY_ARRAY_SIZE(vy_sta_dump_read_methods) == VY_STEP_END,
	      "one read step per state before the end of the pass");

/* ---- open, read, release ----------------------------------------------- */

static dump_state *vy_dump_state_of(vy_file *f)
{
	return static_cast<dump_state *>(*vy_plat_file_private(f));
}

static int _vy_dump_dev_init(vy_file *f, u32 way)
{
	u32 current;

	{
		vy_write_guard guard(&dump_ctx.dump_lock);

		current = dump_ctx.dump_way;
		if (!current)
			dump_ctx.dump_way = way;
	}
	if (current) {
		vy_err("The dump char device is in use now. (requested dump way = %d, current used way = %d)\n",
		       (int)way, (int)current);
		return -VY_EBUSY;
	}

	void **priv = vy_plat_file_private(f);

	if (!*priv) {
		dump_state *state = vy_zalloc<dump_state>();

		if (!state) {
			vy_write_guard guard(&dump_ctx.dump_lock);

			dump_ctx.dump_way = VY_DUMP_WAY_NONE;
			return -VY_ENOMEM;
		}
		*priv = state;
	}
	return 0;
}

extern "C" int vy_dump_dev_open(struct vy_file *f)
{
	return _vy_dump_dev_init(f, VY_DUMP_WAY_DUMP);
}

extern "C" int vy_summary_dev_open(struct vy_file *f)
{
	return _vy_dump_dev_init(f, VY_DUMP_WAY_SUMMARY);
}

extern "C" long vy_dump_dev_read(struct vy_file *f, void *ubuf, vy_size count)
{
	dump_state *state = vy_dump_state_of(f);
	vy_size left = count;
	vy_size copied = 0;

	if (!state)
		return 0;

	/* Each step starts only with room for its longest text, so a read of
	 * VY_DUMP_TEXT_SIZE bytes or fewer returns 0 and changes nothing. */
	while (state->step < VY_STEP_END && left > VY_DUMP_TEXT_SIZE) {
		u32 r = vy_sta_dump_read_methods[state->step](
			&dump_ctx, static_cast<char *>(ubuf), &left, dump_text,
			&copied, state);

		if (r == VY_STEP_ERROR) {
			vy_free_sta_copy(&state->sta_copy);
			break;
		}
		if (r == VY_STEP_BUFFER_FULL)
			break;
	}
	return (long)copied;
}

extern "C" int vy_dump_dev_release(struct vy_file *f)
{
	void **priv = vy_plat_file_private(f);
	dump_state *state = static_cast<dump_state *>(*priv);

	if (state) {
		/* Still held when the reader closed in the middle of a station
		 * or the copy walk failed part-way. */
		vy_free_sta_copy(&state->sta_copy);
		vy_plat_free(state);
		*priv = nullptr;
	}

	vy_write_guard guard(&dump_ctx.dump_lock);

	dump_ctx.dump_way = VY_DUMP_WAY_NONE;
	return 0;
}

/* ---- registration and sysfs -------------------------------------------- */

s32 vy_dump_init(void)
{
	int r;

	vy_plat_rwlock_init(&dump_ctx.dump_lock);

	r = vy_plat_register_chrdev(VY_CHRDEV_SUMMARY);
	if (r < 0) {
		vy_err("Failed to register chrdev /dev/vy_summary: %d\n", r);
		return r;
	}
	dump_ctx.summary_major = r;

	r = vy_plat_register_chrdev(VY_CHRDEV_DUMP);
	if (r < 0) {
		vy_err("Failed to register chrdev /dev/vy_dump: %d\n", r);
		goto err_summary;
	}
	dump_ctx.dump_major = r;

	dump_ctx.dump_kobj = vy_plat_kobject_create();
	if (!dump_ctx.dump_kobj) {
		vy_err("failed to register sys/veyra\n");
		r = -VY_ENOMEM;
		goto err_dump;
	}

	r = vy_plat_sysfs_create_file(dump_ctx.dump_kobj, VY_SYSFS_SUMMARY_MAJOR);
	if (r) {
		vy_err("failed to register sys/veyra/summary_dev_major_num: %d\n", r);
		goto err_kobj;
	}

	r = vy_plat_sysfs_create_file(dump_ctx.dump_kobj, VY_SYSFS_DUMP_MAJOR);
	if (r) {
		vy_err("failed to register sys/veyra/dump_dev_major_num: %d\n", r);
		goto err_summary_file;
	}
	return 0;

	/* Whatever is undone is forgotten too, so that vy_dump_exit after a
	 * failed start finds nothing to remove. */
err_summary_file:
	vy_plat_sysfs_remove_file(dump_ctx.dump_kobj, VY_SYSFS_SUMMARY_MAJOR);
err_kobj:
	vy_plat_kobject_put(dump_ctx.dump_kobj);
	dump_ctx.dump_kobj = nullptr;
err_dump:
	vy_plat_unregister_chrdev(VY_CHRDEV_DUMP, dump_ctx.dump_major);
	dump_ctx.dump_major = 0;
err_summary:
	vy_plat_unregister_chrdev(VY_CHRDEV_SUMMARY, dump_ctx.summary_major);
	dump_ctx.summary_major = 0;
	return r;
}

void vy_dump_exit(void)
{
	if (dump_ctx.dump_kobj) {
		vy_plat_sysfs_remove_file(dump_ctx.dump_kobj, VY_SYSFS_DUMP_MAJOR);
		vy_plat_sysfs_remove_file(dump_ctx.dump_kobj,
					  VY_SYSFS_SUMMARY_MAJOR);
		vy_plat_kobject_put(dump_ctx.dump_kobj);
		dump_ctx.dump_kobj = nullptr;
	}
	if (dump_ctx.dump_major > 0) {
		vy_plat_unregister_chrdev(VY_CHRDEV_DUMP, dump_ctx.dump_major);
		dump_ctx.dump_major = 0;
	}
	if (dump_ctx.summary_major > 0) {
		vy_plat_unregister_chrdev(VY_CHRDEV_SUMMARY,
					  dump_ctx.summary_major);
		dump_ctx.summary_major = 0;
	}
}

#define VY_SYSFS_PAGE_SIZE 4096

static long summary_dev_major_num_show(char *page)
{
	return vy_plat_snprintf(page, VY_SYSFS_PAGE_SIZE, "%d\n",
				(int)vy_read_once(dump_ctx.summary_major));
}

static long dump_dev_major_num_show(char *page)
{
	return vy_plat_snprintf(page, VY_SYSFS_PAGE_SIZE, "%d\n",
				(int)vy_read_once(dump_ctx.dump_major));
}

extern "C" long vy_sysfs_show(int attr, char *page)
{
	if (attr == VY_SYSFS_SUMMARY_MAJOR)
		return summary_dev_major_num_show(page);
	if (attr == VY_SYSFS_DUMP_MAJOR)
		return dump_dev_major_num_show(page);
	return -VY_EINVAL;
}

/* ---- the command parser ------------------------------------------------ */

/*
 * vy_dump_scan_command reads a line as the kernel's sscanf (lib/vsprintf.c,
 * Linux 5.4) reads it with "%15s %7s %2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx",
 * since that is what the command line meant on the target. Where the C
 * library's sscanf differs, the kernel's behaviour is kept:
 *  - white space is the kernel's isspace(): space, \t, \n, \v, \f, \r and
 *    also the byte 0xa0 (Latin-1 no-break space);
 *  - a hex field takes no sign: '+' or '-' ends the scan;
 *  - an input that is empty when a conversion starts ends the scan with the
 *    fields filled so far (never EOF), and a command word that finds only
 *    white space is still counted, as an empty word;
 *  - a hex field converts the whole run of hex digits (after an optional
 *    "0x"/"0X", which counts towards the width) as a 64-bit value and then
 *    divides it back down to the two characters of the width, so a run of
 *    more than 16 digits has wrapped and gives another byte than its first
 *    two digits. The input resumes after the (at most two) characters
 *    the field kept.
 * A field is written only when it is counted.
 */
namespace {
struct vy_scan_in {
	const char *p;
	const char *end;
};
} // namespace

static bool vy_scan_isspace(u8 c)
{
	return c == ' ' || (c >= '\t' && c <= '\r') || c == 0xa0;
}

static int vy_scan_hexval(u8 c)
{
	if (c >= '0' && c <= '9')
		return c - '0';
	c |= 0x20;
	if (c >= 'a' && c <= 'f')
		return c - 'a' + 10;
	return -1;
}

/* The byte off places ahead, or 0 when the input (a NUL or its end) stops
 * before it. */
static u8 vy_scan_peek(const vy_scan_in *in, vy_size off)
{
	for (vy_size i = 0; i <= off; i++) {
		if (in->p + i >= in->end || !in->p[i])
			return 0;
	}
	return (u8)in->p[off];
}

static void vy_scan_skip_spaces(vy_scan_in *in)
{
	while (vy_scan_peek(in, 0) && vy_scan_isspace(vy_scan_peek(in, 0)))
		in->p++;
}

/* %<width>s into out, which holds width + 1 bytes. */
static void vy_scan_word(vy_scan_in *in, char *out, vy_size width)
{
	vy_size n = 0;
	u8 c;

	vy_scan_skip_spaces(in);
	while ((c = vy_scan_peek(in, 0)) && !vy_scan_isspace(c) && n < width) {
		out[n++] = (char)c;
		in->p++;
	}
	out[n] = '\0';
}

/* %2hhx; false when the field does not start with a hex digit. */
static bool vy_scan_hex_byte(vy_scan_in *in, u8 *out)
{
	const vy_size width = 2;
	vy_size used = 0;
	u64 value = 0;
	int digit;

	vy_scan_skip_spaces(in);
	if (vy_scan_hexval(vy_scan_peek(in, 0)) < 0)
		return false;

	if (vy_scan_peek(in, 0) == '0' && (vy_scan_peek(in, 1) | 0x20) == 'x')
		used = 2;
	while ((digit = vy_scan_hexval(vy_scan_peek(in, used))) >= 0) {
		value = value * 16 + (u64)digit; /* wraps, as the kernel's does */
		used++;
	}
	for (; used > width; used--)
		value /= 16;

	*out = (u8)value;
	in->p += used;
	return true;
}

int vy_dump_scan_command_range(const char *line, const char *end,
			       char cmd[16], char arg[8], u8 mac[ETH_ALEN])
{
	vy_scan_in in = {line, end};
	int n = 0;

	if (!line || !end || end < line)
		return 0;

	if (!vy_scan_peek(&in, 0))
		return n;
	vy_scan_word(&in, cmd, 15);
	n++;

	vy_scan_skip_spaces(&in);
	if (!vy_scan_peek(&in, 0))
		return n;
	vy_scan_word(&in, arg, 7);
	n++;

	vy_scan_skip_spaces(&in);
	for (int i = 0; i < ETH_ALEN; i++) {
		if (i) {
			if (vy_scan_peek(&in, 0) != ':')
				return n;
			in.p++;
		}
		if (!vy_scan_peek(&in, 0))
			return n;
		if (!vy_scan_hex_byte(&in, &mac[i]))
			return n;
		n++;
	}
	return n;
}

int vy_dump_scan_command(const char *line, char cmd[16], char arg[8],
			 u8 mac[ETH_ALEN])
{
	const char *end = line;

	if (!line)
		return 0;
	while (*end)
		end++;
	return vy_dump_scan_command_range(line, end, cmd, arg, mac);
}

/* ---- the command write ------------------------------------------------- */

static void vy_dump_help(void)
{
	vy_plat_log(VY_LOG_DEFAULT, "(1) Enable/Disable debug mode to keep listening: echo -n \"force_listen 1/0\" > /dev/vy_summary\n");
	vy_plat_log(VY_LOG_DEFAULT, "(2) Delete all STA: echo -n \"del all\" > /dev/vy_summary\n");
	vy_plat_log(VY_LOG_DEFAULT, "(3) Delete a STA: echo -n \"del sta XX:XX:XX:XX:XX:XX\" > /dev/vy_summary\n");
	vy_plat_log(VY_LOG_DEFAULT, "(4) Set debug level: echo -n \"debug_level <0..4>\" > /dev/vy_summary\n");
}

extern "C" long vy_dump_dev_write(struct vy_file *f, const void *ubuf,
				  vy_size count)
{
	char line[VY_CMD_MAX + 1] = {};
	char cmd[16] = {};
	char arg[8] = {};
	u8 mac[ETH_ALEN] = {};
	unsigned long not_copied;
	int n;

	if (!count)
		return 0;
	if (count > VY_CMD_MAX) {
		/* A stdio writer takes the 0 as "nothing written" and retries
		 * the same line without end: the line must not flood the log. */
		vy_err_ratelimited("The input length %d > 64\n", (int)count);
		return 0;
	}

	not_copied = vy_plat_copy_from_user(line, ubuf, count);
	line[count] = '\0';
	if (not_copied) {
		vy_err("copy_from_user error\n");
		return -VY_EFAULT;
	}

	n = vy_dump_scan_command_range(line, line + count, cmd, arg, mac);

	/* A line without both words can name no command: it gets the help
	 * once. Otherwise only prefixes are compared, and only the first
	 * character of the argument counts: "force_listen 10" turns listening
	 * on. */
	if (n < 2) {
		vy_dump_help();
	} else if (!vy_strncmp(cmd, "del", 3)) {
		if (!vy_strncmp(arg, "all", 3))
			vy_sta_deinit();
		else if (n == 8 && !vy_strncmp(arg, "sta", 3))
			vy_del_sta_entry(mac, nullptr);
		else
			vy_dump_help();
	} else if (!vy_strncmp(cmd, "force_listen", 11)) {
		if (arg[0] == '1')
			vy_write_force_listen(1);
		else if (arg[0] == '0')
			vy_write_force_listen(0);
		else
			vy_dump_help();
	} else if (!vy_strncmp(cmd, "debug_level", 11)) {
		if (arg[0] >= '0' && arg[0] <= '4')
			vy_write_once(debug_level, (s32)(arg[0] - '0'));
		else
			vy_dump_help();
	} else {
		vy_dump_help();
	}
	return (long)count;
}
