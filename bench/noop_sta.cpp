// SPDX-License-Identifier: GPL-2.0
/*
 * A station table that does nothing but count the parsers' calls, so that
 * the parser's own cost can be measured; and stops for every entry point
 * the host platform may call into the rest of the module, which this
 * binary does not have.
 */
#include <cstdio>
#include <cstdlib>

#include "noop_sta.h"
#include "vy_sta_list.h"

s32 debug_level = 1;

namespace noop_sta {
Calls calls;
}

s32 vy_set_sta_dhcp_status(const u8 *, u32, u8, u32, u32, u32, u32,
			   const char *, u8)
{
	noop_sta::calls.dhcp++;
	return 0;
}

s32 vy_add_sta_domain(const u8 *, const char *, u16, u32)
{
	noop_sta::calls.query++;
	return 0;
}

s32 vy_add_sta_domain_ip(const u8 *, const char *, u16, u32)
{
	noop_sta::calls.a++;
	return 0;
}

s32 vy_add_sta_domain_cname(const u8 *, const char *, u16, const char *, u16)
{
	noop_sta::calls.cname++;
	return 0;
}

s32 vy_reject_sta_domain(const u8 *, const char *, u16, u8)
{
	noop_sta::calls.reject++;
	return 0;
}

[[noreturn]] static void not_here(const char *fn)
{
	std::fprintf(stderr, "%s called in the parser benchmarks\n", fn);
	std::abort();
}

void vy_hook_work_fn(void)
{
	not_here(__func__);
}

unsigned int vy_br_pre_routing_hook(void *, vy_skb *, const vy_hook_state *)
{
	not_here(__func__);
}

unsigned int vy_br_post_routing_hook(void *, vy_skb *, const vy_hook_state *)
{
	not_here(__func__);
}

int vy_sta_evt_cb(vy_s32, const void *)
{
	not_here(__func__);
}

int vy_dump_dev_open(vy_file *)
{
	not_here(__func__);
}

int vy_summary_dev_open(vy_file *)
{
	not_here(__func__);
}

long vy_dump_dev_read(vy_file *, void *, vy_size)
{
	not_here(__func__);
}

long vy_dump_dev_write(vy_file *, const void *, vy_size)
{
	not_here(__func__);
}

int vy_dump_dev_release(vy_file *)
{
	not_here(__func__);
}

long vy_sysfs_show(int, char *)
{
	not_here(__func__);
}

int veyra_init(void)
{
	not_here(__func__);
}

void veyra_exit(void)
{
	not_here(__func__);
}
