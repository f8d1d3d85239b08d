// SPDX-License-Identifier: GPL-2.0
/*
 * Bad input from operators and stations gets its documented answer and
 * changes nothing else: command lines of every length from 0 to 70 made of
 * any bytes (binary and NUL included), frames whose linear part ends at
 * every length, and floods of malformed frames.
 */
#include <map>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "frames.h"
#include "parsers/msg_builder.h"
#include "support.h"
#include "vy_dump.h"

namespace {

using msg::Bytes;

const Mac kSta = {{0x02, 0x11, 0x22, 0x33, 0x44, 0x55}};
const Mac kA = mac_of(0, 1);

/* The module state a bad input must leave alone. */
std::string state_now()
{
	std::string s = std::to_string(vy_read_force_listen()) + " " +
			std::to_string(debug_level) + " " +
			std::to_string(vy_get_sta_count()) + " " +
			std::to_string(vy_read_listeners()) + " " +
			std::to_string(vy_host::hooks_registered());
	vy_read_guard g(&vy_sta_table.sta_lock);
	for (auto &h : vy_sta_table.sta_hlist)
		for (vy_hlist_node *p = h.first; p; p = p->next) {
			const sta *e = vy_container_of(p, sta, hlist);
			s += " " + std::string(e->mac, e->mac + 6) + e->vap_name;
		}
	return s;
}

bool has_domain(const Mac &m, const std::string &name)
{
	vy_write_guard g(&vy_sta_table.sta_lock);
	sta *e = _vy_find_sta(m.b);
	return e && _vy_find_domain(&e->domain_hlist, name.data(),
				    static_cast<u16>(name.size()));
}

long write_line(const std::string &bytes)
{
	int err = 0;
	vy_host::File *f = vy_host::open(VY_CHRDEV_SUMMARY, &err);

	EXPECT_NE(f, nullptr) << err;
	if (!f)
		return -1000;
	/* A heap block of exactly the line's size: the write must not read
	 * past the count. */
	std::vector<char> exact(bytes.begin(), bytes.end());
	long r = vy_host::write(f, exact.empty() ? "" : exact.data(), exact.size());
	vy_host::release(f);
	return r;
}

size_t count_lines(int level)
{
	return vy_host::log_lines(level).size();
}

bool scan_space(u8 c)
{
	return c == ' ' || (c >= '\t' && c <= '\r') || c == 0xa0;
}

class BadInput : public ModuleTest {
protected:
	void SetUp() override
	{
		ModuleTest::SetUp();
		join(kSta);
		join(kA);
		vy_host::take_events();
	}
};

/*
 * Every length from 0 to 70, any bytes: each line starts with a head that
 * is, or begins, a command word and goes on with random bytes whose first
 * one cannot complete the command (so the line is never a valid command);
 * then the rest is random, NUL and binary included. Lines of 1 to 64
 * bytes print the help once and return their length; longer ones are
 * refused with the length error (rate limited) and return 0; the empty write returns 0 silently. Nothing else changes.
 */
TEST_F(BadInput, CommandLinesOfEveryLengthChangeNothing)
{
	const std::pair<std::string, std::string> heads[] = {
		/* a head, and the bytes the first random byte avoids */
		{"", "df"},
		{"del ", "as"},
		{"del sta ", "0123456789abcdefABCDEF"},
		{"force_listen ", "01"},
		{"debug_level ", "01234"},
	};
	std::mt19937 rng(8);
	const std::string before = state_now();
	int length_errors = 0;

	for (const auto &h : heads) {
		for (size_t len = 0; len <= 70; len++) {
			for (int rep = 0; rep < 4; rep++) {
				std::string line = h.first;
				u8 first;
				do
					first = static_cast<u8>(rng());
				while (scan_space(first) ||
				       h.second.find((char)first) != std::string::npos);
				line.push_back((char)first);
				while (line.size() < len)
					line.push_back((char)(u8)rng());
				line.resize(len);
				SCOPED_TRACE("head \"" + h.first + "\", length " + std::to_string(len));

				vy_host::take_events();
				long r = write_line(line);
				EXPECT_EQ(r, len <= 64 ? (long)len : 0);
				EXPECT_EQ(count_lines(VY_LOG_DEFAULT), len && len <= 64 ? 4u : 0u);
				if (len <= 64)
					EXPECT_EQ(count_lines(0), len ? 4u : 0u);
				ASSERT_LE(count_lines(VY_LOG_ERR), 1u);
				for (const auto &l : vy_host::log_lines(VY_LOG_ERR)) {
					EXPECT_NE(l.find("The input length " + std::to_string(len) + " > 64"),
						  std::string::npos);
					length_errors++;
				}
				vy_host::settle();
				ASSERT_EQ(state_now(), before);
			}
		}
	}
	EXPECT_GE(length_errors, 1);
}

frames::Udp4 from_sta(const Bytes &payload)
{
	frames::Udp4 u;
	std::memcpy(u.src.b, kSta.b, 6);
	u.sport = 40000;
	u.dport = 53;
	u.payload = payload;
	return u;
}

/*
 * A DNS query frame from the station whose linear part ends at every
 * length: the hooks read nothing past it, and the query is recorded only
 * when the whole message is linear (a payload cut at the linear end is
 * parsed as a shorter message).
 */
TEST_F(BadInput, FrameLinearPartEndsAtEveryLength)
{
	const Bytes f = from_sta(msg::Dns().query().question("www.example.com").build()).build();

	for (size_t linear = 0; linear <= f.size(); linear++) {
		SCOPED_TRACE("linear " + std::to_string(linear));
		reload();
		join(kSta);
		vy_dev *wlan0 = vy_host::dev_create("wlan0", true);
		vy_skb skb = vy_host::make_skb(f, linear);
		ASSERT_TRUE(vy_host::pass_pre_routing(skb, wlan0));
		EXPECT_EQ(has_domain(kSta, "www.example.com"), linear == f.size());
		expect_consistent();
	}
}

/*
 * The warnings a station's malformed frames provoke at packet rate pass
 * the rate limit of their call site (10 lines per 5 s): a flood of 200
 * frames prints the warning, but at most 10 lines from each site.
 */
TEST_F(BadInput, StationTrafficCannotFloodTheLog)
{
	const Bytes query = msg::Dns().query().question("www.example.com").build();
	frames::Udp4 udp_past = from_sta(query);
	udp_past.udp_len = 4000;
	struct Flood {
		const char *warning;
		Bytes frame;
		size_t linear;
	} floods[] = {
		{"error ip header", from_sta(query).build(), 14 + 19},
		{"error udp header", from_sta(query).build(), 14 + 20 + 7},
		{"is greater than skb len", udp_past.build(), SIZE_MAX},
	};
	vy_dev *wlan0 = vy_host::dev_create("wlan0", true);
	for (const Flood &f : floods) {
		SCOPED_TRACE(f.warning);
		vy_host::advance(6 * HZ); /* a fresh window of the limit */
		vy_host::take_events();
		for (int i = 0; i < 200; i++) {
			vy_skb skb = vy_host::make_skb(f.frame, f.linear);
			ASSERT_TRUE(vy_host::pass_pre_routing(skb, wlan0));
		}
		int matching = 0;
		std::map<std::string, size_t> per_site; /* "function[line]" */
		for (const std::string &l : vy_host::log_lines(VY_LOG_WARNING)) {
			matching += l.find(f.warning) != std::string::npos;
			per_site[l.substr(0, l.find("]:"))]++;
		}
		EXPECT_GE(matching, 1);
		for (const auto &site : per_site)
			EXPECT_LE(site.second, 10u) << site.first;
	}
}

} // namespace
