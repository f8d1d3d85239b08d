// SPDX-License-Identifier: GPL-2.0
/* The host's bridge: hook registration, fake net devices and socket
 * buffers, and the two hook points a frame passes. */
#include <deque>
#include <memory>

#include "host_internal.h"

namespace vy_host {

namespace {
std::mutex g_net_mu;
/* Frames inside a hook function, and the wait for them to leave. */
std::condition_variable g_net_cv;
int g_in_flight = 0;
bool g_hooks = false;
int g_hook_registrations = 0;
int g_fail_hooks = 0;
std::deque<std::unique_ptr<vy_dev>> g_devs;
} // namespace

void reset_net()
{
	std::lock_guard<std::mutex> lk(g_net_mu);
	g_hooks = false;
	g_hook_registrations = 0;
	g_fail_hooks = 0;
	g_devs.clear();
}

bool hooks_registered()
{
	std::lock_guard<std::mutex> lk(g_net_mu);
	return g_hooks;
}

int hook_registrations()
{
	std::lock_guard<std::mutex> lk(g_net_mu);
	return g_hook_registrations;
}

void fail_next_hook_registration(int err)
{
	std::lock_guard<std::mutex> lk(g_net_mu);
	g_fail_hooks = err;
}

vy_dev *dev_create(const std::string &name, bool wireless)
{
	std::lock_guard<std::mutex> lk(g_net_mu);
	auto d = std::make_unique<vy_dev>();
	d->name = name;
	d->wireless = wireless;
	g_devs.push_back(std::move(d));
	return g_devs.back().get();
}

vy_dev *vlan_create(const std::string &name, vy_dev *lower)
{
	vy_dev *d = dev_create(name, false);
	d->vlan_lower = lower;
	return d;
}

vy_dev *bridge_create(const std::string &name, const std::uint8_t addr[6])
{
	vy_dev *d = dev_create(name, false);
	std::copy(addr, addr + 6, d->addr);
	return d;
}

void dev_set_master(vy_dev *dev, vy_dev *master)
{
	dev->master = master;
}

vy_dev *dev_find(const std::string &name)
{
	std::lock_guard<std::mutex> lk(g_net_mu);
	for (auto &d : g_devs)
		if (d->name == name)
			return d.get();
	return nullptr;
}

vy_skb make_skb(const std::vector<std::uint8_t> &frame, std::size_t linear)
{
	vy_skb skb;
	skb.data = frame;
	skb.mac_header = 0;
	skb.tail = (std::uint32_t)(linear < frame.size() ? linear : frame.size());
	/* At both bridge hooks the Ethernet header is already pulled:
	 * skb->len counts from the network header. */
	skb.len = (std::uint32_t)(frame.size() > 14 ? frame.size() - 14 : 0);
	/* The linear part is all the buffer holds: ASan sees any read past it. */
	skb.data.resize(skb.tail);
	skb.data.shrink_to_fit();
	return skb;
}

namespace {
/*
 * The kernel's unregistration waits until no frame is inside a hook
 * function any more (synchronize_net), so nothing a frame does can come
 * after the hook work's unhook. The host keeps the same promise: a frame
 * that found the hooks registered finishes before unregistering returns.
 */
bool enter_hook()
{
	std::lock_guard<std::mutex> lk(g_net_mu);
	if (!g_hooks)
		return false;
	g_in_flight++;
	return true;
}

void leave_hook()
{
	std::lock_guard<std::mutex> lk(g_net_mu);
	if (--g_in_flight == 0)
		g_net_cv.notify_all();
}
} // namespace

bool pass_pre_routing(vy_skb &skb, vy_dev *in)
{
	if (!enter_hook())
		return false;
	vy_hook_state st;
	st.in = in;
	vy_br_pre_routing_hook(nullptr, &skb, &st);
	leave_hook();
	return true;
}

bool pass_post_routing(vy_skb &skb, vy_dev *out)
{
	if (!enter_hook())
		return false;
	vy_hook_state st;
	st.out = out;
	vy_br_post_routing_hook(nullptr, &skb, &st);
	leave_hook();
	return true;
}

} // namespace vy_host

using namespace vy_host;

extern "C" {

int vy_plat_register_hooks(void)
{
	Event ev{};
	int err;
	{
		std::lock_guard<std::mutex> lk(g_net_mu);
		if (g_hooks)
			contract_violation("bridge hooks registered twice");
		err = g_fail_hooks;
		g_fail_hooks = 0;
		if (!err) {
			g_hooks = true;
			g_hook_registrations++;
		}
	}
	ev.kind = err ? EventKind::HookRegistrationFailed : EventKind::HooksRegistered;
	capture(ev);
	return err;
}

void vy_plat_unregister_hooks(void)
{
	{
		std::unique_lock<std::mutex> lk(g_net_mu);
		if (!g_hooks)
			contract_violation("unregistering hooks that were never registered");
		g_hooks = false;
		g_net_cv.wait(lk, [] { return g_in_flight == 0; });
	}
	Event ev{};
	ev.kind = EventKind::HooksUnregistered;
	capture(ev);
}

void vy_plat_skb_view(const struct vy_skb *skb, struct vy_skb_view *v)
{
	v->mac = (skb->mac_set && skb->mac_header <= skb->data.size())
			 ? skb->data.data() + skb->mac_header
			 : nullptr;
	v->end = skb->data.data() + skb->tail;
	v->len = skb->len;
}

struct vy_dev *vy_plat_hook_state_in(const struct vy_hook_state *st)
{
	return st->in;
}

struct vy_dev *vy_plat_hook_state_out(const struct vy_hook_state *st)
{
	return st->out;
}

int vy_plat_dev_is_vlan(const struct vy_dev *dev)
{
	return dev->vlan_lower != nullptr;
}

struct vy_dev *vy_plat_vlan_real_dev(const struct vy_dev *dev)
{
	return dev->vlan_lower;
}

int vy_plat_dev_is_wireless(const struct vy_dev *dev)
{
	return dev->wireless;
}

const char *vy_plat_dev_name(const struct vy_dev *dev)
{
	return dev->name.c_str();
}

const vy_u8 *vy_plat_dev_addr(const struct vy_dev *dev)
{
	return dev->addr;
}

struct vy_dev *vy_plat_dev_master_get(struct vy_dev *dev)
{
	if (!dev->master)
		return nullptr;
	__atomic_add_fetch(&dev->master->refcnt, 1, __ATOMIC_RELAXED);
	return dev->master;
}

void vy_plat_dev_put(struct vy_dev *dev)
{
	if (__atomic_sub_fetch(&dev->refcnt, 1, __ATOMIC_RELAXED) < 0)
		contract_violation("device reference dropped twice");
}

} // extern "C"
