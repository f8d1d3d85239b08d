// The command line scanner: "%15s %7s %2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx"
// as the kernel's sscanf reads it. Compared with the C library's sscanf on
// every input where the two agree, and checked against the kernel's rules
// where they do not.
#include <cctype>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "vy_dump.h"

namespace {

const char kFill = '\x7e';

struct Fields {
	int n;
	char cmd[16];
	char arg[8];
	u8 mac[ETH_ALEN];

	Fields()
	{
		n = -99;
		std::memset(cmd, kFill, sizeof(cmd));
		std::memset(arg, kFill, sizeof(arg));
		std::memset(mac, 0xee, sizeof(mac));
	}
};

Fields scan(const std::string &line)
{
	Fields f;

	f.n = vy_dump_scan_command(line.c_str(), f.cmd, f.arg, f.mac);
	return f;
}

Fields libc_scan(const std::string &line)
{
	Fields f;

	f.n = std::sscanf(line.c_str(),
			  "%15s %7s %2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx", f.cmd,
			  f.arg, &f.mac[0], &f.mac[1], &f.mac[2], &f.mac[3],
			  &f.mac[4], &f.mac[5]);
	return f;
}

std::string show(const std::string &s)
{
	std::string out;

	for (unsigned char c : s) {
		char b[8];
		if (c >= 0x20 && c < 0x7f)
			out += static_cast<char>(c);
		else {
			std::snprintf(b, sizeof(b), "\\x%02x", c);
			out += b;
		}
	}
	return out;
}

// Every byte of every field, untouched ones included, must be the same.
void expect_same(const std::string &line)
{
	const Fields mine = scan(line), libc = libc_scan(line);

	EXPECT_EQ(mine.n, libc.n) << show(line);
	EXPECT_EQ(std::memcmp(mine.cmd, libc.cmd, sizeof(mine.cmd)), 0)
		<< show(line) << " cmd " << show(std::string(mine.cmd, 16))
		<< " vs " << show(std::string(libc.cmd, 16));
	EXPECT_EQ(std::memcmp(mine.arg, libc.arg, sizeof(mine.arg)), 0)
		<< show(line) << " arg";
	EXPECT_EQ(std::memcmp(mine.mac, libc.mac, sizeof(mine.mac)), 0)
		<< show(line) << " mac";
}

// Inputs on which the C library and the kernel agree: no sign before a
// hex field, no byte 0xa0, no run of more than 16 hex digits, and not
// empty or blank (the C library reports EOF there).
bool both_agree(const std::string &line)
{
	bool blank = true;
	int run = 0;

	for (unsigned char c : line) {
		if (c == '+' || c == '-' || c == 0xa0)
			return false;
		if (std::isxdigit(c) || c == 'x' || c == 'X') {
			if (++run > 16)
				return false;
		} else {
			run = 0;
		}
		if (!std::isspace(c))
			blank = false;
	}
	return !blank;
}

TEST(DumpCommandScan, AgreesWithTheCLibraryOnChosenLines)
{
	const char *lines[] = {
		"del all",
		"del sta 02:00:00:00:00:01",
		"del sta 2:0:0:0:0:1",
		"del sta 0a:1B:2c:3D:4e:F5",
		"del sta ff:ff:ff:ff:ff:ff\n",
		"  del\tsta\n0a:0b:0c:0d:0e:0f  ",
		"del sta 0a: 0b:\t0c:\n0d: 0e: 0f",
		"del sta 0a :0b:0c:0d:0e:0f",
		"del sta 0a:0b:0c:0d:0e",
		"del sta 0a:0b:0c:0d:0e:",
		"del sta 0a:0b:0c:0d:0e:0",
		"del sta 123:45:67:89:ab:cd",
		"del sta 1234567890abcdef:1:2:3:4:5",
		"del sta 0x1f:2:3:4:5:6",
		"del sta 0x:2:3:4:5:6",
		"del sta 0X:2:3:4:5:6",
		"del sta 0xg",
		"del sta x1:2:3:4:5:6",
		"del sta 1:2:3:4:5:0x",
		"del sta 1:2:3:4:5:6:7:8",
		"del sta g",
		"del sta ::::::",
		"del sta 1::2",
		"del",
		"del ",
		"d",
		"force_listen 1",
		"force_listen 10",
		"force_listenXXXXXXX 1",
		"force_listen_and_more_than_fifteen",
		"debug_level 4x",
		"debug_level abcdefghijk",
		"debug_level\n3",
		"a b c",
		"a b 1:2:3:4:5:6 trailing",
		"\v\fdel\rall",
		"del all\x01",
		"\x80\xff del",
		"del \xc3\xa9t\xc3\xa9",
		"0123456789abcdefXYZ 01234567 ab:cd:ef:01:23:45",
	};
	for (const char *l : lines)
		expect_same(l);
}

TEST(DumpCommandScan, AgreesWithTheCLibraryOnGeneratedLines)
{
	const char *tokens[] = {
		"del", "sta", "all", "force_listen", "debug_level", " ", " ",
		"  ", "\t", "\n", ":", ":", "0", "1", "9", "a", "F", "ff", "0x",
		"0X", "x", "g", "123", "abcdef", "Z", "0a:1b:2c:3d:4e:5f",
		"longerthanfifteenchars", "\x80", "\x7f",
	};
	const size_t ntok = sizeof(tokens) / sizeof(tokens[0]);
	unsigned long long state = 0x2545f4914f6cdd1dULL;
	auto next = [&state]() {
		state = state * 6364136223846793005ULL + 1442695040888963407ULL;
		return static_cast<unsigned>(state >> 33);
	};

	int compared = 0;
	for (int i = 0; i < 20000; i++) {
		std::string line;
		const unsigned parts = 1 + next() % 12;
		for (unsigned p = 0; p < parts && line.size() < VY_CMD_MAX; p++)
			line += tokens[next() % ntok];
		if (line.size() > VY_CMD_MAX)
			line.resize(VY_CMD_MAX);
		if (!both_agree(line))
			continue;
		expect_same(line);
		compared++;
		if (HasFailure())
			break;
	}
	EXPECT_GT(compared, 15000);
}

// Where the C library's sscanf differs, the kernel's (lib/vsprintf.c of the
// target kernel) is what the command line means.
TEST(DumpCommandScan, FollowsTheKernelWhereTheCLibraryDiffers)
{
	struct Case {
		const char *line;
		int n;
		const char *cmd;
		const char *arg;
		u8 mac[ETH_ALEN];
	} cases[] = {
		// No input left when a conversion starts: the count so far, not
		// EOF; a command word of white space only still counts.
		{"", 0, nullptr, nullptr, {}},
		{"   ", 1, "", nullptr, {}},
		{" \t\n", 1, "", nullptr, {}},
		// A hex field takes no sign.
		{"del sta +1:2:3:4:5:6", 2, "del", "sta", {}},
		{"del sta -1:2:3:4:5:6", 2, "del", "sta", {}},
		{"del sta 1:2:3:4:5:-6", 7, "del", "sta", {1, 2, 3, 4, 5}},
		// 0xa0 is white space.
		{"del\xa0" "all", 2, "del", "all", {}},
		{"\xa0" "del sta\xa0" "1:2:3:4:5:\xa0" "6", 8, "del", "sta",
		 {1, 2, 3, 4, 5, 6}},
		// A run of more than 16 digits wraps before it is cut to two.
		{"del sta 123456789abcdef01:2", 3, "del", "sta", {0x02}},
		{"del sta 123456789abcdef012:2", 3, "del", "sta", {0x00}},
		{"del sta 0x123456789abcdef0123:2", 3, "del", "sta", {0x00}},
	};
	for (const Case &c : cases) {
		SCOPED_TRACE(show(c.line));
		const Fields f = scan(c.line);
		EXPECT_EQ(f.n, c.n);
		if (c.cmd) {
			EXPECT_STREQ(f.cmd, c.cmd);
		} else {
			EXPECT_EQ(f.cmd[0], kFill) << "command word written";
		}
		if (c.arg) {
			EXPECT_STREQ(f.arg, c.arg);
		} else {
			EXPECT_EQ(f.arg[0], kFill) << "argument word written";
		}
		for (int i = 0; i < ETH_ALEN; i++) {
			if (i < c.n - 2) {
				EXPECT_EQ(f.mac[i], c.mac[i]) << "byte " << i;
			} else {
				EXPECT_EQ(f.mac[i], 0xee) << "byte " << i << " written";
			}
		}
	}
}

TEST(DumpCommandScan, StopsAtTheEndOfTheRangeAndAtANul)
{
	// Exactly the bytes given, with no NUL after them: ASan catches any
	// read past the end.
	const std::string whole = "del sta 0a:0b:0c:0d:0e:0f";
	for (size_t len = 0; len <= whole.size(); len++) {
		SCOPED_TRACE(len);
		std::vector<char> bytes(whole.begin(), whole.begin() + len);
		Fields f;
		f.n = vy_dump_scan_command_range(bytes.data(), bytes.data() + len,
						 f.cmd, f.arg, f.mac);
		const Fields ref = libc_scan(whole.substr(0, len));
		EXPECT_EQ(f.n, len == 0 ? 0 : ref.n);
		EXPECT_EQ(std::memcmp(f.mac, ref.mac, sizeof(f.mac)), 0);
	}

	Fields f;
	const char nul[] = "del all\0sta 1:2:3:4:5:6";
	f.n = vy_dump_scan_command_range(nul, nul + sizeof(nul) - 1, f.cmd,
					 f.arg, f.mac);
	EXPECT_EQ(f.n, 2);
	EXPECT_STREQ(f.arg, "all");

	// "0x" at the very end of the range: the prefix is read, not what
	// lies beyond.
	const char tail[] = {'d', ' ', 's', ' ', '0', 'x', '1'};
	f = Fields();
	f.n = vy_dump_scan_command_range(tail, tail + 6, f.cmd, f.arg, f.mac);
	EXPECT_EQ(f.n, 3);
	EXPECT_EQ(f.mac[0], 0);

	f = Fields();
	EXPECT_EQ(vy_dump_scan_command_range(nullptr, nullptr, f.cmd, f.arg,
					     f.mac),
		  0);
	EXPECT_EQ(vy_dump_scan_command(nullptr, f.cmd, f.arg, f.mac), 0);
}

} // namespace
