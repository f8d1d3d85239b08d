// The DNS parser on whole messages (header and direction rules, the
// question, the answer walk record by record, every bound at the end of
// the message) and its name decoder on its own (compression pointers and
// their bound, truncation to the output room, bounds at the end). Each row
// lists the exact log lines and station table calls, in order. Last, both
// parsers refusing missing arguments.
#include "parser_test.h"
#include "vy_dhcp.h"
#include "vy_dns.h"

namespace {

using namespace msg;

const Mac kMac{0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
const std::string kMacText = " 02:11:22:33:44:55 ";
const Ip kIp1{198, 51, 100, 7}, kIp2{203, 0, 113, 9};
const Bytes kAtQ = ptr(12); /* the question's name */
const std::string www = "www.example.com";

const std::string kNested = "W _vy_parse_dns_domain:_vy_parse_dns_domain() error";
const std::string kCorrupt = "DNS packets might be corrupt or fragmented: ";
const Lines kBadName{"W vy_parse_dns_answer:_vy_parse_dns_domain() error",
		     "W vy_parse_dns_pkt:dns answer parsing failed"};

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

/* "what failed: at + n > end", from a function: the name decoder's unless
 * told. */
Lines corrupt(const std::string &at, int n, const std::string &fn = "_vy_parse_dns_domain",
	      const std::string &end = "{end}")
{
	return {"I " + fn + ":" + kCorrupt + at + " + " + std::to_string(n) + " > " + end};
}

Lines bad_name(const std::string &at, int n, const std::string &end = "{end}")
{
	return corrupt(at, n, "_vy_parse_dns_domain", end) + kBadName;
}

/* A name cut to the leading labels that fit, "kept, sums >= room)". */
Lines cut(const std::string &kept, const std::string &sums, int room = 128)
{
	return {"I _vy_parse_dns_domain:domain length > the max size 128 (partial domain = " +
		kept + ", " + sums + " >= " + std::to_string(room) + ")"};
}

/* A response to the question www.example.com. */
Dns reply()
{
	return Dns().response().question(www);
}

const std::string a63(63, 'a'), b63(63, 'b'), x60(60, 'x'), y60(60, 'y');
const std::string ab = a63 + "." + b63, xy = x60 + "." + y60;

/*
 * Offsets in a response to the question www.example.com: the question at
 * 12, the first record at 33; a record whose owner is a pointer has its
 * fixed fields at 35 and its RDATA at 45.
 */
const Lines kBadQuestion{"W vy_parse_dns_pkt:dns query parsing failed"}, kBadRecord{kBadName[1]};

/* A chain of n links "a", "b", ... each a label and a pointer to the next,
 * the last pointing to the name "end"; the chain starts at offset base. */
Bytes chain(size_t n, size_t base = 0)
{
	Bytes m;

	for (size_t i = 0; i < n; i++)
		m = m + labels(std::string(1, char('a' + i))) + ptr(static_cast<u16>(base + 4 * (i + 1)));
	return m + name("end");
}

const Row<Dns> kCases[] = {
	/* ---- size, header and direction ---- */
	{"header_only", Dns(), 0, -1, {"D vy_parse_dns:invalid dns body length = 0"}},
	{"thirteen_bytes_reach_the_question", Dns().query().qdcount(1).raw({0}), 0, 0,
	 corrupt("{@12}", 4, "vy_parse_dns_query") + kBadQuestion},
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
	{"question_label_beyond_127_dropped", Dns().query().question(ab + ".c"), 0, 0, Q(ab)},
	{"labels_after_a_dropped_one_dropped", Dns().query().question(xy + ".zzzzzz.c"), 0, 0, Q(xy)},
	{"question_pointer_is_a_length", Dns().query().qdcount(1).raw(kAtQ + Bytes(8, 0)), 0, 0,
	 corrupt("{@12}", 192, "vy_parse_dns_query") + kBadQuestion},
	/* the type is checked before the RCODE */
	{"aaaa_response_with_rcode_3", Dns().response(3).question(www, 28 /* AAAA */), 1, 0,
	 {"D vy_parse_dns_pkt:ignore dns type 28 (only support query type A: 1)"}},

	/* ---- an error response: the records are not read ---- */
	{"rcode_3_ignores_ancount", Dns().response(3).question(www).ancount(2).raw({0xC0}), 1, 0,
	 {"I vy_parse_dns_pkt:DNS Answer: " + www + " fails with RCODE = 3",
	  "> reject" + kMacText + with_len(www) + " rcode 3"}},

	/* ---- the answer walk ---- */
	{"cname_then_a_in_record_order",
	 reply().record(kAtQ, 5 /* CNAME */, name("web.cdn.net")).a(ptr(45), kIp1), 1, 0,
	 C(www, "web.cdn.net") + A("web.cdn.net", kIp1)},
	/* an owner pointing into the question, not at the last alias
	 * target, is decoded as it stands */
	{"owner_inside_the_question_after_a_cname",
	 reply().record(kAtQ, 5 /* CNAME */, name("web.cdn.net")).a(ptr(12 + 4), kIp1), 1, 0,
	 C(www, "web.cdn.net") + A("example.com", kIp1)},
	/* the question's text stands for a pointer to it only when whole */
	{"owner_pointing_at_a_question_that_lost_a_label",
	 Dns().response().question(ab + ".c").a(kAtQ, kIp1), 1, 0,
	 cut(ab, "127 + 1 + 1") + A(ab, kIp1)},
	/* and an alias target's only when it was not cut */
	{"owner_pointing_at_a_cut_alias_target",
	 reply().record(kAtQ, 5, name(xy + "." + std::string(10, 'z'))).a(ptr(45), kIp1), 1, 0,
	 cut(xy, "121 + 10 + 1") + C(www, xy) + cut(xy, "121 + 10 + 1") + A(xy, kIp1)},
	/* nor when it took 16 pointers: the owner's pointer is a 17th (a TXT
	 * record holds the chain) */
	{"owner_pointing_at_an_alias_target_of_16_pointers",
	 reply().record(kAtQ, 16, chain(15, 45)).record(kAtQ, 5, labels("x") + ptr(45)).a(ptr(122), kIp1), 1, 0,
	 Lines{"D vy_parse_dns_answer:ignore dns type 16"} + C(www, "x.a.b.c.d.e.f.g.h.i.j.k.l.m.n.o.end") +
		 corrupt("{@0}", 105) + Lines(10, kNested) + kBadName},
	/* a label of 64 whose first byte is 12 is no pointer to the question */
	{"owner_label_that_reads_as_the_question_offset",
	 reply().a(Bytes{64, 12} + Bytes(63, 'x') + Bytes{0}, kIp1), 1, 0,
	 A("\x0c" + std::string(63, 'x'), kIp1)},
	{"a_rdlength_6_first_four_bytes",
	 reply().record(kAtQ, 1 /* A */, {10, 1, 2, 3, 4, 5}).a(kAtQ, kIp2), 1, 0,
	 A(www, Ip{10, 1, 2, 3}) + A(www, kIp2)},
	/* a record that would start past the message fails on its first byte */
	{"ancount_larger_than_records", reply().a(kAtQ, kIp1).a(kAtQ, kIp2).ancount(3), 1, 0,
	 A(www, kIp1) + A(www, kIp2) + bad_name("{@65}", 0)},
	{"fixed_fields_cut", reply().ancount(1).raw(kAtQ + Bytes{0, 1, 0, 1, 0, 0, 1}), 1, 0,
	 corrupt("{@35}", 9, "vy_parse_dns_answer") + kBadRecord},
	{"fixed_fields_end_the_message", reply().record(kAtQ, 46 /* RRSIG */, {}), 1, 0,
	 {"D vy_parse_dns_answer:ignore dns type 46"}},
	{"a_address_cut", reply().record(kAtQ, 1, {1, 2}), 1, 0,
	 corrupt("{@45}", 3, "vy_parse_dns_answer") + kBadRecord},

	/* ---- CNAME (type 5) targets: inside the RDATA ---- */
	{"cname_rdata_one_byte_before_the_end", reply().record(kAtQ, 5, {2, 'a', 'b'}).raw({0}), 1,
	 0, bad_name("{@45}", 2, "{@47}")},
	{"cname_empty_rdata", reply().record(kAtQ, 5, {}).a(kAtQ, kIp1), 1, 0,
	 bad_name("{@45}", 0, "{@44}")},
	/* names a target leads to must lie at or before the RDATA's end */
	{"cname_pointer_past_the_rdata",
	 reply().ancount(1).record(kAtQ, 5, ptr(47)).raw(name("late.org")), 1, 0,
	 bad_name("{@0}", 47, "{@46}")},
};

class DnsMessage : public ParserTest, public ::testing::WithParamInterface<Row<Dns>> {};

TEST_P(DnsMessage, LogsAndCalls)
{
	const Row<Dns> &c = GetParam();
	const Bytes m = c.m.build();
	const auto h = heap(m);
	pkt_info pkt{};

	std::memcpy(pkt.saddr, msg::Ip{192, 0, 2, 10}.data(), 4);
	EXPECT_EQ(vy_parse_dns(kMac.data(), &pkt, h.get(), m.size(), c.to_wireless),
		  c.result);
	EXPECT_EQ(take_trace(), expand(c.out, h.get(), h.get() + m.size() - 1));
}

INSTANTIATE_TEST_SUITE_P(DnsMessages, DnsMessage, ::testing::ValuesIn(kCases),
			 [](const auto &info) { return info.param.what; });

struct DomainCase {
	const char *what;
	Bytes m;
	size_t start;
	std::optional<size_t> end; /* offset of the last byte; default: last */
	s16 room;
	std::optional<size_t> next; /* offset of the result; none: failure */
	std::string text;
	u16 len;
	Lines logs; /* with the placeholders of expand() */
};

const DomainCase kNames[] = {
	{"pointer_after_labels", name("example.com") + labels("www") + ptr(0), 13, {}, 128, 19,
	 "www.example.com", 15, {}},
	{"16_pointers_are_followed", chain(16), 0, {}, 128, 4,
	 "a.b.c.d.e.f.g.h.i.j.k.l.m.n.o.p.end", 35, {}},

	/* the 127 characters of a 128-byte buffer */
	{"127_characters_stay_whole", name(ab), 0, {}, 128, 129, ab, 127, {}},
	/* the room's bounds exactly: one byte, a label that needs the last
	 * byte, a dot before a pointer that takes it */
	{"room_of_one_byte", name("a"), 0, {}, 1, 3, "", 0, cut("", "0 + 1 + 1", 1)},
	{"label_that_needs_the_last_byte", name("abcdefg"), 0, {}, 8, 9, "", 7,
	 cut("", "0 + 7 + 1", 8)},
	{"dot_that_fills_the_room", name("x") + labels("abcdef") + ptr(0), 3, {}, 8, 12, "abcdef.",
	 7, cut("", "0 + 1 + 1", 1)},
	{"pointer_after_a_full_buffer_gets_no_dot", name("com") + labels(ab) + ptr(0), 5, {}, 128,
	 135, ab, 127, cut(ab, "127 + 1") + cut("", "0 + 3 + 1", 1)},

	/* bounds at the end */
	{"zero_byte_at_the_end", name("www"), 0, 4, 128, 5, "www", 3, {}},
	{"zero_byte_past_the_end", name("www"), 0, 3, 128, {}, "", 0, corrupt("{@0}", 3)},
	{"first_byte_past_the_end", name("abc"), 5, 4, 128, {}, "", 0, corrupt("{@5}", 0)},
	{"pointer_target_at_the_end", labels("www") + ptr(6) + Bytes{0}, 0, 6, 128, 6, "www.", 4,
	 {}},
	{"pointer_target_past_the_end", labels("www") + ptr(6) + Bytes{0}, 0, 5, 128, {}, "", 0,
	 corrupt("{@0}", 6)},
	{"pointer_second_byte_past_the_end", labels("www") + Bytes{0xC0}, 0, {}, 128, {}, "", 0,
	 corrupt("{@4}", 1)},
	{"failure_inside_a_pointer_target", labels("abc") + ptr(6) + labels("xy"), 0, 7, 128, {},
	 "", 0, corrupt("{@6}", 2) + Lines{kNested}},

	/* the seventeenth pointer fails; each level above it adds its own error
	 * line, as many as the warning rate limit lets through */
	{"seventeen_pointers", chain(17), 0, {}, 128, {}, "", 0,
	 corrupt("{@0}", 68) + Lines(10, kNested)},
};

class DnsDomain : public ParserTest, public ::testing::WithParamInterface<DomainCase> {};

TEST_P(DnsDomain, Decodes)
{
	const DomainCase &c = GetParam();
	const auto h = heap(c.m);
	const u8 *end = h.get() + (c.end ? *c.end : c.m.size() - 1);
	char out[VY_DNS_NAME_SIZE];
	u16 out_len = 0xFFFF;

	std::memset(out, 0x55, sizeof(out));
	const u8 *next =
		_vy_parse_dns_domain(h.get(), h.get() + c.start, end, out, &out_len, c.room);
	EXPECT_EQ(take_trace(), expand(c.logs, h.get(), end));
	ASSERT_EQ(next == nullptr, !c.next);
	if (!next)
		return;
	EXPECT_EQ(next - h.get(), static_cast<long>(*c.next));
	EXPECT_EQ(std::string(out), c.text);
	EXPECT_EQ(out_len, c.len);
	/* The room is zero-filled: the byte after the text ends it, and the
	 * last byte of the room is never written. */
	EXPECT_EQ(out[c.room - 1], 0);
	for (int i = c.room; i < VY_DNS_NAME_SIZE; i++)
		ASSERT_EQ(out[i], 0x55) << "written past the room at " << i;
}

INSTANTIATE_TEST_SUITE_P(DnsNames, DnsDomain, ::testing::ValuesIn(kNames),
			 [](const auto &info) { return std::string(info.param.what); });

/* Each missing argument is refused with one warning. */
TEST_F(ParserTest, RefusesMissingArguments)
{
	const Bytes m = Dns().query().question("a.b").build();
	pkt_info pkt{};
	char out[VY_DNS_NAME_SIZE];
	u16 len;
	const char *const warn[] = {"W vy_parse_dns:invalid parameters. (sta_mac = ",
				    "W _vy_parse_dns_domain:invalid parameters. (dns = "};

	EXPECT_EQ(vy_parse_dns(nullptr, &pkt, m.data(), m.size(), 0), -1);
	EXPECT_EQ(vy_parse_dns(kMac.data(), nullptr, m.data(), m.size(), 0), -1);
	EXPECT_EQ(vy_parse_dns(kMac.data(), &pkt, nullptr, 40, 0), -1);
	EXPECT_EQ(_vy_parse_dns_domain(nullptr, m.data(), &m.back(), out, &len, 128), nullptr);
	EXPECT_EQ(_vy_parse_dns_domain(m.data(), nullptr, &m.back(), out, &len, 128), nullptr);
	EXPECT_EQ(_vy_parse_dns_domain(m.data(), m.data(), &m.back(), out, &len, 0), nullptr);
	EXPECT_EQ(_vy_parse_dns_domain(m.data(), m.data(), nullptr, out, &len, 128), nullptr);
	EXPECT_EQ(_vy_parse_dns_domain(m.data(), m.data(), &m.back(), nullptr, &len, 128), nullptr);
	EXPECT_EQ(_vy_parse_dns_domain(m.data(), m.data(), &m.back(), out, nullptr, 128), nullptr);
	EXPECT_EQ(vy_parse_dhcp(nullptr, 300, 0), -1);
	const Lines lines = take_trace();
	ASSERT_EQ(lines.size(), 10u);
	for (size_t i = 0; i < 9; i++)
		EXPECT_EQ(lines[i].rfind(warn[i < 3 ? 0 : 1], 0), 0u) << lines[i];
	EXPECT_EQ(lines[9], "W vy_parse_dhcp:invalid parameters. (payload = " + ptr(nullptr) + ")");
}

} // namespace
