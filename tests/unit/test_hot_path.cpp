// SPDX-License-Identifier: GPL-2.0
/*
 * The bridge hooks run on every bridged frame while any station is
 * followed. The frames they ignore must cost no allocation, no lock, no
 * log line and no change to the frame; the frames they read take sta_lock,
 * which shows that the counters do see the hook's work.
 */
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "frames.h"
#include "module_fixture.h"
#include "vy_hook.h"

namespace {

const std::uint8_t kSta[6] = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};

enum class Port { WirelessIn, WirelessOut, WiredIn, WiredOut };

frames::Udp4 from_station()
{
	frames::Udp4 f;
	std::copy(kSta, kSta + 6, f.src.b);
	f.dst = frames::mac(0x01, 0x04);
	f.sport = 51413;
	f.dport = 53;
	/* a query for "a.lan", type A */
	f.payload = {0x12, 0x34, 0x01, 0x00, 0, 1, 0, 0, 0, 0, 0, 0,
		     1, 'a', 3, 'l', 'a', 'n', 0, 0, 1, 0, 1};
	return f;
}

frames::Udp4 to_station()
{
	frames::Udp4 f = from_station();
	std::swap(f.src, f.dst);
	std::swap(f.sport, f.dport);
	std::swap(f.saddr, f.daddr);
	return f;
}

struct Case {
	const char *name;
	Port port;
	frames::Bytes frame;
};

std::vector<Case> ignored_cases()
{
	std::vector<Case> cases;
	auto add = [&](const char *name, Port port, const frames::Udp4 &f) {
		cases.push_back({name, port, f.build()});
	};

	add("DNS query between wired hosts", Port::WiredIn, from_station());
	add("DNS response between wired hosts", Port::WiredOut, to_station());
	frames::Udp4 dhcp = from_station();
	dhcp.sport = 68;
	dhcp.dport = 67;
	add("DHCP between wired hosts", Port::WiredIn, dhcp);

	frames::Udp4 v6 = from_station();
	v6.ethertype = 0x86dd;
	add("IPv6 from a station", Port::WirelessIn, v6);
	frames::Udp4 arp = to_station();
	arp.ethertype = 0x0806;
	add("ARP to a station", Port::WirelessOut, arp);

	frames::Udp4 tcp = from_station();
	tcp.protocol = 6;
	add("TCP to port 53 from a station", Port::WirelessIn, tcp);
	frames::Udp4 icmp = to_station();
	icmp.protocol = 1;
	add("ICMP to a station", Port::WirelessOut, icmp);

	frames::Udp4 quic = from_station();
	quic.dport = 443;
	add("UDP to port 443 from a station", Port::WirelessIn, quic);
	frames::Udp4 quic_back = to_station();
	quic_back.sport = 443;
	add("UDP from port 443 to a station", Port::WirelessOut, quic_back);

	frames::Udp4 frag = from_station();
	frag.frag = 0x0010; /* a later fragment of a DNS datagram */
	add("later IPv4 fragment from a station", Port::WirelessIn, frag);
	return cases;
}

class HotPath : public ModuleTest {
protected:
	void SetUp() override
	{
		ModuleTest::SetUp();
		wlan_ = vy_host::dev_create("wlan0", true);
		lan_ = vy_host::dev_create("eth0", false);
		join(kSta);
		ASSERT_TRUE(vy_host::hooks_registered());
		vy_host::take_events();
	}

	unsigned pass(vy_skb &skb, Port port)
	{
		vy_hook_state st;
		switch (port) {
		case Port::WirelessIn:
			st.in = wlan_;
			return vy_br_pre_routing_hook(nullptr, &skb, &st);
		case Port::WirelessOut:
			st.out = wlan_;
			return vy_br_post_routing_hook(nullptr, &skb, &st);
		case Port::WiredIn:
			st.in = lan_;
			return vy_br_pre_routing_hook(nullptr, &skb, &st);
		case Port::WiredOut:
			st.out = lan_;
			return vy_br_post_routing_hook(nullptr, &skb, &st);
		}
		return 0;
	}

	vy_dev *wlan_ = nullptr;
	vy_dev *lan_ = nullptr;
};

TEST_F(HotPath, IgnoredFramesCostNoAllocationLockOrLogLine)
{
	for (const Case &c : ignored_cases()) {
		SCOPED_TRACE(c.name);
		vy_skb skb = vy_host::make_skb(c.frame);
		const std::vector<std::uint8_t> before = skb.data;
		long allocs = vy_host::total_allocations();
		long locks = vy_host::lock_acquisitions();

		for (int i = 0; i < 100; i++)
			ASSERT_EQ(pass(skb, c.port), (unsigned)VY_NF_ACCEPT);

		EXPECT_EQ(vy_host::total_allocations(), allocs);
		EXPECT_EQ(vy_host::lock_acquisitions(), locks);
		EXPECT_TRUE(vy_host::events().empty())
			<< vy_host::events().size() << " events, first: "
			<< vy_host::events().front().text;
		EXPECT_EQ(skb.data, before);
		EXPECT_EQ(skb.len, c.frame.size());
		vy_host::take_events();
	}
}

/* With notices and info lines on, an ignored frame still prints nothing:
 * only debug lines (level 4) describe them. */
TEST_F(HotPath, IgnoredFramesStaySilentAtDebugLevel3)
{
	debug_level = 3;
	for (const Case &c : ignored_cases()) {
		if (std::string(c.name).find("fragment") != std::string::npos)
			continue; /* an info line names the dropped fragment */
		SCOPED_TRACE(c.name);
		vy_skb skb = vy_host::make_skb(c.frame);
		long allocs = vy_host::total_allocations();
		long locks = vy_host::lock_acquisitions();
		pass(skb, c.port);
		EXPECT_EQ(vy_host::total_allocations(), allocs);
		EXPECT_EQ(vy_host::lock_acquisitions(), locks);
		EXPECT_TRUE(vy_host::events().empty());
		vy_host::take_events();
	}
}

/* Controls: frames the hook reads do reach the station table, so the
 * counters above would have seen a lock or an allocation. */
TEST_F(HotPath, ReadFramesTakeTheStationLock)
{
	struct Read {
		const char *name;
		Port port;
		frames::Udp4 frame;
		bool allocates; /* a new domain entry */
	};
	frames::Udp4 discover = from_station();
	discover.sport = 68;
	discover.dport = 67;
	discover.payload.assign(240, 0);
	discover.payload[236] = 0x63;
	discover.payload[237] = 0x82;
	discover.payload[238] = 0x53;
	discover.payload[239] = 0x63;
	std::copy(kSta, kSta + 6, discover.payload.begin() + 28);
	discover.payload.insert(discover.payload.end(), {53, 1, 1, 255});

	const Read reads[] = {
		{"DNS query from the station", Port::WirelessIn, from_station(), true},
		{"DHCP DISCOVER from the station", Port::WirelessIn, discover, false},
	};
	for (const Read &r : reads) {
		SCOPED_TRACE(r.name);
		vy_skb skb = vy_host::make_skb(r.frame.build());
		long allocs = vy_host::total_allocations();
		long locks = vy_host::lock_acquisitions();
		pass(skb, r.port);
		EXPECT_GT(vy_host::lock_acquisitions(), locks);
		if (r.allocates)
			EXPECT_GT(vy_host::total_allocations(), allocs);
	}
}

} // namespace
