// SPDX-License-Identifier: GPL-2.0
// The scenario language and the printer: what each line means, which lines
// are refused and why, and the exact form of the output lines.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "output.h"
#include "scenario.h"

using vysim::Cmd;
using vysim::Command;
using vysim::Device;
using vysim::PortKind;
using Bytes = std::vector<std::uint8_t>;

namespace {

Command parsed(const std::string &line)
{
	Command c;
	std::string err;
	EXPECT_TRUE(vysim::parse_line(line, c, err)) << line << ": " << err;
	return c;
}

Bytes text(const char *s)
{
	return Bytes(s, s + std::strlen(s));
}

} // namespace

TEST(ScenarioLine, BlankAndCommentLinesDoNothing)
{
	for (const char *l : {"", "   ", "\t", "# a comment", "   # indented", "\r"})
		EXPECT_EQ(parsed(l).kind, Cmd::None) << l;
}

TEST(ScenarioLine, PortsAndTime)
{
	Command c = parsed("port wlan0 wireless");
	EXPECT_EQ(c.kind, Cmd::Port);
	EXPECT_EQ(c.name, "wlan0");
	EXPECT_EQ(c.port_kind, PortKind::Wireless);
	EXPECT_EQ(parsed("port eth0 wired").port_kind, PortKind::Wired);
	c = parsed("port wlan0.10 vlan wlan0   # tagged VAP");
	EXPECT_EQ(c.port_kind, PortKind::Vlan);
	EXPECT_EQ(c.name2, "wlan0");

	c = parsed("time 4611686018427387904");
	EXPECT_EQ(c.kind, Cmd::Time);
	EXPECT_EQ(c.num, 1ull << 62);
	c = parsed("advance 500\r");
	EXPECT_EQ(c.kind, Cmd::Advance);
	EXPECT_EQ(c.num, 500u);
}

TEST(ScenarioLine, StationEvents)
{
	Command c = parsed("join 02:AA:bb:0c:0d:0e wlan0");
	EXPECT_EQ(c.kind, Cmd::Join);
	EXPECT_EQ(c.code, 0);
	const std::uint8_t mac[6] = {0x02, 0xaa, 0xbb, 0x0c, 0x0d, 0x0e};
	EXPECT_EQ(std::memcmp(c.mac, mac, 6), 0);
	EXPECT_EQ(c.name, "wlan0");
	EXPECT_EQ(parsed("leave 02:aa:bb:0c:0d:0e wlan1").code, 1);
	c = parsed("event -2147483648 02:aa:bb:0c:0d:0e wlan0");
	EXPECT_EQ(c.kind, Cmd::Event);
	EXPECT_EQ(c.code, INT32_MIN);
	EXPECT_EQ(parsed("event 7 02:aa:bb:0c:0d:0e wlan0").code, 7);
}

TEST(ScenarioLine, FramesAndCaptures)
{
	Command c = parsed("rx wlan0 0A0b");
	EXPECT_EQ(c.kind, Cmd::Rx);
	EXPECT_EQ(c.bytes, (Bytes{0x0a, 0x0b}));
	EXPECT_EQ(parsed("tx eth0 00").kind, Cmd::Tx);
	c = parsed("fwd eth0 wlan0 ff");
	EXPECT_EQ(c.kind, Cmd::Fwd);
	EXPECT_EQ(c.name, "eth0");
	EXPECT_EQ(c.name2, "wlan0");
	c = parsed("pcap captures/onboarding.pcapng wlan0");
	EXPECT_EQ(c.kind, Cmd::Pcap);
	EXPECT_EQ(c.name, "captures/onboarding.pcapng");
	EXPECT_EQ(c.name2, "wlan0");
}

TEST(ScenarioLine, DeviceCommands)
{
	Command c = parsed("write summary   force_listen 1  ");
	EXPECT_EQ(c.kind, Cmd::Write);
	EXPECT_EQ(c.dev, Device::Summary);
	EXPECT_EQ(c.bytes, text("force_listen 1"));
	/* '#' belongs to the text; escapes are decoded */
	c = parsed("write dump del #1\\x20\\n\\t\\\\");
	EXPECT_EQ(c.bytes, text("del #1 \n\t\\"));
	EXPECT_TRUE(parsed("write dump").bytes.empty());

	c = parsed("read dump");
	EXPECT_EQ(c.kind, Cmd::Read);
	EXPECT_EQ(c.dev, Device::Dump);
	EXPECT_EQ(c.num, 4096u);
	EXPECT_EQ(parsed("read summary 351").num, 351u);
	EXPECT_EQ(parsed("read summary 0").num, 0u);
	EXPECT_EQ(parsed("open dump").kind, Cmd::Open);
	EXPECT_EQ(parsed("close summary").kind, Cmd::Close);
	EXPECT_EQ(parsed("sysfs dump_dev_major_num").name, "dump_dev_major_num");
}

TEST(ScenarioLine, FaultsAndModule)
{
	Command c = parsed("fail-alloc 3");
	EXPECT_EQ(c.kind, Cmd::FailAlloc);
	EXPECT_EQ(c.num, 3u);
	c = parsed("fail-hook");
	EXPECT_EQ(c.kind, Cmd::FailHook);
	EXPECT_EQ(c.code, -12);
	EXPECT_EQ(parsed("fail-hook -16").code, -16);
	EXPECT_EQ(parsed("load").kind, Cmd::Load);
	EXPECT_EQ(parsed("unload # bye").kind, Cmd::Unload);
}

TEST(ScenarioLine, MalformedLinesAreRefusedWithTheReason)
{
	const struct {
		const char *line;
		const char *message;
	} cases[] = {
		{"jump 5", "unknown command 'jump'"},
		{"port wlan0", "usage: port"},
		{"port wlan0 radio", "usage: port"},
		{"port wlan0 vlan", "usage: port"},
		{"port wlan0 vlan wlan0", "cannot sit on itself"},
		{"port br0 wired", "br0 is the bridge"},
		{"port averyveryverylong0 wired", "longer than 15"},
		{"time", "usage: time J"},
		{"time -1", "not a decimal number"},
		{"time 1e3", "not a decimal number"},
		{"time 4611686018427387905", "not a decimal number"},
		{"time 99999999999999999999999", "not a decimal number"},
		{"advance 5 6", "usage: advance N"},
		{"join 02:11:22:33:44 wlan0", "not a MAC address"},
		{"join 02:11:22:33:44:5g wlan0", "not a MAC address"},
		{"join 02-11-22-33-44-55 wlan0", "not a MAC address"},
		{"join 02:11:22:33:44:55", "usage: join MAC VAP"},
		{"leave 02:11:22:33:44:55 wlan0 x", "usage: leave MAC VAP"},
		{"event 2147483648 02:11:22:33:44:55 wlan0", "not a 32-bit integer"},
		{"event x 02:11:22:33:44:55 wlan0", "not a 32-bit integer"},
		{"rx wlan0", "usage: rx PORT HEX"},
		{"rx wlan0 abc", "even number of hex digits"},
		{"rx wlan0 zz", "even number of hex digits"},
		{"tx wlan0 00 11", "usage: tx PORT HEX"},
		{"fwd eth0 00", "usage: fwd IN OUT HEX"},
		{"pcap file.pcap", "usage: pcap FILE PORT"},
		{"write", "usage: write DEV TEXT"},
		{"write disk x", "unknown device 'disk'"},
		{"write dump a\\qb", "unknown escape \\q"},
		{"write dump a\\x4", "two hex digits"},
		{"write dump a\\", "backslash ends the text"},
		{"read", "usage: read DEV"},
		{"read dump 1048577", "buffer size"},
		{"read dump -5", "buffer size"},
		{"open", "usage: open DEV"},
		{"close dump summary", "usage: close DEV"},
		{"fail-alloc", "usage: fail-alloc N"},
		{"fail-alloc 2147483648", "not a count"},
		{"fail-hook 12", "negative error number"},
		{"fail-hook -4096", "negative error number"},
		{"load now", "usage: load"},
		{"sysfs", "usage: sysfs NAME"},
		{"sysfs major", "unknown sysfs attribute"},
	};
	for (const auto &c : cases) {
		Command cmd;
		std::string err;
		EXPECT_FALSE(vysim::parse_line(c.line, cmd, err)) << c.line;
		EXPECT_NE(err.find(c.message), std::string::npos) << c.line << ": " << err;
	}
}

TEST(Output, EscapesAndAddresses)
{
	EXPECT_EQ(vysim::escape_text("a\"b\\c"), "a\\\"b\\\\c");
	EXPECT_EQ(vysim::escape_text(std::string("x\0\n\x7f\xc3", 5)), "x\\x00\\x0a\\x7f\\xc3");
	EXPECT_EQ(vysim::json_string(std::string("q\"\\\n\x01\xe9", 6)),
		  "\"q\\\"\\\\\\n\\u0001\\u00e9\"");
	const std::uint8_t ip[4] = {192, 168, 1, 23};
	std::uint32_t net;
	std::memcpy(&net, ip, 4);
	EXPECT_EQ(vysim::ipv4(net), "192.168.1.23");
	EXPECT_EQ(vysim::ipv4(0), "0.0.0.0");
	const std::uint8_t mac[6] = {0x02, 0xAB, 0, 1, 0x10, 0xff};
	EXPECT_EQ(vysim::mac_text(mac), "02:ab:00:01:10:ff");
	EXPECT_STREQ(vysim::level_name(VY_LOG_ERR), "err");
	EXPECT_STREQ(vysim::level_name(VY_LOG_DEBUG), "debug");
	EXPECT_STREQ(vysim::level_name(VY_LOG_DEFAULT), "default");
}

namespace {

std::string printed(bool json, const std::function<void(vysim::Printer &)> &fn)
{
	char *buf = nullptr;
	std::size_t size = 0;
	std::FILE *f = open_memstream(&buf, &size);
	{
		vysim::Printer p(f, json);
		fn(p);
	}
	std::fclose(f);
	std::string s(buf, size);
	std::free(buf);
	return s;
}

vy_host::Event dhcp_event()
{
	vy_host::Event e{};
	e.kind = vy_host::EventKind::NotifyDhcp;
	e.jiffies = 250;
	e.vap = "wlan0";
	const std::uint8_t mac[6] = {2, 0x11, 0x22, 0x33, 0x44, 0x55};
	std::memcpy(e.mac, mac, 6);
	e.status = 1;
	e.hostname = std::string("my \"pc\"\x01", 8);
	e.hostname_len = 8;
	const std::uint8_t a[4] = {192, 168, 1, 23}, s[4] = {192, 168, 1, 1};
	std::memcpy(&e.ip, a, 4);
	std::memcpy(&e.server, s, 4);
	std::memcpy(&e.gateway, s, 4);
	e.type = 5;
	e.latency = 1500;
	return e;
}

} // namespace

TEST(Output, TextLines)
{
	vy_host::Event log{};
	log.kind = vy_host::EventKind::Log;
	log.jiffies = 7;
	log.level = VY_LOG_NOTICE;
	log.text = "f[1]:a\tb";
	vy_host::Event hooks{};
	hooks.kind = vy_host::EventKind::HooksRegistered;
	hooks.jiffies = 100;

	std::string out = printed(false, [&](vysim::Printer &p) {
		p.event(log);
		p.event(dhcp_event());
		p.event(hooks);
		p.read_result(9, "summary", "STA\nx");
		p.read_result(9, "dump", "");
		p.open_failed(9, "dump", -16);
		p.write_result(9, "summary", 14);
		p.sysfs(9, "dump_dev_major_num", true, "249\n");
		p.sysfs(9, "dump_dev_major_num", false, "");
		p.leaked(10, 0);
	});
	EXPECT_EQ(out,
		  "[7] log notice f[1]:a\\x09b\n"
		  "[250] notify_sta_dhcp vap=wlan0 sta=02:11:22:33:44:55 status=1 reason=0 "
		  "hostname=\"my \\\"pc\\\"\\x01\" hostname_len=8 ip=192.168.1.23 type=5 "
		  "server=192.168.1.1 gateway=192.168.1.1 latency=1500\n"
		  "[100] hooks registered\n"
		  "[9] read summary\nSTA\nx\n[9] end read summary 5\n"
		  "[9] read dump\n[9] end read dump 0\n"
		  "[9] open dump failed -16\n"
		  "[9] write summary returned 14\n"
		  "[9] sysfs dump_dev_major_num 249\n"
		  "[9] sysfs dump_dev_major_num (absent)\n"
		  "[10] leaked 0\n");
}

TEST(Output, JsonLines)
{
	vy_host::Event dns{};
	dns.kind = vy_host::EventKind::NotifyDns;
	dns.jiffies = 3;
	dns.vap = "wlan1";
	dns.status = 2;
	std::string out = printed(true, [&](vysim::Printer &p) {
		p.event(dhcp_event());
		p.event(dns);
		p.read_result(4, "summary", "a\"b\n");
		p.sysfs(4, "summary_dev_major_num", false, "");
	});
	EXPECT_EQ(out,
		  "{\"jiffies\":250,\"event\":\"notify_sta_dhcp\",\"vap\":\"wlan0\","
		  "\"sta\":\"02:11:22:33:44:55\",\"status\":1,\"reason\":0,"
		  "\"hostname\":\"my \\\"pc\\\"\\u0001\",\"hostname_len\":8,"
		  "\"ip\":\"192.168.1.23\",\"type\":5,\"server\":\"192.168.1.1\","
		  "\"gateway\":\"192.168.1.1\",\"latency\":1500}\n"
		  "{\"jiffies\":3,\"event\":\"notify_sta_dns\",\"vap\":\"wlan1\","
		  "\"sta\":\"00:00:00:00:00:00\",\"status\":2,\"dns_server\":\"0.0.0.0\","
		  "\"latency\":0}\n"
		  "{\"jiffies\":4,\"event\":\"read\",\"dev\":\"summary\",\"data\":\"a\\\"b\\n\","
		  "\"bytes\":4}\n"
		  "{\"jiffies\":4,\"event\":\"sysfs\",\"name\":\"summary_dev_major_num\","
		  "\"value\":null}\n");
}
