// SPDX-License-Identifier: GPL-2.0
/* The bridge hooks' classification: which frames reach which parser, with
 * which direction and station address. */
#include <gtest/gtest.h>

#include <arpa/inet.h>

#include "frames.h"
#include "parsers/msg_builder.h"
#include "support.h"
#include "vy_hook.h"

using frames::Bytes;
using frames::Udp4;

namespace {

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
		bool dhcp, dns;
		pkt_info info;
	};

	static Parsed parse(const Bytes &f, u8 to_wireless,
			    std::size_t linear = SIZE_MAX)
	{
		vy_skb skb = vy_host::make_skb(f, linear);
		pkt_hdrs hdrs;
		Parsed p{};
		p.result = vy_parse_skb(&skb, &hdrs, &p.info, to_wireless);
		p.dhcp = p.result && hdrs.dhcp;
		p.dns = p.result && hdrs.dns;
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
	q.payload = msg::Dns().query().question("printer.lan").build();
	Parsed p = parse(q.build(), 0);
	ASSERT_EQ(p.result, 1);
	EXPECT_EQ(p.info.saddr[0], 192);
	EXPECT_EQ(p.info.saddr[3], 100);
	EXPECT_EQ(p.info.daddr[3], 1);
	for (int i = 4; i < 16; i++)
		EXPECT_EQ(p.info.saddr[i] | p.info.daddr[i], 0);
	/* The query came from the station: its MAC is the Ethernet source. */
	EXPECT_TRUE(vy_host::log_contains("Device 02:11:22:33:44:01 does not exist"));
	/* Either record missing: nothing is read or written. */
	vy_skb skb = vy_host::make_skb(q.build());
	pkt_hdrs hdrs;
	EXPECT_EQ(vy_parse_skb(&skb, nullptr, &p.info, 0), 0);
	EXPECT_EQ(vy_parse_skb(&skb, &hdrs, nullptr, 0), 0);

	/* A frame towards a station names it by the Ethernet destination;
	 * a query going that way is ignored by the parser after that. */
	debug_level = 4;
	q.dst.b[5] = 0x77;
	parse(q.build(), 1);
	EXPECT_TRUE(vy_host::log_contains("ignore DNS Query to wireless"));
}

/* Frames the hooks turn away cost no lock and no allocation. */
TEST_F(Classify, PortsAndHooks)
{
	const long allocs = vy_host::total_allocations();
	const long locks = vy_host::lock_acquisitions();
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
		bool pre = c.hook == VY_NF_BR_PRE_ROUTING;
		EXPECT_EQ(check(f, pre ? port : eth, pre ? eth : port, c.hook),
			  c.expected)
			<< port->name << " hook " << c.hook;
	}
	/* An unknown hook number or a missing port device: ignored. */
	EXPECT_EQ(check(f, wlan, wlan, 2), 0);
	EXPECT_EQ(check(f, nullptr, nullptr, VY_NF_BR_PRE_ROUTING), 0);
	Udp4 other_port;
	other_port.dport = 443;
	EXPECT_EQ(parse(other_port.build(), 0).result, 0);
	EXPECT_EQ(vy_host::total_allocations(), allocs);
	EXPECT_EQ(vy_host::lock_acquisitions(), locks);

	/* The debug lines of the hook devices and the bridge are pinned by
	 * the classify scenario; these are the cases it does not reach. */
	debug_level = 4;
	check(f, wlan, nullptr, 7);
	check(Bytes(10, 0), wlan, nullptr, VY_NF_BR_PRE_ROUTING);
	check(f, wlan, nullptr, VY_NF_BR_PRE_ROUTING); /* takes br0: TearDown counts */
	for (const char *line : {"UNKNOWN BR HOOK, skb: ", "bridge: br0(02:00:00:00:00:ff). In: wlan0, Out: NULL",
				 "bridge: NULL((null)). In: NULL, Out: NULL", ": Not Eth"})
		EXPECT_TRUE(vy_host::log_contains(line)) << line;
}

TEST_F(Classify, PortSelection)
{
	struct {
		std::uint16_t sport, dport;
		s32 result;
		bool dhcp;
	} cases[] = {
		{68, 67, 1, true},    {67, 68, 1, true},    {68, 68, 0, false},
		{5353, 53, 1, false}, {53, 5353, 1, false}, {67, 53, 1, true},
		{53, 67, 1, true},    {1234, 80, 0, false},
	};
	for (const auto &c : cases) {
		SCOPED_TRACE(std::to_string(c.sport) + "->" + std::to_string(c.dport));
		Udp4 u;
		u.sport = c.sport;
		u.dport = c.dport;
		u.payload = Bytes(300, 0);
		Parsed p = parse(u.build(), 0);
		EXPECT_EQ(p.result, c.result);
		EXPECT_EQ(p.dhcp, c.result && c.dhcp);
		EXPECT_EQ(p.dns, c.result && !c.dhcp);
		EXPECT_EQ(p.info.protocol, 17);
		EXPECT_EQ(p.info.sport, htons(c.sport));
		EXPECT_EQ(p.info.dport, htons(c.dport));
	}
}

/* Fragments and a UDP length below 8 are pinned by the classify
 * scenario. A payload beyond the linear data is cut: the DHCP parser sees
 * 200 bytes, and ASan proves it reads none of the rest. */
TEST_F(Classify, MalformedLengths)
{
	Udp4 short_total, dhcp300, tcp, arp;
	short_total.frag = 0x2000;
	short_total.total_len = 20;
	dhcp300.payload = Bytes(300, 0);
	struct {
		Bytes frame;
		std::size_t linear;
		const char *line;
		s32 result;
	} cases[] = {
		{Udp4{}.build(), 14 + 19, "error ip header", 0},
		{Udp4{}.build(), 14 + 20 + 7, "error udp header", 0},
		{short_total.build(), SIZE_MAX,
		 "udp payload len (-8) is greater than skb len(28)", 0},
		{dhcp300.build(), 14 + 20 + 8 + 200, "dhcp_len = 200,", 1},
	};
	debug_level = 4;
	for (auto &c : cases) {
		vy_host::take_events();
		EXPECT_EQ(parse(c.frame, 0, c.linear).result, c.result) << c.line;
		EXPECT_TRUE(vy_host::log_contains(c.line)) << c.line;
	}
	/* Non-UDP and non-IP frames are dropped silently. */
	debug_level = 1;
	vy_host::take_events();
	tcp.protocol = 6;
	arp.ethertype = 0x0806;
	EXPECT_EQ(parse(tcp.build(), 0).result, 0);
	EXPECT_EQ(parse(arp.build(), 0).result, 0);
	EXPECT_TRUE(vy_host::log_lines().empty());
}

bool has_domain(const Mac &m, const std::string &name)
{
	vy_write_guard g(&vy_sta_table.sta_lock);
	sta *e = _vy_find_sta(m.b);
	return e && _vy_find_domain(&e->domain_hlist, name.data(),
				    static_cast<u16>(name.size()));
}

/*
 * A DNS query frame from the station whose linear part ends at every
 * length: the hooks read nothing past it, and the query is recorded only
 * when the whole message is linear (a payload cut at the linear end is
 * parsed as a shorter message).
 */
TEST_F(Classify, FrameLinearPartEndsAtEveryLength)
{
	Udp4 u;
	u.sport = 40000;
	u.dport = 53;
	u.payload = msg::Dns().query().question("www.example.com").build();
	const Bytes f = u.build();
	const Mac sta = {{0x02, 0x11, 0x22, 0x33, 0x44, 0x01}};

	for (size_t linear = 0; linear <= f.size(); linear++) {
		SCOPED_TRACE("linear " + std::to_string(linear));
		join(sta);
		vy_skb skb = vy_host::make_skb(f, linear);
		ASSERT_TRUE(vy_host::pass_pre_routing(skb, wlan));
		EXPECT_EQ(has_domain(sta, "www.example.com"), linear == f.size());
		expect_consistent();
		vy_del_sta_entry(sta.b, nullptr);
	}
}

} // namespace
