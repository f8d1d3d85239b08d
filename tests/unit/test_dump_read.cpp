// The diagnostics devices' read side: the read sequence over /dev/vy_dump
// and /dev/vy_summary, buffer bounds, passes, the one-open rule, failures,
// and the exact text of the status block, station blocks, domain lines and
// the summary.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support.h"
#include "vy_dump.h"

namespace {

const Mac kA = mac_of(0, 1), kB = mac_of(0, 2);
const u32 kStaIp = ip4(10, 0, 0, 23);
const char kSentinel = '\x5a';
const char kSummaryHeader[] = "STA                  DHCP              DNS\n";

// One open device file, released when it goes out of scope.
struct Dev {
	explicit Dev(int id) { f = vy_host::open(id, &err); }
	~Dev()
	{
		if (f)
			EXPECT_EQ(vy_host::release(f), 0);
	}

	// One read of count bytes; nothing beyond the returned length may be
	// written into the reader's buffer.
	std::string read(size_t count)
	{
		std::string buf(count, kSentinel);
		long r = vy_host::read(f, &buf[0], count);

		EXPECT_GE(r, 0);
		EXPECT_LE(r, static_cast<long>(count));
		r = r < 0 ? 0 : r;
		EXPECT_EQ(buf.find_first_not_of(kSentinel, r), std::string::npos)
			<< "written past the result " << r;
		return buf.substr(0, static_cast<size_t>(r));
	}

	// Reads until a read returns 0.
	std::string read_all(size_t count)
	{
		std::string all, part;

		for (int i = 0; i < 100000 && !(part = read(count)).empty(); i++)
			all += part;
		EXPECT_EQ(part, "") << "the pass never ended";
		return all;
	}

	vy_host::File *f = nullptr;
	int err = 0;
};

std::string whole_pass(int id)
{
	Dev d(id);

	EXPECT_NE(d.f, nullptr);
	return d.f ? d.read_all(1 << 16) : "";
}

size_t occurrences(const std::string &text, const std::string &needle)
{
	size_t n = 0;

	for (size_t p = text.find(needle); p != std::string::npos;
	     p = text.find(needle, p + 1))
		n++;
	return n;
}

std::string status(bool listening, int listeners, int stations = 1)
{
	return std::string("Listening: ") + (listening ? "yes" : "no") +
	       "\nCurrent Listeners: " + std::to_string(listeners) +
	       "\nForce Listening: no\nDebug Level: 1\nSTA Number: " +
	       std::to_string(stations) + "\n";
}

// A station block from its values, in the order of its lines.
std::string block(const std::vector<std::string> &values)
{
	const char *const labels[] = {
		"STA",	       "Hostname",    "STA IP",		    "DHCP Status",
		"DHCP Type",   "DHCP Server", "DHCP Latency",	    "DHCP Reason",
		"Gateway",     "DNS Status",  "DNS",		    "DNS Latest Latency",
		"DNS Latency Average",	      "Listeners"};
	std::string s = "=====================\n";

	for (size_t i = 0; i < values.size(); i++)
		s += std::string(labels[i]) + ": " + values[i] + "\n";
	return s;
}

// kA's block just after its join, with the address its queries gave.
std::string fresh(const std::string &ip)
{
	return block({"02:00:00:00:00:01", "", ip, "UNKNOWN", "", "0.0.0.0", "0 ms",
		      "", "0.0.0.0", "UNKNOWN", "0.0.0.0", "0 ms", "0 ms", "2"});
}

std::string domain_line(const std::string &name, const std::string &rest)
{
	return name + std::string(72 - name.size(), ' ') + ": " + rest + "\n";
}

using DumpRead = ModuleTest;

// ---- read sequence --------------------------------------------------------

// Closing in the middle of a station frees its copy (the fixture checks
// for leaks).
TEST_F(DumpRead, ReadsOf350BytesOrFewerReturnNothingAndDoNotStartThePass)
{
	join(kA);
	for (int i = 0; i < 10; i++)
		query(kA, ("n" + std::to_string(i) + ".example").c_str());
	Dev d(VY_CHRDEV_DUMP);
	for (size_t n : {0, 1, 100, 349, 350})
		EXPECT_EQ(d.read(n), "") << n;
	// The first read of 351 bytes still starts with the status block, and
	// stops there: the station block needs 351 free bytes of its own.
	EXPECT_EQ(d.read(351), status(true, 2));
	EXPECT_EQ(d.read(350), "");
	EXPECT_EQ(d.read(351), fresh("0.0.0.0"));
	// A line of 90 bytes leaves exactly 350 free: room for one more.
	const std::string two = d.read(440);
	EXPECT_EQ(two.substr(0, 90), domain_line("n0.example", "(latency: 0 ms)"));
	EXPECT_EQ(two.size(), 180u);
}

TEST_F(DumpRead, DomainLinesResumeAcrossSmallReadsWithoutLossOrRepetition)
{
	join(kA);
	join(kB);
	std::vector<std::string> names;
	for (u8 i = 0; i < 60; i++) {
		names.push_back("host" + std::to_string(100 + i) + ".example.org");
		query(kA, names.back().c_str(), kStaIp);
		vy_host::advance(1);
		answer(kA, names.back().c_str(), ip4(192, 0, 2, i));
	}

	const std::string whole = whole_pass(VY_CHRDEV_DUMP);
	for (const std::string &n : names)
		EXPECT_EQ(occurrences(whole, "\n" + n + " "), 1u) << n;
	EXPECT_EQ(occurrences(whole, "STA: 02:00:00:00:00:02\n"), 1u);

	for (size_t count : {351, 352, 400, 500, 622, 700, 1000}) {
		SCOPED_TRACE(count);
		Dev d(VY_CHRDEV_DUMP);
		EXPECT_EQ(d.read_all(count), whole);
		EXPECT_EQ(d.read(4096), "") << "the pass is over";
	}
}

TEST_F(DumpRead, FailedCopiesEndThePassAndFreeTheCopies)
{
	join(kA);
	join(kB);
	for (const char *n : {"n1.example", "n2.example", "n3.example"})
		query(kA, n, kStaIp);
	const long live = vy_host::live_allocations();
	// At the station block, at a domain line, at a summary line; the
	// station's copy is freed at once, the domain copies with it.
	struct {
		int dev, reads;
		const char *func;
		std::string error;
	} rows[] = {
		{VY_CHRDEV_DUMP, 1, "vy_sta_dump_basic_info",
		 "copy_to_user error (msg = " + fresh("10.0.0.23") + ")"},
		{VY_CHRDEV_DUMP, 2, "vy_sta_dump_dns_entries",
		 "copy_to_user error (msg = " +
			 domain_line("n1.example", "(latency: 0 ms)") + ")"},
		{VY_CHRDEV_SUMMARY, 1, "vy_sta_dump_summary",
		 "copy_to_user error (msg = 02:00:00:00:00:01    None              UNKNOWN\n)"},
	};
	for (const auto &r : rows) {
		SCOPED_TRACE(r.func);
		Dev d(r.dev);
		for (int i = 0; i < r.reads; i++)
			EXPECT_NE(d.read(351), "");
		if (r.reads == 2) // the station copy with its three domain entries
			EXPECT_EQ(vy_host::live_allocations(), live + 4);
		vy_host::take_events();
		vy_host::fail_at(vy_host::FAIL_COPY_TO_USER);
		EXPECT_EQ(d.read(4096), "");
		EXPECT_EQ(vy_host::live_allocations(), live + 1);
		// The same step now finds no station and the reader sees the
		// end of the file, however often it asks.
		EXPECT_EQ(d.read(4096), "");
		EXPECT_EQ(d.read(4096), "");
		EXPECT_EQ(logs_of(VY_LOG_ERR, r.func),
			  (std::vector<std::string>{r.error, "Invalid STA mac",
						    "Invalid STA mac"}));
	}
	// Reopening starts afresh.
	EXPECT_NE(whole_pass(VY_CHRDEV_DUMP).find("STA: 02:00:00:00:00:01\n"),
		  std::string::npos);

	// A failed copy of the summary's header goes on with the stations.
	Dev d(VY_CHRDEV_SUMMARY);
	vy_host::take_events();
	vy_host::fail_at(vy_host::FAIL_COPY_TO_USER);
	EXPECT_EQ(d.read(4096), "");
	EXPECT_EQ(logs_of(VY_LOG_ERR, "vy_sta_dump_start"),
		  std::vector<std::string>{"copy_to_user error (msg = " +
					   std::string(kSummaryHeader) + ")"});
	EXPECT_EQ(d.read_all(4096), "02:00:00:00:00:01    None              UNKNOWN\n"
				    "02:00:00:00:00:02    None              UNKNOWN\n");
}

TEST_F(DumpRead, OnlyOneDeviceMayBeOpenAtATime)
{
	{
		Dev holder(VY_CHRDEV_DUMP);
		for (int way : {2, 1}) {
			vy_host::take_events();
			Dev other(way == 2 ? VY_CHRDEV_SUMMARY : VY_CHRDEV_DUMP);
			EXPECT_EQ(other.f, nullptr);
			EXPECT_EQ(other.err, -VY_EBUSY);
			EXPECT_EQ(logs_of(VY_LOG_ERR, "_vy_dump_dev_init"),
				  std::vector<std::string>{
					  "The dump char device is in use now. (requested dump way = " +
					  std::to_string(way) + ", current used way = 1)"});
		}
		// The holder is undisturbed by the refusals.
		EXPECT_EQ(holder.read(351).substr(0, 14), "Listening: no\n");
	}
	Dev summary(VY_CHRDEV_SUMMARY);
	Dev dump(VY_CHRDEV_DUMP);
	EXPECT_EQ(dump.err, -VY_EBUSY);
	EXPECT_EQ(summary.read(4096), kSummaryHeader);
}

// ---- exact text -----------------------------------------------------------

// kA's DHCP and DNS succeed, kB's time out.
TEST_F(DumpRead, StationsWithDhcpAndDnsAnsweredAndTimedOut)
{
	// Both join before the hook work runs: a join while it listens would
	// queue a run that hooks again.
	vy_add_sta_entry(kB.b, "wlan0");
	join(kA); // at 1000; the periodic timer runs every 500 jiffies
	dhcp(kB, VY_STATUS_UNKNOWN, 1);
	query(kB, "n1.example", kStaIp);
	query(kA, "slow.example", kStaIp);
	vy_host::advance_to(3000); // unanswered for 2000 jiffies: DNS FAIL

	query(kA, "www.example.com", kStaIp);
	vy_host::advance_to(3010);
	vy_add_sta_domain_cname(kA.b, "www.example.com", 15, "cdn.example.net", 15);
	answer(kA, "cdn.example.net", ip4(93, 184, 216, 34));
	query(kA, "bad.example", kStaIp);
	vy_host::advance_to(3012);
	vy_reject_sta_domain(kA.b, "bad.example", 11, 3);
	query(kA, "old.example", kStaIp);
	vy_host::advance_to(3013);
	answer(kA, "old.example", ip4(1, 2, 3, 4));
	vy_host::advance_to(3014);
	query(kA, "old.example", kStaIp); // pending again, with its address kept
	query(kA, "mail.example.org", kStaIp);
	vy_host::advance_to(3020);
	for (u8 i = 1; i <= 4; i++)
		answer(kA, "mail.example.org", ip4(10, 1, 0, i));
	vy_host::advance_to(3500); // average of 100, 20 and 60 ms

	dhcp(kA, VY_STATUS_UNKNOWN, 1, 0, 0, 0, 0, "laptop", 6);
	vy_host::advance_to(3525);
	dhcp(kA, VY_STATUS_OK, 5, kStaIp, ip4(10, 0, 0, 1), ip4(10, 0, 0, 254),
	     ip4(10, 0, 0, 53), "laptop", 6);
	// The last listener is gone: listening stops and the pending query
	// of old.example is reset.
	vy_host::settle();
	ASSERT_FALSE(vy_host::hooks_registered());

	// All five names of bucket 0 in the order they were created, then
	// the one of bucket 2.
	EXPECT_EQ(whole_pass(VY_CHRDEV_DUMP),
		  status(false, 0, 2) +
			  block({"02:00:00:00:00:01", "laptop", "10.0.0.23", "OK",
				 "DHCPACK", "10.0.0.1", "250 ms", "", "10.0.0.254", "OK",
				 "10.0.0.53", "60 ms", "60 ms", "0"}) +
			  domain_line("slow.example", "(latency: 15 sec timeout)") +
			  domain_line("www.example.com", "93.184.216.34 (latency: 100 ms)") +
			  domain_line("[cname] cdn.example.net", "93.184.216.34 (latency: 0 ms)") +
			  domain_line("bad.example", "rcode 3 (latency: 20 ms)") +
			  domain_line("old.example", "No IP answer before listening stop. 1.2.3.4 (latency: 0 ms)") +
			  domain_line("mail.example.org",
				      "10.1.0.1 10.1.0.2 10.1.0.3 10.1.0.4 (latency: 60 ms)") +
			  block({"02:00:00:00:00:02", "", "10.0.0.23", "FAIL",
				 "DHCPDISCOVER", "0.0.0.0", "0 ms", "timeout", "0.0.0.0",
				 "FAIL", "0.0.0.0", "0 ms", "0 ms", "0"}) +
			  domain_line("n1.example", "(latency: 15 sec timeout)"));
	EXPECT_EQ(whole_pass(VY_CHRDEV_SUMMARY),
		  std::string(kSummaryHeader) + "02:00:00:00:00:01    10.0.0.23         OK\n" +
			  "02:00:00:00:00:02    None              FAIL\n");
}

TEST_F(DumpRead, BlocksAtTheEdgeOfTheTextBuffer)
{
	join(kA);
	const char *host = "abcdefghijklmnopqrstuvwxyz0123456789abcdefghijklmnopqrstuvwxyz01";
	dhcp(kA, VY_STATUS_INVALID, 0, ip4(255, 255, 255, 255), ip4(1, 2, 3, 45),
	     ip4(1, 2, 3, 45), ip4(10, 0, 0, 1), host, 64);
	// 349 characters fit whole; at 350 the last newline has no room left
	// beside the NUL.
	for (u32 avg : {0, 10}) {
		SCOPED_TRACE(avg);
		std::string text = block({"02:00:00:00:00:01", host, "255.255.255.255",
					  "UNKNOWN", "", "1.2.3.45", "10 ms", "", "1.2.3.45",
					  "UNKNOWN", "10.0.0.1", "0 ms",
					  std::to_string(avg) + " ms", "2"});
		text.resize(349);
		{
			vy_write_guard guard(&vy_sta_table.sta_lock);
			_vy_find_sta(kA.b)->dhcp_latency = 10;
			_vy_find_sta(kA.b)->dns_latency_avg = avg;
		}
		Dev d(VY_CHRDEV_DUMP);
		d.read(351);
		EXPECT_EQ(d.read(351), text);
		EXPECT_EQ(d.read(351), "");
	}
}

TEST_F(DumpRead, TypeAndStatusNamesOutsideTheirTables)
{
	join(kA);
	struct {
		u8 type;
		u32 dhcp_status, dns_status;
		const char *type_name, *dhcp_name, *dns_name;
	} rows[] = {
		{0, 0, 1, "", "UNKNOWN", "OK"},
		{8, 1, 2, "DHCPINFORM", "OK", "FAIL"},
		{9, 2, 3, "UNKNOWN", "FAIL", "INVALID"},
		{10, 3, 4, "UNKNOWN", "INVALID", "INVALID"},
		{200, 4, 0xffffffffu, "UNKNOWN", "INVALID", "INVALID"},
		{255, 0x80000000u, 0, "UNKNOWN", "INVALID", "UNKNOWN"},
	};
	for (const auto &r : rows) {
		SCOPED_TRACE(static_cast<int>(r.type));
		{
			vy_write_guard guard(&vy_sta_table.sta_lock);
			sta *e = _vy_find_sta(kA.b);
			e->dhcp_type = r.type;
			e->dhcp_status = r.dhcp_status;
			e->dns_status = r.dns_status;
		}
		const std::string text = whole_pass(VY_CHRDEV_DUMP);
		for (const std::string line :
		     {"DHCP Type: " + std::string(r.type_name),
		      "DHCP Status: " + std::string(r.dhcp_name),
		      "DNS Status: " + std::string(r.dns_name)})
			EXPECT_NE(text.find(line + "\n"), std::string::npos) << text;
	}
}

} // namespace
