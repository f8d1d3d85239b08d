// SPDX-License-Identifier: GPL-2.0
/*
 * Module start and stop, the hook work, and the two bridge hooks with the
 * classification of the frames they see.
 */
#include "vy_hook.h"

#include "vy_dhcp.h"
#include "vy_dns.h"
#include "vy_dump.h"
#include "vy_sta_list.h"

/* Written only by the "debug_level" command; read without a lock. */
s32 debug_level = 1;

/*
 * The only thing the hook work sleeps on. Raising it is a hint: the work
 * re-reads force_listen and the listener total itself after every wake-up,
 * so a stale or extra raise costs one more check and nothing else.
 */
static vy_plat_sem vy_hook_sem;

/*
 * Whether the bridge hooks are registered. Written only by the hook work,
 * which the workqueue never runs twice at once; read by anyone.
 */
static bool vy_hooked;

bool vy_hooks_registered(void)
{
	return vy_read_once(vy_hooked);
}

/* ---- module start and stop ------------------------------------------- */

int veyra_init(void)
{
	vy_notice("init\n");
	vy_plat_sema_init(&vy_hook_sem, 1);
	/*
	 * The station table, its lock and its timer are set up before the
	 * devices are registered: from the moment a device exists a command
	 * can arrive ("force_listen 1" queues the hook work, which arms the
	 * timer; "del" walks the table), and it must find them ready. Nothing
	 * in the table's set-up needs the devices, so this order needs no
	 * guard on the command path.
	 */
	vy_sta_init();
	vy_dump_init();
	return 0;
}

void veyra_exit(void)
{
	vy_notice("exit\n");
	vy_sta_deinit();
	vy_write_force_listen(0);
	vy_dump_exit();
	vy_try_unhook();
	/*
	 * Waits for a running hook work. It has been woken by the raises
	 * above and finds the listener total 0 (every entry is gone) and
	 * force_listen off (no command can set it again: the devices are
	 * gone, and an open device file holds the module), so it stops the
	 * timer, unhooks and returns. A queued run that has not started is
	 * simply cancelled.
	 */
	vy_plat_work_cancel_sync();
}

/* ---- listening control: the hook work --------------------------------- */

void vy_hook(void)
{
	vy_plat_work_queue();
}

void vy_try_unhook(void)
{
	vy_plat_up(&vy_hook_sem);
}

extern "C" void vy_hook_work_fn(void)
{
	_vy_hook();
}

void _vy_hook(void)
{
	for (;;) {
		vy_notice("Hook listening function\n");
		int err = vy_plat_register_hooks();
		if (err) {
			/*
			 * Without hooks no frame is seen, but the timer still
			 * runs so that listening windows end and listeners
			 * are released as usual; the next hooking tries again.
			 */
			vy_err("nf_register_net_hooks fails (%d)\n", err);
		} else {
			vy_write_once(vy_hooked, true);
		}

		vy_notice("Start the STA periodic timer\n");
		vy_sta_start_timer();

		for (;;) {
			vy_plat_down(&vy_hook_sem);
			if (vy_read_force_listen())
				continue;
			if (vy_read_listeners())
				continue;
			break;
		}

		vy_notice("Stop the STA periodic timer\n");
		vy_sta_stop_timer();

		vy_notice("Unhook listening function\n");
		if (vy_hooked) {
			vy_plat_unregister_hooks();
			vy_write_once(vy_hooked, false);
		}

		/*
		 * A join or "force_listen 1" between the check above and the
		 * unregistration queued a run that will hook again; hooking
		 * again here at once keeps frames from being missed until then.
		 */
		if (!vy_read_force_listen() && !vy_read_listeners())
			return;
		vy_notice("Rehook due to force_listen / listener number change.\n");
	}
}

/* ---- bridge hooks and classification ---------------------------------- */

#define VY_ETH_HLEN 14
#define VY_ETH_P_IP 0x0800
#define VY_IP_MIN_HLEN 20
#define VY_UDP_HLEN 8
#define VY_IPPROTO_UDP 17
#define VY_IP_MF 0x2000
#define VY_IP_OFFSET 0x1fff
#define VY_PORT_DHCP_SERVER 67
#define VY_PORT_DNS 53

vy_dev *vy_get_real_dev(vy_dev *dev)
{
	if (dev && vy_plat_dev_is_vlan(dev))
		return vy_plat_vlan_real_dev(dev);
	return dev;
}

/* The Ethernet header, or NULL when there is none in the linear data. */
static const u8 *vy_eth_header(const vy_skb_view *v)
{
	if (!v->mac || v->mac > v->end || v->end - v->mac < VY_ETH_HLEN)
		return nullptr;
	return v->mac;
}

/* The debug lines of vy_check_skb, out of the hot path: they print only at
 * debug_level 4, and keeping them inline makes every frame pay for their
 * stack frame. They still carry vy_check_skb's name. */
#define vy_check_skb_dbg(fmt, ...)                                           \
	do {                                                                 \
		if (vy_debug_level() >= 4)                                   \
			vy_plat_log(VY_LOG_DEBUG, "%s[%d]:" fmt, "vy_check_skb", \
				    __LINE__, ##__VA_ARGS__);                \
	} while (0)

static __attribute__((noinline, cold)) void
vy_check_skb_not_wireless(const vy_skb *skb, vy_dev *port, u32 hooknum)
{
	if (hooknum == VY_NF_BR_PRE_ROUTING)
		vy_check_skb_dbg("NF_BR_PRE_ROUTING, skb: %p, the input device %s is not wireless.\n",
				 skb, vy_plat_dev_name(port));
	else
		vy_check_skb_dbg("NF_BR_POST_ROUTING, skb: %p, the output device %s is not wireless.\n",
				 skb, vy_plat_dev_name(port));
}

static __attribute__((noinline, cold)) void
vy_check_skb_summary(const vy_skb *skb, const u8 *eth, vy_dev *port, vy_dev *in,
		     vy_dev *out, const char *hook_name)
{
	vy_dev *br = port ? vy_plat_dev_master_get(port) : nullptr;

	vy_check_skb_dbg("%s, skb: %p, src %pM, des %pM, bridge: %s(%pM). In: %s, Out: %s\n",
			 hook_name, skb, eth + 6, eth,
			 br ? vy_plat_dev_name(br) : "NULL",
			 br ? vy_plat_dev_addr(br) : nullptr,
			 in ? vy_plat_dev_name(in) : "NULL",
			 out ? vy_plat_dev_name(out) : "NULL");
	if (br)
		vy_plat_dev_put(br);
}

static s32 _vy_check_skb(const vy_skb *skb, const vy_hook_state *state,
			 u32 hooknum, const vy_skb_view *v)
{
	vy_dev *port = nullptr, *in = nullptr, *out = nullptr;
	const char *hook_name;
	s32 result = 0;

	const u8 *eth = vy_eth_header(v);
	if (!eth) {
		vy_check_skb_dbg("%p: Not Eth\n", skb);
		return 0;
	}
	u16 type = vy_get_be16(eth + 12);
	if (type != VY_ETH_P_IP) {
		vy_check_skb_dbg("%p: Not IP packet. eth_type = 0x%04x\n", skb, type);
		return 0;
	}

	if (hooknum == VY_NF_BR_PRE_ROUTING) {
		hook_name = "NF_BR_PRE_ROUTING";
		port = in = vy_plat_hook_state_in(state);
	} else if (hooknum == VY_NF_BR_POST_ROUTING) {
		hook_name = "NF_BR_POST_ROUTING";
		port = out = vy_plat_hook_state_out(state);
	} else {
		hook_name = "UNKNOWN BR HOOK";
	}

	if (port) {
		/* A VLAN on a VLAN on a VAP still reaches the VAP; a plain
		 * port needs no second look. */
		vy_dev *real = vy_get_real_dev(port);
		if (real != port)
			real = vy_get_real_dev(real);
		if (!real || !vy_plat_dev_is_wireless(real)) {
			vy_check_skb_not_wireless(skb, port, hooknum);
			return 0;
		}
		result = hooknum == VY_NF_BR_PRE_ROUTING ? 1 : 2;
	}

	if (vy_debug_level() >= 4)
		vy_check_skb_summary(skb, eth, port, in, out, hook_name);
	return result;
}

s32 vy_check_skb(const vy_skb *skb, const vy_hook_state *state, u32 hooknum)
{
	vy_skb_view v;

	vy_plat_skb_view(skb, &v);
	return _vy_check_skb(skb, state, hooknum, &v);
}

/* The frame path proper, with the view vy_check_skb already took. */
static s32 vy_parse_skb(const vy_skb *skb, pkt_hdrs *hdrs, pkt_info *info,
			 u8 to_wireless, const vy_skb_view &v)
{
	if (!skb || !hdrs || !info)
		return 0;
	*hdrs = pkt_hdrs{};
	*info = pkt_info{};

	const u8 *eth = vy_eth_header(&v);
	hdrs->eth = eth;
	if (!eth || vy_get_be16(eth + 12) != VY_ETH_P_IP)
		return 0;

	/* All bounds are lengths from here on, never pointers past the end. */
	const u8 *ip = eth + VY_ETH_HLEN;
	vy_size linear = (vy_size)(v.end - ip);
	hdrs->ip = ip;
	if (linear < VY_IP_MIN_HLEN) {
		vy_warn_ratelimited("error ip header");
		return 0;
	}

	info->protocol = ip[9];
	vy_memcpy(info->saddr, ip + 12, 4);
	vy_memcpy(info->daddr, ip + 16, 4);

	u16 frag_raw;
	vy_memcpy(&frag_raw, ip + 6, 2);
	u16 frag = vy_get_be16(ip + 6);
	if (frag & VY_IP_OFFSET) {
		vy_info("Ignore IP fragment packets (%d)", frag_raw);
		return 0;
	}

	if (info->protocol != VY_IPPROTO_UDP)
		return 0;

	u32 ihl = 4u * (ip[0] & 0x0f);
	if (linear < ihl || linear - ihl < VY_UDP_HLEN) {
		vy_warn_ratelimited("error udp header\n");
		return 0;
	}
	const u8 *udp = ip + ihl;
	hdrs->udp = udp;

	u32 payload_len;
	if (frag & VY_IP_MF) {
		/* The first fragment of a larger datagram: the UDP length
		 * covers every fragment, the IPv4 length only this one. */
		payload_len = (u32)vy_get_be16(ip + 2) - ihl - VY_UDP_HLEN;
		vy_info("Adjust the first IP fragment udp payload len to %d\n",
			payload_len);
	} else {
		payload_len = (u32)vy_get_be16(udp + 4) - VY_UDP_HLEN;
	}

	if (v.len < payload_len) {
		vy_warn_ratelimited("udp payload len (%d) is greater than skb len(%d)\n",
				    payload_len, v.len);
		return 0;
	}

	vy_memcpy(&info->sport, udp, 2);
	vy_memcpy(&info->dport, udp + 2, 2);
	u16 sport = vy_get_be16(udp);
	u16 dport = vy_get_be16(udp + 2);
	const u8 *payload = udp + VY_UDP_HLEN;

	/*
	 * The parsers read one contiguous area and never past the linear
	 * data: a payload that goes on in paged fragments is handed on cut
	 * at the end of the linear part, and parsed as a shorter message.
	 */
	vy_size avail = linear - ihl - VY_UDP_HLEN;
	if (payload_len > avail)
		payload_len = (u32)avail;

	if (dport == VY_PORT_DHCP_SERVER || sport == VY_PORT_DHCP_SERVER) {
		hdrs->dhcp = payload;
		vy_parse_dhcp(payload, payload_len, to_wireless);
		return 1;
	}
	if (dport == VY_PORT_DNS || sport == VY_PORT_DNS) {
		hdrs->dns = payload;
		/* The station is always the wireless end of the exchange. */
		const u8 *sta_mac = to_wireless ? eth : eth + 6;
		vy_parse_dns(sta_mac, info, payload, payload_len, to_wireless);
		return 1;
	}
	return 0;
}

s32 vy_parse_skb(const vy_skb *skb, pkt_hdrs *hdrs, pkt_info *info,
		 u8 to_wireless)
{
	vy_skb_view v;

	if (!skb)
		return 0;
	vy_plat_skb_view(skb, &v);
	return vy_parse_skb(skb, hdrs, info, to_wireless, v);
}

/*
 * Whether vy_parse_skb would leave this IPv4 frame without a word: not a
 * later fragment, and either not UDP, or UDP with sound lengths between
 * ports that are neither DHCP's nor DNS's. Most frames from a station are
 * one of these, and every one of them passes here, so the test reads only
 * the fields it decides on, in the order vy_parse_skb would log about them;
 * anything it is not sure of goes the full way, lines and all.
 */
static inline bool vy_skb_quietly_ignored(const vy_skb_view &v)
{
	const u8 *ip = v.mac + VY_ETH_HLEN;
	vy_size linear = (vy_size)(v.end - ip);
	if (linear < VY_IP_MIN_HLEN)
		return false;
	u16 frag = vy_get_be16(ip + 6);
	if (frag & VY_IP_OFFSET)
		return false;
	if (ip[9] != VY_IPPROTO_UDP)
		return true;
	u32 ihl = 4u * (ip[0] & 0x0f);
	if ((frag & VY_IP_MF) || linear < ihl || linear - ihl < VY_UDP_HLEN)
		return false;
	const u8 *udp = ip + ihl;
	if (v.len < (u32)vy_get_be16(udp + 4) - VY_UDP_HLEN)
		return false;
	u16 sport = vy_get_be16(udp), dport = vy_get_be16(udp + 2);
	return sport != VY_PORT_DHCP_SERVER && dport != VY_PORT_DHCP_SERVER &&
	       sport != VY_PORT_DNS && dport != VY_PORT_DNS;
}

/* Out of line, so that the frames left above do not pay for the records'
 * stack space and their clearing. */
static __attribute__((noinline)) void vy_br_parse(vy_skb *skb, s32 r,
						  const vy_skb_view &v)
{
	/* vy_parse_skb clears both before it fills them. */
	pkt_hdrs hdrs;
	pkt_info info;

	vy_parse_skb(skb, &hdrs, &info, r == 2 ? 1 : 0, v);
}

static unsigned int vy_br_hook(vy_skb *skb, const vy_hook_state *state,
			       u32 hooknum)
{
	vy_skb_view v;

	vy_plat_skb_view(skb, &v);
	/* A nonzero answer means an Ethernet header with IPv4 in it. */
	s32 r = _vy_check_skb(skb, state, hooknum, &v);
	if (r && !vy_skb_quietly_ignored(v))
		vy_br_parse(skb, r, v);
	return VY_NF_ACCEPT;
}

extern "C" unsigned int vy_br_pre_routing_hook(void *priv, vy_skb *skb,
					       const vy_hook_state *state)
{
	return vy_br_hook(skb, state, VY_NF_BR_PRE_ROUTING);
}

extern "C" unsigned int vy_br_post_routing_hook(void *priv, vy_skb *skb,
						const vy_hook_state *state)
{
	return vy_br_hook(skb, state, VY_NF_BR_POST_ROUTING);
}
