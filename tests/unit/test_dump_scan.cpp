// The command line scanner: "%15s %7s %2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx"
// as the kernel's sscanf reads it, compared with the C library's sscanf on
// inputs where the two agree, byte for byte, untouched bytes included.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "vy_dump.h"

namespace {

struct Fields {
	int n = -99;
	char cmd[16];
	char arg[8];
	u8 mac[ETH_ALEN];

	Fields()
	{
		std::memset(cmd, 0x7e, sizeof(cmd));
		std::memset(arg, 0x7e, sizeof(arg));
		std::memset(mac, 0xee, sizeof(mac));
	}
	bool operator==(const Fields &o) const
	{
		return n == o.n && !std::memcmp(cmd, o.cmd, sizeof(cmd)) &&
		       !std::memcmp(arg, o.arg, sizeof(arg)) &&
		       !std::memcmp(mac, o.mac, sizeof(mac));
	}
};

Fields libc_scan(const std::string &line)
{
	Fields f;

	f.n = std::sscanf(line.c_str(), "%15s %7s %2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx",
			  f.cmd, f.arg, &f.mac[0], &f.mac[1], &f.mac[2], &f.mac[3],
			  &f.mac[4], &f.mac[5]);
	return f;
}

TEST(DumpCommandScan, AgreesWithTheCLibraryOnChosenLines)
{
	const char *lines[] = {
		"del all", "del sta 02:00:00:00:00:01", "del sta 09:19:29:39:49:99",
		"del sta 2:0:0:0:0:1", "del sta 0a:1B:2c:3D:4e:F5",
		"del sta ff:ff:ff:ff:ff:ff\n", "  del\tsta\n0a:0b:0c:0d:0e:0f  ",
		"del sta 0a: 0b:\t0c:\n0d: 0e: 0f", "del sta 0a :0b:0c:0d:0e:0f",
		"del sta 0a:0b:0c:0d:0e", "del sta 0a:0b:0c:0d:0e:",
		"del sta 0a:0b:0c:0d:0e:0", "del sta 123:45:67:89:ab:cd",
		"del sta 1234567890abcdef:1:2:3:4:5", "del sta 0x1f:2:3:4:5:6",
		"del sta 0x:2:3:4:5:6", "del sta 0X:2:3:4:5:6", "del sta 0xg",
		"del sta x1:2:3:4:5:6", "del sta 1:2:3:4:5:0x", "del sta 1:2:3:4:5:6:7:8",
		"del sta g", "del sta ::::::", "del sta 1::2", "del", "del ", "d",
		"force_listen 1", "force_listen 10", "force_listenXXXXXXX 1",
		"force_listen_and_more_than_fifteen", "debug_level 4x",
		"debug_level abcdefghijk", "debug_level\n3", "a b c",
		"a b 1:2:3:4:5:6 trailing", "\v\fdel\rall", "del all\x01",
		"\x80\xff del", "del \xc3\xa9t\xc3\xa9",
		"0123456789abcdefXYZ 01234567 ab:cd:ef:01:23:45",
	};
	for (const char *l : lines) {
		Fields mine;
		mine.n = vy_dump_scan_command(l, mine.cmd, mine.arg, mine.mac);
		EXPECT_TRUE(mine == libc_scan(l)) << l;
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
	EXPECT_EQ(vy_dump_scan_command_range(nul, nul + sizeof(nul) - 1, f.cmd, f.arg, f.mac), 2);
	EXPECT_STREQ(f.arg, "all");

	// "0x" at the very end of the range: the prefix is read, not what
	// lies beyond.
	const char tail[] = {'d', ' ', 's', ' ', '0', 'x', '1'};
	f = Fields();
	EXPECT_EQ(vy_dump_scan_command_range(tail, tail + 6, f.cmd, f.arg, f.mac), 3);
	EXPECT_EQ(f.mac[0], 0);

	EXPECT_EQ(vy_dump_scan_command_range(nullptr, nullptr, f.cmd, f.arg, f.mac), 0);
	EXPECT_EQ(vy_dump_scan_command_range(nullptr, tail + 6, f.cmd, f.arg, f.mac), 0);
	EXPECT_EQ(vy_dump_scan_command(nullptr, f.cmd, f.arg, f.mac), 0);
}

} // namespace
