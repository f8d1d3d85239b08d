// The diagnostics devices' write side and registration: command lines
// written to either device, the help, the device and sysfs registration
// with the undo of a failed start, and the sysfs majors.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support.h"
#include "vy_dump.h"

namespace {

const Mac kA = mac_of(0, 1);
const Mac kB = {{0x0a, 0x1b, 0x2c, 0x3d, 0x4e, 0xf5}};

const std::vector<std::string> kHelp = {
	"(1) Enable/Disable debug mode to keep listening: echo -n \"force_listen 1/0\" > /dev/vy_summary",
	"(2) Delete all STA: echo -n \"del all\" > /dev/vy_summary",
	"(3) Delete a STA: echo -n \"del sta XX:XX:XX:XX:XX:XX\" > /dev/vy_summary",
	"(4) Set debug level: echo -n \"debug_level <0..4>\" > /dev/vy_summary",
};

// The help printed since the last take_events(), in whole copies.
int helps_printed()
{
	const std::vector<std::string> lines = vy_host::log_lines(VY_LOG_DEFAULT);
	EXPECT_EQ(lines.size() % kHelp.size(), 0u);
	for (size_t i = 0; i < lines.size(); i++)
		EXPECT_EQ(lines[i], kHelp[i % kHelp.size()]);
	return static_cast<int>(lines.size() / kHelp.size());
}

// Writes bytes through a freshly opened device, as "echo -n" does, from
// a heap block of exactly their size: the write must not read past it.
long write_cmd(const std::string &bytes)
{
	int err = 0;
	vy_host::File *f = vy_host::open(VY_CHRDEV_SUMMARY, &err);
	std::vector<char> exact(bytes.begin(), bytes.end());

	EXPECT_NE(f, nullptr) << err;
	if (!f)
		return -1000;
	long r = vy_host::write(f, exact.empty() ? "" : exact.data(), exact.size());
	EXPECT_EQ(vy_host::release(f), 0);
	return r;
}

/* The module state a bad input must leave alone. */
std::vector<int> state_now()
{
	return {vy_read_force_listen(), debug_level, vy_get_sta_count(),
		vy_read_listeners(), vy_host::hooks_registered(), has_sta(kA),
		has_sta(kB)};
}

class DumpCommand : public ModuleTest {
protected:
	void SetUp() override
	{
		ModuleTest::SetUp();
		join(kA);
		join(kB);
		vy_host::take_events();
	}
};

TEST_F(DumpCommand, EachCommandAndItsPrefixes)
{
	struct Case {
		const char *line;
		int force, level; // expected force_listen and debug_level (was 1)
		const char *left; // the stations left: kA, kB
		int helps;	  // whole helps printed
	} cases[] = {
		{"force_listen 1", 1, 1, "AB", 0},
		{"force_listen 0", 0, 1, "AB", 0},
		{"force_listen 10", 1, 1, "AB", 0},
		{"force_listenX 1", 1, 1, "AB", 0},
		{"force_liste 1", 1, 1, "AB", 0},
		{"force_listenXXXXXXX 1", 0, 1, "AB", 1}, // argument "XXXX"
		{"force_list 1", 0, 1, "AB", 1},
		{"force_listen 2", 0, 1, "AB", 1},
		{"force_listen", 0, 1, "AB", 1},
		{"  force_listen\t1\n", 1, 1, "AB", 0},
		{"debug_level 0", 0, 0, "AB", 0},
		{"debug_level 4", 0, 4, "AB", 0},
		{"debug_level 4x", 0, 4, "AB", 0},
		{"debug_levels 2", 0, 2, "AB", 0},
		{"debug_level 5", 0, 1, "AB", 1},
		{"debug_level -1", 0, 1, "AB", 1},
		{"debug_leve 2", 0, 1, "AB", 1},
		{"Debug_level 2", 0, 1, "AB", 1},
		{"debug_level\n3\n", 0, 3, "AB", 0},
		{"del all", 0, 1, "", 0},
		{"delete all", 0, 1, "", 0},
		{"del allx", 0, 1, "", 0},
		{"del all 02:00:00:00:00:01", 0, 1, "", 0},
		{"del\xa0" "all", 0, 1, "", 0}, // 0xa0 is white space to the kernel
		{"del al", 0, 1, "AB", 1},
		{"de all", 0, 1, "AB", 1},
		{"DEL ALL", 0, 1, "AB", 1},
		{"del", 0, 1, "AB", 1},
		{"del foo 02:00:00:00:00:01", 0, 1, "AB", 1},
		{"del sta 02:00:00:00:00:01", 0, 1, "B", 0},
		{"del station 02:00:00:00:00:01", 0, 1, "B", 0},
		{"del sta 2:0:0:0:0:1", 0, 1, "B", 0},
		{"del sta 0a:1B:2c:3D:4e:F5", 0, 1, "A", 0},
		{"del sta 0a:1b:2c:3d:4e:f5\n", 0, 1, "A", 0},
		{" del  sta  0a: 1b: 2c: 3d: 4e: f5", 0, 1, "A", 0},
		{"del sta 2", 0, 1, "AB", 1},
		{"del sta 02:00:00:00:00", 0, 1, "AB", 1},
		{"del sta 02:00:00:00:00:01:ff", 0, 1, "B", 0}, // not read
		{"del sta +2:00:00:00:00:01", 0, 1, "AB", 1},
		{"del sta 02:00:00:00:00:g1", 0, 1, "AB", 1},
		{"del sta 02:00:00:00:00:1g", 0, 1, "B", 0}, // reads "1"
		{"del sta 02:00:00:00:00:09", 0, 1, "AB", 0}, // no such station
		{"", 0, 1, "AB", 0},
		{" ", 0, 1, "AB", 1},
		{"\n", 0, 1, "AB", 1},
		{"help", 0, 1, "AB", 1},
		{"sta del all", 0, 1, "AB", 1},
	};

	// Each line gets a module of its own, with the same two stations.
	for (const Case &c : cases) {
		SCOPED_TRACE(std::string("line \"") + c.line + "\"");
		TearDown();
		SetUp();
		const std::string line = c.line, left = c.left;
		EXPECT_EQ(write_cmd(line), static_cast<long>(line.size()));
		vy_host::settle();
		EXPECT_EQ(vy_read_force_listen(), c.force);
		EXPECT_EQ(debug_level, c.level);
		EXPECT_EQ(has_sta(kA), left.find('A') != std::string::npos);
		EXPECT_EQ(has_sta(kB), left.find('B') != std::string::npos);
		EXPECT_EQ(vy_get_sta_count(), static_cast<int>(left.size()));
		EXPECT_EQ(helps_printed(), c.helps);
	}
}

TEST_F(DumpCommand, UnreadableUserBytesAreRefused)
{
	vy_host::fail_at(vy_host::FAIL_COPY_FROM_USER);
	EXPECT_EQ(write_cmd("del all"), -VY_EFAULT);
	EXPECT_EQ(logs_of(VY_LOG_ERR, "vy_dump_dev_write"),
		  std::vector<std::string>{"copy_from_user error"});
	EXPECT_TRUE(has_sta(kA));
	EXPECT_TRUE(has_sta(kB));
	EXPECT_EQ(helps_printed(), 0);
}

/*
 * Lines of 1 to 64 bytes that name no command print the help once and
 * return their length; longer ones are refused with the length error (rate
 * limited) and return 0; the empty write returns 0 silently. Nothing else
 * changes. (Lines of arbitrary bytes are the command fuzz target's.)
 */
TEST_F(DumpCommand, BadLinesOfEveryLengthChangeNothing)
{
	const std::vector<int> before = state_now();
	int length_errors = 0;

	for (size_t len = 0; len <= 70; len++) {
		SCOPED_TRACE(len);
		vy_host::take_events();
		EXPECT_EQ(write_cmd(std::string(len, 'z')), len <= 64 ? (long)len : 0);
		EXPECT_EQ(vy_host::log_lines(VY_LOG_DEFAULT).size(), len && len <= 64 ? 4u : 0u);
		if (len <= 64)
			EXPECT_EQ(vy_host::log_lines(0).size(), len ? 4u : 0u);
		ASSERT_LE(vy_host::log_lines(VY_LOG_ERR).size(), 1u);
		for (const auto &l : vy_host::log_lines(VY_LOG_ERR)) {
			EXPECT_NE(l.find("The input length " + std::to_string(len) + " > 64"),
				  std::string::npos);
			length_errors++;
		}
		vy_host::settle();
		ASSERT_EQ(state_now(), before);
	}
	EXPECT_GE(length_errors, 1);
}

// ---- start, stop and sysfs ------------------------------------------------

void expect_nothing_registered()
{
	EXPECT_EQ(vy_host::chrdev_major(VY_CHRDEV_SUMMARY), 0);
	EXPECT_EQ(vy_host::chrdev_major(VY_CHRDEV_DUMP), 0);
	EXPECT_FALSE(vy_host::kobject_present());
	EXPECT_FALSE(vy_host::sysfs_present(VY_SYSFS_SUMMARY_MAJOR));
	EXPECT_FALSE(vy_host::sysfs_present(VY_SYSFS_DUMP_MAJOR));
	EXPECT_EQ(vy_host::live_allocations(), 0);
}

/* A failed start undoes every step before it and forgets it: a stop then
 * removes nothing, and a later start registers both devices and publishes
 * their majors, silently; a second stop finds nothing left. */
TEST(DumpInit, AFailedStartUndoesEveryStepBeforeIt)
{
	struct Case {
		vy_host::FailPoint point;
		int err;    // injected
		int result; // of vy_dump_init
		const char *line;
	} cases[] = {
		{vy_host::FAIL_CHRDEV_SUMMARY, -16, -16,
		 "Failed to register chrdev /dev/vy_summary: -16"},
		{vy_host::FAIL_CHRDEV_DUMP, -24, -24,
		 "Failed to register chrdev /dev/vy_dump: -24"},
		{vy_host::FAIL_KOBJECT, -12, -VY_ENOMEM, "failed to register sys/veyra"},
		{vy_host::FAIL_SYSFS_SUMMARY, -17, -17,
		 "failed to register sys/veyra/summary_dev_major_num: -17"},
		{vy_host::FAIL_SYSFS_DUMP, -12, -12,
		 "failed to register sys/veyra/dump_dev_major_num: -12"},
	};
	for (const Case &c : cases) {
		SCOPED_TRACE(c.line);
		vy_host::reset();
		vy_host::fail_at(c.point, c.err);
		EXPECT_EQ(vy_dump_init(), c.result);
		EXPECT_EQ(logs_of(VY_LOG_ERR, "vy_dump_init"), std::vector<std::string>{c.line});
		expect_nothing_registered();
		vy_dump_exit();
		expect_nothing_registered();

		vy_host::take_events();
		ASSERT_EQ(vy_dump_init(), 0);
		const int summary = vy_host::chrdev_major(VY_CHRDEV_SUMMARY);
		const int dump = vy_host::chrdev_major(VY_CHRDEV_DUMP);
		EXPECT_GT(summary, 0);
		EXPECT_GT(dump, 0);
		EXPECT_NE(summary, dump);
		EXPECT_TRUE(vy_host::kobject_present());
		EXPECT_EQ(vy_host::sysfs_read(VY_SYSFS_SUMMARY_MAJOR), std::to_string(summary) + "\n");
		EXPECT_EQ(vy_host::sysfs_read(VY_SYSFS_DUMP_MAJOR), std::to_string(dump) + "\n");
		EXPECT_TRUE(vy_host::log_lines().empty());
		char page[4096];
		EXPECT_EQ(vy_sysfs_show(7, page), -VY_EINVAL);
		vy_dump_exit();
		expect_nothing_registered();
		vy_dump_exit();
		expect_nothing_registered();
	}
}

} // namespace
