// SPDX-License-Identifier: GPL-2.0
/* The bridge hooks' classification: which frames reach which parser, with
 * which direction and station address. */
#include <gtest/gtest.h>

#include <arpa/inet.h>

#include <cstdio>
#include <cstring>

#include "frames.h"
#include "module_fixture.h"
#include "vy_hook.h"

using frames::Bytes;
using frames::Udp4;

namespace {

/* A DNS query for one A name. */
Bytes dns_query(const char *label1, const char *label2)
{
	Bytes m = {0x12, 0x34, 0x01, 0x00, 0, 1, 0, 0, 0, 0, 0, 0};
	for (const char *l : {label1, label2}) {
		m.push_back((std::uint8_t)std::strlen(l));
		m.insert(m.end(), l, l + std::strlen(l));
	}
	m.insert(m.end(), {0, 0, 1, 0, 1});
	return m;
}

std::string mac_text(const frames::Mac &m)
{
	char buf[32];
	std::snprintf(buf, sizeof(buf), "%02x:%02x:%02x:%02x:%02x:%02x", m.b[0],
		      m.b[1], m.b[2], m.b[3], m.b[4], m.b[5]);
	return buf;
}

class Classify : public ModuleTest {
protected:
	void SetUp() override
	{
		ModuleTest::SetUp();
		const std::uint8_t braddr[6] = {2, 0, 0, 0, 0, 0xff};
		br = vy_host::bridge_create("br0", braddr);
		wlan = vy_host::dev_create("wlan0", true);
		eth = vy_host::dev_create("eth0", false);
		vlan1 = vy_host::vlan_create("wlan0.10", wlan);
		vlan2 = vy_host::vlan_create("wlan0.10.20", vlan1);
		vlan3 = vy_host::vlan_create("wlan0.10.20.30", vlan2);
		ethvlan = vy_host::vlan_create("eth0.5", eth);
		for (vy_dev *d : {wlan, eth, vlan1, vlan2, vlan3, ethvlan})
			vy_host::dev_set_master(d, br);
	}

	void TearDown() override
	{
		for (vy_dev *d : {br, wlan, eth})
			EXPECT_EQ(d->refcnt, 0) << d->name << " reference leaked";
		ModuleTest::TearDown();
	}

	static s32 check(const Bytes &f, vy_dev *in, vy_dev *out, u32 hook)
	{
		vy_skb skb = vy_host::make_skb(f);
		vy_hook_state st;
		st.in = in;
		st.out = out;
		return vy_check_skb(&skb, &st, hook);
	}

	struct Parsed {
		s32 result;
		pkt_hdrs hdrs;
		pkt_info info;
	};

	static Parsed parse(const Bytes &f, u8 to_wireless,
			    std::size_t linear = SIZE_MAX)
	{
		vy_skb skb = vy_host::make_skb(f, linear);
		Parsed p{};
		p.result = vy_parse_skb(&skb, &p.hdrs, &p.info, to_wireless);
		/* Pointers into skb are dead after this; keep offsets only. */
		auto rebase = [&](const u8 *&q) {
			q = q ? (const u8 *)(std::uintptr_t)(q - skb.data.data()) : nullptr;
		};
		rebase(p.hdrs.eth);
		rebase(p.hdrs.ip);
		rebase(p.hdrs.udp);
		rebase(p.hdrs.dns);
		rebase(p.hdrs.dhcp);
		return p;
	}

public:
	vy_dev *br, *wlan, *eth, *vlan1, *vlan2, *vlan3, *ethvlan;
};

TEST_F(Classify, AddressesAndStationMacFollowDirection)
{
	Udp4 q;
	q.sport = 40000;
	q.dport = 53;
	q.payload = dns_query("printer", "lan");
	Parsed p = parse(q.build(), 0);
	ASSERT_EQ(p.result, 1);
	EXPECT_EQ(p.info.saddr[0], 192);
	EXPECT_EQ(p.info.saddr[3], 100);
	EXPECT_EQ(p.info.daddr[3], 1);
	for (int i = 4; i < 16; i++)
		EXPECT_EQ(p.info.saddr[i] | p.info.daddr[i], 0);
	/* The query came from the station: its MAC is the Ethernet source. */
	EXPECT_TRUE(vy_host::log_contains("Device " + mac_text(q.src) +
					  " does not exist"));

	/* A frame towards a station names it by the Ethernet destination;
	 * a query going that way is ignored by the parser after that. */
	debug_level = 4;
	q.dst = frames::mac(0x77);
	parse(q.build(), 1);
	EXPECT_TRUE(vy_host::log_contains("ignore DNS Query to wireless"));
}

} // namespace

TEST_F(Classify, PortsAndHooks)
{
	Bytes f = Udp4{}.build();
	struct {
		vy_dev *Classify::*port;
		u32 hook;
		s32 expected;
	} cases[] = {
		{&Classify::wlan, VY_NF_BR_PRE_ROUTING, 1},
		{&Classify::wlan, VY_NF_BR_POST_ROUTING, 2},
		{&Classify::eth, VY_NF_BR_PRE_ROUTING, 0},
		{&Classify::eth, VY_NF_BR_POST_ROUTING, 0},
		{&Classify::vlan1, VY_NF_BR_PRE_ROUTING, 1},
		{&Classify::vlan2, VY_NF_BR_POST_ROUTING, 2},
		{&Classify::vlan3, VY_NF_BR_PRE_ROUTING, 0},
		{&Classify::ethvlan, VY_NF_BR_POST_ROUTING, 0},
	};
	for (const auto &c : cases) {
		vy_dev *port = this->*c.port;
		vy_dev *in = c.hook == VY_NF_BR_PRE_ROUTING ? port : eth;
		vy_dev *out = c.hook == VY_NF_BR_PRE_ROUTING ? eth : port;
		EXPECT_EQ(check(f, in, out, c.hook), c.expected)
			<< port->name << " hook " << c.hook;
	}
	/* An unknown hook number or a missing port device: ignored. */
	EXPECT_EQ(check(f, wlan, wlan, 2), 0);
	EXPECT_EQ(check(f, nullptr, nullptr, VY_NF_BR_PRE_ROUTING), 0);
}

TEST_F(Classify, DebugLinesNameHookDevicesAndBridge)
{
	debug_level = 4;
	Bytes f = Udp4{}.build();
	check(f, eth, nullptr, VY_NF_BR_PRE_ROUTING);
	EXPECT_TRUE(vy_host::log_contains(
		"the input device eth0 is not wireless."));
	check(f, nullptr, wlan, VY_NF_BR_POST_ROUTING);
	EXPECT_TRUE(vy_host::log_contains(
		"NF_BR_POST_ROUTING, skb: "));
	EXPECT_TRUE(vy_host::log_contains(
		", src 02:11:22:33:44:01, des 02:11:22:33:44:02, bridge: "
		"br0(02:00:00:00:00:ff). In: NULL, Out: wlan0"));
	check(f, wlan, nullptr, 7);
	EXPECT_TRUE(vy_host::log_contains(
		"UNKNOWN BR HOOK, skb: "));
	EXPECT_TRUE(vy_host::log_contains("bridge: NULL((null)). In: NULL, Out: NULL"));

	Udp4 v6;
	v6.ethertype = 0x86dd;
	check(v6.build(), wlan, nullptr, VY_NF_BR_PRE_ROUTING);
	EXPECT_TRUE(vy_host::log_contains(": Not IP packet. eth_type = 0x86dd"));

	Bytes runt(10, 0);
	check(runt, wlan, nullptr, VY_NF_BR_PRE_ROUTING);
	EXPECT_TRUE(vy_host::log_contains(": Not Eth"));
}

TEST_F(Classify, PortSelection)
{
	struct {
		std::uint16_t sport, dport;
		s32 result;
		bool dhcp;
	} cases[] = {
		{68, 67, 1, true},  {67, 68, 1, true},  {68, 68, 0, false},
		{5353, 53, 1, false}, {53, 5353, 1, false}, {67, 53, 1, true},
		{53, 67, 1, true},  {1234, 80, 0, false},
	};
	for (const auto &c : cases) {
		Udp4 u;
		u.sport = c.sport;
		u.dport = c.dport;
		u.payload = Bytes(300, 0);
		Parsed p = parse(u.build(), 0);
		EXPECT_EQ(p.result, c.result) << c.sport << "->" << c.dport;
		EXPECT_EQ(p.hdrs.dhcp != nullptr, c.result && c.dhcp);
		EXPECT_EQ(p.hdrs.dns != nullptr, c.result && !c.dhcp);
		EXPECT_EQ(p.info.protocol, 17);
		EXPECT_EQ(p.info.sport, htons(c.sport));
		EXPECT_EQ(p.info.dport, htons(c.dport));
	}
}

TEST_F(Classify, Fragments)
{
	debug_level = 3;
	Udp4 first;
	first.frag = 0x2000; /* More Fragments, offset 0 */
	first.sport = 53;
	first.dport = 40000;
	first.payload = Bytes(100, 0);
	first.udp_len = 3000; /* covers every fragment */
	Parsed p = parse(first.build(), 1);
	EXPECT_EQ(p.result, 1);
	EXPECT_TRUE(vy_host::log_contains(
		"Adjust the first IP fragment udp payload len to 100"));

	Udp4 later = first;
	later.frag = 0x00b9; /* offset 185 */
	p = parse(later.build(), 1);
	EXPECT_EQ(p.result, 0);
	/* The field is printed as read, without byte-order conversion. */
	std::uint16_t raw = htons(0x00b9);
	EXPECT_TRUE(vy_host::log_contains("Ignore IP fragment packets (" +
					  std::to_string(raw) + ")"));
}

TEST_F(Classify, MalformedLengths)
{
	struct {
		const char *name;
		Udp4 u;
		std::size_t linear;
		const char *warning;
	} cases[] = {
		{"udp length 7", [] { Udp4 u; u.udp_len = 7; return u; }(), SIZE_MAX,
		 "udp payload len (-1) is greater than skb len(42)"},
		{"ip header cut", Udp4{}, 14 + 19, "error ip header"},
		{"udp header cut", Udp4{}, 14 + 20 + 7, "error udp header"},
		{"total length short", [] { Udp4 u; u.frag = 0x2000; u.total_len = 20; return u; }(),
		 SIZE_MAX, "udp payload len (-8) is greater than skb len(42)"},
	};
	for (auto &c : cases) {
		vy_host::take_events();
		Parsed p = parse(c.u.build(), 0, c.linear);
		EXPECT_EQ(p.result, 0) << c.name;
		EXPECT_TRUE(vy_host::log_contains(c.warning)) << c.name;
	}
	/* Non-UDP and non-IP frames are dropped silently. */
	vy_host::take_events();
	Udp4 tcp;
	tcp.protocol = 6;
	EXPECT_EQ(parse(tcp.build(), 0).result, 0);
	Udp4 arp;
	arp.ethertype = 0x0806;
	EXPECT_EQ(parse(arp.build(), 0).result, 0);
	EXPECT_TRUE(vy_host::log_lines().empty());
}

TEST_F(Classify, PayloadBeyondLinearDataIsCut)
{
	debug_level = 4;
	Udp4 u;
	u.payload = Bytes(300, 0);
	/* Only 200 payload bytes are linear: the DHCP parser sees 200, and
	 * ASan proves it reads none of the rest (the buffer ends there). */
	Parsed p = parse(u.build(), 0, 14 + 20 + 8 + 200);
	EXPECT_EQ(p.result, 1);
	EXPECT_TRUE(vy_host::log_contains("dhcp_len = 200,"));
}

TEST_F(Classify, IgnoredFramesTakeNoLockAndNoMemory)
{
	const long allocs = vy_host::total_allocations();
	const long locks = vy_host::lock_acquisitions();
	Udp4 wired;
	Udp4 other_port;
	other_port.dport = 443;
	for (int i = 0; i < 100; i++) {
		EXPECT_EQ(check(wired.build(), eth, nullptr, VY_NF_BR_PRE_ROUTING), 0);
		EXPECT_EQ(parse(other_port.build(), 0).result, 0);
	}
	EXPECT_EQ(vy_host::total_allocations(), allocs);
	EXPECT_EQ(vy_host::lock_acquisitions(), locks);
}
