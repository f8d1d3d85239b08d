// The DNS name decoder on its own: labels, compression pointers and their
// bound, truncation to the output room, and every bound at the end.
#include <optional>

#include "parser_test.h"
#include "vy_dns.h"

namespace {

using msg::Bytes;
using msg::label;
using msg::labels;
using msg::name;
using msg::name_ptr;
using msg::operator+;
using msg::ptr;
using msg::repeat;

const std::string kDom = "I _vy_parse_dns_domain:";
const std::string kCorrupt = kDom + "DNS packets might be corrupt or fragmented: ";
const std::string kMax = kDom + "domain length > the max size 128 (partial domain = ";
const std::string kNestedError =
	"W _vy_parse_dns_domain:_vy_parse_dns_domain() error";

struct DomainCase {
	const char *what;
	Bytes m;
	size_t start;
	std::optional<size_t> end; /* offset of the last byte; default: last */
	s16 room;
	std::optional<size_t> next; /* offset of the result; none: failure */
	std::string text;
	u16 len;
	/* "{dns}", "{end}" and "{@N}" stand for those addresses. */
	std::vector<std::string> logs;
};

/* A chain of n links "a", "b", ... each a label and a pointer to the next,
 * the last pointing to the name "end". */
Bytes chain(size_t n)
{
	Bytes m;

	for (size_t i = 0; i < n; i++)
		m = m + name_ptr(std::string(1, char('a' + i)),
				 static_cast<u16>(4 * (i + 1)));
	return m + name("end");
}

std::string chain_text(size_t n)
{
	std::string t;

	for (size_t i = 0; i < n; i++)
		t += std::string(1, char('a' + i)) + ".";
	return t + "end";
}

const std::string a63 = repeat('a', 63), b63 = repeat('b', 63);
const std::string x60 = repeat('x', 60), y60 = repeat('y', 60);
const std::string x110 = repeat('x', 110), x120 = repeat('x', 120);

const DomainCase kCases[] = {
	{"labels", name("www.example.com"), 0, {}, 128, 17, "www.example.com",
	 15, {}},
	{"root name", {0}, 0, {}, 128, 1, "", 0, {}},
	{"labels are copied as they are", name("WwW.Ex_ample.c-m"), 0, {}, 128,
	 18, "WwW.Ex_ample.c-m", 16, {}},
	{"lengths 64 to 191 are labels", name(repeat('q', 100)), 0, {}, 128,
	 102, repeat('q', 100), 100, {}},
	{"pointer after labels", name("example.com") + name_ptr("www", 0), 13,
	 {}, 128, 19, "www.example.com", 15, {}},
	{"name that is only a pointer", name("example.com") + ptr(0), 13, {},
	 128, 15, "example.com", 11, {}},
	{"nested pointers",
	 name("com") + name_ptr("example", 0) + name_ptr("www", 5), 15, {}, 128,
	 21, "www.example.com", 15, {}},
	{"pointer to a zero byte leaves a trailing dot",
	 Bytes{0} + name_ptr("www", 0), 1, {}, 128, 7, "www.", 4, {}},
	{"16 pointers are followed", chain(16), 0, {}, 128, 4, chain_text(16),
	 static_cast<u16>(chain_text(16).size()), {}},
	{"sub-name length adds to the text before the pointer",
	 name("example.com") + label(x110) + ptr(0), 13, {}, 128, 126,
	 x110 + ".example.com", 122, {}},

	/* the 127 characters of a 128-byte buffer */
	{"127 characters stay whole", name(a63 + "." + b63), 0, {}, 128, 129,
	 a63 + "." + b63, 127, {}},
	{"one label more is dropped",
	 labels(a63 + "." + b63) + name("c"), 0, {}, 128, 131, a63 + "." + b63,
	 127,
	 {kMax + a63 + "." + b63 + ", 127 + 1 + 1 >= 128)"}},
	{"truncation keeps the length before the first label cut",
	 labels(x60 + "." + y60) + labels(repeat('z', 10)) + name("q"), 0, {},
	 128, 136, x60 + "." + y60, 121,
	 {kMax + x60 + "." + y60 + ", 121 + 10 + 1 >= 128)",
	  kMax + x60 + "." + y60 + ", 127 + 1 + 1 >= 128)"}},
	{"small room", name("www.example.com"), 0, {}, 8, 17, "www", 3,
	 {kMax + "www, 3 + 7 + 1 >= 8)", kMax + "www, 7 + 3 + 1 >= 8)"}},
	{"first label longer than the room", name("abcdefghij"), 0, {}, 8, 12,
	 "", 7, {kMax + ", 0 + 10 + 1 >= 8)"}},
	{"pointer after a full buffer gets no dot",
	 name("com") + labels(a63 + "." + b63) + ptr(0), 5, {}, 128, 135,
	 a63 + "." + b63, 127,
	 {kMax + a63 + "." + b63 + ", 127 + 1 >= 128)",
	  kMax + ", 0 + 3 + 1 >= 1)"}},
	{"pointer target cut by the remaining room",
	 name("example.com") + label(x120) + ptr(0), 13, {}, 128, 136,
	 x120 + ".", 127,
	 {kMax + ", 0 + 7 + 1 >= 7)", kMax + ", 6 + 3 + 1 >= 7)"}},

	/* bounds at the end */
	{"zero byte at the end", name("www"), 0, 4, 128, 5, "www", 3, {}},
	{"zero byte past the end", name("www"), 0, 3, 128, {}, "", 0,
	 {kCorrupt + "{@0} + 3 > {end}"}},
	{"label past the end", name("www.example.com"), 0, 10, 128, {}, "", 0,
	 {kCorrupt + "{@4} + 7 > {end}"}},
	{"first byte past the end", name("abc"), 5, 4, 128, {}, "", 0,
	 {kCorrupt + "{@5} + 0 > {end}"}},
	{"pointer target at the end", name_ptr("www", 6) + Bytes{0}, 0, 6, 128,
	 6, "www.", 4, {}},
	{"pointer target past the end", name_ptr("www", 6) + Bytes{0}, 0, 5,
	 128, {}, "", 0, {kCorrupt + "{dns} + 6 > {end}"}},
	{"pointer's second byte past the end", labels("www") + Bytes{0xC0}, 0,
	 {}, 128, {}, "", 0, {kCorrupt + "{@4} + 1 > {end}"}},
	{"failure inside a pointer's target",
	 name_ptr("abc", 6) + label("xy"), 0, 7, 128, {}, "", 0,
	 {kCorrupt + "{@6} + 2 > {end}", kNestedError}},
	{"pointer far past the message", name_ptr("a", 0x3FFF), 0, {}, 128, {},
	 "", 0, {kCorrupt + "{dns} + 16383 > {end}"}},
};

void PrintTo(const DomainCase &c, std::ostream *os)
{
	*os << c.what;
}

class DnsDomain : public ParserTest,
		  public ::testing::WithParamInterface<DomainCase> {};

TEST_P(DnsDomain, Decodes)
{
	const DomainCase &c = GetParam();
	Heap h(c.m);
	const u8 *end = h.at(c.end ? *c.end : c.m.size() - 1);
	char out[VY_DNS_NAME_SIZE];
	u16 out_len = 0xFFFF;

	std::memset(out, 0x55, sizeof(out));
	const u8 *next = _vy_parse_dns_domain(h.data(), h.at(c.start), end, out,
					      &out_len, c.room);

	std::vector<std::string> want;
	for (const auto &l : c.logs)
		want.push_back(expand(l, h.data(), end));
	EXPECT_EQ(logs(), want);

	if (!c.next) {
		EXPECT_EQ(next, nullptr);
		return;
	}
	ASSERT_NE(next, nullptr);
	EXPECT_EQ(next - h.data(), static_cast<long>(*c.next));
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
					 if (!std::isalnum(
						     static_cast<unsigned char>(ch)))
						 ch = '_';
				 return n;
			 });

/* Loops and over-long chains: the name fails at the pointer that would be
 * the seventeenth, with one "corrupt" line, and each level above it adds
 * its own error line (as many as the warning rate limit lets through). */
struct LoopCase {
	const char *what;
	Bytes m;
	size_t start;
	size_t failing_target;
};

void PrintTo(const LoopCase &c, std::ostream *os)
{
	*os << c.what;
}

class DnsDomainLoops : public ParserTest,
		       public ::testing::WithParamInterface<LoopCase> {};

TEST_P(DnsDomainLoops, FailAtThePointerBound)
{
	const LoopCase &c = GetParam();
	Heap h(c.m);
	char out[VY_DNS_NAME_SIZE];
	u16 out_len;

	fresh_ratelimit();
	EXPECT_EQ(_vy_parse_dns_domain(h.data(), h.at(c.start), h.last(), out,
				       &out_len, VY_DNS_NAME_SIZE),
		  nullptr);

	auto lines = logs();
	ASSERT_FALSE(lines.empty());
	EXPECT_EQ(lines[0], kCorrupt + ptr(h.data()) + " + " +
				    std::to_string(c.failing_target) + " > " +
				    ptr(h.last()));
	EXPECT_GE(lines.size(), 2u);
	EXPECT_LE(lines.size(), 1u + VY_DNS_MAX_POINTERS);
	for (size_t i = 1; i < lines.size(); i++)
		EXPECT_EQ(lines[i], kNestedError);
}

const LoopCase kLoops[] = {
	{"self_pointer", ptr(0), 0, 0},
	{"two_pointer_cycle", ptr(2) + ptr(0), 0, 2},
	{"label_loop", name_ptr("www", 0), 0, 0},
	{"seventeen_pointers", chain(17), 0, 68},
};

INSTANTIATE_TEST_SUITE_P(DnsPointers, DnsDomainLoops, ::testing::ValuesIn(kLoops),
			 [](const auto &info) { return std::string(info.param.what); });

TEST_F(ParserTest, DnsDomainRefusesMissingArguments)
{
	const Bytes m = name("www");
	Heap h(m);
	char out[VY_DNS_NAME_SIZE];
	u16 out_len;

	EXPECT_EQ(_vy_parse_dns_domain(nullptr, h.data(), h.last(), out,
				       &out_len, 128),
		  nullptr);
	EXPECT_EQ(_vy_parse_dns_domain(h.data(), nullptr, h.last(), out,
				       &out_len, 128),
		  nullptr);
	EXPECT_EQ(_vy_parse_dns_domain(h.data(), h.data(), h.last(), out,
				       &out_len, 0),
		  nullptr);
	const std::string w = "W _vy_parse_dns_domain:invalid parameters. (dns = ";
	EXPECT_EQ(logs(), (std::vector<std::string>{
				  w + ptr(nullptr) + ", domain_p = " + ptr(h.data()) + ")",
				  w + ptr(h.data()) + ", domain_p = " + ptr(nullptr) + ")",
				  w + ptr(h.data()) + ", domain_p = " + ptr(h.data()) + ")",
			  }));
}

} // namespace
