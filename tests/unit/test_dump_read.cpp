// The diagnostics devices' read side: the read sequence over /dev/vy_dump
// and /dev/vy_summary, buffer bounds, passes, the one-open rule, failures,
// and the exact text of the status block, station blocks, domain lines and
// the summary.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "module_fixture.h"
#include "vy_dump.h"
#include "vy_host.h"
#include "vy_sta_list.h"
#include "station_support.h"

namespace {

using station::ip4;
using station::len_of;

// The last byte picks the station's bucket (its low three bits).
struct Mac {
	u8 b[ETH_ALEN];
};

Mac mac_of(u8 last)
{
	return Mac{{0x02, 0x00, 0x00, 0x00, 0x00, last}};
}

const u32 kStaIp = ip4(10, 0, 0, 23);

void query(const Mac &m, const char *name, u32 sta_ip = kStaIp)
{
	ASSERT_EQ(vy_add_sta_domain(m.b, name, len_of(name), sta_ip), 0);
}

void answer(const Mac &m, const char *name, u32 ip)
{
	ASSERT_EQ(vy_add_sta_domain_ip(m.b, name, len_of(name), ip), 0);
}

void alias(const Mac &m, const char *name, const char *target)
{
	ASSERT_EQ(vy_add_sta_domain_cname(m.b, name, len_of(name), target,
					  len_of(target)),
		  0);
}

void reject(const Mac &m, const char *name, u8 rcode)
{
	ASSERT_EQ(vy_reject_sta_domain(m.b, name, len_of(name), rcode), 0);
}

void dhcp(const Mac &m, u32 status, u8 type, u32 ip = 0, u32 server = 0,
	  u32 gateway = 0, u32 dns = 0, const char *host = nullptr)
{
	ASSERT_EQ(vy_set_sta_dhcp_status(m.b, status, type, ip, server, gateway,
					 dns, host,
					 host ? static_cast<u8>(std::strlen(host)) : 0),
		  0);
}

// Changes a live entry directly, for values no protocol path produces.
template <typename F> void poke(const Mac &m, F change)
{
	vy_write_guard guard(&vy_sta_table.sta_lock);
	sta *e = _vy_find_sta(m.b);

	ASSERT_NE(e, nullptr);
	change(e);
}

// Error lines of func, without their "func:line:" prefix.
std::vector<std::string> errors_of(const std::string &func)
{
	std::vector<std::string> out;

	for (const std::string &l : vy_host::log_lines(VY_LOG_ERR)) {
		if (l.compare(0, func.size() + 1, func + ":") != 0)
			continue;
		size_t end = l.find(':', func.size() + 1);
		if (end != std::string::npos)
			out.push_back(l.substr(end + 1));
	}
	return out;
}

const char kSentinel = '\x5a';

// One open device file, released when it goes out of scope.
class Dev {
public:
	explicit Dev(int id) { f_ = vy_host::open(id, &err_); }
	~Dev() { close(); }
	Dev(const Dev &) = delete;
	Dev &operator=(const Dev &) = delete;

	bool ok() const { return f_ != nullptr; }
	int err() const { return err_; }

	void close()
	{
		if (f_) {
			EXPECT_EQ(vy_host::release(f_), 0);
		}
		f_ = nullptr;
	}

	// One read of count bytes; checks that nothing beyond the returned
	// length was written into the reader's buffer.
	std::string read(size_t count)
	{
		std::string buf(count, kSentinel);
		long r = vy_host::read(f_, &buf[0], count);

		EXPECT_GE(r, 0);
		EXPECT_LE(r, static_cast<long>(count));
		if (r < 0)
			return "";
		for (size_t i = static_cast<size_t>(r); i < count; i++)
			if (buf[i] != kSentinel) {
				ADD_FAILURE() << "byte " << i << " written past the result "
					      << r;
				break;
			}
		last_ = r;
		return buf.substr(0, static_cast<size_t>(r));
	}

	// Reads until a read returns 0; every read before that must return
	// something.
	std::string read_all(size_t count, std::vector<long> *sizes = nullptr)
	{
		std::string all;

		for (int i = 0; i < 100000; i++) {
			std::string part = read(count);
			if (sizes)
				sizes->push_back(last_);
			if (part.empty())
				return all;
			all += part;
		}
		ADD_FAILURE() << "the pass never ended";
		return all;
	}

	long last() const { return last_; }

private:
	vy_host::File *f_ = nullptr;
	int err_ = 0;
	long last_ = 0;
};

std::string whole_pass(int id, size_t count = 1 << 16)
{
	Dev d(id);

	EXPECT_TRUE(d.ok());
	return d.ok() ? d.read_all(count) : "";
}

size_t occurrences(const std::string &text, const std::string &needle)
{
	size_t n = 0;

	for (size_t p = text.find(needle); p != std::string::npos;
	     p = text.find(needle, p + 1))
		n++;
	return n;
}

const char kSummaryHeader[] = "STA                  DHCP              DNS\n";

class DumpFixture : public ModuleTest {
protected:
	void SetUp() override
	{
		ModuleTest::SetUp();
		// A stored time of 0 means "not set": start the clock away from it.
		vy_host::advance_to(1000);
	}

	static std::string fresh_block(const char *mac)
	{
		return std::string("=====================\n"
				   "STA: ") +
		       mac +
		       "\n"
		       "Hostname: \n"
		       "STA IP: 0.0.0.0\n"
		       "DHCP Status: UNKNOWN\n"
		       "DHCP Type: \n"
		       "DHCP Server: 0.0.0.0\n"
		       "DHCP Latency: 0 ms\n"
		       "DHCP Reason: \n"
		       "Gateway: 0.0.0.0\n"
		       "DNS Status: UNKNOWN\n"
		       "DNS: 0.0.0.0\n"
		       "DNS Latest Latency: 0 ms\n"
		       "DNS Latency Average: 0 ms\n"
		       "Listeners: 2\n";
	}
};

using DumpRead = DumpFixture;
using DumpText = DumpFixture;

// ---- read sequence --------------------------------------------------------

TEST_F(DumpRead, ReadsOf350BytesOrFewerReturnNothingAndDoNotStartThePass)
{
	const Mac a = mac_of(0x01);
	join(a.b);
	Dev d(VY_CHRDEV_DUMP);
	ASSERT_TRUE(d.ok());

	for (size_t n : {0, 1, 100, 349, 350})
		EXPECT_EQ(d.read(n), "") << n;

	// The first read of 351 bytes still starts with the status block, and
	// stops there: the station block needs 351 free bytes of its own.
	const std::string status = "Listening: yes\n"
				   "Current Listeners: 2\n"
				   "Force Listening: no\n"
				   "Debug Level: 1\n"
				   "STA Number: 1\n";
	EXPECT_EQ(d.read(351), status);
	EXPECT_EQ(d.read(350), "");
	EXPECT_EQ(d.read(351), fresh_block("02:00:00:00:00:01"));
	EXPECT_EQ(d.read(351), "");
	EXPECT_EQ(d.read(4096), "") << "the pass is over";
}

TEST_F(DumpRead, DomainLinesResumeAcrossSmallReadsWithoutLossOrRepetition)
{
	const Mac a = mac_of(0x01), b = mac_of(0x02);
	join(a.b);
	join(b.b);
	std::vector<std::string> names;
	for (int i = 0; i < 60; i++) {
		char name[32];
		std::snprintf(name, sizeof(name), "host%02d.example.org", i);
		names.push_back(name);
		query(a, name);
		vy_host::advance(1);
		answer(a, name, ip4(192, 0, 2, static_cast<u8>(i)));
	}

	const std::string whole = whole_pass(VY_CHRDEV_DUMP);
	for (const std::string &n : names)
		EXPECT_EQ(occurrences(whole, "\n" + n + " "), 1u) << n;
	EXPECT_EQ(occurrences(whole, "STA: 02:00:00:00:00:02\n"), 1u);

	for (size_t count : {351, 352, 400, 500, 622, 700, 1000}) {
		SCOPED_TRACE(count);
		Dev d(VY_CHRDEV_DUMP);
		ASSERT_TRUE(d.ok());
		std::vector<long> sizes;
		EXPECT_EQ(d.read_all(count, &sizes), whole);
		// Only the last read is empty, and every other one carried at
		// least one whole line.
		for (size_t i = 0; i + 1 < sizes.size(); i++)
			EXPECT_GT(sizes[i], 0) << "read " << i;
		EXPECT_EQ(sizes.back(), 0);
	}
}

TEST_F(DumpRead, FailedCopyToTheReaderEndsThePassWithInvalidStaMac)
{
	const Mac a = mac_of(0x01);
	join(a.b);
	Dev d(VY_CHRDEV_DUMP);
	ASSERT_TRUE(d.ok());
	EXPECT_EQ(d.read(351).substr(0, 15), "Listening: yes\n");

	vy_host::take_events();
	vy_host::fail_at(vy_host::FAIL_COPY_TO_USER);
	EXPECT_EQ(d.read(4096), "");
	const std::vector<std::string> errs = errors_of("vy_sta_dump_basic_info");
	ASSERT_EQ(errs.size(), 1u);
	EXPECT_EQ(errs[0], "copy_to_user error (msg = " +
				   fresh_block("02:00:00:00:00:01") + ")");

	// The copy was freed: the same step now finds no station and the
	// reader sees the end of the file, however often it asks.
	vy_host::take_events();
	EXPECT_EQ(d.read(4096), "");
	EXPECT_EQ(errors_of("vy_sta_dump_basic_info"),
		  std::vector<std::string>{"Invalid STA mac"});
	EXPECT_EQ(d.read(4096), "");
	d.close();

	// Reopening starts afresh.
	EXPECT_NE(whole_pass(VY_CHRDEV_DUMP).find("STA: 02:00:00:00:00:01\n"),
		  std::string::npos);
}

TEST_F(DumpRead, FailedCopyOfADomainLineFreesTheCopiedTable)
{
	const Mac a = mac_of(0x01);
	join(a.b);
	for (const char *n : {"n1.example", "n2.example", "n3.example"})
		query(a, n);
	const long live = vy_host::live_allocations();

	Dev d(VY_CHRDEV_DUMP);
	ASSERT_TRUE(d.ok());
	d.read(351);
	EXPECT_NE(d.read(351).find("STA: 02:00:00:00:00:01"), std::string::npos);
	// The station copy with its three domain entries, and the open state.
	EXPECT_EQ(vy_host::live_allocations(), live + 4);

	vy_host::take_events();
	vy_host::fail_at(vy_host::FAIL_COPY_TO_USER);
	EXPECT_EQ(d.read(4096), "");
	EXPECT_EQ(vy_host::live_allocations(), live + 1);
	ASSERT_EQ(errors_of("vy_sta_dump_dns_entries").size(), 1u);
	EXPECT_EQ(errors_of("vy_sta_dump_dns_entries")[0].substr(0, 37),
		  "copy_to_user error (msg = n1.example ");

	vy_host::take_events();
	EXPECT_EQ(d.read(4096), "");
	EXPECT_EQ(errors_of("vy_sta_dump_dns_entries"),
		  std::vector<std::string>{"Invalid STA mac"});
}

TEST_F(DumpRead, FailedCopyOfASummaryLineEndsThePass)
{
	const Mac a = mac_of(0x01), b = mac_of(0x02);
	join(a.b);
	join(b.b);
	Dev d(VY_CHRDEV_SUMMARY);
	ASSERT_TRUE(d.ok());
	EXPECT_EQ(d.read(351), kSummaryHeader);

	vy_host::take_events();
	vy_host::fail_at(vy_host::FAIL_COPY_TO_USER);
	EXPECT_EQ(d.read(4096), "");
	EXPECT_EQ(d.read(4096), "");
	const std::vector<std::string> expected = {
		"copy_to_user error (msg = 02:00:00:00:00:01    None              UNKNOWN\n)",
		"Invalid STA mac"};
	EXPECT_EQ(errors_of("vy_sta_dump_summary"), expected);
}

TEST_F(DumpRead, OnlyOneDeviceMayBeOpenAtATime)
{
	Dev holder(VY_CHRDEV_DUMP);
	ASSERT_TRUE(holder.ok());

	struct Case {
		int id;
		int way;
	} cases[] = {{VY_CHRDEV_SUMMARY, 2}, {VY_CHRDEV_DUMP, 1}};
	for (const Case &c : cases) {
		vy_host::take_events();
		Dev other(c.id);
		EXPECT_FALSE(other.ok());
		EXPECT_EQ(other.err(), -VY_EBUSY);
		EXPECT_EQ(errors_of("_vy_dump_dev_init"),
			  std::vector<std::string>{
				  "The dump char device is in use now. (requested dump way = " +
				  std::to_string(c.way) + ", current used way = 1)"});
	}
	// The holder is undisturbed by the refusals.
	EXPECT_EQ(holder.read(351).substr(0, 14), "Listening: no\n");

	holder.close();
	Dev summary(VY_CHRDEV_SUMMARY);
	ASSERT_TRUE(summary.ok());
	Dev dump(VY_CHRDEV_DUMP);
	EXPECT_EQ(dump.err(), -VY_EBUSY);
	EXPECT_EQ(summary.read(4096), kSummaryHeader);
}

// ---- exact text -----------------------------------------------------------

TEST_F(DumpText, StationWithDhcpAndDnsAnswered)
{
	const Mac a = mac_of(0x01);
	join(a.b); // at 1000; the periodic timer runs every 500 jiffies

	query(a, "slow.example");
	vy_host::advance_to(3000); // unanswered for 2000 jiffies: timed out, DNS FAIL

	query(a, "www.example.com");
	vy_host::advance_to(3010);
	alias(a, "www.example.com", "cdn.example.net");
	answer(a, "cdn.example.net", ip4(93, 184, 216, 34));
	query(a, "bad.example");
	vy_host::advance_to(3012);
	reject(a, "bad.example", 3);
	query(a, "old.example");
	vy_host::advance_to(3013);
	answer(a, "old.example", ip4(1, 2, 3, 4));
	vy_host::advance_to(3014);
	query(a, "old.example"); // pending again, with its address kept
	query(a, "mail.example.org");
	vy_host::advance_to(3020);
	for (u8 i = 1; i <= 4; i++)
		answer(a, "mail.example.org", ip4(10, 1, 0, i));
	vy_host::advance_to(3500); // average of 100, 20 and 60 ms

	dhcp(a, VY_STATUS_UNKNOWN, 1, 0, 0, 0, 0, "laptop");
	vy_host::advance_to(3525);
	dhcp(a, VY_STATUS_OK, 5, kStaIp, ip4(10, 0, 0, 1), ip4(10, 0, 0, 254),
	     ip4(10, 0, 0, 53), "laptop");
	// The last listener is gone: listening stops and the pending query
	// of old.example is reset.
	vy_host::settle();
	ASSERT_FALSE(vy_host::hooks_registered());

	// All five names of bucket 0 in the order they were created, then
	// the one of bucket 2.
	EXPECT_EQ(whole_pass(VY_CHRDEV_DUMP),
		  "Listening: no\n"
		  "Current Listeners: 0\n"
		  "Force Listening: no\n"
		  "Debug Level: 1\n"
		  "STA Number: 1\n"
		  "=====================\n"
		  "STA: 02:00:00:00:00:01\n"
		  "Hostname: laptop\n"
		  "STA IP: 10.0.0.23\n"
		  "DHCP Status: OK\n"
		  "DHCP Type: DHCPACK\n"
		  "DHCP Server: 10.0.0.1\n"
		  "DHCP Latency: 250 ms\n"
		  "DHCP Reason: \n"
		  "Gateway: 10.0.0.254\n"
		  "DNS Status: OK\n"
		  "DNS: 10.0.0.53\n"
		  "DNS Latest Latency: 60 ms\n"
		  "DNS Latency Average: 60 ms\n"
		  "Listeners: 0\n"
		  "slow.example                                                            : (latency: 15 sec timeout)\n"
		  "www.example.com                                                         : 93.184.216.34 (latency: 100 ms)\n"
		  "[cname] cdn.example.net                                                 : 93.184.216.34 (latency: 0 ms)\n"
		  "bad.example                                                             : rcode 3 (latency: 20 ms)\n"
		  "old.example                                                             : No IP answer before listening stop. 1.2.3.4 (latency: 0 ms)\n"
		  "mail.example.org                                                        : 10.1.0.1 10.1.0.2 10.1.0.3 10.1.0.4 (latency: 60 ms)\n");

	EXPECT_EQ(whole_pass(VY_CHRDEV_SUMMARY),
		  std::string(kSummaryHeader) +
			  "02:00:00:00:00:01    10.0.0.23         OK\n");
}

TEST_F(DumpText, StationWhoseDhcpAndDnsTimedOut)
{
	const Mac a = mac_of(0x01);
	join(a.b);
	dhcp(a, VY_STATUS_UNKNOWN, 1);
	query(a, "n1.example");
	vy_host::advance_to(3000);

	EXPECT_EQ(whole_pass(VY_CHRDEV_DUMP),
		  "Listening: no\n"
		  "Current Listeners: 0\n"
		  "Force Listening: no\n"
		  "Debug Level: 1\n"
		  "STA Number: 1\n"
		  "=====================\n"
		  "STA: 02:00:00:00:00:01\n"
		  "Hostname: \n"
		  "STA IP: 10.0.0.23\n"
		  "DHCP Status: FAIL\n"
		  "DHCP Type: DHCPDISCOVER\n"
		  "DHCP Server: 0.0.0.0\n"
		  "DHCP Latency: 0 ms\n"
		  "DHCP Reason: timeout\n"
		  "Gateway: 0.0.0.0\n"
		  "DNS Status: FAIL\n"
		  "DNS: 0.0.0.0\n"
		  "DNS Latest Latency: 0 ms\n"
		  "DNS Latency Average: 0 ms\n"
		  "Listeners: 0\n"
		  "n1.example                                                              : (latency: 15 sec timeout)\n");
}

TEST_F(DumpText, BlocksAtTheEdgeOfTheTextBuffer)
{
	const Mac a = mac_of(0x01);
	join(a.b);
	const char *host =
		"abcdefghijklmnopqrstuvwxyz0123456789abcdefghijklmnopqrstuvwxyz01";
	dhcp(a, VY_STATUS_INVALID, 0, ip4(255, 255, 255, 255), ip4(1, 2, 3, 45),
	     ip4(1, 2, 3, 45), ip4(10, 0, 0, 1), host);
	poke(a, [](sta *e) { e->dhcp_latency = 10; });

	const std::string head =
		"=====================\n"
		"STA: 02:00:00:00:00:01\n"
		"Hostname: abcdefghijklmnopqrstuvwxyz0123456789abcdefghijklmnopqrstuvwxyz01\n"
		"STA IP: 255.255.255.255\n"
		"DHCP Status: UNKNOWN\n"
		"DHCP Type: \n"
		"DHCP Server: 1.2.3.45\n"
		"DHCP Latency: 10 ms\n"
		"DHCP Reason: \n"
		"Gateway: 1.2.3.45\n"
		"DNS Status: UNKNOWN\n"
		"DNS: 10.0.0.1\n"
		"DNS Latest Latency: 0 ms\n";

	// 349 characters fit whole; at 350 the last newline has no room left
	// beside the NUL.
	struct Case {
		u32 avg;
		std::string block;
	} cases[] = {
		{0, head + "DNS Latency Average: 0 ms\nListeners: 2\n"},
		{10, head + "DNS Latency Average: 10 ms\nListeners: 2"},
	};
	ASSERT_EQ(cases[0].block.size(), 349u);
	ASSERT_EQ(cases[1].block.size(), 349u);
	for (const Case &c : cases) {
		SCOPED_TRACE(c.avg);
		poke(a, [&](sta *e) { e->dns_latency_avg = c.avg; });
		Dev d(VY_CHRDEV_DUMP);
		ASSERT_TRUE(d.ok());
		d.read(351);
		EXPECT_EQ(d.read(351), c.block);
		EXPECT_EQ(d.read(351), "");
	}
}

TEST_F(DumpText, TypeAndStatusNamesOutsideTheirTables)
{
	const Mac a = mac_of(0x01);
	join(a.b);

	struct Case {
		u8 type;
		u32 dhcp_status;
		u32 dns_status;
		const char *type_line;
		const char *dhcp_line;
		const char *dns_line;
	} cases[] = {
		{0, 0, 1, "DHCP Type: \n", "DHCP Status: UNKNOWN\n", "DNS Status: OK\n"},
		{8, 1, 2, "DHCP Type: DHCPINFORM\n", "DHCP Status: OK\n",
		 "DNS Status: FAIL\n"},
		{9, 2, 3, "DHCP Type: UNKNOWN\n", "DHCP Status: FAIL\n",
		 "DNS Status: INVALID\n"},
		{10, 3, 4, "DHCP Type: UNKNOWN\n", "DHCP Status: INVALID\n",
		 "DNS Status: INVALID\n"},
		{200, 4, 0xffffffffu, "DHCP Type: UNKNOWN\n",
		 "DHCP Status: INVALID\n", "DNS Status: INVALID\n"},
		{255, 0x80000000u, 0, "DHCP Type: UNKNOWN\n",
		 "DHCP Status: INVALID\n", "DNS Status: UNKNOWN\n"},
	};
	for (const Case &c : cases) {
		SCOPED_TRACE(static_cast<int>(c.type));
		poke(a, [&](sta *e) {
			e->dhcp_type = c.type;
			e->dhcp_status = c.dhcp_status;
			e->dns_status = c.dns_status;
		});
		const std::string text = whole_pass(VY_CHRDEV_DUMP);
		EXPECT_NE(text.find(c.type_line), std::string::npos) << text;
		EXPECT_NE(text.find(c.dhcp_line), std::string::npos) << text;
		EXPECT_NE(text.find(c.dns_line), std::string::npos) << text;
	}
}

TEST_F(DumpRead, FailedCopyOfTheHeaderGoesOnWithTheStations)
{
	const Mac a = mac_of(0x01);
	join(a.b);
	Dev d(VY_CHRDEV_SUMMARY);
	ASSERT_TRUE(d.ok());

	vy_host::fail_at(vy_host::FAIL_COPY_TO_USER);
	EXPECT_EQ(d.read(4096), "");
	EXPECT_EQ(errors_of("vy_sta_dump_start"),
		  std::vector<std::string>{"copy_to_user error (msg = " +
					   std::string(kSummaryHeader) + ")"});
	EXPECT_EQ(d.read_all(4096),
		  "02:00:00:00:00:01    None              UNKNOWN\n");
}

TEST_F(DumpRead, ClosingInTheMiddleOfAStationFreesItsCopy)
{
	const Mac a = mac_of(0x01);
	join(a.b);
	for (int i = 0; i < 10; i++) {
		char name[32];
		std::snprintf(name, sizeof(name), "n%d.example", i);
		query(a, name);
	}
	const long live = vy_host::live_allocations();
	{
		Dev d(VY_CHRDEV_DUMP);
		ASSERT_TRUE(d.ok());
		d.read(351);
		d.read(351);
		std::string lines = d.read(400);
		ASSERT_EQ(occurrences(lines, "\n"), 1u) << "one domain line only";
		EXPECT_GT(vy_host::live_allocations(), live + 10);
	}
	EXPECT_EQ(vy_host::live_allocations(), live);
}

} // namespace
