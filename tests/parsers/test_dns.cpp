// The DNS parser on whole messages: header and direction rules, the
// question, the answer walk record by record, and every bound at the end
// of the message. Each row lists the exact log lines and station table
// calls, in order.
#include "parser_test.h"
#include "vy_dns.h"

namespace {

using msg::Bytes;
using msg::Dns;
using msg::Ip;
using msg::name;
using msg::name_ptr;
using msg::ptr;
using msg::operator+;
using ::operator+;

const msg::Mac kMac{0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
const std::string kMacText = " 02:11:22:33:44:55 ";
const Ip kIp1{198, 51, 100, 7}, kIp2{203, 0, 113, 9};
const Bytes kAtQ = ptr(12); /* the question's name */
const std::string www = "www.example.com";

const std::string kCorrupt = "DNS packets might be corrupt or fragmented: ";
const std::string kQueryFailed = "W vy_parse_dns_pkt:dns query parsing failed";
const std::string kNested = "W _vy_parse_dns_domain:_vy_parse_dns_domain() error";
const Lines kBadName{"W vy_parse_dns_answer:_vy_parse_dns_domain() error",
		     "W vy_parse_dns_pkt:dns answer parsing failed"};
const Lines kTypeAaaa{"D vy_parse_dns_pkt:ignore dns type 28 (only support query type A: 1)"};

std::string with_len(const std::string &n)
{
	return n + "/" + std::to_string(n.size());
}

Lines Q(const std::string &n)
{
	return {"I vy_parse_dns_pkt:DNS Query: " + n,
		"> query" + kMacText + with_len(n) + " from 192.0.2.10"};
}

Lines A(const std::string &owner, const Ip &address)
{
	const std::string ip = text(address);
	return {"I vy_parse_dns_answer:DNS Answer: " + owner + ", " + ip,
		"> ip" + kMacText + with_len(owner) + " " + ip};
}

Lines C(const std::string &owner, const std::string &target)
{
	return {"I vy_parse_dns_answer:DNS Answer: " + owner + ", cname = " + target,
		"> cname" + kMacText + with_len(owner) + " " + with_len(target)};
}

Lines R(const std::string &n, int rcode)
{
	const std::string r = std::to_string(rcode);
	return {"I vy_parse_dns_pkt:DNS Answer: " + n + " fails with RCODE = " + r,
		"> reject" + kMacText + with_len(n) + " rcode " + r};
}

/* "what failed: at + n > end", from a function. */
Lines corrupt(const std::string &fn, const std::string &at, int n, const std::string &end = "{end}")
{
	return {"I " + fn + ":" + kCorrupt + at + " + " + std::to_string(n) + " > " + end};
}

Lines bad_name(const std::string &at, int n, const std::string &end = "{end}")
{
	return corrupt("_vy_parse_dns_domain", at, n, end) + kBadName;
}

/* A name cut to the leading labels that fit, "kept, sums >= 128)". */
Lines cut(const std::string &kept, const std::string &sums)
{
	return {"I _vy_parse_dns_domain:domain length > the max size 128 (partial domain = " +
		kept + ", " + sums + " >= 128)"};
}

/* A response to the question www.example.com. */
Dns reply()
{
	return Dns().response().question(www);
}

struct DnsCase {
	const char *what;
	Dns m;
	u8 to_wireless;
	s32 result;
	Lines out; /* with the placeholders of expand() */
};

const std::string a63(63, 'a'), b63(63, 'b'), x60(60, 'x'), y60(60, 'y');
const std::string ab = a63 + "." + b63, xy = x60 + "." + y60;

/*
 * Offsets in a response to the question www.example.com: the question at
 * 12, the first record at 33; a record whose owner is a pointer has its
 * fixed fields at 35 and its RDATA at 45, the next record after an A one
 * at 49.
 */
const Lines kBadQuestion{kQueryFailed}, kBadRecord{kBadName[1]};

const DnsCase kCases[] = {
	/* ---- size, header and direction ---- */
	{"header_only", Dns(), 0, -1, {"D vy_parse_dns:invalid dns body length = 0"}},
	{"thirteen_bytes_reach_the_question", Dns().query().qdcount(1).raw({0}), 0, 0,
	 corrupt("vy_parse_dns_query", "{@12}", 4) + kBadQuestion},
	{"qdcount_0", Dns().query().qdcount(0).question(www), 0, 0,
	 {"D vy_parse_dns_pkt:do not support query count(0) > 1 or = 0"}},
	{"qdcount_2", Dns().query().question(www).question("a.b"), 0, 0,
	 {"D vy_parse_dns_pkt:do not support query count(2) > 1 or = 0"}},
	{"query_to_wireless", Dns().query().question(www), 1, 0,
	 {"D vy_parse_dns_pkt:ignore DNS Query to wireless"}},
	{"response_from_wireless", reply().a(kAtQ, kIp1), 0, 0,
	 {"D vy_parse_dns_pkt:ignore DNS Answer not to wireless"}},

	/* ---- the question: 127 characters of leading labels ---- */
	{"root_question", Dns().query().question(""), 0, 0, Q("")},
	{"question_127_characters", Dns().query().question(ab), 0, 0, Q(ab)},
	{"question_label_beyond_127_dropped", Dns().query().question(ab + ".c"), 0, 0, Q(ab)},
	{"question_later_labels_dropped_too",
	 Dns().query().question(xy + "." + std::string(10, 'z') + ".q"), 0, 0, Q(xy)},
	{"question_label_past_the_end", Dns().query().qdcount(1).raw({5, 'a', 'b'}), 0, 0,
	 corrupt("vy_parse_dns_query", "{@12}", 5) + kBadQuestion},
	{"question_pointer_is_a_length", Dns().query().qdcount(1).raw(kAtQ + Bytes(8, 0)), 0, 0,
	 corrupt("vy_parse_dns_query", "{@12}", 192) + kBadQuestion},
	{"question_type_cut", Dns().query().qdcount(1).raw(name("ab") + Bytes{0, 1, 0}), 0, 0,
	 corrupt("vy_parse_dns_query", "{@15}", 4) + kBadQuestion},
	{"aaaa_query", Dns().query().question(www, 28 /* AAAA */), 0, 0, kTypeAaaa},
	/* the type is checked before the RCODE */
	{"aaaa_response_with_rcode_3", Dns().response(3).question(www, 28), 1, 0, kTypeAaaa},

	/* ---- an error response: the records are not read ---- */
	{"rcode_3_ignores_ancount", Dns().response(3).question(www).ancount(2).raw({0xC0}), 1, 0,
	 R(www, 3)},

	/* ---- the answer walk ---- */
	{"cname_then_a_in_record_order", reply().cname(kAtQ, name("web.cdn.net")).a(ptr(45), kIp1),
	 1, 0, C(www, "web.cdn.net") + A("web.cdn.net", kIp1)},
	/* an owner pointing into the question, not at the last alias
	 * target, is decoded as it stands */
	{"owner_inside_the_question_after_a_cname",
	 reply().cname(kAtQ, name("web.cdn.net")).a(ptr(12 + 4), kIp1), 1, 0,
	 C(www, "web.cdn.net") + A("example.com", kIp1)},
	{"type_46_between_a_records",
	 reply().a(kAtQ, kIp1).record(kAtQ, 46 /* RRSIG */, Bytes(30, 0xEE)).a(kAtQ, kIp2), 1, 0,
	 A(www, kIp1) + Lines{"D vy_parse_dns_answer:ignore dns type 46"} + A(www, kIp2)},
	{"a_rdlength_6_first_four_bytes",
	 reply().record(kAtQ, 1 /* A */, {10, 1, 2, 3, 4, 5}).a(kAtQ, kIp2), 1, 0,
	 A(www, Ip{10, 1, 2, 3}) + A(www, kIp2)},
	{"uncompressed_owner", reply().a(name("other.org"), kIp1), 1, 0, A("other.org", kIp1)},
	{"owner_truncated_to_leading_labels",
	 reply().a(name(xy + "." + std::string(10, 'z')), kIp1), 1, 0,
	 cut(xy, "121 + 10 + 1") + A(xy, kIp1)},
	/* the question's text stands for a pointer to it only when whole */
	{"owner_pointing_at_a_question_that_lost_a_label",
	 Dns().response().question(ab + ".c").a(kAtQ, kIp1), 1, 0,
	 cut(ab, "127 + 1 + 1") + A(ab, kIp1)},
	/* and an alias target's only when it was not cut */
	{"owner_pointing_at_a_cut_alias_target",
	 reply().cname(kAtQ, name(xy + "." + std::string(10, 'z'))).a(ptr(45), kIp1), 1, 0,
	 cut(xy, "121 + 10 + 1") + C(www, xy) + cut(xy, "121 + 10 + 1") + A(xy, kIp1)},
	/* a label of 64 whose first byte is 12 is no pointer to the question */
	{"owner_label_that_reads_as_the_question_offset",
	 reply().a(Bytes{64, 12} + Bytes(63, 'x') + Bytes{0}, kIp1), 1, 0,
	 A("\x0c" + std::string(63, 'x'), kIp1)},
	/* a record that would start past the message fails on its first byte */
	{"ancount_larger_than_records", reply().a(kAtQ, kIp1).a(kAtQ, kIp2).ancount(3), 1, 0,
	 A(www, kIp1) + A(www, kIp2) + bad_name("{@65}", 0)},
	{"owner_past_the_end", reply().a(kAtQ, kIp1).ancount(2).raw({10, 'a', 'b'}), 1, 0,
	 A(www, kIp1) + bad_name("{@49}", 10)},
	{"owner_pointer_second_byte_past_the_end", reply().ancount(1).raw({0xC0}), 1, 0,
	 bad_name("{@33}", 1)},
	{"fixed_fields_cut", reply().ancount(1).raw(kAtQ + Bytes{0, 1, 0, 1, 0, 0, 1}), 1, 0,
	 corrupt("vy_parse_dns_answer", "{@35}", 9) + kBadRecord},
	{"fixed_fields_end_the_message", reply().record(kAtQ, 46, {}), 1, 0,
	 {"D vy_parse_dns_answer:ignore dns type 46"}},
	{"a_address_cut", reply().record(kAtQ, 1, {1, 2}), 1, 0,
	 corrupt("vy_parse_dns_answer", "{@45}", 3) + kBadRecord},
	/* an owner pointing at itself: the seventeenth pointer fails, and
	 * the rate limit lets ten of the sixteen nested errors through */
	{"owner_pointer_loop", reply().a(ptr(33), kIp1), 1, 0,
	 corrupt("_vy_parse_dns_domain", "{dns}", 33) + Lines(10, kNested) + kBadName},

	/* ---- CNAME targets: inside the RDATA and the message ---- */
	{"cname_target_pointer_to_question", reply().cname(kAtQ, name_ptr("edge", 12)), 1, 0,
	 C(www, "edge." + www)},
	{"cname_rdata_past_the_message",
	 reply().record(kAtQ, 5 /* CNAME */, name("alias.net"), 200).ancount(2), 1, 0,
	 C(www, "alias.net") + bad_name("{@56}", 0)},
	/* RDLENGTH reaches past the message and the label past its end */
	{"cname_target_cut_by_the_message", reply().record(kAtQ, 5, {5, 'a', 'l', 'i'}, 50), 1, 0,
	 bad_name("{@45}", 5)},
	{"cname_target_longer_than_rdata",
	 reply().record(kAtQ, 5, name("alias.net"), 4).a(kAtQ, kIp1), 1, 0,
	 bad_name("{@45}", 5, "{@48}")},
	{"cname_rdata_one_byte_before_the_end", reply().record(kAtQ, 5, {2, 'a', 'b'}).raw({0}), 1,
	 0, bad_name("{@45}", 2, "{@47}")},
	{"cname_empty_rdata", reply().record(kAtQ, 5, {}).a(kAtQ, kIp1), 1, 0,
	 bad_name("{@45}", 0, "{@44}")},
	/* names a target leads to must lie at or before the RDATA's end */
	{"cname_pointer_past_the_rdata",
	 reply().ancount(1).record(kAtQ, 5, ptr(47)).raw(name("late.org")), 1, 0,
	 bad_name("{dns}", 47, "{@46}")},
};

class DnsMessage : public ParserTest, public ::testing::WithParamInterface<DnsCase> {};

TEST_P(DnsMessage, LogsAndCalls)
{
	const DnsCase &c = GetParam();
	const Bytes m = c.m.build();
	const auto h = heap(m);
	pkt_info pkt{};

	std::memcpy(pkt.saddr, msg::Ip{192, 0, 2, 10}.data(), 4);
	EXPECT_EQ(vy_parse_dns(kMac.data(), &pkt, h.get(), m.size(), c.to_wireless),
		  c.result);
	EXPECT_EQ(take_trace(), expand(c.out, h.get(), h.get() + m.size() - 1));
}

INSTANTIATE_TEST_SUITE_P(DnsMessages, DnsMessage, ::testing::ValuesIn(kCases),
			 [](const auto &info) { return std::string(info.param.what); });

TEST_F(ParserTest, DnsRefusesMissingArguments)
{
	const Bytes m = Dns().query().question("a.b").build();
	pkt_info pkt{};
	const std::string w = "W vy_parse_dns:invalid parameters. (sta_mac = ";

	EXPECT_EQ(vy_parse_dns(nullptr, &pkt, m.data(), m.size(), 0), -1);
	EXPECT_EQ(vy_parse_dns(kMac.data(), nullptr, m.data(), m.size(), 0), -1);
	EXPECT_EQ(vy_parse_dns(kMac.data(), &pkt, nullptr, 40, 0), -1);
	const Lines lines = take_trace();
	EXPECT_EQ(lines.size(), 3u);
	for (const std::string &l : lines)
		EXPECT_EQ(l.rfind(w, 0), 0u) << l;
}

} // namespace
