// The DNS name decoder on its own: labels, compression pointers and their
// bound, truncation to the output room, and every bound at the end.
#include <optional>

#include "parser_test.h"
#include "vy_dns.h"

namespace {

using msg::Bytes;
using msg::labels;
using msg::name;
using msg::name_ptr;
using msg::operator+;
using ::operator+;
using msg::ptr;

const std::string kCorrupt =
	"I _vy_parse_dns_domain:DNS packets might be corrupt or fragmented: ";
const std::string kMax =
	"I _vy_parse_dns_domain:domain length > the max size 128 (partial domain = ";
const std::string kNested = "W _vy_parse_dns_domain:_vy_parse_dns_domain() error";

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

/* A chain of n links "a", "b", ... each a label and a pointer to the next,
 * the last pointing to the name "end". */
Bytes chain(size_t n)
{
	Bytes m;

	for (size_t i = 0; i < n; i++)
		m = m + name_ptr(std::string(1, char('a' + i)), static_cast<u16>(4 * (i + 1)));
	return m + name("end");
}

/* A name that fails at the pointer that would be the seventeenth, whose
 * target is at an offset: each level above it adds its own error line, as
 * many as the warning rate limit lets through. */
Lines loop(int target)
{
	return Lines{kCorrupt + "{dns} + " + std::to_string(target) + " > {end}"} +
	       Lines(10, kNested);
}

const std::string a63(63, 'a'), b63(63, 'b'), x60(60, 'x'), y60(60, 'y');
const std::string ab = a63 + "." + b63, xy = x60 + "." + y60;
const std::string x110(110, 'x'), x120(120, 'x'), q100(100, 'q');

const DomainCase kCases[] = {
	{"labels", name("www.example.com"), 0, {}, 128, 17, "www.example.com", 15, {}},
	{"root name", {0}, 0, {}, 128, 1, "", 0, {}},
	{"lengths 64 to 191 are labels", name(q100), 0, {}, 128, 102, q100, 100, {}},
	{"pointer after labels", name("example.com") + name_ptr("www", 0), 13, {}, 128, 19,
	 "www.example.com", 15, {}},
	{"name that is only a pointer", name("example.com") + ptr(0), 13, {}, 128, 15,
	 "example.com", 11, {}},
	{"pointer to a zero byte leaves a trailing dot", Bytes{0} + name_ptr("www", 0), 1, {}, 128,
	 7, "www.", 4, {}},
	{"16 pointers are followed", chain(16), 0, {}, 128, 4,
	 "a.b.c.d.e.f.g.h.i.j.k.l.m.n.o.p.end", 35, {}},
	{"sub-name length adds to the text before the pointer",
	 name("example.com") + labels(x110) + ptr(0), 13, {}, 128, 126, x110 + ".example.com", 122,
	 {}},

	/* the 127 characters of a 128-byte buffer */
	{"127 characters stay whole", name(ab), 0, {}, 128, 129, ab, 127, {}},
	{"one label more is dropped", labels(ab) + name("c"), 0, {}, 128, 131, ab, 127,
	 {kMax + ab + ", 127 + 1 + 1 >= 128)"}},
	{"truncation keeps the length before the first label cut",
	 labels(xy) + labels(std::string(10, 'z')) + name("q"), 0, {}, 128, 136, xy, 121,
	 {kMax + xy + ", 121 + 10 + 1 >= 128)", kMax + xy + ", 127 + 1 + 1 >= 128)"}},
	{"small room", name("www.example.com"), 0, {}, 8, 17, "www", 3,
	 {kMax + "www, 3 + 7 + 1 >= 8)", kMax + "www, 7 + 3 + 1 >= 8)"}},
	/* the room's bounds exactly: one byte, a label that needs the last
	 * byte, a dot before a pointer that takes it */
	{"room of one byte", name("a"), 0, {}, 1, 3, "", 0, {kMax + ", 0 + 1 + 1 >= 1)"}},
	{"label that needs the last byte", name("abcdefg"), 0, {}, 8, 9, "", 7,
	 {kMax + ", 0 + 7 + 1 >= 8)"}},
	{"dot that fills the room", name("x") + labels("abcdef") + ptr(0), 3, {}, 8, 12, "abcdef.",
	 7, {kMax + ", 0 + 1 + 1 >= 1)"}},
	{"first label longer than the room", name("abcdefghij"), 0, {}, 8, 12, "", 7,
	 {kMax + ", 0 + 10 + 1 >= 8)"}},
	{"pointer after a full buffer gets no dot", name("com") + labels(ab) + ptr(0), 5, {}, 128,
	 135, ab, 127, {kMax + ab + ", 127 + 1 >= 128)", kMax + ", 0 + 3 + 1 >= 1)"}},
	{"pointer target cut by the remaining room", name("example.com") + labels(x120) + ptr(0),
	 13, {}, 128, 136, x120 + ".", 127,
	 {kMax + ", 0 + 7 + 1 >= 7)", kMax + ", 6 + 3 + 1 >= 7)"}},

	/* bounds at the end */
	{"zero byte at the end", name("www"), 0, 4, 128, 5, "www", 3, {}},
	{"zero byte past the end", name("www"), 0, 3, 128, {}, "", 0,
	 {kCorrupt + "{@0} + 3 > {end}"}},
	{"label past the end", name("www.example.com"), 0, 10, 128, {}, "", 0,
	 {kCorrupt + "{@4} + 7 > {end}"}},
	{"first byte past the end", name("abc"), 5, 4, 128, {}, "", 0,
	 {kCorrupt + "{@5} + 0 > {end}"}},
	{"pointer target at the end", name_ptr("www", 6) + Bytes{0}, 0, 6, 128, 6, "www.", 4, {}},
	{"pointer target past the end", name_ptr("www", 6) + Bytes{0}, 0, 5, 128, {}, "", 0,
	 {kCorrupt + "{dns} + 6 > {end}"}},
	{"pointer's second byte past the end", labels("www") + Bytes{0xC0}, 0, {}, 128, {}, "", 0,
	 {kCorrupt + "{@4} + 1 > {end}"}},
	{"failure inside a pointer's target", name_ptr("abc", 6) + labels("xy"), 0, 7, 128, {}, "",
	 0, {kCorrupt + "{@6} + 2 > {end}", kNested}},

	/* loops and over-long chains */
	{"self pointer", ptr(0), 0, {}, 128, {}, "", 0, loop(0)},
	{"seventeen pointers", chain(17), 0, {}, 128, {}, "", 0, loop(68)},
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
	if (!c.next) {
		EXPECT_EQ(next, nullptr);
		return;
	}
	ASSERT_NE(next, nullptr);
	EXPECT_EQ(next - h.get(), static_cast<long>(*c.next));
	EXPECT_EQ(std::string(out), c.text);
	EXPECT_EQ(out_len, c.len);
	/* The room is zero-filled: the byte after the text ends it, and the
	 * last byte of the room is never written. */
	EXPECT_EQ(out[c.room - 1], 0);
	for (int i = c.room; i < VY_DNS_NAME_SIZE; i++)
		ASSERT_EQ(out[i], 0x55) << "written past the room at " << i;
}

INSTANTIATE_TEST_SUITE_P(DnsNames, DnsDomain, ::testing::ValuesIn(kCases),
			 [](const auto &info) {
				 std::string n = info.param.what;
				 for (char &ch : n)
					 if (!std::isalnum(static_cast<unsigned char>(ch)))
						 ch = '_';
				 return n;
			 });

TEST_F(ParserTest, DnsDomainRefusesMissingArguments)
{
	const Bytes m = name("www");
	char out[VY_DNS_NAME_SIZE];
	u16 len;
	const std::string w = "W _vy_parse_dns_domain:invalid parameters. (dns = ";

	EXPECT_EQ(_vy_parse_dns_domain(nullptr, m.data(), &m.back(), out, &len, 128), nullptr);
	EXPECT_EQ(_vy_parse_dns_domain(m.data(), nullptr, &m.back(), out, &len, 128), nullptr);
	EXPECT_EQ(_vy_parse_dns_domain(m.data(), m.data(), &m.back(), out, &len, 0), nullptr);
	const Lines lines = take_trace();
	EXPECT_EQ(lines.size(), 3u);
	for (const std::string &l : lines)
		EXPECT_EQ(l.rfind(w, 0), 0u) << l;
}

} // namespace
