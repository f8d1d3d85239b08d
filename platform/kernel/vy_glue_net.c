// SPDX-License-Identifier: GPL-2.0
/*
 * veyra's kernel platform: the two bridge hooks, the view of a socket
 * buffer the classification needs, and the net device queries.
 */
#include <linux/if_vlan.h>
#include <linux/kernel.h>
#include <linux/netdevice.h>
#include <linux/netfilter.h>
#include <linux/netfilter_bridge.h>
#include <linux/rcupdate.h>
#include <linux/skbuff.h>
#include <net/net_namespace.h>

#include "../vy_platform.h"

/* ---- bridge hooks -------------------------------------------------------- */

static unsigned int vy_nf_pre_routing(void *priv, struct sk_buff *skb,
				      const struct nf_hook_state *state)
{
	return vy_br_pre_routing_hook(priv, (struct vy_skb *)skb,
				      (const struct vy_hook_state *)state);
}

static unsigned int vy_nf_post_routing(void *priv, struct sk_buff *skb,
				       const struct nf_hook_state *state)
{
	return vy_br_post_routing_hook(priv, (struct vy_skb *)skb,
				       (const struct vy_hook_state *)state);
}

/*
 * Priority 301 runs after ebtables and br_netfilter (whose priorities go
 * up to 300), so frames are seen as those have left them.
 */
static const struct nf_hook_ops vy_br_hook_ops[] = {
	{
		.hook = vy_nf_pre_routing,
		.pf = NFPROTO_BRIDGE,
		.hooknum = NF_BR_PRE_ROUTING,
		.priority = 301,
	},
	{
		.hook = vy_nf_post_routing,
		.pf = NFPROTO_BRIDGE,
		.hooknum = NF_BR_POST_ROUTING,
		.priority = 301,
	},
};

int vy_plat_register_hooks(void)
{
	return nf_register_net_hooks(&init_net, vy_br_hook_ops,
				     ARRAY_SIZE(vy_br_hook_ops));
}

void vy_plat_unregister_hooks(void)
{
	nf_unregister_net_hooks(&init_net, vy_br_hook_ops,
				ARRAY_SIZE(vy_br_hook_ops));
}

/* ---- socket buffers and hook state --------------------------------------- */

static const struct sk_buff *vy_sk(const struct vy_skb *skb)
{
	return (const struct sk_buff *)skb;
}

void vy_plat_skb_view(const struct vy_skb *skb, struct vy_skb_view *v)
{
	const struct sk_buff *sb = vy_sk(skb);

	v->mac = skb_mac_header_was_set(sb) ? sb->head + sb->mac_header : NULL;
	v->end = skb_tail_pointer(sb);
	v->len = sb->len;
}

static const struct nf_hook_state *vy_st(const struct vy_hook_state *st)
{
	return (const struct nf_hook_state *)st;
}

struct vy_dev *vy_plat_hook_state_in(const struct vy_hook_state *st)
{
	return (struct vy_dev *)vy_st(st)->in;
}

struct vy_dev *vy_plat_hook_state_out(const struct vy_hook_state *st)
{
	return (struct vy_dev *)vy_st(st)->out;
}

/* ---- net devices --------------------------------------------------------- */

static const struct net_device *vy_nd(const struct vy_dev *dev)
{
	return (const struct net_device *)dev;
}

int vy_plat_dev_is_vlan(const struct vy_dev *dev)
{
	return !!(vy_nd(dev)->priv_flags & IFF_802_1Q_VLAN);
}

struct vy_dev *vy_plat_vlan_real_dev(const struct vy_dev *dev)
{
	return (struct vy_dev *)vlan_dev_real_dev(vy_nd(dev));
}

int vy_plat_dev_is_wireless(const struct vy_dev *dev)
{
#if IS_ENABLED(CONFIG_CFG80211)
	return !!vy_nd(dev)->ieee80211_ptr;
#else
	return 0;
#endif
}

const char *vy_plat_dev_name(const struct vy_dev *dev)
{
	return vy_nd(dev)->name;
}

const vy_u8 *vy_plat_dev_addr(const struct vy_dev *dev)
{
	return vy_nd(dev)->dev_addr;
}

struct vy_dev *vy_plat_dev_master_get(struct vy_dev *dev)
{
	struct net_device *master;

	rcu_read_lock();
	master = netdev_master_upper_dev_get_rcu((struct net_device *)dev);
	if (master)
		dev_hold(master);
	rcu_read_unlock();
	return (struct vy_dev *)master;
}

void vy_plat_dev_put(struct vy_dev *dev)
{
	dev_put((struct net_device *)dev);
}
