// Random and mutated messages, from a fixed seed: every message sits in a
// heap block of exactly its size (and every decoded name in a block of
// exactly its room), so AddressSanitizer stops at the first byte read or
// written outside. Whatever the message, the calls made must carry names
// and host names that fit their buffers.
#include <random>

#include "parser_test.h"
#include "vy_dhcp.h"
#include "vy_dns.h"

namespace {

using msg::Bytes;
using msg::operator+;

constexpr int kDnsMessages = 300000;
constexpr int kNames = 200000;
constexpr int kDhcpMessages = 300000;

class Rng {
public:
	explicit Rng(u32 seed) : g_(seed) {}
	u32 below(u32 n) { return n ? g_() % n : 0; }
	bool chance(u32 percent) { return below(100) < percent; }
	u8 byte() { return static_cast<u8>(g_()); }
	Bytes bytes(size_t n)
	{
		Bytes b(n);
		for (auto &x : b)
			x = byte();
		return b;
	}

private:
	std::mt19937 g_;
};

class ParserFuzz : public ParserTest {
protected:
	/* Keeps the capture small: the log text is formatted either way. */
	void drain()
	{
		vy_host::take_events();
		fake_sta::clear();
	}
};

/* ---- DNS ----------------------------------------------------------------- */

Bytes random_labels(Rng &r, size_t max_labels)
{
	Bytes b;
	size_t n = r.below(static_cast<u32>(max_labels) + 1);

	for (size_t i = 0; i < n; i++) {
		u32 len = r.chance(10) ? r.below(192) : 1 + r.below(20);
		b.push_back(static_cast<u8>(len));
		for (u32 j = 0; j < len; j++)
			b.push_back(static_cast<u8>('a' + r.below(26)));
	}
	return b;
}

/* A name: labels ended by a zero byte, or by a pointer somewhere at or
 * before here (sometimes anywhere at all). */
Bytes random_name(Rng &r, size_t here)
{
	Bytes b = random_labels(r, 4);

	if (r.chance(50) && here > 0) {
		u32 target = r.chance(90) ? r.below(static_cast<u32>(here) + 2)
					  : r.below(0x4000);
		b = b + msg::ptr(static_cast<u16>(target));
	} else {
		b.push_back(0);
	}
	return b;
}

Bytes random_dns(Rng &r)
{
	if (r.chance(5))
		return r.bytes(r.below(300));

	msg::Dns d;
	if (r.chance(50))
		d.query();
	else
		d.response(r.chance(85) ? 0 : r.below(16));
	if (r.chance(5))
		d.flags(static_cast<u16>(r.below(0x10000)));

	Bytes qname = random_labels(r, 5) + Bytes{0};
	d.question(qname, r.chance(90) ? msg::kTypeA : r.below(300));
	if (r.chance(3))
		d.qdcount(static_cast<u16>(r.below(4)));

	size_t records = r.below(6);
	for (size_t i = 0; i < records; i++) {
		Bytes owner = r.chance(60) ? msg::ptr(msg::kQuestionOffset)
					   : random_name(r, d.here());
		static const u16 types[] = {msg::kTypeA, msg::kTypeCname,
					    msg::kTypeRrsig, msg::kTypeAaaa};
		u16 type = r.chance(90) ? types[r.below(4)]
					: static_cast<u16>(r.below(0x10000));
		Bytes rdata;
		if (type == msg::kTypeCname)
			rdata = random_name(r, d.here() + owner.size() + 10);
		else
			rdata = r.bytes(type == msg::kTypeA && r.chance(80)
						? 4
						: r.below(20));
		if (r.chance(10))
			d.record(owner, type, rdata,
				 static_cast<u16>(r.chance(50) ? r.below(0x10000)
							       : r.below(40)));
		else
			d.record(owner, type, rdata);
	}
	if (r.chance(10))
		d.ancount(static_cast<u16>(r.chance(50) ? r.below(0x10000)
							: records + r.below(3)));

	Bytes m = d.build();
	/* Mutations: flipped bytes, pointers dropped in, truncation. */
	if (r.chance(30))
		for (u32 n = 1 + r.below(4); n; n--)
			m[r.below(static_cast<u32>(m.size()))] = r.byte();
	if (r.chance(15) && m.size() > 13) {
		size_t at = 12 + r.below(static_cast<u32>(m.size() - 13));
		m[at] = static_cast<u8>(0xC0 | r.below(2));
		m[at + 1] = r.byte();
	}
	if (r.chance(30))
		m.resize(r.below(static_cast<u32>(m.size()) + 1));
	return m;
}

void check_name(const std::string &text, u16 len, const char *what)
{
	ASSERT_LE(text.size(), VY_DNS_NAME_SIZE - 1u) << what;
	ASSERT_LE(len, VY_DNS_NAME_SIZE - 1u) << what;
}

TEST_F(ParserFuzz, DnsMessagesStayInsideTheirBytes)
{
	Rng r(0x5eed0001);
	const u8 mac[6] = {2, 0, 0, 0, 0, 1};
	pkt_info pkt{};
	size_t made_calls = 0;

	for (int i = 0; i < kDnsMessages; i++) {
		const Bytes m = random_dns(r);
		Heap h(m);

		debug_level = static_cast<s32>(r.below(5));
		s32 res = vy_parse_dns(mac, &pkt, h.data(), h.size(),
				       static_cast<u8>(r.below(2)));
		ASSERT_EQ(res, m.size() <= 12 ? -1 : 0) << "message " << i;

		const u16 ancount = m.size() >= 8 ? (m[6] << 8 | m[7]) : 0;
		ASSERT_LE(calls().size(), std::max<size_t>(1, ancount))
			<< "message " << i;
		for (const auto &c : calls()) {
			check_name(c.name, c.name_len, "name");
			check_name(c.cname, c.cname_len, "cname");
		}
		made_calls += calls().size();
		drain();
		if (HasFatalFailure())
			return;
	}
	/* The generator reaches the calls, not only the failures. */
	EXPECT_GT(made_calls, static_cast<size_t>(kDnsMessages) / 10);
}

TEST_F(ParserFuzz, DnsNamesStayInsideMessageAndRoom)
{
	Rng r(0x5eed0002);
	size_t decoded = 0;

	for (int i = 0; i < kNames; i++) {
		/* Mostly a name at a random place in random bytes, decoded
		 * from where it starts; sometimes from anywhere. */
		Bytes m = r.bytes(1 + r.below(200));
		size_t start = r.below(static_cast<u32>(m.size()) + 1);
		if (r.chance(70)) {
			start = r.below(static_cast<u32>(m.size()));
			Bytes n = random_name(r, start);
			m.resize(start);
			m = m + n;
			if (r.chance(50))
				m = m + r.bytes(r.below(20));
		}
		Heap h(m);
		const size_t last = r.chance(80) ? m.size() - 1
						 : r.below(static_cast<u32>(m.size()));
		const s16 room = static_cast<s16>(1 + r.below(VY_DNS_NAME_SIZE));
		std::unique_ptr<char[]> out(new char[room]);
		u16 out_len = 0;

		debug_level = static_cast<s32>(r.below(5));
		const u8 *next = _vy_parse_dns_domain(h.data(), h.at(start),
						      h.at(last), out.get(),
						      &out_len, room);
		if (next) {
			decoded++;
			ASSERT_GT(next, h.data()) << "name " << i;
			ASSERT_LE(next, h.at(m.size())) << "name " << i;
			ASSERT_EQ(out[room - 1], 0) << "name " << i;
			ASSERT_LT(out_len, room) << "name " << i;
		}
		drain();
	}
	EXPECT_GT(decoded, static_cast<size_t>(kNames) / 10);
}

/* ---- DHCP ---------------------------------------------------------------- */

Bytes random_dhcp(Rng &r)
{
	if (r.chance(3))
		return r.bytes(r.below(600));

	msg::Dhcp d;
	if (r.chance(5))
		d.cookie({r.byte(), r.byte(), r.byte(), r.byte()});
	if (r.chance(50))
		d.yiaddr({10, 0, 0, static_cast<u8>(r.below(3))});
	if (r.chance(50))
		d.ciaddr({10, 0, 1, 1});

	static const u8 codes[] = {0,	3,  6,	12, 50,
				   53, 54, 255, 1, 61};
	for (u32 n = r.below(12); n; n--) {
		u8 code = r.chance(90) ? codes[r.below(10)] : r.byte();
		if (code == msg::kOptPad || code == msg::kOptEnd) {
			if (code == msg::kOptPad || r.chance(30))
				d.raw({code});
			continue;
		}
		u32 len = code == msg::kOptMessageType && r.chance(80)
				  ? 1
				  : (r.chance(90) ? r.below(70) : r.below(256));
		Bytes data = r.bytes(std::min<u32>(len, 80));
		if (code == msg::kOptMessageType && !data.empty() &&
		    r.chance(80))
			data[0] = static_cast<u8>(1 + r.below(9));
		d.option(code, data, static_cast<u8>(len));
	}
	Bytes m = d.build();
	if (r.chance(40) && m.size() < msg::kDhcpMax)
		m.resize(m.size() + r.below(static_cast<u32>(msg::kDhcpMax - m.size()) + 1), 0);
	if (r.chance(30))
		for (u32 n = 1 + r.below(4); n; n--)
			m[240 + r.below(static_cast<u32>(m.size() - 239)) - 1] = r.byte();
	if (r.chance(25))
		m.resize(235 + r.below(static_cast<u32>(m.size()) - 235 + 2));
	return m;
}

TEST_F(ParserFuzz, DhcpMessagesStayInsideTheirBytes)
{
	Rng r(0x5eed0003);
	size_t handed = 0;

	for (int i = 0; i < kDhcpMessages; i++) {
		const Bytes m = random_dhcp(r);
		Heap h(m);
		const u8 to_wireless = static_cast<u8>(r.below(2));

		debug_level = static_cast<s32>(r.below(5));
		s32 res = vy_parse_dhcp(h.data(), h.size(), to_wireless);

		const bool in_range = m.size() >= 240 && m.size() <= 552;
		const bool cookie = in_range && m[236] == 0x63 &&
				    m[237] == 0x82 && m[238] == 0x53 &&
				    m[239] == 0x63;
		ASSERT_EQ(res, cookie ? 0 : -1) << "message " << i;
		ASSERT_LE(calls().size(), 1u) << "message " << i;
		for (const auto &c : calls()) {
			ASSERT_LE(c.hostname_len, 64) << "message " << i;
			ASSERT_LE(c.hostname.size(), 64u) << "message " << i;
			ASSERT_LE(c.status, 3u) << "message " << i;
			ASSERT_EQ(0, std::memcmp(c.mac.data(), &m[28], 6));
			handed++;
		}
		drain();
	}
	EXPECT_GT(handed, static_cast<size_t>(kDhcpMessages) / 4);
}

} // namespace
