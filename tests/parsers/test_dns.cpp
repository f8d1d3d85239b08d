// The DNS parser on whole messages: header and direction rules, the
// question, the answer walk record by record, and every bound at the end
// of the message. Checks the exact calls on the station table and the
// exact log lines.
#include <functional>

#include "parser_test.h"
#include "vy_dns.h"

namespace {

using fake_sta::Call;
using msg::Bytes;
using msg::Dns;
using msg::Ip;
using msg::ip_value;
using msg::label;
using msg::labels;
using msg::name;
using msg::name_ptr;
using msg::ptr;
using msg::repeat;
using msg::operator+;

const fake_sta::Mac kMac{0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
const Ip kStaIp{192, 0, 2, 10};
constexpr u16 kQ = msg::kQuestionOffset;

const std::string kPkt = "vy_parse_dns_pkt:";
const std::string kAns = "vy_parse_dns_answer:";
const std::string kQueryFailed = "W vy_parse_dns_pkt:dns query parsing failed";
const std::string kAnswerFailed = "W vy_parse_dns_pkt:dns answer parsing failed";
const std::string kNameFailed = "W vy_parse_dns_answer:_vy_parse_dns_domain() error";
const std::string kCorrupt = "DNS packets might be corrupt or fragmented: ";

std::string query_line(const std::string &n)
{
	return "I " + kPkt + "DNS Query: " + n;
}

std::string a_line(const std::string &owner, const std::string &ip)
{
	return "I " + kAns + "DNS Answer: " + owner + ", " + ip;
}

std::string cname_line(const std::string &owner, const std::string &target)
{
	return "I " + kAns + "DNS Answer: " + owner + ", cname = " + target;
}

Call query_call(const std::string &n)
{
	return fake_sta::add_domain(kMac, n, static_cast<u16>(n.size()),
				    ip_value(kStaIp));
}

Call ip_call(const std::string &n, const Ip &ip)
{
	return fake_sta::add_domain_ip(kMac, n, static_cast<u16>(n.size()),
				       ip_value(ip));
}

Call cname_call(const std::string &n, const std::string &target)
{
	return fake_sta::add_domain_cname(kMac, n, static_cast<u16>(n.size()),
					  target,
					  static_cast<u16>(target.size()));
}

struct DnsCase {
	std::string what;
	Bytes m;
	u8 to_wireless;
	s32 result;
	std::vector<Call> calls;
	std::vector<std::string> logs; /* with the placeholders of expand() */
};

const Ip kIp1{198, 51, 100, 7}, kIp2{203, 0, 113, 9};
const std::string a63 = repeat('a', 63), b63 = repeat('b', 63);
const std::string x60 = repeat('x', 60), y60 = repeat('y', 60);

std::vector<DnsCase> cases()
{
	std::vector<DnsCase> v;
	const std::string www = "www.example.com";

	/* ---- size, header and direction ---- */
	v.push_back({"header_only", Bytes(12, 0), 0, -1, {},
		     {"D vy_parse_dns:invalid dns body length = 0"}});
	v.push_back({"empty", Bytes(), 1, -1, {},
		     {"D vy_parse_dns:invalid dns body length = -12"}});
	v.push_back({"thirteen_bytes_reach_the_question",
		     Dns().query().qdcount(1).raw({0}).build(), 0, 0, {},
		     {"I vy_parse_dns_query:" + kCorrupt + "{@12} + 4 > {end}",
		      kQueryFailed}});
	v.push_back({"qdcount_0", Dns().query().qdcount(0).question(www).build(),
		     0, 0, {},
		     {"D " + kPkt + "do not support query count(0) > 1 or = 0"}});
	v.push_back({"qdcount_2",
		     Dns().query().question(www).question("a.b").build(), 0, 0,
		     {}, {"D " + kPkt + "do not support query count(2) > 1 or = 0"}});
	v.push_back({"query_to_wireless", Dns().query().question(www).build(), 1,
		     0, {}, {"D " + kPkt + "ignore DNS Query to wireless"}});
	v.push_back({"response_from_wireless",
		     Dns().response().question(www).a(ptr(kQ), kIp1).build(), 0,
		     0, {}, {"D " + kPkt + "ignore DNS Answer not to wireless"}});

	/* ---- the question ---- */
	v.push_back({"query_three_labels",
		     Dns().query().question("abc.example.com").build(), 0, 0,
		     {query_call("abc.example.com")},
		     {query_line("abc.example.com")}});
	v.push_back({"root_question", Dns().query().question("").build(), 0, 0,
		     {query_call("")}, {query_line("")}});
	v.push_back({"question_127_characters",
		     Dns().query().question(a63 + "." + b63).build(), 0, 0,
		     {query_call(a63 + "." + b63)},
		     {query_line(a63 + "." + b63)}});
	v.push_back({"question_label_beyond_127_dropped",
		     Dns().query().question(a63 + "." + b63 + ".c").build(), 0,
		     0, {query_call(a63 + "." + b63)},
		     {query_line(a63 + "." + b63)}});
	v.push_back({"question_later_labels_dropped_too",
		     Dns().query()
			     .question(x60 + "." + y60 + "." + repeat('z', 10) +
				       ".q")
			     .build(),
		     0, 0, {query_call(x60 + "." + y60)},
		     {query_line(x60 + "." + y60)}});
	v.push_back({"question_label_past_the_end",
		     Dns().query().qdcount(1).raw({5, 'a', 'b'}).build(), 0, 0,
		     {},
		     {"I vy_parse_dns_query:" + kCorrupt + "{@12} + 5 > {end}",
		      kQueryFailed}});
	v.push_back({"question_pointer_is_a_length",
		     Dns().query().qdcount(1).raw(ptr(kQ) + Bytes(8, 0)).build(),
		     0, 0, {},
		     {"I vy_parse_dns_query:" + kCorrupt + "{@12} + 192 > {end}",
		      kQueryFailed}});
	v.push_back({"question_type_cut",
		     Dns().query().qdcount(1).raw(name("ab") + Bytes{0, 1, 0})
			     .build(),
		     0, 0, {},
		     {"I vy_parse_dns_query:" + kCorrupt + "{@15} + 4 > {end}",
		      kQueryFailed}});
	v.push_back({"aaaa_query", Dns().query().question(www, msg::kTypeAaaa)
					   .build(),
		     0, 0, {},
		     {"D " + kPkt + "ignore dns type 28 (only support query type A: 1)"}});
	v.push_back({"aaaa_response_with_records",
		     Dns().response()
			     .question(name(www), msg::kTypeAaaa)
			     .a(ptr(kQ), kIp1)
			     .build(),
		     1, 0, {},
		     {"D " + kPkt + "ignore dns type 28 (only support query type A: 1)"}});
	v.push_back({"aaaa_response_with_rcode_3",
		     Dns().response(3).question(name(www), msg::kTypeAaaa).build(),
		     1, 0, {},
		     {"D " + kPkt + "ignore dns type 28 (only support query type A: 1)"}});

	/* ---- error responses ---- */
	v.push_back({"rcode_3_no_records", Dns().response(3).question(www).build(),
		     1, 0, {fake_sta::reject_domain(kMac, www, 15, 3)},
		     {"I " + kPkt + "DNS Answer: " + www + " fails with RCODE = 3"}});
	v.push_back({"rcode_3_ignores_ancount",
		     Dns().response(3).question(www).ancount(2).raw({0xC0}).build(),
		     1, 0, {fake_sta::reject_domain(kMac, www, 15, 3)},
		     {"I " + kPkt + "DNS Answer: " + www + " fails with RCODE = 3"}});
	v.push_back({"rcode_15_with_a_record",
		     Dns().response(15).question(www).a(ptr(kQ), kIp1).build(), 1,
		     0, {fake_sta::reject_domain(kMac, www, 15, 15)},
		     {"I " + kPkt + "DNS Answer: " + www + " fails with RCODE = 15"}});

	/* ---- the answer walk ---- */
	v.push_back({"no_records", Dns().response().question(www).build(), 1, 0,
		     {}, {}});
	{
		Dns d;
		d.response().question(www);
		const u16 rec1 = d.here();
		d.cname(ptr(kQ), name("web.cdn.net"));
		const u16 target = static_cast<u16>(rec1 + 2 + 10);
		d.a(ptr(target), kIp1);
		v.push_back({"cname_then_a_in_record_order", d.build(), 1, 0,
			     {cname_call(www, "web.cdn.net"),
			      ip_call("web.cdn.net", kIp1)},
			     {cname_line(www, "web.cdn.net"),
			      a_line("web.cdn.net", "198.51.100.7")}});
	}
	{
		/* An owner that points into the question, not at the last
		 * alias target, is decoded as it stands. */
		Dns d;
		d.response().question(www);
		d.cname(ptr(kQ), name("web.cdn.net"));
		d.a(ptr(kQ + 4), kIp1);
		v.push_back({"owner_inside_the_question_after_a_cname", d.build(),
			     1, 0,
			     {cname_call(www, "web.cdn.net"),
			      ip_call("example.com", kIp1)},
			     {cname_line(www, "web.cdn.net"),
			      a_line("example.com", "198.51.100.7")}});
	}
	v.push_back({"type_46_between_a_records",
		     Dns().response()
			     .question(www)
			     .a(ptr(kQ), kIp1)
			     .record(ptr(kQ), msg::kTypeRrsig, Bytes(30, 0xEE))
			     .a(ptr(kQ), kIp2)
			     .build(),
		     1, 0, {ip_call(www, kIp1), ip_call(www, kIp2)},
		     {a_line(www, "198.51.100.7"), "D " + kAns + "ignore dns type 46",
		      a_line(www, "203.0.113.9")}});
	v.push_back({"a_rdlength_6_first_four_bytes",
		     Dns().response()
			     .question(www)
			     .record(ptr(kQ), msg::kTypeA, {10, 1, 2, 3, 4, 5})
			     .a(ptr(kQ), kIp2)
			     .build(),
		     1, 0, {ip_call(www, Ip{10, 1, 2, 3}), ip_call(www, kIp2)},
		     {a_line(www, "10.1.2.3"), a_line(www, "203.0.113.9")}});
	v.push_back({"uncompressed_owner",
		     Dns().response().question(www).a(name("other.org"), kIp1)
			     .build(),
		     1, 0, {ip_call("other.org", kIp1)},
		     {a_line("other.org", "198.51.100.7")}});
	v.push_back({"owner_truncated_to_leading_labels",
		     Dns().response()
			     .question(www)
			     .a(name(x60 + "." + y60 + "." + repeat('z', 10)), kIp1)
			     .build(),
		     1, 0,
		     {fake_sta::add_domain_ip(kMac, x60 + "." + y60, 121,
					      ip_value(kIp1))},
		     {"I _vy_parse_dns_domain:domain length > the max size 128 "
		      "(partial domain = " + x60 + "." + y60 +
			      ", 121 + 10 + 1 >= 128)",
		      a_line(x60 + "." + y60, "198.51.100.7")}});
	{
		Dns d;
		d.response().question(www).a(ptr(kQ), kIp1).a(ptr(kQ), kIp2)
			.ancount(3);
		const size_t len = d.build().size();
		v.push_back({"ancount_larger_than_records", d.build(), 1, 0,
			     {ip_call(www, kIp1), ip_call(www, kIp2)},
			     {a_line(www, "198.51.100.7"),
			      a_line(www, "203.0.113.9"),
			      "I _vy_parse_dns_domain:" + kCorrupt + "{@" +
				      std::to_string(len) + "} + 0 > {end}",
			      kNameFailed, kAnswerFailed}});
	}
	{
		Dns d;
		d.response().question(www).a(ptr(kQ), kIp1).ancount(2);
		const u16 owner = d.here();
		d.raw({10, 'a', 'b'});
		v.push_back({"owner_past_the_end", d.build(), 1, 0,
			     {ip_call(www, kIp1)},
			     {a_line(www, "198.51.100.7"),
			      "I _vy_parse_dns_domain:" + kCorrupt + "{@" +
				      std::to_string(owner) + "} + 10 > {end}",
			      kNameFailed, kAnswerFailed}});
	}
	{
		Dns d;
		d.response().question(www).ancount(1);
		const u16 owner = d.here();
		d.raw({0xC0});
		v.push_back({"owner_pointer_second_byte_past_the_end", d.build(),
			     1, 0, {},
			     {"I _vy_parse_dns_domain:" + kCorrupt + "{@" +
				      std::to_string(owner) + "} + 1 > {end}",
			      kNameFailed, kAnswerFailed}});
	}
	{
		Dns d;
		d.response().question(www).ancount(1);
		const u16 fixed = static_cast<u16>(d.here() + 2);
		d.raw(ptr(kQ) + Bytes{0, 1, 0, 1, 0, 0, 1});
		v.push_back({"fixed_fields_cut", d.build(), 1, 0, {},
			     {"I " + kAns + kCorrupt + "{@" + std::to_string(fixed) +
				      "} + 9 > {end}",
			      kAnswerFailed}});
	}
	{
		Dns d;
		d.response().question(www);
		const u16 rdata = static_cast<u16>(d.here() + 2 + 10);
		d.record(ptr(kQ), msg::kTypeA, {1, 2});
		v.push_back({"a_address_cut", d.build(), 1, 0, {},
			     {"I " + kAns + kCorrupt + "{@" + std::to_string(rdata) +
				      "} + 3 > {end}",
			      kAnswerFailed}});
	}

	/* ---- CNAME targets ---- */
	v.push_back({"cname_target_pointer_to_question",
		     Dns().response().question(www)
			     .cname(ptr(kQ), name_ptr("edge", kQ))
			     .build(),
		     1, 0, {cname_call(www, "edge." + www)},
		     {cname_line(www, "edge." + www)}});
	{
		Dns d;
		d.response().question(www);
		d.record(ptr(kQ), msg::kTypeCname, name("alias.net"), 200)
			.ancount(2);
		const size_t len = d.build().size();
		v.push_back({"cname_rdata_past_the_message", d.build(), 1, 0,
			     {cname_call(www, "alias.net")},
			     {cname_line(www, "alias.net"),
			      "I _vy_parse_dns_domain:" + kCorrupt + "{@" +
				      std::to_string(len) + "} + 0 > {end}",
			      kNameFailed, kAnswerFailed}});
	}
	{
		/* RDLENGTH reaches past the message and the target's label
		 * past its end: the message's end bounds it. */
		Dns d;
		d.response().question(www);
		const u16 rdata = static_cast<u16>(d.here() + 2 + 10);
		d.record(ptr(kQ), msg::kTypeCname, {5, 'a', 'l', 'i'}, 50);
		v.push_back({"cname_target_cut_by_the_message", d.build(), 1, 0,
			     {},
			     {"I _vy_parse_dns_domain:" + kCorrupt + "{@" +
				      std::to_string(rdata) + "} + 5 > {end}",
			      kNameFailed, kAnswerFailed}});
	}
	{
		Dns d;
		d.response().question(www);
		const u16 rdata = static_cast<u16>(d.here() + 2 + 10);
		d.record(ptr(kQ), msg::kTypeCname, name("alias.net"), 4)
			.a(ptr(kQ), kIp1);
		v.push_back({"cname_target_longer_than_rdata", d.build(), 1, 0, {},
			     {"I _vy_parse_dns_domain:" + kCorrupt + "{@" +
				      std::to_string(rdata) + "} + 5 > {@" +
				      std::to_string(rdata + 3) + "}",
			      kNameFailed, kAnswerFailed}});
	}
	{
		Dns d;
		d.response().question(www);
		const u16 rdata = static_cast<u16>(d.here() + 2 + 10);
		d.record(ptr(kQ), msg::kTypeCname, {}).a(ptr(kQ), kIp1);
		v.push_back({"cname_empty_rdata", d.build(), 1, 0, {},
			     {"I _vy_parse_dns_domain:" + kCorrupt + "{@" +
				      std::to_string(rdata) + "} + 0 > {@" +
				      std::to_string(rdata - 1) + "}",
			      kNameFailed, kAnswerFailed}});
	}
	{
		/* A pointer out of the RDATA to a later name fails: names a
		 * target leads to must lie at or before the RDATA's end. */
		Dns d;
		d.response().question(www).ancount(1);
		const u16 rec = d.here();
		const u16 rdata = static_cast<u16>(rec + 2 + 10);
		const u16 later = static_cast<u16>(rdata + 2);
		d.record(ptr(kQ), msg::kTypeCname, ptr(later)).raw(name("late.org"));
		v.push_back({"cname_pointer_past_the_rdata", d.build(), 1, 0, {},
			     {"I _vy_parse_dns_domain:" + kCorrupt + "{dns} + " +
				      std::to_string(later) + " > {@" +
				      std::to_string(rdata + 1) + "}",
			      kNameFailed, kAnswerFailed}});
	}
	return v;
}

void PrintTo(const DnsCase &c, std::ostream *os)
{
	*os << c.what;
}

class DnsMessage : public ParserTest,
		   public ::testing::WithParamInterface<DnsCase> {};

TEST_P(DnsMessage, CallsAndLogs)
{
	const DnsCase &c = GetParam();
	Heap h(c.m);
	pkt_info pkt{};

	std::memcpy(pkt.saddr, kStaIp.data(), 4);
	fresh_ratelimit();
	EXPECT_EQ(vy_parse_dns(kMac.data(), &pkt, h.data(), h.size(),
			       c.to_wireless),
		  c.result);
	EXPECT_EQ(calls(), c.calls);

	std::vector<std::string> want;
	for (const auto &l : c.logs)
		want.push_back(expand(l, h.data(), h.size() ? h.last() : nullptr));
	EXPECT_EQ(logs(), want);
}

INSTANTIATE_TEST_SUITE_P(DnsMessages, DnsMessage, ::testing::ValuesIn(cases()),
			 [](const auto &info) { return info.param.what; });

/* Only warnings pass at the default level; the calls are the same. */
TEST_F(ParserTest, DnsDefaultLevelShowsOnlyWarnings)
{
	Dns d;
	d.response().question("www.example.com").a(msg::ptr(kQ), kIp1).ancount(2);
	Heap h(d.build());
	pkt_info pkt{};

	debug_level = 1;
	EXPECT_EQ(vy_parse_dns(kMac.data(), &pkt, h.data(), h.size(), 1), 0);
	EXPECT_EQ(calls(), std::vector<Call>{ip_call("www.example.com", kIp1)});
	EXPECT_EQ(logs(), (std::vector<std::string>{kNameFailed, kAnswerFailed}));
}

TEST_F(ParserTest, DnsRefusesMissingArguments)
{
	Heap h(Dns().query().question("a.b").build());
	pkt_info pkt{};
	const std::string w =
		"W vy_parse_dns:invalid parameters. (sta_mac = ";

	EXPECT_EQ(vy_parse_dns(nullptr, &pkt, h.data(), h.size(), 0), -1);
	EXPECT_EQ(vy_parse_dns(kMac.data(), nullptr, h.data(), h.size(), 0), -1);
	EXPECT_EQ(vy_parse_dns(kMac.data(), &pkt, nullptr, 40, 0), -1);
	EXPECT_TRUE(calls().empty());
	EXPECT_EQ(logs(),
		  (std::vector<std::string>{
			  w + ptr(nullptr) + ", pkt = " + ptr(&pkt) +
				  ", payload = " + ptr(h.data()) + ")",
			  w + ptr(kMac.data()) + ", pkt = " + ptr(nullptr) +
				  ", payload = " + ptr(h.data()) + ")",
			  w + ptr(kMac.data()) + ", pkt = " + ptr(&pkt) +
				  ", payload = " + ptr(nullptr) + ")",
		  }));
}

/*
 * The warnings a station can provoke at packet rate are rate limited per
 * call site: a burst spends only its own site's budget. An answer whose
 * owner name points at itself nests one error per pointer, from a single
 * site; the answer's and the message's own lines still print after them,
 * in the same window as an earlier flood of another failure.
 */
TEST_F(ParserTest, DnsFailureWarningsAreRateLimitedPerSite)
{
	Heap bad_query(Dns().query().qdcount(1).raw({9, 'x'}).build());
	Dns loop;
	loop.response().question("www.example.com");
	loop.a(msg::ptr(loop.here()), kIp1);
	Heap looping(loop.build());
	pkt_info pkt{};

	debug_level = 1;
	fresh_ratelimit();
	for (int i = 0; i < 100; i++)
		vy_parse_dns(kMac.data(), &pkt, bad_query.data(), bad_query.size(), 0);
	auto lines = logs();
	EXPECT_GE(lines.size(), 1u);
	EXPECT_LT(lines.size(), 100u);
	for (const auto &l : lines)
		EXPECT_EQ(l, kQueryFailed);

	vy_parse_dns(kMac.data(), &pkt, looping.data(), looping.size(), 1);
	lines = logs();
	ASSERT_GE(lines.size(), 3u);
	for (size_t i = 0; i + 2 < lines.size(); i++)
		EXPECT_EQ(lines[i], "W _vy_parse_dns_domain:_vy_parse_dns_domain() error");
	EXPECT_EQ(lines[lines.size() - 2], kNameFailed);
	EXPECT_EQ(lines.back(), kAnswerFailed);
}

} // namespace
