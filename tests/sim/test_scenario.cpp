// SPDX-License-Identifier: GPL-2.0
// veyra-sim's scenario parser: every malformed line is refused with the
// reason, so that a typo in a scenario never replays as something else.
// One row per kind of refusal (a wrong word count gets the command's
// usage line, the same way for every command).
#include <gtest/gtest.h>

#include "scenario.h"

TEST(ScenarioLine, MalformedLinesAreRefusedWithTheReason)
{
	const std::pair<const char *, const char *> cases[] = {
		{"jump 5", "unknown command 'jump'"},
		{"advance 5 6", "usage: advance N"},
		{"port wlan0 vlan wlan0", "cannot sit on itself"},
		{"port br0 wired", "br0 is the bridge"},
		{"port averyveryverylong0 wired", "longer than 15"},
		{"time -1", "not a decimal number"},
		{"join 02-11-22-33-44-55 wlan0", "not a MAC address"},
		{"event 2147483648 02:11:22:33:44:55 wlan0", "not a 32-bit integer"},
		{"rx wlan0 abc", "even number of hex digits"},
		{"write disk x", "unknown device 'disk'"},
		{"write dump a\\qb", "unknown escape \\q"},
		{"write dump a\\x4", "two hex digits"},
		{"write dump a\\", "backslash ends the text"},
		{"read dump 1048577", "buffer size"},
		{"fail-alloc 2147483648", "not a count"},
		{"fail-hook -4096", "negative error number"},
		{"sysfs major", "unknown sysfs attribute"},
	};
	for (const auto &[line, message] : cases) {
		vysim::Command cmd;
		std::string err;
		EXPECT_FALSE(vysim::parse_line(line, cmd, err)) << line;
		EXPECT_NE(err.find(message), std::string::npos) << line << ": " << err;
	}
}
