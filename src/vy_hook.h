/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Module start and stop, the hook work that registers the bridge hooks
 * while anyone listens, and the classification of bridged frames.
 */
#ifndef VY_HOOK_H
#define VY_HOOK_H

#include "vy_common.h"

/* C linkage: the kernel prints these names in stack traces and %pS. */
extern "C" {

/* Netfilter constants the classification needs. */
#define VY_NF_ACCEPT 1
#define VY_NF_BR_PRE_ROUTING 0
#define VY_NF_BR_POST_ROUTING 4

/* The packet summary handed to the DNS parser. */
struct pkt_info {
	u8 protocol;
	u16 sport; /* network order */
	u16 dport; /* network order */
	u8 saddr[16];
	u8 daddr[16];
};

/* Pointers into the frame, filled by vy_parse_skb; read by nobody after. */
struct pkt_hdrs {
	const u8 *eth;
	const u8 *ip;
	const u8 *unused2;
	const u8 *udp;
	const u8 *unused4;
	const u8 *unused5;
	const u8 *dns;
	const u8 *dhcp;
};

void vy_hook(void);
void vy_try_unhook(void);
void _vy_hook(void);
s32 vy_check_skb(const vy_skb *skb, const vy_hook_state *state, u32 hooknum);
vy_dev *vy_get_real_dev(vy_dev *dev);
s32 vy_parse_skb(const vy_skb *skb, pkt_hdrs *hdrs, pkt_info *info,
		 u8 to_wireless);

/* Whether the bridge hooks are registered now (for the host platform's
 * checks and the module's own bookkeeping). */
bool vy_hooks_registered(void);

} /* extern "C" */

#endif /* VY_HOOK_H */
