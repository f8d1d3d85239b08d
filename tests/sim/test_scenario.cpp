// SPDX-License-Identifier: GPL-2.0
// veyra-sim's scenario parser: every malformed line is refused with the
// reason, so that a typo in a scenario never replays as something else.
#include <gtest/gtest.h>

#include "scenario.h"

TEST(ScenarioLine, MalformedLinesAreRefusedWithTheReason)
{
	const struct {
		const char *line;
		const char *message;
	} cases[] = {
		{"jump 5", "unknown command 'jump'"},
		{"port wlan0", "usage: port"},
		{"port wlan0 vlan wlan0", "cannot sit on itself"},
		{"port br0 wired", "br0 is the bridge"},
		{"port averyveryverylong0 wired", "longer than 15"},
		{"time", "usage: time J"},
		{"time -1", "not a decimal number"},
		{"time 4611686018427387905", "not a decimal number"},
		{"advance 5 6", "usage: advance N"},
		{"join 02:11:22:33:44 wlan0", "not a MAC address"},
		{"join 02-11-22-33-44-55 wlan0", "not a MAC address"},
		{"join 02:11:22:33:44:55", "usage: join MAC VAP"},
		{"event 2147483648 02:11:22:33:44:55 wlan0", "not a 32-bit integer"},
		{"rx wlan0", "usage: rx PORT HEX"},
		{"rx wlan0 abc", "even number of hex digits"},
		{"fwd eth0 00", "usage: fwd IN OUT HEX"},
		{"pcap file.pcap", "usage: pcap FILE PORT"},
		{"write", "usage: write DEV TEXT"},
		{"write disk x", "unknown device 'disk'"},
		{"write dump a\\qb", "unknown escape \\q"},
		{"write dump a\\x4", "two hex digits"},
		{"write dump a\\", "backslash ends the text"},
		{"read", "usage: read DEV"},
		{"read dump 1048577", "buffer size"},
		{"fail-alloc 2147483648", "not a count"},
		{"fail-hook 12", "negative error number"},
		{"fail-hook -4096", "negative error number"},
		{"sysfs major", "unknown sysfs attribute"},
	};
	for (const auto &c : cases) {
		vysim::Command cmd;
		std::string err;
		EXPECT_FALSE(vysim::parse_line(c.line, cmd, err)) << c.line;
		EXPECT_NE(err.find(c.message), std::string::npos) << c.line << ": " << err;
	}
}
